#include "engine/change/find_changed_items.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "engine/change/items_col.h"
#include "engine/persist/testing/told_reader.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/item_hash.h"
#include "engine/storeaccess/testing/fake_store.h"
#include "platform/testing/test_directory.h"
#include "quorvane3/callbacks.h"

namespace quorvane {
namespace {

using testing::FakeMessage;
using testing::FakeStore;
using testing::FakeTable;
using testing::ItemProps;
using testing::TracedLines;

constexpr unsigned kWhole = 1;  // an extra column makes a row of five

std::string LongTerm(int n)
{
    return std::string(3, '\0') + static_cast<char>(n);
}
std::string ShortTerm(int n)
{
    return std::string("\x80\0\0", 3) + static_cast<char>(n);
}
std::string KeyOf(const std::string& identifier)
{
    std::string key;
    for (const char c : identifier) {
        key += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
        key += "0123456789ABCDEF"[c & 15];
    }
    return key;
}
ItemProps Item(int n, DWORD time = 1, LONG flags = 1, unsigned extra = 0)
{
    return {LongTerm(n), 100, FILETIME{time, 0}, flags, extra};
}
std::string HashOf(DWORD time)
{
    return Narrow(ItemHash(FILETIME{time, 0}));
}

// Hides every row of the table from the first pass.
class Restriction final : public RestrictHandler {
public:
    explicit Restriction(FakeTable& table) : table_(table) {}
    HRESULT RestrictTable(IDispatch* table) override
    {
        ComPtr<IItemsCol> items;
        ComPtr<IUnknown> raw;
        if (FAILED(QueryFor(table, items)) || FAILED(items->get_RawTable(raw.Put())))
            return E_UNEXPECTED;
        sawTable = raw == static_cast<IUnknown*>(&table_);
        Variant lateBound;
        if (FAILED(InvokeById(table, 90, DISPATCH_PROPERTYGET, {}, &lateBound)) || !lateBound.Is(VT_UNKNOWN))
            return E_UNEXPECTED;
        table_.visible = 0;
        return result;
    }

    bool sawTable = false;
    HRESULT result = S_OK;

private:
    FakeTable& table_;
};

class FindChangedItemsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(hashes.Init(Bstr(Widen(files.File(""))).Get()), S_OK); }

    void Known(const ItemProps& item, const std::string& hash, LONG flags)
    {
        ASSERT_EQ(hashes.SetHash(Bstr(Widen(KeyOf(*item.entryId))).Get(), Bstr(Widen(hash)).Get(), flags),
                  S_OK);
    }
    // "hash/flags" of the store.
    std::string Stored(const std::string& identifier)
    {
        Bstr hash;
        LONG flags = 0;
        EXPECT_EQ(hashes.GetHash(Bstr(Widen(KeyOf(identifier))).Get(), hash.Put(), &flags), S_OK);
        return Narrow(hash.View()) + "/" + std::to_string(flags);
    }

    HRESULT Scan(SRow* row = nullptr, ULONG scanFlags = 0, bool reportAll = false, bool detectFlags = false,
                 IQuorvaneRestrict* restriction = nullptr)
    {
        CFindChangedItems finder(&hashes);
        return finder.getChangedItems(store.Get(), table.Get(), restriction, row, nullptr, detectFlags,
                                      &found, scanFlags, reportAll);
    }
    // Judges one row of five columns as a notification brings it.
    HRESULT ScanRow(const ItemProps& item)
    {
        ULONG count = 0;
        MapiBuffer<SPropValue> values = MapiBuffer<SPropValue>::Attach(testing::MakeProps(item, count));
        SRow row = {0, count, values.Get()};
        return Scan(&row, kSkipDeletedItems);
    }

