// A hash file that others write, replace or remove while it is open here.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "engine/persist/testing/file_faults.h"
#include "engine/persist/testing/hash_changes.h"
#include "engine/session/trace/crc32.h"

namespace quorvane {
namespace {

using testing::ContentsOf;
using testing::Fault;
using testing::HashFileTest;
using testing::Packed;
using testing::ReadBytes;
using testing::ToldMap;
using testing::ToldRecord;

class SharedHashFileTest : public HashFileTest {
protected:
    // A file with the keys A1 to A9.
    SharedHashFileTest()
    {
        for (char16_t digit = u'1'; digit <= u'9'; ++digit) {
            model[{u'A', digit}] = u"one";
            mine->Set(Packed({u'A', digit}), Packed(u"one"));
        }
        EXPECT_EQ(mine->Save(), S_OK);
    }

    void Set(HashFile& file, const std::u16string& key, const std::u16string& value)
    {
        file.Set(Packed(key), Packed(value));
        ASSERT_EQ(file.Save(), S_OK);
    }
    std::uint64_t FileNumber() const
    {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_ino;
    }
    // A redo record as this system writes it.
    void LeaveRedo(std::uint32_t offset, const std::string& before, const std::string& after) const
    {
        std::string tail;
        AppendLittleEndian32(tail, offset);
        AppendLittleEndian32(tail, 0);
        tail += before + after;
        std::string record("QVREDO2\n");
        AppendLittleEndian32(record, Crc32(tail.data(), tail.size()));
        std::ofstream(path + ".redo", std::ios::binary) << record + tail;
    }

    ToldMap model;
    std::unique_ptr<HashFile> mine = Load();
};

TEST_F(SharedHashFileTest, WhileAnotherHoldsItEachSaveWritesTheWholeMapInPlace)
{
    const std::uint64_t number = FileNumber();
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

    EXPECT_EQ(FileNumber(), number);
    EXPECT_TRUE(Beside().empty());
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

TEST_F(SharedHashFileTest, AFileThatWasReplacedOrRemovedIsThereAgainAfterTheNextSave)
{
    std::ofstream(path + ".other", std::ios::binary) << ToldRecord(u"X", u"stranger");
    std::filesystem::rename(path + ".other", path);
    Set(*mine, u"A1", u"two");
    model[u"A1"] = u"two";
    EXPECT_EQ(Told(), model);

    std::filesystem::remove(path);
    Set(*mine, u"A1", u"three");
    model[u"A1"] = u"three";
    EXPECT_EQ(Told(), model);
}

TEST_F(SharedHashFileTest, WhatStandsBesideAFileThatAnotherWritesIsLeftAlone)
{
    std::ofstream(path + ".new") << "theirs";
    std::ofstream(path + ".redo") << "theirs";
    const auto theirs = Load();
    EXPECT_EQ(Beside().size(), 2u);
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
