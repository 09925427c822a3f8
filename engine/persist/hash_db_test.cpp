#include "engine/persist/hash_db.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/persist/debug_timer.h"
#include "engine/persist/testing/hash_db_fixture.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/item_hash.h"
#include "engine/storeaccess/testing/fake_store.h"

namespace quorvane {
namespace {

using testing::FakeMessage;
using testing::HashDbTest;
using testing::ReadBytes;
using testing::ReadTold;
using testing::Text;
using testing::ToldMap;
using testing::ToldRecord;

TEST_F(HashDbTest, ANewFileIsEmptyAndTheStoreKnowsNothing)
{
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(store.Count(), 0u);
    EXPECT_EQ(Get("AB"), "/-1");
    EXPECT_EQ(ReadBytes(path), "");
}

TEST_F(HashDbTest, ARecordHasTheFormOfTheFile)
{
    ASSERT_EQ(Init(), S_OK);
    const std::string hash(32, 'a');
    ASSERT_EQ(Set("AB", hash.c_str(), 16), S_OK);
    const std::string bytes = ReadBytes(path);
    EXPECT_EQ(bytes.size(), 4u + 6 + 4 + 72);
    EXPECT_EQ(bytes.substr(0, 10), std::string("\x06\0\0\0A\0B\0\0\0", 10));
    EXPECT_EQ(bytes, ToldRecord(u"AB", std::u16string(32, u'a') + u"\t16"));
}

TEST_F(HashDbTest, HashAndFlagsComeBackAfterAReload)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h1", 7), S_OK);
    ASSERT_EQ(Set("CD", "h2", -5), S_OK);
    CHashDB again(OLESTR("F"));
    ASSERT_EQ(again.Init(place.Get()), S_OK);
    Bstr hash;
    LONG flags = 0;
    ASSERT_EQ(again.GetHash(Text("CD").Get(), hash.Put(), &flags), S_OK);
    EXPECT_EQ(hash.View(), OLESTR("h2"));
    EXPECT_EQ(flags, -5);
}

TEST_F(HashDbTest, EverySetHashIsInTheFileAtOnce)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h1", 7), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"AB", u"h1\t7"}}));
    ASSERT_EQ(Set("AB", "h2", 7), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"AB", u"h2\t7"}}));
    ASSERT_EQ(Set("CD", "h3", 17), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"AB", u"h2\t7"}, {u"CD", u"h3\t17"}}));
}

TEST_F(HashDbTest, ANullHashRemovesTheRecordAndAMissingKeyIsNoFailure)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h1", 7), S_OK);
    EXPECT_EQ(Set("AB", nullptr, 0), S_OK);
    EXPECT_EQ(Set("AB", nullptr, 0), S_OK);
    EXPECT_EQ(Get("AB"), "/-1");
    EXPECT_TRUE(ReadTold(ReadBytes(path)).empty());
}

TEST_F(HashDbTest, AnEmptyHashIsStoredAndReadsAsItsFlags)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "", 7), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"AB", u"\t7"}}));
    EXPECT_EQ(Get("AB"), "7/-1");
}

TEST_F(HashDbTest, ValuesAreSplitAtTabsThatCountOnce)
{
    Write(ToldRecord(u"01", u"hash") + ToldRecord(u"02", u"hash\t") + ToldRecord(u"03", u"hash\t\t9") +
          ToldRecord(u"04", u"\t\thash\t9") + ToldRecord(u"05", u"hash\t 12x\t3") + ToldRecord(u"06", u"") +
          ToldRecord(u"07", u"hash\t-1") + ToldRecord(u"08", u"hash\tx") +
          ToldRecord(u"09", u"hash\t99999999999") + ToldRecord(u"0A", u"\t\t"));
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(Get("01"), "hash/-1");
    EXPECT_EQ(Get("02"), "hash/-1");
    EXPECT_EQ(Get("03"), "hash/9");
    EXPECT_EQ(Get("04"), "hash/9");
    EXPECT_EQ(Get("05"), "hash/12");
    EXPECT_EQ(Get("06"), "/-1");
    EXPECT_EQ(Get("07"), "hash/-1");
    EXPECT_EQ(Get("08"), "hash/0");
    EXPECT_EQ(Get("09"), "hash/2147483647");
    EXPECT_EQ(Get("0A"), "/-1");
}

TEST_F(HashDbTest, KeysThatDifferInCaseAreTwoRecords)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("ab", "lower", 1), S_OK);
    ASSERT_EQ(Set("AB", "upper", 2), S_OK);
    EXPECT_EQ(store.Count(), 2u);
    EXPECT_EQ(Get("ab"), "lower/1");
    EXPECT_EQ(Get("AB"), "upper/2");
}