    std::vector<ChangedItem> Changed() const
    {
        std::vector<ChangedItem> items(found.CountChanged());
        for (ULONG i = 0; i < found.CountChanged(); ++i)
            EXPECT_EQ(found.ReadChanged(i, items[i]), S_OK);
        return items;
    }
    // "key hash flags unchanged" of every listed item.
    std::vector<std::string> Listed() const
    {
        std::vector<std::string> items;
        for (const ChangedItem& item : Changed())
            items.push_back(Narrow(item.entryId.View()) + " " + Narrow(item.hash.View()) + " " +
                            std::to_string(item.flags) + " " + std::to_string(item.hashUnchanged));
        return items;
    }
    std::vector<std::string> Deleted() const
    {
        std::vector<std::string> keys;
        for (ULONG i = 0; i < found.deleted.Count(); ++i) {
            Bstr key;
            EXPECT_EQ(found.deleted.Read(i, key), S_OK);
            keys.push_back(Narrow(key.View()));
        }
        return keys;
    }
    static std::string Entry(int n, DWORD time, LONG flags, int unchanged)
    {
        return KeyOf(LongTerm(n)) + " " + HashOf(time) + " " + std::to_string(flags) + " " +
               std::to_string(unchanged);
    }

    const test::TestDirectory files;
    CHashDB hashes{OLESTR("F")};
    ComPtr<FakeStore> store = MakeComObject<FakeStore>();
    ComPtr<FakeTable> table = MakeComObject<FakeTable>();
    ScanResult found;
};

// Whole-table scans

TEST_F(FindChangedItemsTest, AFolderWithoutRowsGivesEmptyLists)
{
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_TRUE(Deleted().empty());
    // The search for deleted items and the scan each ask once; there is nothing to take a snapshot of.
    EXPECT_EQ(table->askedFor, (std::vector<LONG>{200, 20}));
}

TEST_F(FindChangedItemsTest, ANewItemIsListedAndKnownAfterwards)
{
    table->rows = {Item(1, 5, 3)};
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(1, 5, 3, 0)});
    EXPECT_EQ(Stored(LongTerm(1)), HashOf(5) + "/3");
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
}

TEST_F(FindChangedItemsTest, AChangedTimeIsAChange)
{
    table->rows = {Item(1, 5), Item(2, 6)};
    Known(Item(1), HashOf(5), 1);
    Known(Item(2), HashOf(5), 1);
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(2, 6, 1, 0)});
}

TEST_F(FindChangedItemsTest, WhatTheStoreKnowsAndTheTableLacksIsDeleted)
{
    table->rows = {Item(1, 5)};
    Known(Item(1), HashOf(5), 1);
    Known(Item(2), HashOf(5), 1);
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(Deleted(), std::vector{KeyOf(LongTerm(2))});
    EXPECT_EQ(hashes.Count(), 2u);
}

TEST_F(FindChangedItemsTest, TheScanReadsInBatchesAndSavesOnce)
{
    for (int n = 1; n <= 45; ++n)
        table->rows.push_back(Item(n, 5));
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(Listed().size(), 45u);
    EXPECT_EQ(table->askedFor, (std::vector<LONG>{200, 200, 45, 20, 20, 20, 20}));
    EXPECT_FALSE(hashes.SuspendSave);
    CHashDB reloaded(OLESTR("F"));
    ASSERT_EQ(reloaded.Init(Bstr(Widen(files.File(""))).Get()), S_OK);
    EXPECT_EQ(reloaded.Count(), 45u);
}

// A long table isn't held as a whole.
TEST_F(FindChangedItemsTest, TheSnapshotOfALongTableIsTakenPieceByPiece)
{
    constexpr int kMany = 1201;
    for (int n = 0; n < kMany; ++n) {
        table->rows.push_back(Item(0, 5, n));
        table->rows.back().entryId = LongTerm(n % 100) + std::to_string(n);
    }
    table->position = 7;
    ASSERT_EQ(Scan(nullptr, kSkipDeletedItems), S_OK);

    EXPECT_EQ(Listed().size(), static_cast<size_t>(kMany));
    EXPECT_EQ(std::vector<LONG>(table->askedFor.begin(), table->askedFor.begin() + 5),
              (std::vector<LONG>{500, 500, 500, 500, 20}));
    EXPECT_EQ(table->position, 7u);
    for (const int n : {0, 499, 500, 1200})
        EXPECT_EQ(Stored(*table->rows[static_cast<size_t>(n)].entryId), HashOf(5) + "/" + std::to_string(n));
}

