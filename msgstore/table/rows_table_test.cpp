#include "msgstore/table/rows_table.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

constexpr ULONG kName = PR_DISPLAY_NAME_W;
constexpr ULONG kRank = PROP_TAG(PT_LONG, 0x6601);

PropertyBag Row(OleStringView name, LONG rank)
{
    PropertyBag row;
    row.Put(PropertyValue::Unicode(kName, name));
    row.Put(PropertyValue::Long(kRank, rank));
    return row;
}

// A table of five rows: b4 a3 e2 d1 c0.
class RowsTableTest : public ::testing::Test {
protected:
    RowsTableTest()
    {
        rows_ = {Row(OLESTR("b"), 4), Row(OLESTR("a"), 3), Row(OLESTR("e"), 2), Row(OLESTR("d"), 1),
                 Row(OLESTR("c"), 0)};
        RowsTableOptions options;
        options.unicode = true;
        EXPECT_EQ(MakeRowsTable(rows_, std::move(options), table_.Put()), S_OK);
    }

    // The names of the next rows.
    OleString Query(LONG count, ULONG flags = 0)
    {
        RowSet rows;
        EXPECT_EQ(table_->QueryRows(count, flags, rows.Put()), S_OK);
        OleString names;
        for (const SRow& row : rows) {
            const SPropValue* const name = PpropFindProp(row.lpProps, row.cValues, kName);
            names += name ? OleString(name->Value.lpszW) : OleString(OLESTR("?"));
        }
        return names;
    }

    void SortBy(ULONG tag, ULONG order)
    {
        SSortOrderSet set{1, 0, 0, {{tag, order}}};
        EXPECT_EQ(table_->SortTable(&set, 0), S_OK);
    }

    SRestriction RankAbove(LONG rank)
    {
        value_.ulPropTag = kRank;
        value_.Value.l = rank;
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {RELOP_GT, kRank, &value_};
        return restriction;
    }

    std::vector<PropertyBag> rows_;
    ComPtr<IMAPITable> table_;
    SPropValue value_{};
};

TEST_F(RowsTableTest, RowsComeInOrderUntilTheEnd)
{
    EXPECT_EQ(Query(2), OLESTR("ba"));
    EXPECT_EQ(Query(2, TBL_NOADVANCE), OLESTR("ed"));
    EXPECT_EQ(Query(10), OLESTR("edc"));
    EXPECT_EQ(Query(10), OLESTR(""));
}

TEST_F(RowsTableTest, ANegativeCountReadsBackwards)
{
    EXPECT_EQ(table_->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);
    EXPECT_EQ(Query(-2), OLESTR("dc"));
    EXPECT_EQ(Query(-10), OLESTR("bae"));
}

TEST_F(RowsTableTest, ASortAppliesToAllRows)
{
    SortBy(kName, TABLE_SORT_ASCEND);
    EXPECT_EQ(Query(10), OLESTR("abcde"));
    SortBy(kRank, TABLE_SORT_DESCEND);
    EXPECT_EQ(Query(10), OLESTR("baedc"));
    MapiBuffer<SSortOrderSet> order;
    ASSERT_EQ(table_->QuerySortOrder(order.Put()), S_OK);
    EXPECT_EQ(order->cSorts, 1u);
    EXPECT_EQ(order->aSort[0].ulOrder, TABLE_SORT_DESCEND);
}

TEST_F(RowsTableTest, ARestrictionHidesRowsUntilItsLifted)
{
    SRestriction restriction = RankAbove(2);
    ASSERT_EQ(table_->Restrict(&restriction, 0), S_OK);
    ULONG count = 0;
    ASSERT_EQ(table_->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(Query(10), OLESTR("ba"));
    ASSERT_EQ(table_->Restrict(nullptr, 0), S_OK);
    EXPECT_EQ(Query(10), OLESTR("baedc"));
}

TEST_F(RowsTableTest, SeekingStopsAtTheEnds)
{
    LONG sought = 0;
    EXPECT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 100, &sought), S_OK);
    EXPECT_EQ(sought, 5);
    EXPECT_EQ(table_->SeekRow(BOOKMARK_CURRENT, -2, &sought), S_OK);
    EXPECT_EQ(sought, -2);
    EXPECT_EQ(Query(1), OLESTR("d"));
    EXPECT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, -1, &sought), S_OK);
    EXPECT_EQ(sought, 0);
}

TEST_F(RowsTableTest, ABookmarkBringsTheCursorBack)
{
    EXPECT_EQ(Query(2), OLESTR("ba"));
    BOOKMARK place = 0;
    ASSERT_EQ(table_->CreateBookmark(&place), S_OK);
    EXPECT_EQ(Query(10), OLESTR("edc"));
    EXPECT_EQ(table_->SeekRow(place, 0, nullptr), S_OK);
    EXPECT_EQ(Query(1), OLESTR("e"));
    EXPECT_EQ(table_->FreeBookmark(place), S_OK);
    EXPECT_EQ(table_->SeekRow(place, 0, nullptr), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table_->FreeBookmark(place), MAPI_E_INVALID_BOOKMARK);
}

