#include "msgstore/store/store_table.h"

#include <gtest/gtest.h>

#include "msgstore/store/entry_id.h"
#include "msgstore/store/schema.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;
using Subjects = std::vector<OleString>;

// A property that no column of the file holds.
constexpr ULONG kTransmittedId = PROP_TAG(PT_UNICODE, 0x1035);

class StoreTableTest : public ::testing::Test {
protected:
    void AddMessages(int count)
    {
        for (int i = 0; i < count; ++i)
            ids.push_back(mailbox.AddMessage(mailbox.Inbox(), Numbered(i), MAPI_DEFERRED_ERRORS));
    }
    static OleString Numbered(int i)
    {
        return {OLESTR('m'), static_cast<OLECHAR>(OLESTR('0') + i / 10),
                static_cast<OLECHAR>(OLESTR('0') + i % 10)};
    }
    static Subjects Read(IMAPITable& table, LONG count, ULONG flags = 0)
    {
        RowSet rows;
        EXPECT_EQ(table.QueryRows(count, flags, rows.Put()), S_OK);
        Subjects subjects;
        for (const SRow& row : rows)
            subjects.push_back(TextOf(row, PR_SUBJECT_W));
        return subjects;
    }
    static void ShowSubjects(IMAPITable& table)
    {
        SizedSPropTagArray(1, columns) = {1, {PR_SUBJECT_W}};
        ASSERT_EQ(table.SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
    }
    ComPtr<IMAPITable> SubjectTable()
    {
        ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
        ShowSubjects(*table);
        return table;
    }
    static ULONG PositionOf(IMAPITable& table)
    {
        ULONG row = 0;
        ULONG numerator = 0;
        ULONG denominator = 0;
        EXPECT_EQ(table.QueryPosition(&row, &numerator, &denominator), S_OK);
        return row;
    }

    TestMailbox mailbox;
    std::vector<BinaryValue> ids;
};

TEST_F(StoreTableTest, RowsComeInBatchesUntilTheEnd)
{
    AddMessages(5);
    const ComPtr<IMAPITable> table = SubjectTable();

    EXPECT_EQ(Read(*table, 2), (Subjects{OLESTR("m00"), OLESTR("m01")}));
    EXPECT_EQ(Read(*table, 2, TBL_NOADVANCE), (Subjects{OLESTR("m02"), OLESTR("m03")}));
    EXPECT_EQ(Read(*table, 2), (Subjects{OLESTR("m02"), OLESTR("m03")}));
    EXPECT_EQ(Read(*table, 2), (Subjects{OLESTR("m04")}));
    EXPECT_TRUE(Read(*table, 2).empty());
}

TEST_F(StoreTableTest, AMessageWhosePropertiesAreDamagedKeepsItsRowAndTheOthersHaveTheirs)
{
    AddMessages(3);
    for (const BinaryValue& id : ids) {
        const ComPtr<IMessage> message = mailbox.OpenMessage(id);
        ASSERT_EQ(SetText(*message, kTransmittedId, OLESTR("stored")), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
    ASSERT_NO_FATAL_FAILURE(mailbox.Damage("m01"));
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, PR_SUBJECT_W, kTransmittedId}};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);

    RowSet rows;
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);

    ASSERT_EQ(rows.size(), 3u);
    for (ULONG i = 0; i < 3; ++i) {
        EXPECT_EQ(BinaryOf(rows[i], PR_ENTRYID), ids[i]);
        EXPECT_EQ(TextOf(rows[i], PR_SUBJECT_W), Numbered(static_cast<int>(i)));
    }
    EXPECT_EQ(TextOf(rows[0], kTransmittedId), OLESTR("stored"));
    EXPECT_EQ(PROP_TYPE(rows[1].lpProps[2].ulPropTag), PT_ERROR);
    EXPECT_EQ(TextOf(rows[2], kTransmittedId), OLESTR("stored"));
}

TEST_F(StoreTableTest, RowsBeforeTheCursorAreReadBackwards)
{
    AddMessages(5);
    const ComPtr<IMAPITable> table = SubjectTable();
    ASSERT_EQ(table->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);

    EXPECT_EQ(Read(*table, -2), (Subjects{OLESTR("m03"), OLESTR("m04")}));
    EXPECT_EQ(PositionOf(*table), 3u);
    EXPECT_EQ(Read(*table, INT32_MIN), (Subjects{OLESTR("m00"), OLESTR("m01"), OLESTR("m02")}));
    EXPECT_EQ(PositionOf(*table), 0u);
}

