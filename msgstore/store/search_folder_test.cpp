#include "msgstore/store/search_folder.h"

#include <gtest/gtest.h>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;
using Subjects = std::vector<OleString>;

// Inbox with "plan a" and "other"; below it Deep with "plan b"; Apart, beside it, with "plan c". Found looks
// for "plan" in what it is told to.
class SearchFolderTest : public ::testing::Test {
protected:
    SearchFolderTest()
    {
        planA = mailbox.AddMessage(mailbox.Inbox(), OLESTR("plan a"));
        other = mailbox.AddMessage(mailbox.Inbox(), OLESTR("other"));
        planB = mailbox.AddMessage(*deep, OLESTR("plan b"));
        mailbox.AddMessage(*apart, OLESTR("plan c"));
        content.ulPropTag = PR_SUBJECT_W;
        content.Value.lpszW = wanted.data();
        restriction.rt = RES_CONTENT;
        restriction.res.resContent = {FL_PREFIX | FL_IGNORECASE, PR_SUBJECT_W, &content};
    }
    ComPtr<IMAPIFolder> Tree()
    {
        return mailbox.OpenFolder(BinaryOf(mailbox.Store(), PR_IPM_SUBTREE_ENTRYID));
    }
    static ComPtr<IMAPIFolder> MakeSearch(IMAPIFolder& parent, const char* name)
    {
        std::string text = name;
        ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(parent.CreateFolder(FOLDER_SEARCH, text.data(), nullptr, nullptr, 0, folder.Put()), S_OK);
        return folder;
    }
    HRESULT Search(IMAPIFolder& folder, IMAPIFolder& where, ULONG flags = 0, IMAPIFolder* also = nullptr)
    {
        BinaryValue ids[] = {BinaryOf(where, PR_ENTRYID), also ? BinaryOf(*also, PR_ENTRYID) : BinaryValue()};
        SBinary listed[] = {{static_cast<ULONG>(ids[0].size()), ids[0].data()},
                            {static_cast<ULONG>(ids[1].size()), ids[1].data()}};
        ENTRYLIST list{also ? 2u : 1u, listed};
        return folder.SetSearchCriteria(&restriction, &list, flags);
    }
    Subjects Shown(IMAPIFolder& folder) { return SubjectsOf(*ContentsOf(folder)); }
    static HRESULT On(const BinaryValue& id, const std::function<HRESULT(ENTRYLIST*)>& work)
    {
        BinaryValue key = id;
        SBinary one{static_cast<ULONG>(key.size()), key.data()};
        ENTRYLIST list{1, &one};
        return work(&list);
    }

    TestMailbox mailbox;
    const ComPtr<IMAPIFolder> deep = mailbox.MakeFolder(mailbox.Inbox(), "Deep");
    const ComPtr<IMAPIFolder> apart = mailbox.MakeFolder(*Tree(), "Apart");
    const ComPtr<IMAPIFolder> found = MakeSearch(*Tree(), "Found");
    BinaryValue planA;
    BinaryValue planB;
    BinaryValue other;
    OleString wanted = OLESTR("PLAN");
    SPropValue content{};
    SRestriction restriction{};
};

TEST_F(SearchFolderTest, ItShowsWhatMeetsTheCriteriaWhereItIsToLook)
{
    EXPECT_EQ(LongOf(*found, PR_FOLDER_TYPE), LONG{FOLDER_SEARCH});
    EXPECT_TRUE(Shown(*found).empty());

    ASSERT_EQ(Search(*found, mailbox.Inbox()), S_OK);
    EXPECT_EQ(Shown(*found), Subjects{OLESTR("plan a")});
    ASSERT_EQ(Search(*found, mailbox.Inbox(), RECURSIVE_SEARCH), S_OK);
    EXPECT_EQ(Shown(*found), (Subjects{OLESTR("plan a"), OLESTR("plan b")}));
    ASSERT_EQ(Search(*found, mailbox.Inbox(), 0, apart.Get()), S_OK);
    EXPECT_EQ(Shown(*found), (Subjects{OLESTR("plan a"), OLESTR("plan c")}));
    EXPECT_EQ(LongOf(*found, PR_CONTENT_COUNT), 2);
    EXPECT_EQ(LongOf(*found, PR_CONTENT_UNREAD), 2);
}

