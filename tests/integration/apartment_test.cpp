// A host that lives on one thread: the engine calls it there, while it pumps or waits. And one that doesn't:
// it is called on the engine's threads.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "tests/support/apartments.h"
#include "tests/support/packages.h"
#include "tests/support/process_counts.h"

namespace quorvane::test {
namespace {

class ApartmentTest : public RegisteredTest {
protected:
    const ApartmentScope apartment;
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
};

TEST_F(ApartmentTest, TheHostIsCalledOnItsOwnThread)
{
    TestLogon logon(mailbox);
    const auto shared = logon.Share(folder, "shared");
    std::atomic<bool> elsewhere{false};
    const auto here = std::this_thread::get_id();
    logon.Host().AnswerWith([&](const HostEvent&, bool&) {
        elsewhere = elsewhere || std::this_thread::get_id() != here;
        return S_OK;
    });
    const std::string id = folder.Add("Hello", "body");
    ASSERT_TRUE(Pumped([&] { return !logon.Host().Events("added").empty(); }));
    folder.SetSubject(id, "Hello again");
    ASSERT_TRUE(Pumped([&] { return !logon.Host().Events("changed").empty(); }));

    EXPECT_FALSE(elsewhere);
}

TEST_F(ApartmentTest, WhatTheHostIsGivenAndAnswersCrossesToItsThreadAndBack)
{
    TestLogon logon(mailbox);
    logon.Share(folder, "shared");
    logon.Host().AnswerWith([](const HostEvent&, bool& ignore) {
        ignore = true;
        return S_OK;
    });
    const std::string kept = folder.Add("Kept here", "body");
    ASSERT_TRUE(Pumped([&] { return logon.Host().Events("added").size() == 1; }));
    logon.Host().AnswerWith(nullptr);
    const std::string sent = folder.Add("Sent", "body");
    ASSERT_TRUE(Pumped([&] { return logon.Host().Events("added").size() == 2; }));
    std::optional<std::filesystem::path> package;
    ASSERT_TRUE(Pumped([&] { return (package = FindPackage(logon, folder.EntryId())).has_value(); }));
    const auto added = logon.Host().Events("added");
    logon.EndSession();

    EXPECT_EQ(added[0].entryId, kept);
    EXPECT_EQ(added[0].action, qv_ac_Added);
    EXPECT_EQ(added[1].entryId, sent);
    const auto count = CountPackage(*package);
    EXPECT_EQ(count ? count->items : 0, 1u);
}

// A batch's thread calls the host, which lives here, and nobody pumps but the session's end.
TEST_F(ApartmentTest, TheEndOfASessionAnswersBatchesThatAreCallingTheHost)
{
    for (int round = 0; round < 3; ++round) {
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        const size_t threads = CountThreads();
        folder.Add("Mail " + std::to_string(round), "body");
        ASSERT_TRUE(Eventually([&] { return CountThreads() > threads; }));
        EXPECT_TRUE(logon.Host().Events("added").empty());
        logon.EndSession();

        EXPECT_EQ(logon.Host().Events("added").size(), 1u);
    }
}

TEST_F(ApartmentTest, TheEndOfASessionAnswersAReceivedFileThatIsCallingTheHost)
{
    TestMailbox otherMailbox;
    const TestFolder otherFolder = otherMailbox.MakeFolder("Shared");
    TestLogon sender(otherMailbox);
    const auto sent = sender.Share(otherFolder, "shared");
    otherFolder.Add("Hello", "body");
    ASSERT_TRUE(Pumped([&] { return !sender.Host().Events("added").empty(); }));
    const auto package = TakePackage(sender, otherFolder.EntryId(), 1, mailbox);
    {
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        ASSERT_EQ(logon.Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()), S_OK);
    }
    // Done or left for the next start, but never in between.
    const long rows = mailbox.Query("SELECT count(*) FROM tblUnfinishedReceiveJob");
    EXPECT_EQ(std::filesystem::exists(package), rows == 1);
}

class FreeThreadTest : public testing::Test {
protected:
    const FreeThreadScope freeThread;
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
};

TEST_F(FreeThreadTest, TheHostIsCalledOnTheEnginesThreadsAndNeedsNotPump)
{
    TestLogon logon(mailbox);
    const auto shared = logon.Share(folder, "shared");
    const Callers callers(logon.Host());
    const std::string id = folder.Add("Hello", "body");
    ASSERT_TRUE(logon.Host().Heard("added"));
    folder.SetSubject(id, "Hello again");
    ASSERT_TRUE(logon.Host().Heard("changed"));
    logon.EndWithLateCalls();

    EXPECT_FALSE(callers.Threads().contains(std::this_thread::get_id()));
}

class TwoApartmentsTest : public RegisteredTest {
protected:
    TwoApartmentsTest()
    {
        apartment.Do([this] {
            theirs.emplace(theirMailbox);
            theirShared = theirs->Share(theirFolder, "shared");
        });
        mailbox.Select();
        ours.emplace(mailbox);
        ourShared = ours->Share(folder, "shared");
    }
    ~TwoApartmentsTest() override
    {
        apartment.Do([this] {
            theirShared.Reset();
            theirs.reset();
        });
    }

    const FreeThreadScope freeThread;
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
    PumpingThread apartment;
    TestMailbox theirMailbox;
    TestFolder theirFolder = theirMailbox.MakeFolder("Shared too");
    std::optional<TestLogon> theirs;
    std::optional<TestLogon> ours;
    ComPtr<IFolder> theirShared;
    ComPtr<IFolder> ourShared;
};

TEST_F(TwoApartmentsTest, EachHostIsCalledInItsOwn)
{
    const Callers theirCallers(theirs->Host());
    const Callers ourCallers(ours->Host());
    theirFolder.Add("Hello", "body");
    ASSERT_TRUE(theirs->Host().Heard("added"));
    Process(*ours, TakePackage(*theirs, theirFolder.EntryId(), 1, mailbox), "there");
    ASSERT_TRUE(ours->Host().Heard("received"));
    // The store has told of the applied mail, as it was then, when it tells of a later one.
    folder.Add("fence", "body");
    ASSERT_TRUE(ours->Host().Heard("added"));
    folder.SetSubject(*folder.Find("Hello"), "Hello back");
    ASSERT_TRUE(ours->Host().Heard("changed"));
    Process(*theirs, TakePackage(*ours, folder.EntryId(), 2, theirMailbox), "back");
    ASSERT_TRUE(theirs->Host().Heard("received"));

    EXPECT_EQ(theirCallers.Threads(), std::set{apartment.Id()});
    EXPECT_FALSE(ourCallers.Threads().empty());
    EXPECT_FALSE(ourCallers.Threads().contains(apartment.Id()));
    EXPECT_FALSE(ourCallers.Threads().contains(std::this_thread::get_id()));
    EXPECT_EQ(theirFolder.Subjects(), (std::vector<std::string>{"Hello back", "fence"}));
}

}  // namespace
}  // namespace quorvane::test