TEST_F(HashDbTest, ALaterRecordOfAKeyCounts)
{
    Write(ToldRecord(u"AB", u"old\t1") + ToldRecord(u"AB", u"new\t2"));
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(Get("AB"), "new/2");
    EXPECT_EQ(store.Count(), 1u);
}

TEST_F(HashDbTest, AFileCutAnywhereLoadsTheRecordsInFrontOfTheCut)
{
    const std::string first = ToldRecord(u"AB", u"h1\t1");
    const std::string whole = first + ToldRecord(u"CD", u"h2\t2");
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        Write(whole.substr(0, cut));
        CHashDB damaged(OLESTR("F"));
        ASSERT_EQ(damaged.Init(place.Get()), S_OK) << cut;
        EXPECT_EQ(damaged.Count(), cut < first.size() ? 0u : cut < whole.size() ? 1u : 2u) << cut;
    }
}

TEST_F(HashDbTest, WhatCannotBeAKeyEndsTheFile)
{
    const std::string first = ToldRecord(u"AB", u"h1\t1");
    const std::string damages[] = {
        std::string("\x01\0\0\0\0", 5),      // too short
        std::string("\0\0\0\0", 4),          // null
        std::string("\x01\0\x10\0", 4),      // too long
        std::string("\x04\0\0\0A\0B\0", 8),  // without a terminator
        std::string("\xFF\xFF\xFF\xFF", 4),
    };
    for (const std::string& damage : damages) {
        Write(first + damage + ToldRecord(u"CD", u"h2\t2"));
        CHashDB damaged(OLESTR("F"));
        ASSERT_EQ(damaged.Init(place.Get()), S_OK);
        EXPECT_EQ(damaged.Count(), 1u);
    }
}

TEST_F(HashDbTest, ADamagedValueIsTracedAndEndsTheFile)
{
    Write(ToldRecord(u"AB", u"h1\t1") + testing::ToldString(u"CD") + std::string("\x01\0\x10\0", 4));
    const std::string log = testing::TracedLines([&] { EXPECT_EQ(Init(), S_OK); });
    EXPECT_NE(log.find("CHashDB::FillMap"), std::string::npos) << log;
    EXPECT_NE(log.find("0x80070005"), std::string::npos) << log;
    EXPECT_EQ(store.Count(), 1u);
}

TEST_F(HashDbTest, TheEndOfAWholeFileIsNotTraced)
{
    Write(ToldRecord(u"AB", u"h1\t1"));
    EXPECT_EQ(testing::TracedLines([&] { EXPECT_EQ(Init(), S_OK); }).find("0x"), std::string::npos);
}

TEST_F(HashDbTest, OnlyADebugBuildTracesEachHashAndTheTimeOfTheLoad)
{
    const std::string log = testing::TracedLines([&] {
        EXPECT_EQ(Init(), S_OK);
        EXPECT_EQ(Set("AB", "h1", 7), S_OK);
    });
    const bool isDebug = kDebugBuild;
    EXPECT_EQ(log.find("Setting hash: \"h1\"\n") != std::string::npos, isDebug) << log;
    EXPECT_EQ(log.find("CHashMessage::FillMap worked for ") != std::string::npos, isDebug) << log;
}

TEST_F(HashDbTest, AnEmptyTextIsAKeyLikeAnother)
{
    Write(ToldRecord(u"", u"h1\t1") + ToldRecord(u"CD", u"h2\t2"));
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(store.Count(), 2u);
    EXPECT_EQ(Get(""), "h1/1");
}

TEST_F(HashDbTest, AnotherLoadFindsWhatTheFileHolds)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h1", 1), S_OK);
    store.SuspendSave = true;
    ASSERT_EQ(Set("CD", "h2", 2), S_OK);
    ASSERT_EQ(store.FillMap(), S_OK);
    EXPECT_EQ(store.Count(), 1u);
    EXPECT_EQ(Get("AB"), "h1/1");
}

TEST_F(HashDbTest, AnIdentifierThatHasNoTextIsTracedUnderTheOperationsName)
{
    ASSERT_EQ(Init(), S_OK);
    BYTE byte = 0;
    const SBinary endless{0xFFFFFFFF, &byte};
    Bstr hash;
    LONG flags = 0;
    const std::string log = testing::TracedLines([&] {
        EXPECT_TRUE(FAILED(store.SetHash(endless, Text("h").Get(), 3)));
        EXPECT_TRUE(FAILED(store.GetHash(endless, hash.Put(), &flags)));
    });
    EXPECT_NE(log.find("CHashDB::SetHash("), std::string::npos);
    EXPECT_NE(log.find("CHashDB::GetHash("), std::string::npos);
}

