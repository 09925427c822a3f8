// What a hash file does with the system: how often it writes, and what it does when it is refused.
#include <gtest/gtest.h>

#include <fstream>

#include "engine/persist/testing/file_faults.h"
#include "engine/persist/testing/hash_changes.h"

namespace quorvane {
namespace {

using testing::Fault;
using testing::HashFileTest;
using testing::Keys;
using testing::Number;
using testing::Packed;
using testing::ReadBytes;
using testing::ToldRecord;

TEST_F(HashFileTest, ASaveThatChangesNothingLeavesTheFileAlone)
{
    auto file = Load();
    file->Set(Packed(u"A"), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    testing::ArmFault(Fault::None, 0);
    file->Set(Packed(u"A"), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(testing::DisarmFault(), 0u);
}

TEST_F(HashFileTest, AChangeCostsAFewWritesHoweverLargeTheMap)
{
    for (const size_t records : {10u, 1000u, 30000u}) {
        Empty();
        auto file = Load();
        for (const auto& key : Keys(records))
            file->Set(Packed(key), Packed(u"hash\t1"));
        ASSERT_EQ(file->Save(), S_OK);
        const std::u16string key = Number(100005);
        const auto writesOf = [&](auto change) {
            testing::ArmFault(Fault::None, 0);
            change();
            EXPECT_EQ(file->Save(), S_OK);
            return testing::DisarmFault();
        };
        EXPECT_EQ(writesOf([&] { file->Set(Packed(key), Packed(u"hash\t2")); }), 1u) << records;
        EXPECT_EQ(writesOf([&] { file->Set(Packed(u"200000"), Packed(u"hash\t1")); }), 1u) << records;
        EXPECT_EQ(writesOf([&] { file->Remove(Packed(u"200000")); }), 1u) << records;
        EXPECT_LE(writesOf([&] { file->Remove(Packed(key)); }), 8u) << records;
        EXPECT_EQ(Told().size(), records - 1);
    }
}

TEST_F(HashFileTest, AFileThatCannotBeReadIsNotWritten)
{
    const std::string bytes = ToldRecord(u"A", u"1");
    std::ofstream(path, std::ios::binary) << bytes;
    HashFile file;
    HRESULT damage = S_OK;
    ASSERT_EQ(file.Open(path), S_OK);
    testing::ArmFault(Fault::NoRead, 1);
    EXPECT_TRUE(FAILED(file.Load(damage)));
    testing::DisarmFault();
    EXPECT_EQ(file.Save(), S_OK);
    file.Set(Packed(u"B"), Packed(u"2"));
    EXPECT_EQ(file.Save(), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
    EXPECT_EQ(ReadBytes(path), bytes);
}

TEST_F(HashFileTest, RemovingEveryRecordCostsAFewWritesEach)
{
    constexpr size_t kRecords = 300;
    auto file = Load();
    for (const auto& key : Keys(kRecords)) {
        file->Set(Packed(key), Packed(u"hash\t1"));
        ASSERT_EQ(file->Save(), S_OK);
    }
    testing::ArmFault(Fault::None, 0);
    for (const auto& key : Keys(kRecords)) {
        file->Remove(Packed(key));
        ASSERT_EQ(file->Save(), S_OK);
    }
    EXPECT_LT(testing::DisarmFault(), kRecords * 20);
    EXPECT_EQ(ReadBytes(path).size(), 0u);
}

}  // namespace
}  // namespace quorvane