TEST_F(FindChangedItemsTest, ALongTableThatCannotBeReadToItsEndOrGoBackFailsTheScan)
{
    for (int n = 0; n < 501; ++n)
        table->rows.push_back(Item(1, 5));
    table->failQueryAt = 2;
    EXPECT_EQ(Scan(nullptr, kSkipDeletedItems), MAPI_E_CALL_FAILED);
    table->failQueryAt = 0;
    table->failSeekAt = 3;  // the first scan went to the beginning once
    EXPECT_EQ(Scan(nullptr, kSkipDeletedItems), MAPI_E_CALL_FAILED);
    EXPECT_EQ(hashes.Count(), 0u);
}

TEST_F(FindChangedItemsTest, ChangedFlagsAloneCountOnlyWhenAskedFor)
{
    table->rows = {Item(1, 5, 9)};
    Known(Item(1), HashOf(5), 1);
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_EQ(Stored(LongTerm(1)), HashOf(5) + "/1");
    ASSERT_EQ(Scan(nullptr, 0, false, true), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(1, 5, 9, 1)});
}

TEST_F(FindChangedItemsTest, EveryRowIsListedWhenAllAreToBeReported)
{
    table->rows = {Item(1, 5), Item(2, 6)};
    Known(Item(1), HashOf(5), 1);
    Known(Item(2), HashOf(5), 1);
    ASSERT_EQ(Scan(nullptr, 0, true), S_OK);
    EXPECT_EQ(Listed(), (std::vector{Entry(1, 5, 1, 1), Entry(2, 6, 1, 0)}));
}

TEST_F(FindChangedItemsTest, ARecordWithoutFlagsGetsThemAndIsNoChange)
{
    table->rows = {Item(1, 5, 7)};
    const std::string key = KeyOf(LongTerm(1));
    const std::string hash = HashOf(5);
    std::ofstream(files.File("F.dat"), std::ios::binary)
        << testing::ToldRecord({key.begin(), key.end()}, {hash.begin(), hash.end()});
    ASSERT_EQ(hashes.FillMap(), S_OK);
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_EQ(Stored(LongTerm(1)), HashOf(5) + "/7");
}

TEST_F(FindChangedItemsTest, TheSearchForDeletedItemsCanBeSkipped)
{
    Known(Item(2), HashOf(5), 1);
    ASSERT_EQ(Scan(nullptr, kSkipDeletedItems), S_OK);
    EXPECT_TRUE(Deleted().empty());
}

TEST_F(FindChangedItemsTest, TheSearchForChangedItemsCanBeSkipped)
{
    table->rows = {Item(1, 5)};
    Known(Item(2), HashOf(5), 1);
    ASSERT_EQ(Scan(nullptr, kSkipChangedItems), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_EQ(Deleted(), std::vector{KeyOf(LongTerm(2))});
    EXPECT_EQ(table->askedFor, (std::vector<LONG>{200, 200}));
}

TEST_F(FindChangedItemsTest, ThePositionInTheTableIsRestored)
{
    table->rows = {Item(1), Item(2), Item(3)};
    table->position = 2;
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(table->position, 2u);
    EXPECT_EQ(table->bookmarks, 0u);
}

TEST_F(FindChangedItemsTest, WhatTheListsHeldBeforeIsCleared)
{
    ASSERT_EQ(found.AddChanged(OLESTR("AA"), OLESTR("old"), 1, false), S_OK);
    ASSERT_EQ(found.deleted.Append(OLESTR("BB")), S_OK);
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_TRUE(Deleted().empty());
}

// Single rows

TEST_F(FindChangedItemsTest, ASingleRowIsJudgedAndItsHashLeftToTheCaller)
{
    table->rows = {Item(1), Item(2)};
    Known(Item(1), HashOf(4), 1);
    ASSERT_EQ(ScanRow(Item(1, 5, 1, kWhole)), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(1, 5, 1, 0)});
    EXPECT_EQ(Stored(LongTerm(1)), HashOf(4) + "/1");
    EXPECT_EQ(table->queries, 0u);
}

