// What other processes change. The other process is a fork of this one.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

TEST(NotificationProcessTest, WhatAnotherProcessChangesIsToldAndSeen)
{
    TestMailbox mailbox;
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    mailbox.LogOff();
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        char byte = 0;
        const bool told = read(go[0], &byte, 1) == 1;
        if (told) {
            mailbox.LogOn();
            mailbox.AddMessage(mailbox.Inbox(), OLESTR("From elsewhere"));
            mailbox.LogOff();
        }
        _exit(told && !::testing::Test::HasFailure() ? 0 : 1);
    }
    mailbox.LogOn();
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    ASSERT_EQ(write(go[1], "x", 1), 1);

    EXPECT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(SubjectsOf(*table), std::vector<OleString>{OLESTR("From elsewhere")});
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    close(go[0]);
    close(go[1]);
}

}  // namespace
}  // namespace quorvane
