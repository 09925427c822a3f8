#include "msgstore/store/categories.h"

#include <gtest/gtest.h>

#include "msgstore/store/test_mailbox.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;
using Lines = std::vector<std::string>;

// Mails of Ann ("plan" twice, the second read, and "rest") and of Bob ("plan"), sorted by sender, then
// subject.
class CategoriesTest : public ::testing::Test {
protected:
    CategoriesTest()
    {
        Add("Bob", "plan");
        Add("Ann", "plan");
        Add("ann", "Plan", true);
        Add("Ann", "rest");
    }
    void Add(const char* sender, const char* subject, bool read = false)
    {
        ComPtr<IMessage> message;
        ASSERT_EQ(mailbox.Inbox().CreateMessage(nullptr, 0, message.Put()), S_OK);
        EXPECT_EQ(SetText(*message, PR_SENDER_NAME_W, FromUtf8(sender)), S_OK);
        EXPECT_EQ(SetText(*message, PR_SUBJECT_W, FromUtf8(subject)), S_OK);
        EXPECT_EQ(SetLong(*message, PR_MESSAGE_FLAGS, read ? MSGFLAG_READ : 0), S_OK);
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        last = BinaryOf(*message, PR_ENTRYID);
    }
    ComPtr<IMAPITable> Table(ULONG categories, ULONG expanded)
    {
        ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox(), MAPI_UNICODE);
        SizedSPropTagArray(7, columns) = {7,
                                          {PR_SENDER_NAME_W, PR_SUBJECT_W, PR_ROW_TYPE, PR_DEPTH,
                                           PR_CONTENT_COUNT, PR_CONTENT_UNREAD, PR_INSTANCE_KEY}};
        EXPECT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
        EXPECT_EQ(Sort(*table, categories, expanded), S_OK);
        return table;
    }
    static HRESULT Sort(IMAPITable& table, ULONG categories, ULONG expanded)
    {
        SizedSSortOrderSet(2, order) = {2, categories, expanded, {}};
        order.aSort[0] = {PR_SENDER_NAME_W, TABLE_SORT_ASCEND};
        order.aSort[1] = {PR_SUBJECT_W, TABLE_SORT_ASCEND};
        return table.SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0);
    }
    // A heading as "- Ann 3/2" (count, unread) or "+ Ann 3/2" when it's collapsed, a message as "Ann: plan",
    // each as deep as it stands.
    static std::string LineOf(const SRow& row)
    {
        const std::string indent(2 * static_cast<std::size_t>(row.lpProps[3].Value.l), ' ');
        const std::string sender = ToUtf8(TextOf(row, PR_SENDER_NAME_W));
        const bool hasSubject = row.lpProps[1].ulPropTag == PR_SUBJECT_W;
        const std::string subject = hasSubject ? ToUtf8(TextOf(row, PR_SUBJECT_W)) : "";
        const LONG type = row.lpProps[2].Value.l;
        if (type == LONG{TBL_LEAF_ROW})
            return indent + sender + ": " + subject;
        return indent + (type == LONG{TBL_EXPANDED_CATEGORY} ? "- " : "+ ") +
               (hasSubject ? subject : sender) + " " + std::to_string(row.lpProps[4].Value.l) + "/" +
               std::to_string(row.lpProps[5].Value.l);
    }
    static Lines Read(IMAPITable& table, LONG count = 100)
    {
        RowSet rows;
        EXPECT_EQ(table.QueryRows(count, 0, rows.Put()), S_OK);
        Lines lines;
        for (const SRow& row : rows)
            lines.push_back(LineOf(row));
        return lines;
    }
    static Lines All(IMAPITable& table)
    {
        EXPECT_EQ(table.SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
        return Read(table);
    }
    static BinaryValue KeyAt(IMAPITable& table, LONG index)
    {
        EXPECT_EQ(table.SeekRow(BOOKMARK_BEGINNING, index, nullptr), S_OK);
        RowSet rows;
        EXPECT_EQ(table.QueryRows(1, 0, rows.Put()), S_OK);
        return BinaryOf(rows[0], PR_INSTANCE_KEY);
    }
    static HRESULT Collapse(IMAPITable& table, BinaryValue key, ULONG& gone)
    {
        return table.CollapseRow(static_cast<ULONG>(key.size()), key.data(), 0, &gone);
    }

    TestMailbox mailbox;
    BinaryValue last;
};