TEST_F(SearchFolderTest, WhatItShowsSaysWhereItLies)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox(), RECURSIVE_SEARCH), S_OK);
    RowSet rows;
    ASSERT_EQ(ContentsOf(*found)->QueryRows(10, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(BinaryOf(rows[0], PR_ENTRYID), planA);
    EXPECT_EQ(BinaryOf(rows[0], PR_PARENT_ENTRYID), BinaryOf(mailbox.Inbox(), PR_ENTRYID));
    EXPECT_EQ(BinaryOf(rows[1], PR_PARENT_ENTRYID), BinaryOf(*deep, PR_ENTRYID));
}

// What SQLite can't judge is judged row by row.
TEST_F(SearchFolderTest, ItSearchesByWhatHasNoColumn)
{
    constexpr ULONG kScore = PROP_TAG(PT_LONG, 0x6601);
    const ComPtr<IMessage> message = mailbox.OpenMessage(other);
    ASSERT_EQ(SetLong(*message, kScore, 5), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    restriction.rt = RES_EXIST;
    restriction.res.resExist.ulPropTag = kScore;
    ASSERT_EQ(Search(*found, mailbox.Inbox()), S_OK);

    const ComPtr<IMAPITable> table = ContentsOf(*found);
    EXPECT_EQ(SubjectsOf(*table), Subjects{OLESTR("other")});
    SRestriction none{};
    none.rt = RES_EXIST;
    none.res.resExist.ulPropTag = PR_SENDER_NAME_W;
    ASSERT_EQ(table->Restrict(&none, 0), S_OK);
    EXPECT_TRUE(SubjectsOf(*table).empty());
}

TEST_F(SearchFolderTest, ATableOfItFollowsTheMessagesTheFoldersAndTheCriteria)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox(), RECURSIVE_SEARCH), S_OK);
    const ComPtr<IMAPITable> table = ContentsOf(*found);
    ASSERT_EQ(SubjectsOf(*table).size(), 2u);

    mailbox.ChangeSubject(other, OLESTR("plan of another"));
    EXPECT_EQ(SubjectsOf(*table), (Subjects{OLESTR("plan a"), OLESTR("plan of another"), OLESTR("plan b")}));
    mailbox.ChangeSubject(planA, OLESTR("done"));
    EXPECT_EQ(SubjectsOf(*table), (Subjects{OLESTR("plan of another"), OLESTR("plan b")}));
    ASSERT_EQ(On(other,
                 [&](ENTRYLIST* list) {
                     return mailbox.Inbox().CopyMessages(list, nullptr, apart.Get(), 0, nullptr,
                                                         MESSAGE_MOVE);
                 }),
              S_OK);
    EXPECT_EQ(SubjectsOf(*table), Subjects{OLESTR("plan b")});
    BinaryValue id = BinaryOf(*deep, PR_ENTRYID);
    ASSERT_EQ(
        mailbox.Inbox().CopyFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                   nullptr, apart.Get(), nullptr, 0, nullptr, FOLDER_MOVE),
        S_OK);
    EXPECT_TRUE(SubjectsOf(*table).empty());
    ASSERT_EQ(Search(*found, *apart, RECURSIVE_SEARCH), S_OK);
    EXPECT_EQ(SubjectsOf(*table).size(), 3u);
}

