// The program with its engine and its store, of which a table can't be read to its end: what the table didn't
// show isn't deleted anywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "host/sharing/test_mailbox.h"
#include "msgstore/store/test_switches.h"

namespace quorvane::host {
namespace {

constexpr auto kDeadline = std::chrono::seconds(60);

class HiddenRowsTest : public ::testing::Test {
protected:
    HiddenRowsTest()
    {
        Check(here.mail.Store().OpenProperty(kPrTestSwitches, &IID_IStoreTestSwitches, 0, 0,
                                             switches.PutUnknown()),
              "get the switches of", "the store");
        here.callbacks.afterChange = [this](const std::string& entryId, bool) { Note(entryId); };
        here.callbacks.afterDeletion = [this](const std::string& entryId, HRESULT) { Note(entryId); };
        here.Watch(true);
    }

    void Note(const std::string& entryId)
    {
        const std::lock_guard lock(mutex_);
        told_.push_back(entryId);
        noted_.notify_all();
    }
    void AwaitWordOf(const std::string& entryId, std::ptrdiff_t times)
    {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(noted_.wait_for(
            lock, kDeadline, [&] { return std::count(told_.begin(), told_.end(), entryId) == times; }));
    }
    // A mail of one's own that the engine has told of.
    std::string AddShared(const std::string& subject)
    {
        const std::string entryId = here.AddMessage(subject);
        AwaitWordOf(entryId, 1);
        return entryId;
    }
    std::int64_t RowsOf(const std::string& entryId)
    {
        return here.Ask("SELECT COUNT(*) FROM tblItem WHERE EntryID='" + entryId + "'");
    }

    SharedTestMailbox here;
    ComPtr<IStoreTestSwitches> switches;

private:
    std::mutex mutex_;
    std::condition_variable noted_;
    std::vector<std::string> told_;
};

TEST_F(HiddenRowsTest, WhatATableThatCouldntBeReadDidntShowIsntDeletedForAnybody)
{
    const std::string kept = AddShared("kept");
    const std::string gone = AddShared("gone");

    ASSERT_EQ(switches->FailRowReads(1), S_OK);
    here.DeleteMessage(gone);
    AwaitWordOf(gone, 2);
    AwaitWordOf(kept, 2);
    // By then the engine has done with both.
    AddShared("later");

    EXPECT_EQ(here.statistics.deletionsSent, 1U);
    EXPECT_EQ(RowsOf(gone), 0);
    EXPECT_EQ(RowsOf(kept), 1);

    // It is remembered as well: its own deletion is told.
    here.DeleteMessage(kept);
    AwaitWordOf(kept, 3);
    EXPECT_EQ(here.statistics.deletionsSent, 2U);
}

}  // namespace
}  // namespace quorvane::host