TEST_F(FindChangedItemsTest, ANewItemInASingleRowGetsARecordWithAnEmptyHash)
{
    ASSERT_EQ(ScanRow(Item(1, 5, 3, kWhole)), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(1, 5, 3, 0)});
    EXPECT_EQ(Stored(LongTerm(1)), "3/-1");
    EXPECT_EQ(hashes.Count(), 1u);
}

TEST_F(FindChangedItemsTest, ARowOfFourColumnsCausesAScanOfTheTable)
{
    table->rows = {Item(2, 5)};
    ASSERT_EQ(ScanRow(Item(1, 5)), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(2, 5, 1, 0)});
}

TEST_F(FindChangedItemsTest, ASingleRowThatCannotBeJudgedIsTracedAndNotReturned)
{
    ItemProps item = Item(1, 5, 1, 5);
    item.entryId = {};
    const std::string log = TracedLines([&] { EXPECT_EQ(ScanRow(item), S_OK); });
    EXPECT_NE(log.find("CFindChangedItems::getChangedItems("), std::string::npos);
    EXPECT_NE(log.find("0x80070057"), std::string::npos) << log;
    EXPECT_TRUE(Listed().empty());
}

// Rows that lack something

TEST_F(FindChangedItemsTest, WhatARowLacksIsFetchedFromItsItemWhichIsOpenedOnce)
{
    ItemProps row = Item(1);
    row.size = {};
    row.modified = {};
    row.flags = {};
    table->rows = {row};
    store->items[LongTerm(1)] = Item(1, 8, 4);
    ASSERT_EQ(Scan(nullptr, kSkipDeletedItems), S_OK);
    EXPECT_EQ(Listed(), std::vector{Entry(1, 8, 4, 0)});
    // Once for the row, once for the same row of the snapshot.
    EXPECT_EQ(store->opens, 2u);
}

TEST_F(FindChangedItemsTest, ACompleteRowOpensNoItem)
{
    table->rows = {Item(1)};
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_EQ(store->opens, 0u);
}

TEST_F(FindChangedItemsTest, ARowWhoseItemCannotBeOpenedIsPassedOver)
{
    ItemProps bad = Item(1);
    bad.size = {};
    table->rows = {bad, Item(2, 5)};
    const std::string log = TracedLines([&] { ASSERT_EQ(Scan(), S_OK); });
    EXPECT_EQ(Listed(), std::vector{Entry(2, 5, 1, 0)});
    EXPECT_NE(log.find("CFindChangedItems::GetPropFromMessage("), std::string::npos);
    EXPECT_NE(log.find("CFindChangedItems::ProcessOneRow("), std::string::npos);
    EXPECT_NE(log.find(") 0x8004010F\r\n"), std::string::npos) << log;
}

TEST_F(FindChangedItemsTest, AnItemThatLacksAPropertyIsPassedOver)
{
    ItemProps bad = Item(1);
    bad.flags = {};
    table->rows = {bad};
    store->items[LongTerm(1)] = bad;
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_EQ(hashes.Count(), 0u);
}

// Short-term identifiers

TEST_F(FindChangedItemsTest, AShortTermIdentifierIsExchangedForTheItemsOwn)
{
    ItemProps row = Item(1, 5);
    row.entryId = ShortTerm(9);
    table->rows = {row};
    store->items[ShortTerm(9)] = Item(1, 5);
    Known(Item(1), HashOf(5), 1);
    ASSERT_EQ(Scan(), S_OK);
    EXPECT_TRUE(Listed().empty());
    EXPECT_TRUE(Deleted().empty());
}

TEST_F(FindChangedItemsTest, AShortTermIdentifierThatCannotBeOpenedIsJudgedAsItIs)
{
    ItemProps row = Item(1, 5);
    row.entryId = ShortTerm(9);
    table->rows = {row};
    ASSERT_EQ(Scan(nullptr, kSkipDeletedItems), S_OK);
    ASSERT_EQ(Changed().size(), 1u);
    EXPECT_EQ(Narrow(Changed()[0].entryId.View()), KeyOf(ShortTerm(9)));
}

// Restrictions

class RestrictedScanTest : public FindChangedItemsTest {
protected:
    HRESULT ScanRestricted() { return Scan(nullptr, kSkipDeletedItems, false, false, callback.Get()); }