TEST_F(SearchFolderTest, ItsSubscribersAreToldOfWhatIsFound)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox()), S_OK);
    const ComPtr<IMAPITable> table = ContentsOf(*found);
    const ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("nothing"));
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("plan d"));

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].tableEvent, TABLE_ROW_ADDED);
    EXPECT_EQ(Shown(*found), (Subjects{OLESTR("plan a"), OLESTR("plan d")}));
    EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(SearchFolderTest, TheCriteriaAreGivenBackAndWhatIsLeftOutStays)
{
    ULONG state = 0;
    EXPECT_EQ(found->GetSearchCriteria(MAPI_UNICODE, nullptr, nullptr, &state), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(found->SetSearchCriteria(&restriction, nullptr, 0), MAPI_E_NOT_INITIALIZED);
    ASSERT_EQ(Search(*found, mailbox.Inbox(), RECURSIVE_SEARCH | FOREGROUND_SEARCH), S_OK);
    ASSERT_EQ(found->SetSearchCriteria(nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(Shown(*found), Subjects{OLESTR("plan a")});
    ASSERT_EQ(found->SetSearchCriteria(nullptr, nullptr, RECURSIVE_SEARCH | FOREGROUND_SEARCH), S_OK);

    MapiBuffer<SRestriction> back;
    MapiBuffer<ENTRYLIST> folders;
    ASSERT_EQ(found->GetSearchCriteria(MAPI_UNICODE, back.Put(), folders.Put(), &state), S_OK);

    EXPECT_EQ(state, SEARCH_RUNNING | SEARCH_RECURSIVE | SEARCH_FOREGROUND);
    EXPECT_EQ(back->rt, RES_CONTENT);
    EXPECT_EQ(OleString(back->res.resContent.lpProp->Value.lpszW), wanted);
    ASSERT_EQ(folders->cValues, 1u);
    EXPECT_EQ(BinaryValue(folders->lpbin[0].lpb, folders->lpbin[0].lpb + folders->lpbin[0].cb),
              BinaryOf(mailbox.Inbox(), PR_ENTRYID));
}

TEST_F(SearchFolderTest, WhatIsDoneInItIsDoneWhereTheMessageLies)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox(), RECURSIVE_SEARCH), S_OK);

    ASSERT_EQ(found->SetReadFlags(nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(LongOf(*found, PR_CONTENT_UNREAD), 0);
    EXPECT_EQ(LongOf(mailbox.Inbox(), PR_CONTENT_UNREAD), 1);
    EXPECT_EQ(On(other, [&](ENTRYLIST* list) { return found->DeleteMessages(list, 0, nullptr, 0); }),
              MAPI_W_PARTIAL_COMPLETION);
    EXPECT_EQ(On(planB, [&](ENTRYLIST* list) { return found->DeleteMessages(list, 0, nullptr, 0); }), S_OK);
    EXPECT_EQ(On(planA,
                 [&](ENTRYLIST* list) {
                     return found->CopyMessages(list, nullptr, apart.Get(), 0, nullptr, MESSAGE_MOVE);
                 }),
              S_OK);
    EXPECT_EQ(SubjectsOf(*ContentsOf(mailbox.Inbox())), Subjects{OLESTR("other")});
    EXPECT_TRUE(SubjectsOf(*ContentsOf(*deep)).empty());
    EXPECT_EQ(SubjectsOf(*ContentsOf(*apart)).size(), 2u);
    EXPECT_TRUE(Shown(*found).empty());
}

TEST_F(SearchFolderTest, ItTakesNothingIn)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox()), S_OK);
    ComPtr<IMessage> message;
    EXPECT_EQ(found->CreateMessage(nullptr, 0, message.Put()), MAPI_E_NO_ACCESS);
    ComPtr<IMAPIFolder> below;
    char name[] = "below";
    EXPECT_EQ(found->CreateFolder(FOLDER_GENERIC, name, nullptr, nullptr, 0, below.Put()), MAPI_E_NO_ACCESS);
    EXPECT_EQ(On(other,
                 [&](ENTRYLIST* list) {
                     return mailbox.Inbox().CopyMessages(list, nullptr, found.Get(), 0, nullptr, 0);
                 }),
              MAPI_E_NO_ACCESS);
    BinaryValue id = BinaryOf(*deep, PR_ENTRYID);
    for (const ULONG flags : {ULONG{0}, ULONG{FOLDER_MOVE}})
        EXPECT_EQ(
            mailbox.Inbox().CopyFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                       nullptr, found.Get(), nullptr, 0, nullptr, flags),
            MAPI_E_NO_ACCESS);
    EXPECT_EQ(found->EmptyFolder(0, nullptr, 0), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(SubjectsOf(*ContentsOf(mailbox.Inbox())).size(), 2u);
}