TEST_F(StoreTableTest, TheDefaultColumnsHoldWhatARowIsKnownBy)
{
    AddMessages(1);
    RowSet rows;
    ASSERT_EQ(ContentsOf(mailbox.Inbox())->QueryRows(1, 0, rows.Put()), S_OK);

    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(BinaryOf(rows[0], PR_ENTRYID), ids[0]);
    for (const ULONG tag :
         {PR_INSTANCE_KEY, PR_RECORD_KEY, PR_MESSAGE_FLAGS, PR_MESSAGE_SIZE, PR_LAST_MODIFICATION_TIME,
          PR_HASATTACH, PR_DISPLAY_TO_A, PR_SUBJECT_A, PR_MESSAGE_CLASS_A})
        EXPECT_TRUE(PpropFindProp(rows[0].lpProps, rows[0].cValues, tag)) << std::hex << tag;
}

TEST_F(StoreTableTest, AColumnOfAnyPropertyCanBeShown)
{
    AddMessages(1);
    const ComPtr<IMessage> message = mailbox.OpenMessage(ids[0]);
    ASSERT_EQ(SetText(*message, PR_BODY_W, OLESTR("The text")), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    SizedSPropTagArray(3, columns) = {3, {PR_BODY_W, PR_PARENT_ENTRYID, PR_EXPIRY_TIME}};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);

    RowSet rows;
    ASSERT_EQ(table->QueryRows(1, 0, rows.Put()), S_OK);

    EXPECT_EQ(TextOf(rows[0], PR_BODY_W), OLESTR("The text"));
    EXPECT_EQ(BinaryOf(rows[0], PR_PARENT_ENTRYID), BinaryOf(mailbox.Inbox(), PR_ENTRYID));
    EXPECT_EQ(PROP_TYPE(rows[0].lpProps[2].ulPropTag), PT_ERROR);
    EXPECT_EQ(rows[0].lpProps[2].Value.err, MAPI_E_NOT_FOUND);
}

// Properties of these messages, of several hundred letters each, which are packed in the file.
class PackedValuesTest : public StoreTableTest {
protected:
    static constexpr ULONG kFirst = PROP_TAG(PT_UNICODE, 0x6721);
    static constexpr ULONG kSecond = PROP_TAG(PT_UNICODE, 0x6722);

    static OleString Long(OLECHAR letter) { return OleString(600, letter) + OLESTR("needle"); }