TEST_F(HashDbTest, TheNextSaveDropsADamagedTail)
{
    const std::string first = ToldRecord(u"AB", u"h1\t1");
    Write(first + "damage that is longer than a record");
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(store.SaveMap(), S_OK);
    EXPECT_EQ(ReadBytes(path), first);
}

TEST_F(HashDbTest, AStringOfTheLargestSizeIsReadAndALongerOneRefused)
{
    const std::u16string largest(0x100000 / 2 - 1, u'x');
    Write(ToldRecord(u"AB", largest) + ToldRecord(u"CD", u"h2\t2"));
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(store.Count(), 2u);
    const Bstr key{OleStringView(OleString(0x100000 / 2, OLECHAR('k')))};
    EXPECT_EQ(store.SetHash(key.Get(), Text("h").Get(), 1), E_INVALIDARG);
    EXPECT_EQ(ReadTold(ReadBytes(path)).size(), 2u);
}

TEST_F(HashDbTest, ANullValueIsARecordWithoutAHash)
{
    Write(testing::ToldString(u"AB") + std::string(4, '\0') + ToldRecord(u"CD", u"h2\t2"));
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(store.Count(), 2u);
    EXPECT_EQ(Get("AB"), "/-1");
}

TEST_F(HashDbTest, ANullKeyIsRefused)
{
    ASSERT_EQ(Init(), S_OK);
    EXPECT_EQ(store.SetHash(static_cast<BSTR>(nullptr), Text("h").Get(), 1), E_INVALIDARG);
    EXPECT_EQ(store.Count(), 0u);
}

TEST_F(HashDbTest, NowhereToPutTheAnswerIsAnError)
{
    LONG flags = 0;
    Bstr hash;
    EXPECT_EQ(store.GetHash(Text("AB").Get(), nullptr, &flags), E_POINTER);
    EXPECT_EQ(store.GetHash(Text("AB").Get(), hash.Put(), nullptr), E_POINTER);
}

TEST_F(HashDbTest, WhileSavingIsSuspendedTheFileStaysAsItIs)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h1", 1), S_OK);
    const std::string before = ReadBytes(path);
    store.SuspendSave = true;
    EXPECT_EQ(Set("CD", "h2", 2), S_OK);
    EXPECT_EQ(store.SaveMap(), S_OK);
    EXPECT_EQ(ReadBytes(path), before);
    store.SuspendSave = false;
    EXPECT_EQ(store.SaveMap(), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)).size(), 2u);
}

TEST_F(HashDbTest, AnIdentifierIsKeptByItsHexadecimalText)
{
    ASSERT_EQ(Init(), S_OK);
    BYTE bytes[] = {0x00, 0xAB};
    const SBinary identifier{sizeof(bytes), bytes};
    ASSERT_EQ(store.SetHash(identifier, Text("h").Get(), 3), S_OK);
    EXPECT_EQ(Get("00AB"), "h/3");
    Bstr hash;
    LONG flags = 0;
    ASSERT_EQ(store.GetHash(identifier, hash.Put(), &flags), S_OK);
    EXPECT_EQ(flags, 3);
}

TEST_F(HashDbTest, AMessageIsRecordedByItsTimeAndFlags)
{
    ASSERT_EQ(Init(), S_OK);
    const FILETIME time{1, 2};
    const ComPtr<FakeMessage> message = MakeComObject<FakeMessage>(testing::ItemProps{{}, {}, time, 5});
    ASSERT_EQ(store.SetHash(Text("AB").Get(), message.Get()), S_OK);
    EXPECT_EQ(Get("AB"), Narrow(ItemHash(time)) + "/5");
}

TEST_F(HashDbTest, NoMessageForgetsTheRecord)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h", 1), S_OK);
    EXPECT_EQ(store.SetHash(Text("AB").Get(), static_cast<IMessage*>(nullptr)), S_OK);
    EXPECT_EQ(store.Count(), 0u);
}

TEST_F(HashDbTest, AMessageWithoutATimeOrFlagsIsNotRecorded)
{
    ASSERT_EQ(Init(), S_OK);
    const ComPtr<FakeMessage> timeless = MakeComObject<FakeMessage>(testing::ItemProps{{}, {}, {}, 5});
    const ComPtr<FakeMessage> flagless =
        MakeComObject<FakeMessage>(testing::ItemProps{{}, {}, FILETIME{1, 2}, {}});
    const std::string log = testing::TracedLines([&] {
        EXPECT_EQ(store.SetHash(Text("AB").Get(), timeless.Get()), MAPI_E_NOT_FOUND);
        EXPECT_EQ(store.SetHash(Text("AB").Get(), flagless.Get()), MAPI_E_NOT_FOUND);
    });
    EXPECT_EQ(store.Count(), 0u);
    EXPECT_NE(log.find("CHashDB::SetHash"), std::string::npos);
}