TEST_F(SearchFolderTest, SearchesThatCantBeAreRefused)
{
    EXPECT_EQ(Search(mailbox.Inbox(), *apart), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(Search(*found, *found), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Search(*found, *apart, STOP_SEARCH), MAPI_E_NO_SUPPORT);
    TestMailbox elsewhere;
    EXPECT_EQ(Search(*found, elsewhere.Inbox()), MAPI_E_UNKNOWN_ENTRYID);
    restriction.rt = 77;
    EXPECT_EQ(Search(*found, *apart), MAPI_E_INVALID_PARAMETER);
    ULONG state = 0;
    EXPECT_EQ(found->GetSearchCriteria(0, nullptr, nullptr, &state), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(mailbox.Inbox().GetSearchCriteria(0, nullptr, nullptr, &state), MAPI_E_NO_SUPPORT);
}

TEST_F(SearchFolderTest, ACopyOfItSearchesAlikeAndADeletedOneLeavesTheMessages)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox()), S_OK);
    const ComPtr<IMAPIFolder> tree = Tree();
    BinaryValue id = BinaryOf(*found, PR_ENTRYID);
    char name[] = "Copy";
    ASSERT_EQ(tree->CopyFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr,
                               tree.Get(), name, 0, nullptr, COPY_SUBFOLDERS),
              S_OK);
    ComPtr<IMAPIFolder> copy;
    ASSERT_EQ(tree->CreateFolder(FOLDER_SEARCH, name, nullptr, nullptr, OPEN_IF_EXISTS, copy.Put()), S_OK);
    EXPECT_EQ(Shown(*copy), Subjects{OLESTR("plan a")});
    EXPECT_EQ(tree->CreateFolder(FOLDER_GENERIC, name, nullptr, nullptr, OPEN_IF_EXISTS, copy.Put()),
              MAPI_E_COLLISION);

    const ComPtr<IMAPITable> table = ContentsOf(*found);
    ASSERT_EQ(tree->DeleteFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), 0,
                                 nullptr, 0),
              S_OK);
    EXPECT_TRUE(SubjectsOf(*table).empty());
    EXPECT_EQ(SubjectsOf(*ContentsOf(mailbox.Inbox())).size(), 2u);
}

TEST_F(SearchFolderTest, DamagedCriteriaAreToldAndHurtNoOtherFolder)
{
    ASSERT_EQ(Search(*found, mailbox.Inbox()), S_OK);
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);
    ASSERT_EQ(core->Write(Durability::AtReturn,
                          [](SqliteConnection& connection) {
                              return connection.Run(
                                  "UPDATE folder SET search=x'00000000FFFFFFFF' WHERE name='Found'");
                          }),
              S_OK);

    ULONG count = 0;
    EXPECT_EQ(ContentsOf(*found)->GetRowCount(0, &count), MAPI_E_CORRUPT_DATA);
    EXPECT_EQ(SubjectsOf(*ContentsOf(mailbox.Inbox())).size(), 2u);
    ComPtr<IMAPITable> folders;
    ASSERT_EQ(Tree()->GetHierarchyTable(0, folders.Put()), S_OK);
    RowSet rows;
    ASSERT_EQ(folders->QueryRows(10, 0, rows.Put()), S_OK);
    EXPECT_EQ(rows.size(), 6u);
    EXPECT_EQ(found->SetSearchCriteria(&restriction, nullptr, 0), MAPI_E_CORRUPT_DATA);
    EXPECT_EQ(Search(*found, mailbox.Inbox()), S_OK);
    EXPECT_EQ(Shown(*found), Subjects{OLESTR("plan a")});
}

}  // namespace
}  // namespace quorvane