    // m00 has two that differ, m01 two that are the same; both have a short one.
    void SetUp() override
    {
        AddMessages(2);
        for (int i = 0; i < 2; ++i) {
            const ComPtr<IMessage> message = mailbox.OpenMessage(ids[static_cast<std::size_t>(i)]);
            ASSERT_EQ(SetText(*message, kTransmittedId, OLESTR("short")), S_OK);
            ASSERT_EQ(SetText(*message, kFirst, Long(OLESTR('a'))), S_OK);
            ASSERT_EQ(SetText(*message, kSecond, Long(i == 0 ? OLESTR('b') : OLESTR('a'))), S_OK);
            ASSERT_EQ(message->SaveChanges(0), S_OK);
        }
    }
    static void Read(IMAPITable& table, RowSet& rows)
    {
        SizedSPropTagArray(4, columns) = {4, {kTransmittedId, kSecond, PR_SUBJECT_W, kFirst}};
        ASSERT_EQ(table.SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
        ASSERT_EQ(table.QueryRows(10, 0, rows.Put()), S_OK);
        ASSERT_EQ(rows.size(), 2u);
    }
    Subjects Restricted(SRestriction restriction)
    {
        const ComPtr<IMAPITable> table = SubjectTable();
        EXPECT_EQ(table->Restrict(&restriction, 0), S_OK);
        return StoreTableTest::Read(*table, 10);
    }
};

TEST_F(PackedValuesTest, TheyAreShownBesideTheOthersAndRowForRow)
{
    RowSet rows;
    ASSERT_NO_FATAL_FAILURE(Read(*ContentsOf(mailbox.Inbox()), rows));
    for (const ULONG row : {0u, 1u}) {
        EXPECT_EQ(TextOf(rows[row], kTransmittedId), OLESTR("short"));
        EXPECT_EQ(TextOf(rows[row], kFirst), Long(OLESTR('a')));
    }
    EXPECT_EQ(TextOf(rows[0], kSecond), Long(OLESTR('b')));
    EXPECT_EQ(TextOf(rows[1], kSecond), Long(OLESTR('a')));
}

TEST_F(PackedValuesTest, RestrictionsJudgeThem)
{
    SRestriction same{};
    same.rt = RES_COMPAREPROPS;
    same.res.resCompareProps = {RELOP_EQ, kFirst, kSecond};
    EXPECT_EQ(Restricted(same), Subjects{OLESTR("m01")});

    OleString needle = OLESTR("bneedle");
    SPropValue wanted{};
    wanted.ulPropTag = kSecond;
    wanted.Value.lpszW = needle.data();
    SRestriction content{};
    content.rt = RES_CONTENT;
    content.res.resContent = {FL_SUBSTRING, kSecond, &wanted};
    EXPECT_EQ(Restricted(content), Subjects{OLESTR("m00")});
}

TEST_F(PackedValuesTest, WhereTheyAreDamagedTheRowShowsIt)
{
    // Behind the record's head, which tells what is packed, and behind the tags.
    ASSERT_NO_FATAL_FAILURE(mailbox.Damage("m00",
                                           "CAST(substr(properties,1,40) || x'5555' || "
                                           "substr(properties,43) AS BLOB)"));
    RowSet rows;
    ASSERT_NO_FATAL_FAILURE(Read(*ContentsOf(mailbox.Inbox()), rows));

    EXPECT_EQ(PROP_TYPE(rows[0].lpProps[0].ulPropTag), PT_ERROR);
    EXPECT_EQ(TextOf(rows[0], PR_SUBJECT_W), OLESTR("m00"));
    EXPECT_EQ(TextOf(rows[1], kTransmittedId), OLESTR("short"));
    EXPECT_EQ(TextOf(rows[1], kSecond), Long(OLESTR('a')));
}

TEST_F(StoreTableTest, ALongValueIsAnErrorInItsColumnAndARestrictionSeesAllOfIt)
{
    constexpr std::size_t kLong = 200 * 1024;
    OleString text(kLong, OLESTR('x'));
    text += OLESTR("needle");
    BinaryValue bytes(kLong, 1);
    bytes.back() = 2;
    AddMessages(2);
    const ComPtr<IMessage> message = mailbox.OpenMessage(ids[1]);
    ASSERT_EQ(SetText(*message, kTransmittedId, text), S_OK);
    constexpr ULONG bytesTag = PROP_TAG(PT_BINARY, 0x6720);
    ASSERT_EQ(SetBinary(*message, bytesTag, bytes), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);

    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    SizedSPropTagArray(2, columns) = {2, {kTransmittedId, bytesTag}};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
    RowSet rows;
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);
    for (const int column : {0, 1}) {
        EXPECT_EQ(rows[0].lpProps[column].Value.err, MAPI_E_NOT_FOUND);
        EXPECT_EQ(PROP_TYPE(rows[1].lpProps[column].ulPropTag), static_cast<ULONG>(PT_ERROR));
        EXPECT_EQ(rows[1].lpProps[column].Value.err, MAPI_E_NOT_ENOUGH_MEMORY);
    }

    SPropValue wanted{};
    wanted.ulPropTag = kTransmittedId;
    OleString needle = OLESTR("NEEDLE");
    wanted.Value.lpszW = needle.data();
    SRestriction restriction{};
    restriction.rt = RES_CONTENT;
    restriction.res.resContent = {FL_SUBSTRING | FL_IGNORECASE, kTransmittedId, &wanted};
    ULONG count = 0;
    ASSERT_EQ(table->Restrict(&restriction, 0), S_OK);
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);

    SPropValue whole{};
    whole.ulPropTag = bytesTag;
    whole.Value.bin = {static_cast<ULONG>(bytes.size()), bytes.data()};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, bytesTag, &whole};
    ASSERT_EQ(table->Restrict(&restriction, 0), S_OK);
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
    restriction.res.resProperty.relop = RELOP_LT;
    bytes.back() = 1;
    ASSERT_EQ(table->Restrict(&restriction, 0), S_OK);
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 0u);
}

TEST_F(StoreTableTest, ATableSortsByItsColumns)
{
    for (const auto* const subject : {OLESTR("pear"), OLESTR("Apple"), OLESTR("fig")})
        mailbox.AddMessage(mailbox.Inbox(), subject);
    const ComPtr<IMAPITable> table = SubjectTable();
    SizedSSortOrderSet(1, order) = {1, 0, 0, {{PR_SUBJECT_W, TABLE_SORT_ASCEND}}};

    ASSERT_EQ(table->SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0), S_OK);
    EXPECT_EQ(Read(*table, 10), (Subjects{OLESTR("Apple"), OLESTR("fig"), OLESTR("pear")}));
    order.aSort[0].ulOrder = TABLE_SORT_DESCEND;
    ASSERT_EQ(table->SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0), S_OK);
    EXPECT_EQ(Read(*table, 10), (Subjects{OLESTR("pear"), OLESTR("fig"), OLESTR("Apple")}));
}

