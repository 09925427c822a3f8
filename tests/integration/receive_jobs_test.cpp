// Received files as jobs: which are begun, in which order, and what is left of them.
#include <gtest/gtest.h>

#include <future>
#include <set>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

class ReceiveJobsTest : public testing::Test {
protected:
    // A package that announces the folder `name`, in the receiver's inbox.
    std::filesystem::path MakePackage(const std::string& name)
    {
        const TestFolder folder = sender.MakeFolder(name);
        const auto shared = from.Share(folder, name);
        Check(shared->Send(Variant::Text(FromUtf8(name)).Raw()), "announce a folder");
        return TakePackage(from, name, 0, receiver);
    }
    void Note(const std::filesystem::path& path, const std::string& tag)
    {
        receiver.Execute("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + path.string() + "', '" + tag +
                         "')");
    }
    long Rows() { return receiver.Query("SELECT count(*) FROM tblUnfinishedReceiveJob"); }

    TestMailbox sender;
    TestMailbox receiver;
    TestLogon from{sender};
    TestLogon to{receiver};
};

// They are queued from the last to the first; which of those that wait begins next is the pool's choice.
TEST_F(ReceiveJobsTest, EveryUnfinishedJobIsBegunOnce)
{
    for (const char* name : {"first", "second", "third"})
        Note(MakePackage(name), name);
    ASSERT_EQ(to.Session().ResumeJobs(qv_rs_Both), S_OK);
    ASSERT_TRUE(Eventually([&] { return Rows() == 0; }));

    std::multiset<std::string> tags;
    for (const HostEvent& event : to.Host().Events("folder"))
        tags.insert(event.tag);
    EXPECT_EQ(tags, (std::multiset<std::string>{"first", "second", "third"}));
}

TEST_F(ReceiveJobsTest, ResumingOneKindAloneBeginsNothing)
{
    const auto package = MakePackage("first");
    Note(package, "tag");
    EXPECT_EQ(to.Session().ResumeJobs(qv_rs_Receive), S_OK);
    EXPECT_EQ(to.Session().ResumeJobs(qv_rs_Resend), S_OK);
    // A job of its own after them: whatever they had begun would have been first in the one line.
    Process(to, MakePackage("second"), "fence");

    EXPECT_EQ(to.Host().Events("folder").size(), 1U);
    EXPECT_TRUE(std::filesystem::exists(package));
    EXPECT_TRUE(Eventually([&] { return Rows() == 1; }));  // a job's row goes after its file
}

TEST_F(ReceiveJobsTest, APathHandedOverTwiceHasOneRowAndIsAppliedOnce)
{
    // The first job is held in the host's callback until the second has been handed over.
    std::promise<void> handedOver;
    to.Host().AnswerWith([done = handedOver.get_future().share()](const HostEvent&, bool&) {
        done.wait();
        return S_OK;
    });
    const auto package = MakePackage("folder");
    const Bstr path = Text(package.string());
    ASSERT_EQ(to.Session().ProcessStorageFile(path.Get(), Text("first").Get()), S_OK);
    ASSERT_TRUE(to.Host().Heard("folder"));
    ASSERT_EQ(to.Session().ProcessStorageFile(path.Get(), Text("second").Get()), S_OK);
    EXPECT_EQ(Rows(), 1);
    handedOver.set_value();
    ASSERT_TRUE(Eventually([&] { return Rows() == 0 && !std::filesystem::exists(package); }));
    Process(to, MakePackage("fence"), "fence");

    const auto heard = to.Host().Events("folder");
    ASSERT_EQ(heard.size(), 2U);
    EXPECT_EQ(heard[0].tag, "first");
    EXPECT_EQ(heard[1].tag, "fence");
}

TEST_F(ReceiveJobsTest, AFolderThatTheHostFailsGoesWithItsFile)
{
    to.Host().AnswerWith([](const HostEvent&, bool&) { return E_FAIL; });
    const auto package = MakePackage("folder");
    Process(to, package, "tag");

    ASSERT_TRUE(Eventually([&] { return Rows() == 0; }));
    EXPECT_EQ(to.Host().Events("folder").size(), 1U);
    EXPECT_FALSE(std::filesystem::exists(package));
}

}  // namespace
}  // namespace quorvane::test