    Restriction restriction{*table};
    ComPtr<RestrictCallback> callback = MakeComObject<RestrictCallback>(restriction);
};

TEST_F(RestrictedScanTest, WhatIsHiddenIsNotListedButKnownAfterwards)
{
    table->rows = {Item(1, 5, 3), Item(2, 6, 4)};
    ASSERT_EQ(ScanRestricted(), S_OK);
    EXPECT_TRUE(restriction.sawTable);
    EXPECT_TRUE(Listed().empty());
    EXPECT_EQ(Stored(LongTerm(1)), HashOf(5) + "/3");
    EXPECT_EQ(Stored(LongTerm(2)), HashOf(6) + "/4");
}

TEST_F(RestrictedScanTest, TheTableGetsTheFourColumnsOfAScan)
{
    ASSERT_EQ(ScanRestricted(), S_OK);
    EXPECT_EQ(table->columns, (std::vector<ULONG>{0x0FFF0102, 0x0E080003, 0x30080040, 0x0E070003}));
}

TEST_F(RestrictedScanTest, AHostThatFailsIsTracedAndTheScanGoesOn)
{
    table->rows = {Item(1, 5)};
    restriction.result = E_ACCESSDENIED;
    const std::string log = TracedLines([&] { ASSERT_EQ(ScanRestricted(), S_OK); });
    EXPECT_NE(log.find("CFindChangedItems::RestrictTable("), std::string::npos);
    EXPECT_TRUE(table->columns.empty());
    EXPECT_EQ(Stored(LongTerm(1)), HashOf(5) + "/1");
}

TEST_F(RestrictedScanTest, ColumnsThatCannotBeSetAreAFailureOfTheRestriction)
{
    table->columnsResult = MAPI_E_TOO_COMPLEX;
    CFindChangedItems finder(&hashes);
    EXPECT_EQ(finder.RestrictTable(table.Get(), callback.Get()), MAPI_E_TOO_COMPLEX);
    EXPECT_EQ(finder.RestrictTable(table.Get(), nullptr), S_OK);
}

// Failures of the table

TEST_F(FindChangedItemsTest, ATableWithoutBookmarksFailsTheScan)
{
    table->bookmarkResult = MAPI_E_UNABLE_TO_COMPLETE;
    const std::string log = TracedLines([&] { EXPECT_EQ(Scan(), MAPI_E_UNABLE_TO_COMPLETE); });
    EXPECT_NE(log.find("CFindChangedItems::getChangedItems("), std::string::npos);
}

TEST_F(FindChangedItemsTest, ATableThatCannotGoToItsBeginningFailsTheScanAndKeepsNoBookmark)
{
    table->failSeekAt = 1;
    const std::string log = TracedLines([&] { EXPECT_EQ(Scan(), MAPI_E_CALL_FAILED); });
    EXPECT_NE(log.find("CFindChangedItems::getChangedItems("), std::string::npos);
    EXPECT_EQ(table->bookmarks, 0u);
}

TEST_F(FindChangedItemsTest, AFailedSearchForDeletedItemsFailsTheScan)
{
    table->rows = {ItemProps{{}, 1, {}, 1}};
    EXPECT_EQ(Scan(), E_FAIL);
    EXPECT_FALSE(hashes.SuspendSave);
}

TEST_F(FindChangedItemsTest, WithoutARowCountTheScanFailsAndSavingStaysSuspended)
{
    table->countResult = MAPI_E_CALL_FAILED;
    EXPECT_EQ(Scan(), MAPI_E_CALL_FAILED);
    EXPECT_TRUE(hashes.SuspendSave);
    table->countResult = S_OK;
    EXPECT_EQ(Scan(), S_OK);
    EXPECT_FALSE(hashes.SuspendSave);
}

TEST_F(FindChangedItemsTest, WithoutASnapshotTheScanFails)
{
    table->rows = {Item(1)};
    table->snapshotResult = MAPI_E_NOT_ENOUGH_RESOURCES;
    EXPECT_EQ(Scan(), MAPI_E_NOT_ENOUGH_RESOURCES);
    EXPECT_TRUE(hashes.SuspendSave);
}