TEST_F(RowsTableTest, FindRowPutsTheCursorOnTheRow)
{
    SRestriction above = RankAbove(3);
    EXPECT_EQ(Query(3), OLESTR("bae"));
    EXPECT_EQ(table_->FindRow(&above, BOOKMARK_CURRENT, 0), MAPI_E_NOT_FOUND);
    EXPECT_EQ(table_->FindRow(&above, BOOKMARK_CURRENT, DIR_BACKWARD), S_OK);
    EXPECT_EQ(Query(1), OLESTR("b"));
    EXPECT_EQ(table_->FindRow(&above, BOOKMARK_BEGINNING, 0), S_OK);
    EXPECT_EQ(Query(1), OLESTR("b"));
}

TEST_F(RowsTableTest, AColumnThatARowLacksIsAnError)
{
    SPropTagArray columns{1, {PR_COMMENT_W}};
    ASSERT_EQ(table_->SetColumns(&columns, 0), S_OK);
    RowSet rows;
    ASSERT_EQ(table_->QueryRows(1, 0, rows.Put()), S_OK);
    EXPECT_EQ(rows[0].lpProps[0].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_COMMENT)));
    EXPECT_EQ(rows[0].lpProps[0].Value.err, MAPI_E_NOT_FOUND);
}

TEST_F(RowsTableTest, HrQueryAllRowsSetsUpAndReadsAll)
{
    SPropTagArray columns{1, {kName}};
    SRestriction restriction = RankAbove(0);
    SSortOrderSet order{1, 0, 0, {{kName, TABLE_SORT_ASCEND}}};
    RowSet rows;
    ASSERT_EQ(HrQueryAllRows(table_.Get(), &columns, &restriction, &order, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0].cValues, 1u);
    EXPECT_EQ(OleString(rows[3].lpProps[0].Value.lpszW), OLESTR("e"));
    EXPECT_EQ(HrQueryAllRows(table_.Get(), nullptr, nullptr, nullptr, 2, rows.Put()), MAPI_E_TABLE_TOO_BIG);
    EXPECT_EQ(rows.Get(), nullptr);
}

TEST_F(RowsTableTest, SubscribingNeedsAnAdvisor)
{
    ULONG connection = 0;
    EXPECT_EQ(table_->Advise(fnevTableModified, nullptr, &connection), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(table_->Unadvise(1), MAPI_E_NO_SUPPORT);
}

TEST_F(RowsTableTest, ARefreshedTableFollowsItsRows)
{
    RowsTableOptions options;
    options.unicode = true;
    options.columns = {kName};
    options.refresh = [this](std::vector<PropertyBag>& rows) {
        rows = rows_;
        return S_OK;
    };
    ASSERT_EQ(MakeRowsTable({}, std::move(options), table_.Put()), S_OK);
    EXPECT_EQ(Query(10), OLESTR(""));
    EXPECT_EQ(table_->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    EXPECT_EQ(Query(10), OLESTR("baedc"));
}

TEST_F(RowsTableTest, TheFixedPlacesAreNobodysToFree)
{
    for (const BOOKMARK place : {BOOKMARK_BEGINNING, BOOKMARK_CURRENT, BOOKMARK_END})
        EXPECT_EQ(table_->FreeBookmark(place), S_OK);
}

TEST_F(RowsTableTest, ColumnsAreThoseThatWereSetUnlessAllAreAskedFor)
{
    SizedSPropTagArray(1, name) = {1, {kName}};
    ASSERT_EQ(table_->SetColumns(reinterpret_cast<LPSPropTagArray>(&name), 0), S_OK);
    MapiBuffer<SPropTagArray> columns;
    ASSERT_EQ(table_->QueryColumns(0, columns.Put()), S_OK);
    EXPECT_EQ(columns->cValues, 1u);
    ASSERT_EQ(table_->QueryColumns(TBL_ALL_COLUMNS, columns.Put()), S_OK);
    EXPECT_GE(columns->cValues, 2u);
}

TEST_F(RowsTableTest, AnEmptyTableHasItsColumns)
{
    RowsTableOptions options;
    options.columns = {PR_ROWID, kName};
    ASSERT_EQ(MakeRowsTable({}, std::move(options), table_.Put()), S_OK);
    MapiBuffer<SPropTagArray> columns;
    ASSERT_EQ(table_->QueryColumns(0, columns.Put()), S_OK);
    EXPECT_EQ(columns->cValues, 2u);
    RowSet rows;
    EXPECT_EQ(HrQueryAllRows(table_.Get(), nullptr, nullptr, nullptr, 0, rows.Put()), S_OK);
    EXPECT_EQ(rows.size(), 0u);
}

}  // namespace
}  // namespace quorvane