TEST_F(StoreTableTest, ANewRowOfASortedTableTakesItsPlace)
{
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("a"));
    const BinaryValue last = mailbox.AddMessage(mailbox.Inbox(), OLESTR("z"));
    const ComPtr<IMAPITable> table = SubjectTable();
    SizedSSortOrderSet(1, order) = {1, 0, 0, {{PR_SUBJECT_W, TABLE_SORT_ASCEND}}};
    ASSERT_EQ(table->SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0), S_OK);
    ASSERT_EQ(Read(*table, 10, TBL_NOADVANCE).size(), 2u);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("m"));
    EXPECT_EQ(Read(*table, 10, TBL_NOADVANCE), (Subjects{OLESTR("a"), OLESTR("m"), OLESTR("z")}));
    mailbox.ChangeSubject(last, OLESTR("b"));
    EXPECT_EQ(Read(*table, 10, TBL_NOADVANCE), (Subjects{OLESTR("a"), OLESTR("b"), OLESTR("m")}));
}

TEST_F(StoreTableTest, ARestrictionHidesRowsAndFollowsChanges)
{
    AddMessages(3);
    const ComPtr<IMAPITable> table = SubjectTable();
    SPropValue wanted{};
    wanted.ulPropTag = PR_SUBJECT_W;
    wanted.Value.lpszW = const_cast<LPWSTR>(OLESTR("m01"));
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_SUBJECT_W, &wanted};

    ASSERT_EQ(table->Restrict(&restriction, 0), S_OK);
    EXPECT_EQ(Read(*table, 10, TBL_NOADVANCE), (Subjects{OLESTR("m01")}));
    mailbox.ChangeSubject(ids[0], OLESTR("m01"));
    mailbox.ChangeSubject(ids[1], OLESTR("gone"));
    ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    EXPECT_EQ(Read(*table, 10, TBL_NOADVANCE), (Subjects{OLESTR("m01")}));
    ASSERT_EQ(table->Restrict(nullptr, 0), S_OK);
    EXPECT_EQ(Read(*table, 10).size(), 3u);
}

TEST_F(StoreTableTest, FindRowGoesEitherWay)
{
    AddMessages(4);
    const ComPtr<IMAPITable> table = SubjectTable();
    SPropValue wanted{};
    wanted.ulPropTag = PR_SUBJECT_W;
    wanted.Value.lpszW = const_cast<LPWSTR>(OLESTR("m02"));
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_SUBJECT_W, &wanted};

    ASSERT_EQ(table->FindRow(&restriction, BOOKMARK_BEGINNING, 0), S_OK);
    EXPECT_EQ(PositionOf(*table), 2u);
    ASSERT_EQ(table->FindRow(&restriction, BOOKMARK_END, DIR_BACKWARD), S_OK);
    EXPECT_EQ(PositionOf(*table), 2u);
    ASSERT_EQ(table->SeekRow(BOOKMARK_CURRENT, 1, nullptr), S_OK);
    EXPECT_EQ(table->FindRow(&restriction, BOOKMARK_CURRENT, 0), MAPI_E_NOT_FOUND);
}

TEST_F(StoreTableTest, ABookmarkStaysWithItsRow)
{
    AddMessages(4);
    const ComPtr<IMAPITable> table = SubjectTable();
    ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 2, nullptr), S_OK);
    BOOKMARK bookmark = 0;
    ASSERT_EQ(table->CreateBookmark(&bookmark), S_OK);

    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), ids[0]), S_OK);
    ASSERT_EQ(table->SeekRow(bookmark, 0, nullptr), S_OK);
    EXPECT_EQ(Read(*table, 1), (Subjects{OLESTR("m02")}));

    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), ids[2]), S_OK);
    EXPECT_EQ(table->SeekRow(bookmark, 0, nullptr), MAPI_W_POSITION_CHANGED);
    EXPECT_EQ(Read(*table, 1), (Subjects{OLESTR("m03")}));

    ASSERT_EQ(table->FreeBookmark(bookmark), S_OK);
    EXPECT_EQ(table->SeekRow(bookmark, 0, nullptr), MAPI_E_INVALID_BOOKMARK);
}

TEST_F(StoreTableTest, ACursorInTheMiddleNeitherSkipsNorRepeatsRows)
{
    AddMessages(6);
    const ComPtr<IMAPITable> table = SubjectTable();
    ASSERT_EQ(Read(*table, 3), (Subjects{OLESTR("m00"), OLESTR("m01"), OLESTR("m02")}));

    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), ids[1]), S_OK);
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), ids[4]), S_OK);
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("new"));

    EXPECT_EQ(Read(*table, 10), (Subjects{OLESTR("m03"), OLESTR("m05"), OLESTR("new")}));
}