TEST_F(CategoriesTest, HeadingsStandAboveTheirRowsWithWhatTheyHold)
{
    EXPECT_EQ(All(*Table(1, 1)),
              (Lines{"- Ann 3/2", "  Ann: plan", "  ann: Plan", "  Ann: rest", "- Bob 1/1", "  Bob: plan"}));
    EXPECT_EQ(All(*Table(2, 2)),
              (Lines{"- Ann 3/2", "  - plan 2/1", "    Ann: plan", "    ann: Plan", "  - rest 1/1",
                     "    Ann: rest", "- Bob 1/1", "  - plan 1/1", "    Bob: plan"}));
    EXPECT_EQ(All(*Table(2, 1)),
              (Lines{"- Ann 3/2", "  + plan 2/1", "  + rest 1/1", "- Bob 1/1", "  + plan 1/1"}));
    EXPECT_EQ(All(*Table(2, 0)), (Lines{"+ Ann 3/2", "+ Bob 1/1"}));
}

TEST_F(CategoriesTest, AHeadingIsExpandedAndItsRowsAreGivenAsFarAsTheyAreWanted)
{
    const ComPtr<IMAPITable> table = Table(1, 0);
    BinaryValue key = KeyAt(*table, 0);
    RowSet rows;
    ULONG more = 0;
    ASSERT_EQ(table->ExpandRow(static_cast<ULONG>(key.size()), key.data(), 2, 0, rows.Put(), &more), S_OK);

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(LineOf(rows[0]), "  Ann: plan");
    EXPECT_EQ(LineOf(rows[1]), "  ann: Plan");
    EXPECT_EQ(more, 1u);
    EXPECT_EQ(Read(*table), (Lines{"  Ann: rest", "+ Bob 1/1"}));
}

TEST_F(CategoriesTest, ACollapsedHeadingTakesItsRowsAwayAndKnowsWhatWasExpandedBelow)
{
    const ComPtr<IMAPITable> table = Table(2, 2);
    ULONG gone = 0;
    ASSERT_EQ(Collapse(*table, KeyAt(*table, 1), gone), S_OK);
    EXPECT_EQ(gone, 2u);
    ASSERT_EQ(Collapse(*table, KeyAt(*table, 0), gone), S_OK);
    EXPECT_EQ(gone, 3u);
    EXPECT_EQ(All(*table), (Lines{"+ Ann 3/2", "- Bob 1/1", "  - plan 1/1", "    Bob: plan"}));
    ULONG count = 0;
    ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 4u);

    BinaryValue key = KeyAt(*table, 0);
    ULONG more = 0;
    ASSERT_EQ(table->ExpandRow(static_cast<ULONG>(key.size()), key.data(), 0, 0, nullptr, &more), S_OK);
    EXPECT_EQ(more, 3u);
    EXPECT_EQ(All(*table)[1], "  + plan 2/1");
}

TEST_F(CategoriesTest, OnlyHeadingsAreExpandedAndCollapsed)
{
    const ComPtr<IMAPITable> table = Table(1, 1);
    ULONG gone = 0;
    EXPECT_EQ(Collapse(*table, KeyAt(*table, 1), gone), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Collapse(*table, BinaryValue{1, 2, 3}, gone), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Collapse(*table, BinaryValue(8, 0x80), gone), MAPI_E_NOT_FOUND);
    const BinaryValue heading = KeyAt(*table, 0);
    ASSERT_EQ(table->SortTable(nullptr, 0), S_OK);
    EXPECT_EQ(Collapse(*table, heading, gone), MAPI_E_NOT_FOUND);
}

