#include "host/inbox.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

#include "host/sender.h"
#include "host/test_mailbox.h"

namespace quorvane::host {

namespace {

class InboxTest : public ::testing::Test {
protected:
    static constexpr std::chrono::seconds kWithin{60};

    InboxTest() { std::filesystem::create_directory(here.directory / "exchange"); }

    std::filesystem::path IncomingPath(const std::string& sender, int sequence) const
    {
        char name[32];
        std::snprintf(name, sizeof name, "%020d.qvt", sequence);
        return here.directory / "exchange" / "bob" / sender / name;
    }

    // Lays a package with a message into the exchange, as another member sends it.
    void Arrive(const std::string& sender, int sequence, const std::string& subject)
    {
        const std::string group = sender + std::to_string(sequence);
        const std::string entryId = here.AddMessage(subject);
        EXPECT_TRUE(outside.SendItem(here.share, entryId, group));
        here.DeleteMessage(entryId);
        here.Execute("DELETE FROM tblItem");
        Statement(here.hostRecords, "DELETE FROM item").Run();
        const auto place = IncomingPath(sender, sequence);
        std::filesystem::create_directories(place.parent_path());
        std::filesystem::copy_file(ReadText(*here.PackageFor(group), &IStorageFile::get_Path), place);
    }

    // Works everything off.
    void Drain()
    {
        const auto end = std::chrono::steady_clock::now() + kWithin;
        while (inbox.HasWork(exchange)) {
            inbox.TakeNext(exchange);
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::yield();
        }
    }

    std::vector<std::string> Subjects() const
    {
        std::vector<std::string> subjects;
        ForEachItem(*here.folder, [&](const ItemInfo& item) { subjects.push_back(item.subject); });
        return subjects;
    }

    SharedTestMailbox here;
    Sender outside{here.addin, here.parts, here.engine};
    Exchange exchange{here.directory / "exchange", here.mailbox};
    Matcher matcher{here.parts, here.engine};
    std::vector<std::string> lines;
    Inbox inbox{here.parts, here.engine, matcher, [this](const std::string& line) { lines.push_back(line); }};
};

TEST_F(InboxTest, EveryPackageHasASecondTryOfItsOwn)
{
    Arrive("alice~1", 1, "first");
    Arrive("alice~1", 2, "second");
    // Each is let in when it comes again.
    here.callbacks.beforeReceived = [this, call = 0]() mutable { here.callbacks.failReceived = ++call % 2; };

    Drain();

    EXPECT_EQ(Subjects(), (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(here.statistics.packagesRejected, 0U);
    EXPECT_EQ(lines, std::vector<std::string>());
}

TEST_F(InboxTest, APackageThatFailsTwiceIsPutAsideAndTheNextOneIsTaken)
{
    Arrive("alice~1", 1, "refused");
    Arrive("alice~1", 2, "taken");
    here.callbacks.failReceived = 2;

    Drain();

    EXPECT_EQ(Subjects(), std::vector<std::string>{"taken"});
    EXPECT_EQ(here.statistics.packagesRejected, 1U);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("1 of its items could not be applied"), std::string::npos) << lines[0];
    EXPECT_TRUE(std::filesystem::exists(here.mailbox.Directory() / "rejected" /
                                        ("alice~1-" + IncomingPath("", 1).filename().string())));
    EXPECT_FALSE(std::filesystem::exists(IncomingPath("alice~1", 1)));
}

TEST_F(InboxTest, NoPackageOvertakesTheOneThatIsWithTheEngine)
{
    Arrive("alice~1", 1, "first");
    Arrive("carol~2", 1, "second");
    std::promise<void> begun, go;
    here.callbacks.beforeReceived = [&, call = 0]() mutable {
        if (++call > 1)
            return;
        begun.set_value();
        go.get_future().wait_for(kWithin);
    };
    ASSERT_TRUE(inbox.TakeNext(exchange));
    ASSERT_EQ(begun.get_future().wait_for(kWithin), std::future_status::ready);

    EXPECT_FALSE(inbox.TakeNext(exchange));
    EXPECT_EQ(here.statistics.packagesReceived, 1U);
    EXPECT_EQ(here.Ask("SELECT count(*) FROM tblUnfinishedReceiveJob"), 1);
    EXPECT_TRUE(std::filesystem::exists(IncomingPath("carol~2", 1)));

    go.set_value();
    Drain();
    EXPECT_EQ(Subjects(), (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(here.statistics.packagesReceived, 2U);
}

}  // namespace

}  // namespace quorvane::host
