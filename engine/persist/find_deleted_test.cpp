#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/persist/hash_db.h"
#include "engine/storeaccess/testing/fake_store.h"

namespace quorvane {
namespace {

using testing::FakeStore;
using testing::FakeTable;
using testing::ItemProps;

// An identifier whose first byte says that it is long-term, and its key.
std::string LongTerm(char last)
{
    return std::string(3, '\0') + last;
}
std::string KeyOf(char last)
{
    const char digits[] = "0123456789ABCDEF";
    return std::string("000000") + digits[(last >> 4) & 15] + digits[last & 15];
}
std::string ShortTerm(char last)
{
    return std::string("\x80\0\0", 3) + last;
}

class FindDeletedTest : public ::testing::Test {
protected:
    void Remember(const std::string& items)
    {
        for (const char item : items) {
            store.SuspendSave = true;
            ASSERT_EQ(store.SetHash(Bstr(Widen(KeyOf(item))).Get(), Bstr(OLESTR("h")).Get(), 1), S_OK);
        }
    }
    void Show(const std::string& identifier) { table->rows.push_back(ItemProps{identifier, 1, {}, 1}); }
    HRESULT Find() { return store.FindDeletedSmart(mailStore.Get(), table.Get(), list); }
    // The keys found, sorted.
    std::vector<std::string> Deleted()
    {
        std::vector<std::string> keys;
        for (ULONG i = 0; i < list.Count(); ++i) {
            Bstr key;
            EXPECT_EQ(list.Read(i, key), S_OK);
            keys.push_back(Narrow(key.View()));
        }
        std::sort(keys.begin(), keys.end());
        return keys;
    }

    CHashDB store{OLESTR("F")};
    ComPtr<FakeStore> mailStore = MakeComObject<FakeStore>();
    ComPtr<FakeTable> table = MakeComObject<FakeTable>();
    PackedTexts list;
};

TEST_F(FindDeletedTest, AnEmptyFolderAndAnEmptyStoreAgree)
{
    EXPECT_EQ(Find(), S_OK);
    EXPECT_TRUE(Deleted().empty());
}

TEST_F(FindDeletedTest, InAnEmptyFolderEveryRecordHasGone)
{
    Remember("abc");
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(Deleted(), (std::vector{KeyOf('a'), KeyOf('b'), KeyOf('c')}));
}

TEST_F(FindDeletedTest, WhatTheTableShowsIsNotListed)
{
    Remember("ab");
    Show(LongTerm('a'));
    Show(LongTerm('b'));
    EXPECT_EQ(Find(), S_OK);
    EXPECT_TRUE(Deleted().empty());
    EXPECT_EQ(store.Count(), 2u);
}

TEST_F(FindDeletedTest, TheTableIsLeftAtItsBeginning)
{
    for (int i = 0; i < 450; ++i)
        Show(LongTerm('a'));
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(table->position, 0u);
    EXPECT_EQ(table->askedFor, (std::vector<LONG>{200, 200, 200, 200}));
}

TEST_F(FindDeletedTest, AShortTermIdentifierIsExchangedForTheItemsOwn)
{
    Remember("a");
    Show(ShortTerm('x'));
    mailStore->items[ShortTerm('x')] = ItemProps{LongTerm('a'), {}, {}, {}};
    EXPECT_EQ(Find(), S_OK);
    EXPECT_TRUE(Deleted().empty());
}

TEST_F(FindDeletedTest, AnItemThatCannotBeOpenedCountsAsGone)
{
    Remember("ab");
    Show(LongTerm('b'));
    Show(ShortTerm('a'));
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(Deleted(), std::vector{KeyOf('a')});
}

TEST_F(FindDeletedTest, AnItemWithoutAnIdentifierOfItsOwnCountsAsGone)
{
    Remember("a");
    Show(ShortTerm('a'));
    mailStore->items[ShortTerm('a')] = ItemProps{};
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(Deleted(), std::vector{KeyOf('a')});
}

TEST_F(FindDeletedTest, ARowWithoutAnIdentifierEndsTheSearchWithNothingListed)
{
    Remember("ab");
    for (int i = 0; i < 250; ++i)
        Show(LongTerm('a'));
    table->rows.push_back(ItemProps{{}, 1, {}, 1});
    EXPECT_EQ(Find(), E_FAIL);
    EXPECT_EQ(list.Count(), 0u);
}

TEST_F(FindDeletedTest, RowsThatCannotBeReadCountAsGone)
{
    Remember("ab");
    for (int i = 0; i < 200; ++i)
        Show(LongTerm('a'));
    Show(LongTerm('b'));
    table->failQueryAt = 2;
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(Deleted(), std::vector{KeyOf('b')});
}

TEST_F(FindDeletedTest, ATableThatCannotGoBackFailsAndTheListStays)
{
    Remember("a");
    table->failSeekAt = 1;
    EXPECT_EQ(Find(), MAPI_E_CALL_FAILED);
    EXPECT_EQ(Deleted(), std::vector{KeyOf('a')});
}

TEST_F(FindDeletedTest, ARecordWithAnEmptyHashTakesPart)
{
    store.SuspendSave = true;
    ASSERT_EQ(store.SetHash(Bstr(Widen(KeyOf('a'))).Get(), Bstr(OleStringView()).Get(), 1), S_OK);
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(Deleted(), std::vector{KeyOf('a')});
}

TEST_F(FindDeletedTest, LongTermRowsOpenNoItem)
{
    Show(LongTerm('a'));
    EXPECT_EQ(Find(), S_OK);
    EXPECT_EQ(mailStore->opens, 0u);
}

}  // namespace
}  // namespace quorvane
