// A hash file that others write while it is open here, or that a killed process has left.
#include <gtest/gtest.h>

#include <fstream>

#include "engine/persist/testing/file_faults.h"
#include "engine/persist/testing/shared_hash_file_fixture.h"

namespace quorvane {
namespace {

using testing::ContentsOf;
using testing::Fault;
using testing::Packed;
using testing::ReadBytes;
using testing::SharedHashFileTest;
using testing::ToldMap;
using testing::ToldRecord;

TEST_F(SharedHashFileTest, WhileAnotherHoldsItEachSaveWritesTheWholeMapInPlace)
{
    const FileStamp before = Stamp();
    const auto theirs = Load();
    Set(*theirs, u"B1", u"theirs");
    ToldMap told = model;
    told[u"B1"] = u"theirs";
    EXPECT_EQ(Told(), told);

    Set(*mine, u"A1", u"two");
    model[u"A1"] = u"two";
    EXPECT_EQ(Told(), model);
    mine->Remove(Packed(u"A2"));
    ASSERT_EQ(mine->Save(), S_OK);
    model.erase(u"A2");
    EXPECT_EQ(Told(), model);
    ASSERT_EQ(theirs->Save(), S_OK);
    EXPECT_EQ(Told(), told);

    EXPECT_TRUE(Stamp().IsSameFile(before));
}

TEST_F(SharedHashFileTest, WhenTheOtherHasGoneTheNextSaveWritesTheWholeMapAndTheOneBehindItOnlyAChange)
{
    auto theirs = Load();
    Set(*theirs, u"B1", u"theirs");
    theirs = nullptr;
    Set(*mine, u"A1", u"two");
    model[u"A1"] = u"two";
    EXPECT_EQ(Told(), model);

    testing::ArmFault(Fault::None, 0);
    Set(*mine, u"A2", u"two");
    EXPECT_EQ(testing::DisarmFault(), 1u);
    model[u"A2"] = u"two";
    EXPECT_EQ(Told(), model);
}

TEST_F(SharedHashFileTest, WhatAStrangerWroteIsReplacedByTheMap)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << ToldRecord(u"X", u"stranger");
    Set(*mine, u"A1", u"two");
    model[u"A1"] = u"two";
    EXPECT_EQ(Told(), model);

    std::ofstream(path, std::ios::binary | std::ios::app) << ToldRecord(u"X", u"stranger");
    ASSERT_EQ(mine->Save(), S_OK);
    EXPECT_EQ(Told(), model);
}

TEST_F(SharedHashFileTest, WhatAKilledProcessLeftBesideIsRemoved)
{
    mine = nullptr;
    std::ofstream(path + ".new") << "half a file";
    std::ofstream(path + ".redo") << "half a record";
    mine = Load();
    EXPECT_TRUE(Beside().empty());
    EXPECT_EQ(ContentsOf(*mine), model);
}

TEST_F(SharedHashFileTest, ARecordedOverwriteIsFinishedOnlyWhereItWasBegun)
{
    mine = nullptr;
    const ToldMap two = {{u"AABB", u"1"}, {u"CCDD", u"2"}};
    const std::string first = ToldRecord(u"AABB", u"1");
    const std::string before("A\0A\0B\0B\0", 8);
    const std::string after("C\0C\0D\0D\0", 8);
    const struct {
        const char* what;
        std::u16string key;
        ToldMap expected;
    } cases[] = {{"not begun", u"AABB", two},
                 {"torn", u"CCBB", {{u"CCDD", u"2"}}},
                 {"done", u"CCDD", {{u"CCDD", u"2"}}},
                 {"another record", u"AAXX", {{u"AAXX", u"1"}, {u"CCDD", u"2"}}}};
    for (const auto& one : cases) {
        std::ofstream(path, std::ios::binary) << ToldRecord(one.key, u"1") << ToldRecord(u"CCDD", u"2");
        LeaveRedo(4, before, after);
        EXPECT_EQ(ContentsOf(*Load()), one.expected) << one.what;
        EXPECT_TRUE(Beside().empty());
    }
}

TEST_F(SharedHashFileTest, ARecordedOverwriteBeyondTheFileOrNotWholeChangesNothing)
{
    mine = nullptr;
    const std::string bytes = ReadBytes(path);
    LeaveRedo(static_cast<std::uint32_t>(bytes.size() - 2), "abcd", "efgh");
    EXPECT_EQ(ContentsOf(*Load()), model);
    LeaveRedo(0xFFFFFFF0u, "abcd", "efgh");
    EXPECT_EQ(ContentsOf(*Load()), model);
    LeaveRedo(4, "A", "B");
    std::fstream(path + ".redo", std::ios::in | std::ios::out | std::ios::binary).put('q');
    EXPECT_EQ(ContentsOf(*Load()), model);
    std::ofstream(path + ".redo", std::ios::binary) << std::string(3 * 1024 * 1024, 'x');
    EXPECT_EQ(ContentsOf(*Load()), model);
    EXPECT_EQ(ReadBytes(path), bytes);
}

}  // namespace
}  // namespace quorvane