TEST_F(StoreTableTest, ShortTermIdentifiersComeOnlyFromTables)
{
    TestMailbox other(true);
    const BinaryValue longTerm = other.AddMessage(other.Inbox(), OLESTR("Hello"));
    RowSet rows;
    ASSERT_EQ(ContentsOf(other.Inbox())->QueryRows(1, 0, rows.Put()), S_OK);
    BinaryValue shortTerm = BinaryOf(rows[0], PR_ENTRYID);

    EXPECT_EQ(longTerm[0], 0);
    ASSERT_FALSE(shortTerm.empty());
    EXPECT_NE(shortTerm[0], 0);
    EXPECT_EQ(BinaryOf(*other.OpenMessage(shortTerm, 0), PR_ENTRYID), longTerm);
    BinaryValue copy = longTerm;
    ULONG same = FALSE;
    ASSERT_EQ(other.Session().CompareEntryIDs(static_cast<ULONG>(copy.size()),
                                              reinterpret_cast<LPENTRYID>(copy.data()),
                                              static_cast<ULONG>(shortTerm.size()),
                                              reinterpret_cast<LPENTRYID>(shortTerm.data()), 0, &same),
              S_OK);
    EXPECT_EQ(same, static_cast<ULONG>(TRUE));
}

TEST_F(StoreTableTest, AShortTermIdentifierOfAFolderIsTheSameAsItsLongTermOneAndNoOther)
{
    const std::vector<BinaryValue> longTerm{BinaryOf(mailbox.Inbox(), PR_ENTRYID),
                                            BinaryOf(mailbox.Store(), PR_IPM_OUTBOX_ENTRYID)};
    EntryId inbox;
    ASSERT_EQ(ParseEntryId(longTerm[0].data(), longTerm[0].size(), inbox), S_OK);
    const auto shortTermOf = [&](FolderRole role) {
        const Bytes id = ShortTermId(inbox.store, MAPI_FOLDER, static_cast<std::int64_t>(role));
        return BinaryValue(id.begin(), id.end());
    };
    const std::vector<BinaryValue> shortTerm{shortTermOf(FolderRole::Inbox), shortTermOf(FolderRole::Outbox)};
    const auto areSame = [&](BinaryValue a, BinaryValue b) {
        ULONG same = 2;
        EXPECT_EQ(mailbox.Session().CompareEntryIDs(
                      static_cast<ULONG>(a.size()), reinterpret_cast<LPENTRYID>(a.data()),
                      static_cast<ULONG>(b.size()), reinterpret_cast<LPENTRYID>(b.data()), 0, &same),
                  S_OK);
        return same;
    };
    for (size_t i = 0; i < 2; ++i)
        for (size_t j = 0; j < 2; ++j) {
            EXPECT_EQ(areSame(shortTerm[i], longTerm[j]), i == j ? 1u : 0u) << i << j;
            EXPECT_EQ(areSame(shortTerm[i], shortTerm[j]), i == j ? 1u : 0u) << i << j;
        }
    // Folders that aren't there are no more the same than those that are.
    EXPECT_EQ(areSame(shortTermOf(static_cast<FolderRole>(4711)), shortTermOf(static_cast<FolderRole>(4712))),
              0u);
    EXPECT_EQ(areSame(shortTermOf(static_cast<FolderRole>(4711)), longTerm[0]), 0u);
}

TEST_F(StoreTableTest, AHierarchyTableShowsTheFoldersBelow)
{
    const ComPtr<IMAPIFolder> a = mailbox.MakeFolder(mailbox.Inbox(), "A");
    mailbox.MakeFolder(*a, "B");
    ComPtr<IMAPITable> table;
    ASSERT_EQ(mailbox.Inbox().GetHierarchyTable(CONVENIENT_DEPTH, table.Put()), S_OK);

    RowSet rows;
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(PpropFindProp(rows[0].lpProps, rows[0].cValues, PR_DEPTH)->Value.l, 1);
    EXPECT_EQ(PpropFindProp(rows[1].lpProps, rows[1].cValues, PR_DEPTH)->Value.l, 2);
    EXPECT_STREQ(PpropFindProp(rows[1].lpProps, rows[1].cValues, PR_DISPLAY_NAME_A)->Value.lpszA, "B");
}

}  // namespace
}  // namespace quorvane
