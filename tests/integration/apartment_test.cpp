// A host that lives on one thread: the engine calls it there, while it pumps or waits.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

class ApartmentTest : public testing::Test {
protected:
    // Waits in the way of an apartment's thread.
    static bool Pumped(const std::function<bool()>& condition)
    {
        return Eventually([&] {
            PumpApartmentCalls();
            return condition();
        });
    }

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

TEST_F(ApartmentTest, TheEndOfASessionAnswersBatchesThatAreCallingTheHost)
{
    constexpr int kMails = 5;
    for (int round = 0; round < 5; ++round) {
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        for (int i = 0; i < kMails; ++i)
            folder.Add("Mail " + std::to_string(i), "body");
        ASSERT_TRUE(Pumped([&] { return !logon.Host().Events("added").empty(); }));
    }
    EXPECT_EQ(folder.Count(), 25u);
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

}  // namespace
}  // namespace quorvane::test