TEST_F(FindChangedItemsTest, AFailureInTheMidstOfTheBatchesEndsThemLikeTheEndOfTheTable)
{
    for (int n = 1; n <= 45; ++n)
        table->rows.push_back(Item(n, 5));
    table->failQueryAt = 3;
    EXPECT_EQ(Scan(nullptr, kSkipDeletedItems), S_OK);
    EXPECT_EQ(Listed().size(), 20u);
    EXPECT_EQ(hashes.Count(), 45u);
}

TEST_F(FindChangedItemsTest, MissingPointersAreRefused)
{
    CFindChangedItems finder(&hashes);
    EXPECT_EQ(
        finder.getChangedItems(store.Get(), nullptr, nullptr, nullptr, nullptr, false, &found, 0, false),
        E_POINTER);
    EXPECT_EQ(
        finder.getChangedItems(store.Get(), table.Get(), nullptr, nullptr, nullptr, false, nullptr, 0, false),
        E_POINTER);
    EXPECT_EQ(CFindChangedItems(nullptr).getChangedItems(store.Get(), table.Get(), nullptr, nullptr, nullptr,
                                                         false, &found, 0, false),
              E_POINTER);
}

TEST(ItemsColTest, TheTableIsHandedOutWithAReference)
{
    const ComPtr<FakeTable> table = MakeComObject<FakeTable>();
    const ComPtr<CItemsCol> items = MakeComObject<CItemsCol>(table.Get());
    ComPtr<IUnknown> raw;
    ASSERT_EQ(items->get_RawTable(raw.Put()), S_OK);
    EXPECT_EQ(raw, static_cast<IUnknown*>(table.Get()));
    EXPECT_EQ(items->get_RawTable(nullptr), E_POINTER);
    ComPtr<IDispatch> dispatch;
    EXPECT_EQ(items.As(dispatch), S_OK);
}

TEST(ItemsColTest, AnEmptyObjectHandsOutNull)
{
    const ComPtr<CItemsCol> items = MakeComObject<CItemsCol>();
    auto* raw = reinterpret_cast<IUnknown*>(0x10);
    ASSERT_EQ(items->get_RawTable(&raw), S_OK);
    EXPECT_EQ(raw, nullptr);
}

TEST_F(FindChangedItemsTest, AnEmptyIdentifierIsNoShortTermOne)
{
    ULONG count = 0;
    MapiBuffer<SPropValue> values =
        MapiBuffer<SPropValue>::Attach(testing::MakeProps(Item(1, 1, 1, kWhole), count));
    BYTE behind = 0x80;
    for (ULONG i = 0; i < count; ++i) {
        if (values.Get()[i].ulPropTag == PR_ENTRYID)
            values.Get()[i].Value.bin = {0, &behind};
    }
    SRow row = {0, count, values.Get()};

    EXPECT_EQ(Scan(&row, kSkipDeletedItems), S_OK);

    EXPECT_EQ(store->opens, 0u);
}

// No text is as long as that identifier would be.
TEST_F(FindChangedItemsTest, AnItemWhoseHashCantBeLookedUpIsTracedAndNotListed)
{
    ULONG count = 0;
    MapiBuffer<SPropValue> values =
        MapiBuffer<SPropValue>::Attach(testing::MakeProps(Item(1, 1, 1, kWhole), count));
    for (ULONG i = 0; i < count; ++i) {
        if (values.Get()[i].ulPropTag == PR_ENTRYID)
            values.Get()[i].Value.bin.cb = 0xFFFFFFFF;
    }
    SRow row = {0, count, values.Get()};
    const std::string lines = TracedLines([&] { EXPECT_EQ(Scan(&row, kSkipDeletedItems), S_OK); });

    EXPECT_NE(lines.find("CFindChangedItems::ProcessOneRow("), std::string::npos);
    EXPECT_NE(lines.find(") 0x8007000E\r\n"), std::string::npos);
    EXPECT_TRUE(Listed().empty());
    EXPECT_EQ(hashes.Count(), 0u);
}

}  // namespace
}  // namespace quorvane