TEST_F(HashDbTest, AFolderIdThatLeadsOutOfTheDirectoryIsRefused)
{
    for (const char* const id : {"", "../F", "a/b", "a\\b", "..\\F", "C:F"}) {
        CHashDB outside{OleStringView(Widen(id))};
        EXPECT_EQ(outside.Init(place.Get()), E_INVALIDARG) << id;
    }
    CHashDB zero(OleStringView(OLESTR("F\0G"), 3));
    EXPECT_EQ(zero.Init(place.Get()), E_INVALIDARG);
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}

TEST_F(HashDbTest, AStoreWithoutAFileWorksInMemoryAndItsSavesFail)
{
    const Bstr nowhere(Widen((directory / "none").string() + "/"));
    const std::string log = testing::TracedLines([&] { EXPECT_TRUE(FAILED(store.Init(nowhere.Get()))); });
    EXPECT_NE(log.find("CHashDB::Init"), std::string::npos);
    EXPECT_EQ(store.SaveMap(), S_OK);
    const std::string saves = testing::TracedLines([&] { EXPECT_TRUE(FAILED(Set("AB", "h", 1))); });
    EXPECT_NE(saves.find("CHashDB::SaveMap"), std::string::npos);
    EXPECT_EQ(Get("AB"), "h/1");
}

TEST_F(HashDbTest, ManyThreadsMayUseOneStore)
{
    ASSERT_EQ(Init(), S_OK);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 100; ++n) {
                const std::string key = std::to_string(10000 + 1000 * i + n);
                EXPECT_EQ(Set(key.c_str(), "h", n), S_OK);
                EXPECT_EQ(Get(key.c_str()), "h/" + std::to_string(n));
                if (n % 3 == 0) {
                    EXPECT_EQ(Set(key.c_str(), nullptr, 0), S_OK);
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(store.Count(), 4u * 66);
    EXPECT_EQ(ReadTold(ReadBytes(path)).size(), 4u * 66);
}

// The stores of a session

class HashDbMapTest : public HashDbTest {
protected:
    CHashDBMap stores;
};

TEST_F(HashDbMapTest, AFolderHasNoStoreUntilItIsAdded)
{
    EXPECT_EQ(stores.Find(Text("F").Get()), nullptr);
    EXPECT_EQ(stores.Add(Text("F").Get(), place.Get()), 1);
    EXPECT_NE(stores.Find(Text("F").Get()), nullptr);
    EXPECT_EQ(stores.Find(Text("G").Get()), nullptr);
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(HashDbMapTest, AStoreWhoseFileCannotBeOpenedEntersAllTheSame)
{
    EXPECT_EQ(stores.Add(Text("../F").Get(), place.Get()), 1);
    EXPECT_NE(stores.Find(Text("../F").Get()), nullptr);
}

TEST_F(HashDbMapTest, AStoreThatIsThereStays)
{
    ASSERT_EQ(stores.Add(Text("F").Get(), place.Get()), 1);
    CHashDB* const first = stores.Find(Text("F").Get());
    EXPECT_EQ(stores.Add(Text("F").Get(), place.Get()), 1);
    EXPECT_EQ(stores.Find(Text("F").Get()), first);
}

TEST_F(HashDbMapTest, AMessageIsRecordedInItsFoldersStore)
{
    ASSERT_EQ(stores.Add(Text("F").Get(), place.Get()), 1);
    const ComPtr<FakeMessage> message =
        MakeComObject<FakeMessage>(testing::ItemProps{{}, {}, FILETIME{1, 2}, 5});
    stores.SetHash(Text("AB").Get(), Text("F").Get(), message.Get());
    stores.SetHash(Text("AB").Get(), Text("unknown").Get(), message.Get());
    EXPECT_EQ(stores.Find(Text("F").Get())->Count(), 1u);
}

TEST_F(HashDbMapTest, AFolderAddedAgainLaterFindsItsOldHashes)
{
    ASSERT_EQ(Init(), S_OK);
    ASSERT_EQ(Set("AB", "h", 1), S_OK);
    ASSERT_EQ(stores.Add(Text("F").Get(), place.Get()), 1);
    EXPECT_EQ(stores.Find(Text("F").Get())->Count(), 1u);
}

}  // namespace
}  // namespace quorvane
