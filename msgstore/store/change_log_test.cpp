#include "msgstore/store/change_log.h"

#include <gtest/gtest.h>

#include "msgstore/store/store_core.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

class ChangeLogTest : public ::testing::Test {
protected:
    ChangeLogTest() { EXPECT_EQ(StoreCore::Open((directory.Path() / "store").string(), true, core), S_OK); }

    // Writes changes until `last` is the number of the last one.
    void WriteUpTo(std::int64_t last)
    {
        EXPECT_EQ(core->Write(Durability::Deferred,
                              [&](SqliteConnection& connection) -> HRESULT {
                                  std::int64_t number = 0;
                                  QV_RETURN_IF_FAILED(ReadLastChange(connection, number));
                                  for (; number < last; ++number)
                                      QV_RETURN_IF_FAILED(AppendChange(connection, Change()));
                                  return S_OK;
                              }),
                  S_OK);
    }

    // The first change behind `after`; 0 if there is none, -1 if some have been dropped already.
    std::int64_t FirstAfter(std::int64_t after)
    {
        std::vector<Change> changes;
        const HRESULT hr = core->Read(
            [&](SqliteConnection& connection) { return ReadChanges(connection, after, 1, changes); });
        if (hr == S_FALSE)
            return changes.empty() ? -1 : -2;
        EXPECT_EQ(hr, S_OK);
        return changes.empty() ? 0 : changes[0].number;
    }

    testing::TestDirectory directory;
    std::shared_ptr<StoreCore> core;
};

TEST_F(ChangeLogTest, ChangesThatAreThereAreReadFromAnyNumberOn)
{
    WriteUpTo(10);
    EXPECT_EQ(FirstAfter(0), 1);
    EXPECT_EQ(FirstAfter(9), 10);
    EXPECT_EQ(FirstAfter(10), 0);
}

TEST_F(ChangeLogTest, WhoIsOneChangeBehindTheOldestKeptIsToldThatSomeAreGone)
{
    constexpr std::int64_t kDropped = 1000;
    WriteUpTo(kKeptChanges + kDropped - 1);
    EXPECT_EQ(FirstAfter(0), 1);
    WriteUpTo(kKeptChanges + kDropped);
    EXPECT_EQ(FirstAfter(kDropped), kDropped + 1);
    EXPECT_EQ(FirstAfter(kDropped - 1), -1);
    EXPECT_EQ(FirstAfter(0), -1);
}

}  // namespace
}  // namespace quorvane