TEST_F(CategoriesTest, TheTableFollowsAndHeadingsComeAndGoWithTheirRows)
{
    const ComPtr<IMAPITable> table = Table(1, 1);
    ULONG gone = 0;
    ASSERT_EQ(Collapse(*table, KeyAt(*table, 0), gone), S_OK);
    const ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);

    Add("Ann", "late");
    EXPECT_EQ(All(*table), (Lines{"+ Ann 4/3", "- Bob 1/1", "  Bob: plan"}));
    Add("Abe", "plan");
    EXPECT_EQ(All(*table), (Lines{"- Abe 1/1", "  Abe: plan", "+ Ann 4/3", "- Bob 1/1", "  Bob: plan"}));
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), last), S_OK);
    EXPECT_EQ(All(*table), (Lines{"+ Ann 4/3", "- Bob 1/1", "  Bob: plan"}));

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].tableEvent, TABLE_CHANGED);
    EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(CategoriesTest, RowsAreFoundAndRestrictedAmongHeadings)
{
    const ComPtr<IMAPITable> table = Table(1, 1);
    OleString rest(OLESTR("rest"));
    SPropValue value{};
    value.ulPropTag = PR_SUBJECT_W;
    value.Value.lpszW = rest.data();
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_SUBJECT_W, &value};
    ASSERT_EQ(table->FindRow(&restriction, BOOKMARK_BEGINNING, 0), S_OK);
    EXPECT_EQ(Read(*table, 1), Lines{"  Ann: rest"});
    ULONG gone = 0;
    ASSERT_EQ(Collapse(*table, KeyAt(*table, 0), gone), S_OK);
    EXPECT_EQ(table->FindRow(&restriction, BOOKMARK_BEGINNING, 0), MAPI_E_NOT_FOUND);

    ASSERT_EQ(table->Restrict(&restriction, 0), S_OK);
    EXPECT_EQ(All(*table), Lines{"+ Ann 1/1"});
}

TEST_F(CategoriesTest, TheStateIsTakenToAnotherTable)
{
    const ComPtr<IMAPITable> table = Table(2, 2);
    ULONG gone = 0;
    ASSERT_EQ(Collapse(*table, KeyAt(*table, 1), gone), S_OK);
    const Lines shown = All(*table);
    for (const LONG index : {LONG{1}, LONG{3}}) {
        BinaryValue key = KeyAt(*table, index);
        ULONG size = 0;
        MapiBuffer<BYTE> state;
        ASSERT_EQ(table->GetCollapseState(0, static_cast<ULONG>(key.size()), key.data(), &size, state.Put()),
                  S_OK);

        const ComPtr<IMAPITable> other = Table(2, 2);
        BOOKMARK place = 0;
        ASSERT_EQ(other->SetCollapseState(0, size, state.Get(), &place), S_OK);
        EXPECT_EQ(All(*other), shown);
        ASSERT_EQ(other->SeekRow(place, 0, nullptr), S_OK);
        EXPECT_EQ(Read(*other, 1), Lines{shown[static_cast<std::size_t>(index)]});
        EXPECT_EQ(other->SetCollapseState(0, size - 1, state.Get(), &place), MAPI_E_INVALID_PARAMETER);
        EXPECT_EQ(All(*other), shown);
    }
}

TEST_F(CategoriesTest, OrdersThatMakeNoSenseAreRefusedAndTheOrderIsGivenBack)
{
    const ComPtr<IMAPITable> table = Table(2, 1);
    EXPECT_EQ(Sort(*table, 3, 0), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Sort(*table, 1, 2), MAPI_E_INVALID_PARAMETER);
    MapiBuffer<SSortOrderSet> order;
    ASSERT_EQ(table->QuerySortOrder(order.Put()), S_OK);
    EXPECT_EQ(order->cSorts, 2u);
    EXPECT_EQ(order->cCategories, 2u);
    EXPECT_EQ(order->cExpanded, 1u);
    ComPtr<IMAPITable> folders;
    ASSERT_EQ(mailbox.Inbox().GetHierarchyTable(0, folders.Put()), S_OK);
    EXPECT_EQ(Sort(*folders, 1, 1), MAPI_E_TOO_COMPLEX);
    ULONG size = 0;
    MapiBuffer<BYTE> state;
    EXPECT_EQ(folders->GetCollapseState(0, 0, nullptr, &size, state.Put()), MAPI_E_NO_SUPPORT);
}

TEST_F(CategoriesTest, ABookmarkStaysWithItsRowWhenHeadingsAreCollapsed)
{
    const ComPtr<IMAPITable> table = Table(1, 1);
    ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 5, nullptr), S_OK);
    BOOKMARK bob = 0;
    ASSERT_EQ(table->CreateBookmark(&bob), S_OK);
    ULONG gone = 0;
    ASSERT_EQ(Collapse(*table, KeyAt(*table, 0), gone), S_OK);
    ASSERT_EQ(table->SeekRow(bob, 0, nullptr), S_OK);
    EXPECT_EQ(Read(*table, 1), Lines{"  Bob: plan"});
}

}  // namespace
}  // namespace quorvane
