#include "msgstore/store/store_folder.h"

#include <gtest/gtest.h>

#include "msgstore/store/ask_store.h"
#include "msgstore/store/test_mailbox.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class StoreFolderTest : public ::testing::Test {
protected:
    static SBinary AsBinary(BinaryValue& id) { return {static_cast<ULONG>(id.size()), id.data()}; }

    TestMailbox mailbox;
};

TEST_F(StoreFolderTest, ASavedMessageOpensWithItsProperties)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    const ComPtr<IMessage> message = mailbox.OpenMessage(id, 0);

    ASSERT_TRUE(message);
    EXPECT_EQ(TextOf(*message, PR_SUBJECT_W), OLESTR("Hello"));
    EXPECT_EQ(BinaryOf(*message, PR_ENTRYID), id);
    EXPECT_EQ(BinaryOf(*message, PR_PARENT_ENTRYID), BinaryOf(mailbox.Inbox(), PR_ENTRYID));
    EXPECT_EQ(BinaryOf(*message, PR_STORE_ENTRYID), mailbox.StoreId());
    EXPECT_EQ(BinaryOf(*message, PR_SEARCH_KEY).size(), 16u);
}

TEST_F(StoreFolderTest, AMessageOutlivesItsSession)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    mailbox.LogOff();
    mailbox.LogOn();

    const ComPtr<IMessage> message = mailbox.OpenMessage(id, 0);

    ASSERT_TRUE(message);
    EXPECT_EQ(TextOf(*message, PR_SUBJECT_W), OLESTR("Hello"));
}

TEST_F(StoreFolderTest, AMessageOpenedWithoutModifyCantBeWritten)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id, 0);

    EXPECT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Other")), E_ACCESSDENIED);
}

TEST_F(StoreFolderTest, EachSaveMovesTheModificationTimeOn)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id);
    std::uint64_t before = TimeOf(*message, PR_LAST_MODIFICATION_TIME);
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(SetLong(*message, PR_IMPORTANCE, i % 3), S_OK);
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        const std::uint64_t after = TimeOf(*message, PR_LAST_MODIFICATION_TIME);
        EXPECT_GT(after, before);
        before = after;
    }
}

TEST_F(StoreFolderTest, ASaveOverSomeoneElsesChangeIsRefusedUnlessForced)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> mine = mailbox.OpenMessage(id);
    ASSERT_EQ(TextOf(*mine, PR_SUBJECT_W), OLESTR("Hello"));
    mailbox.ChangeSubject(id, OLESTR("Theirs"));

    ASSERT_EQ(SetText(*mine, PR_SUBJECT_W, OLESTR("Mine")), S_OK);
    EXPECT_EQ(mine->SaveChanges(KEEP_OPEN_READWRITE), MAPI_E_OBJECT_CHANGED);
    EXPECT_EQ(TextOf(*mailbox.OpenMessage(id, 0), PR_SUBJECT_W), OLESTR("Theirs"));
    EXPECT_EQ(mine->SaveChanges(FORCE_SAVE), S_OK);
    EXPECT_EQ(TextOf(*mailbox.OpenMessage(id, 0), PR_SUBJECT_W), OLESTR("Mine"));
}

TEST_F(StoreFolderTest, ASaveOfADeletedMessageFails)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMessage> message = mailbox.OpenMessage(id);
    ASSERT_EQ(SetText(*message, PR_SUBJECT_W, OLESTR("Other")), S_OK);
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), S_OK);

    EXPECT_EQ(message->SaveChanges(0), MAPI_E_OBJECT_DELETED);
}

TEST_F(StoreFolderTest, ADeletedMessageCantBeOpened)
{
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), S_OK);

    ComPtr<IMessage> message;
    ULONG type = 0;
    EXPECT_EQ(mailbox.Store().OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                        nullptr, 0, &type, message.PutUnknown()),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), MAPI_W_PARTIAL_COMPLETION);
}

TEST_F(StoreFolderTest, AMovedMessageKeepsItsIdentifierAndTime)
{
    const ComPtr<IMAPIFolder> other = mailbox.MakeFolder(mailbox.Inbox(), "Other");
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const std::uint64_t time = TimeOf(*mailbox.OpenMessage(id, 0), PR_LAST_MODIFICATION_TIME);
    SBinary one = AsBinary(id);
    ENTRYLIST list{1, &one};

    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, other.Get(), 0, nullptr, MESSAGE_MOVE), S_OK);

    EXPECT_TRUE(SubjectsOf(*ContentsOf(mailbox.Inbox())).empty());
    EXPECT_EQ(SubjectsOf(*ContentsOf(*other)), std::vector<OleString>{OLESTR("Hello")});
    const ComPtr<IMessage> moved = mailbox.OpenMessage(id, 0);
    EXPECT_EQ(TimeOf(*moved, PR_LAST_MODIFICATION_TIME), time);
    EXPECT_EQ(BinaryOf(*moved, PR_PARENT_ENTRYID), BinaryOf(*other, PR_ENTRYID));
}

TEST_F(StoreFolderTest, ACopyHasAnIdentifierOfItsOwnAndTheSearchKey)
{
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    SBinary one = AsBinary(id);
    ENTRYLIST list{1, &one};

    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, &mailbox.Inbox(), 0, nullptr, 0), S_OK);

    RowSet rows;
    ASSERT_EQ(ContentsOf(mailbox.Inbox())->QueryRows(10, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_NE(BinaryOf(rows[0], PR_ENTRYID), BinaryOf(rows[1], PR_ENTRYID));
    EXPECT_EQ(BinaryOf(rows[0], PR_SEARCH_KEY), BinaryOf(rows[1], PR_SEARCH_KEY));
    EXPECT_EQ(TextOf(*mailbox.OpenMessage(BinaryOf(rows[1], PR_ENTRYID), 0), PR_SUBJECT_W), OLESTR("Hello"));
}

TEST_F(StoreFolderTest, AMessageMovesToAFolderOfAnotherStore)
{
    TestMailbox elsewhere;
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    SBinary one = AsBinary(id);
    ENTRYLIST list{1, &one};

    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, &elsewhere.Inbox(), 0, nullptr, MESSAGE_MOVE),
              S_OK);

    EXPECT_TRUE(SubjectsOf(*ContentsOf(mailbox.Inbox())).empty());
    EXPECT_EQ(SubjectsOf(*ContentsOf(elsewhere.Inbox())), std::vector<OleString>{OLESTR("Hello")});
}

TEST_F(StoreFolderTest, AFolderNameIsTakenWhateverItsCase)
{
    const ComPtr<IMAPIFolder> first = mailbox.MakeFolder(mailbox.Inbox(), "Plans");
    char name[] = "PLANS";
    ComPtr<IMAPIFolder> second;

    EXPECT_EQ(mailbox.Inbox().CreateFolder(FOLDER_GENERIC, name, nullptr, nullptr, 0, second.Put()),
              MAPI_E_COLLISION);
    ASSERT_EQ(
        mailbox.Inbox().CreateFolder(FOLDER_GENERIC, name, nullptr, nullptr, OPEN_IF_EXISTS, second.Put()),
        S_OK);
    EXPECT_EQ(BinaryOf(*first, PR_ENTRYID), BinaryOf(*second, PR_ENTRYID));
}

TEST_F(StoreFolderTest, AFolderWithContentsIsDeletedOnlyWhenTold)
{
    const ComPtr<IMAPIFolder> folder = mailbox.MakeFolder(mailbox.Inbox(), "Plans");
    const ComPtr<IMAPIFolder> below = mailbox.MakeFolder(*folder, "Old");
    mailbox.AddMessage(*folder, OLESTR("Hello"));
    BinaryValue id = BinaryOf(*folder, PR_ENTRYID);
    auto* const entry = reinterpret_cast<LPENTRYID>(id.data());
    const auto size = static_cast<ULONG>(id.size());

    EXPECT_EQ(mailbox.Inbox().DeleteFolder(size, entry, 0, nullptr, DEL_FOLDERS), MAPI_E_HAS_MESSAGES);
    EXPECT_EQ(mailbox.Inbox().DeleteFolder(size, entry, 0, nullptr, DEL_MESSAGES), MAPI_E_HAS_FOLDERS);
    EXPECT_EQ(mailbox.Inbox().DeleteFolder(size, entry, 0, nullptr, DEL_MESSAGES | DEL_FOLDERS), S_OK);
    EXPECT_EQ(LongOf(*folder, PR_CONTENT_COUNT), -1);
}

class FolderMoveTest : public StoreFolderTest {
protected:
    static HRESULT Move(IMAPIFolder& from, IMAPIFolder& folder, IMAPIFolder& to, const char* name = nullptr,
                        ULONG flags = FOLDER_MOVE)
    {
        BinaryValue id = BinaryOf(folder, PR_ENTRYID);
        std::string text = name ? name : "";
        return from.CopyFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), nullptr,
                               &to, name ? text.data() : nullptr, 0, nullptr, flags);
    }

    const ComPtr<IMAPIFolder> plans = mailbox.MakeFolder(mailbox.Inbox(), "Plans");
    const ComPtr<IMAPIFolder> old = mailbox.MakeFolder(*plans, "Old");
    const ComPtr<IMAPIFolder> target = mailbox.MakeFolder(mailbox.Inbox(), "Target");
};

TEST_F(FolderMoveTest, AMovedFolderKeepsItsIdentifierAndWhatIsInIt)
{
    const BinaryValue id = BinaryOf(*plans, PR_ENTRYID);
    const BinaryValue message = mailbox.AddMessage(*old, OLESTR("Hello"));

    ASSERT_EQ(Move(mailbox.Inbox(), *plans, *target), S_OK);

    EXPECT_EQ(BinaryOf(*mailbox.OpenFolder(id), PR_PARENT_ENTRYID), BinaryOf(*target, PR_ENTRYID));
    EXPECT_EQ(BinaryOf(*old, PR_PARENT_ENTRYID), id);
    EXPECT_EQ(TextOf(*plans, PR_DISPLAY_NAME_W), OLESTR("Plans"));
    EXPECT_TRUE(mailbox.OpenMessage(message, 0));
    ASSERT_EQ(Move(*target, *plans, mailbox.Inbox(), "New plans"), S_OK);
    EXPECT_EQ(TextOf(*plans, PR_DISPLAY_NAME_W), OLESTR("New plans"));
}

TEST_F(FolderMoveTest, NoFolderMovesIntoItselfOrBesideOneOfItsName)
{
    EXPECT_EQ(Move(mailbox.Inbox(), *plans, *plans), MAPI_E_FOLDER_CYCLE);
    EXPECT_EQ(Move(mailbox.Inbox(), *plans, *old), MAPI_E_FOLDER_CYCLE);
    mailbox.MakeFolder(*target, "PLANS");
    EXPECT_EQ(Move(mailbox.Inbox(), *plans, *target), MAPI_E_COLLISION);
    EXPECT_EQ(Move(*target, *plans, mailbox.Inbox()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(BinaryOf(*plans, PR_PARENT_ENTRYID), BinaryOf(mailbox.Inbox(), PR_ENTRYID));
    const ComPtr<IMAPIFolder> tree = mailbox.OpenFolder(BinaryOf(mailbox.Store(), PR_IPM_SUBTREE_ENTRYID));
    EXPECT_EQ(Move(*tree, mailbox.Inbox(), *target), MAPI_E_NO_ACCESS);
}

class FolderCopyTest : public FolderMoveTest {
protected:
    // Two messages and an associated one in Plans, one in Old, which has a comment.
    FolderCopyTest()
    {
        mailbox.AddMessage(*plans, OLESTR("One"));
        mailbox.AddMessage(*plans, OLESTR("Two"));
        mailbox.AddMessage(*old, OLESTR("Older"));
        ComPtr<IMessage> hidden;
        EXPECT_EQ(plans->CreateMessage(nullptr, MAPI_ASSOCIATED, hidden.Put()), S_OK);
        EXPECT_EQ(SetText(*hidden, PR_SUBJECT_W, OLESTR("Hidden")), S_OK);
        EXPECT_EQ(hidden->SaveChanges(0), S_OK);
        EXPECT_EQ(SetText(*old, PR_COMMENT_W, OLESTR("of before")), S_OK);
    }
    static ComPtr<IMAPIFolder> Below(TestMailbox& where, IMAPIFolder& folder, const char* name)
    {
        ComPtr<IMAPITable> table;
        EXPECT_EQ(folder.GetHierarchyTable(MAPI_UNICODE, table.Put()), S_OK);
        RowSet rows;
        EXPECT_EQ(table->QueryRows(100, 0, rows.Put()), S_OK);
        for (const SRow& row : rows) {
            if (TextOf(row, PR_DISPLAY_NAME_W) == FromUtf8(name))
                return where.OpenFolder(BinaryOf(row, PR_ENTRYID));
        }
        return {};
    }
    using Subjects = std::vector<OleString>;
    static void ExpectPlans(IMAPIFolder& folder)
    {
        EXPECT_EQ(SubjectsOf(*ContentsOf(folder)), (Subjects{OLESTR("One"), OLESTR("Two")}));
        EXPECT_EQ(SubjectsOf(*ContentsOf(folder, MAPI_ASSOCIATED)), Subjects{OLESTR("Hidden")});
    }
    static void ExpectOld(IMAPIFolder& folder)
    {
        EXPECT_EQ(TextOf(folder, PR_COMMENT_W), OLESTR("of before"));
        EXPECT_EQ(SubjectsOf(*ContentsOf(folder)), Subjects{OLESTR("Older")});
    }
};

TEST_F(FolderCopyTest, ACopyHoldsTheMessagesAndTheFoldersIfTheyAreWanted)
{
    ASSERT_EQ(Move(mailbox.Inbox(), *plans, *target, nullptr, COPY_SUBFOLDERS), S_OK);
    ASSERT_EQ(Move(mailbox.Inbox(), *plans, mailbox.Inbox(), "Flat", 0), S_OK);

    const ComPtr<IMAPIFolder> copy = Below(mailbox, *target, "Plans");
    ASSERT_TRUE(copy);
    EXPECT_NE(BinaryOf(*copy, PR_ENTRYID), BinaryOf(*plans, PR_ENTRYID));
    ExpectPlans(*copy);
    const ComPtr<IMAPIFolder> copyOfOld = Below(mailbox, *copy, "Old");
    ASSERT_TRUE(copyOfOld);
    ExpectOld(*copyOfOld);
    const ComPtr<IMAPIFolder> flat = Below(mailbox, mailbox.Inbox(), "Flat");
    ASSERT_TRUE(flat);
    ExpectPlans(*flat);
    EXPECT_FALSE(Below(mailbox, *flat, "Old"));
    ExpectPlans(*plans);
    ExpectOld(*old);
}

TEST_F(FolderCopyTest, NoFolderIsCopiedIntoItselfOrBesideOneOfItsName)
{
    EXPECT_EQ(Move(mailbox.Inbox(), *plans, *plans, "New", 0), MAPI_E_FOLDER_CYCLE);
    EXPECT_EQ(Move(mailbox.Inbox(), *plans, *old, "New", COPY_SUBFOLDERS), MAPI_E_FOLDER_CYCLE);
    EXPECT_EQ(Move(mailbox.Inbox(), *plans, mailbox.Inbox(), nullptr, 0), MAPI_E_COLLISION);
    EXPECT_EQ(Move(*target, *plans, mailbox.Inbox(), "New", 0), MAPI_E_NOT_FOUND);
    EXPECT_FALSE(Below(mailbox, *plans, "New"));
    EXPECT_FALSE(Below(mailbox, *old, "New"));
}

TEST_F(FolderCopyTest, AFolderIsCopiedToAnotherStore)
{
    TestMailbox elsewhere;
    ASSERT_EQ(Move(mailbox.Inbox(), *plans, elsewhere.Inbox(), "Theirs", COPY_SUBFOLDERS), S_OK);

    const ComPtr<IMAPIFolder> copy = Below(elsewhere, elsewhere.Inbox(), "Theirs");
    ASSERT_TRUE(copy);
    ExpectPlans(*copy);
    const ComPtr<IMAPIFolder> copyOfOld = Below(elsewhere, *copy, "Old");
    ASSERT_TRUE(copyOfOld);
    ExpectOld(*copyOfOld);
    ExpectPlans(*plans);
    ExpectOld(*old);
}

TEST_F(FolderCopyTest, AFolderMovesToAnotherStoreWithAllThatIsInIt)
{
    TestMailbox elsewhere;
    ASSERT_EQ(Move(mailbox.Inbox(), *plans, elsewhere.Inbox()), S_OK);

    const ComPtr<IMAPIFolder> moved = Below(elsewhere, elsewhere.Inbox(), "Plans");
    ASSERT_TRUE(moved);
    ExpectPlans(*moved);
    const ComPtr<IMAPIFolder> movedOld = Below(elsewhere, *moved, "Old");
    ASSERT_TRUE(movedOld);
    ExpectOld(*movedOld);
    EXPECT_FALSE(Below(mailbox, mailbox.Inbox(), "Plans"));
    const ComPtr<IMAPIFolder> tree = mailbox.OpenFolder(BinaryOf(mailbox.Store(), PR_IPM_SUBTREE_ENTRYID));
    EXPECT_EQ(Move(*tree, mailbox.Inbox(), elsewhere.Inbox(), "Theirs"), MAPI_E_NO_ACCESS);
    EXPECT_FALSE(Below(elsewhere, elsewhere.Inbox(), "Theirs"));
}

// Delivers to a folder when the other store has its first message.
class Deliverer final : public CommitListener {
public:
    Deliverer(TestMailbox& mailbox, IMAPIFolder& folder, StoreCore& other)
        : mailbox_(mailbox), folder_(folder), other_(other)
    {}
    void Committed() noexcept override
    {
        if (!delivered_ && AskStore(other_, "SELECT count(*) FROM message") == 1) {
            delivered_ = true;
            mailbox_.AddMessage(folder_, OLESTR("Late"));
        }
    }
    HRESULT Deliver(const StoreCore&, ULONG&, ULONG&) noexcept override { return S_FALSE; }

private:
    TestMailbox& mailbox_;
    IMAPIFolder& folder_;
    StoreCore& other_;
    bool delivered_ = false;
};

TEST_F(FolderCopyTest, WhatComesWhileAFolderMovesStaysInIt)
{
    TestMailbox elsewhere;
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(elsewhere.StorePath(), false, core), S_OK);
    const auto deliverer = std::make_shared<Deliverer>(mailbox, *plans, *core);
    core->AddListener(deliverer);

    EXPECT_EQ(Move(mailbox.Inbox(), *plans, elsewhere.Inbox()), MAPI_W_PARTIAL_COMPLETION);

    EXPECT_EQ(SubjectsOf(*ContentsOf(*plans)), Subjects{OLESTR("Late")});
    const ComPtr<IMAPIFolder> moved = Below(elsewhere, elsewhere.Inbox(), "Plans");
    ASSERT_TRUE(moved);
    ExpectPlans(*moved);
}

TEST_F(FolderCopyTest, WhatCouldntBeMovedKeepsItsFolder)
{
    TestMailbox elsewhere;
    ASSERT_NO_FATAL_FAILURE(mailbox.Damage("Older"));

    EXPECT_TRUE(FAILED(Move(mailbox.Inbox(), *plans, elsewhere.Inbox())));

    EXPECT_EQ(LongOf(*old, PR_CONTENT_COUNT), 1);
    EXPECT_EQ(BinaryOf(*old, PR_PARENT_ENTRYID), BinaryOf(*plans, PR_ENTRYID));
    EXPECT_EQ(BinaryOf(*plans, PR_PARENT_ENTRYID), BinaryOf(mailbox.Inbox(), PR_ENTRYID));
}

TEST_F(StoreFolderTest, TheInboxCantBeDeleted)
{
    const ComPtr<IMAPIFolder> tree = mailbox.OpenFolder(BinaryOf(mailbox.Store(), PR_IPM_SUBTREE_ENTRYID));
    BinaryValue id = BinaryOf(mailbox.Inbox(), PR_ENTRYID);

    EXPECT_EQ(tree->DeleteFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), 0,
                                 nullptr, DEL_MESSAGES | DEL_FOLDERS),
              MAPI_E_NO_ACCESS);
}

TEST_F(StoreFolderTest, CountsFollowTheContents)
{
    BinaryValue read = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Read"));
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Unread"));
    SBinary one = AsBinary(read);
    ENTRYLIST list{1, &one};

    ASSERT_EQ(mailbox.Inbox().SetReadFlags(&list, 0, nullptr, 0), S_OK);

    EXPECT_EQ(LongOf(mailbox.Inbox(), PR_CONTENT_COUNT), 2);
    EXPECT_EQ(LongOf(mailbox.Inbox(), PR_CONTENT_UNREAD), 1);
    EXPECT_EQ(LongOf(*mailbox.OpenMessage(read, 0), PR_MESSAGE_FLAGS) & MSGFLAG_READ, MSGFLAG_READ);
}

TEST_F(StoreFolderTest, TheReadStateAndTheStatusAreNoContentOfTheMessage)
{
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const auto time = [&] { return TimeOf(*mailbox.OpenMessage(id, 0), PR_LAST_MODIFICATION_TIME); };
    const std::uint64_t before = time();

    ASSERT_EQ(mailbox.Inbox().SetReadFlags(nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(time(), before);
    ASSERT_EQ(mailbox.OpenMessage(id)->SetReadFlag(CLEAR_READ_FLAG), S_OK);
    EXPECT_EQ(time(), before);
    ASSERT_EQ(mailbox.Inbox().SetMessageStatus(static_cast<ULONG>(id.size()),
                                               reinterpret_cast<LPENTRYID>(id.data()), 2, 2, nullptr),
              S_OK);
    EXPECT_EQ(time(), before);
}

TEST_F(StoreFolderTest, ASaveKeepsTheReadStateThatSomeoneElseSetMeanwhile)
{
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    SBinary one = AsBinary(id);
    ENTRYLIST list{1, &one};
    for (const ULONG flags : {ULONG{0}, ULONG{CLEAR_READ_FLAG}}) {
        const ComPtr<IMessage> mine = mailbox.OpenMessage(id);
        ASSERT_EQ(SetText(*mine, PR_SUBJECT_W, OLESTR("Other")), S_OK);
        ASSERT_EQ(mailbox.Inbox().SetReadFlags(&list, 0, nullptr, flags), S_OK);

        ASSERT_EQ(mine->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

        const LONG expected = flags == 0 ? MSGFLAG_READ : 0;
        EXPECT_EQ(LongOf(*mailbox.OpenMessage(id, 0), PR_MESSAGE_FLAGS) & MSGFLAG_READ, expected);
    }
}

TEST_F(StoreFolderTest, ASaveWritesTheReadStateThatItsOwnObjectSet)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    for (const ULONG flags : {ULONG{0}, ULONG{CLEAR_READ_FLAG}}) {
        const ComPtr<IMessage> mine = mailbox.OpenMessage(id);
        ASSERT_EQ(mine->SetReadFlag(flags), S_OK);
        ASSERT_EQ(mine->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

        const LONG expected = flags == 0 ? MSGFLAG_READ : 0;
        EXPECT_EQ(LongOf(*mailbox.OpenMessage(id, 0), PR_MESSAGE_FLAGS) & MSGFLAG_READ, expected);
    }
}

TEST_F(StoreFolderTest, ARenamedFolderIsFoundUnderItsNewName)
{
    const ComPtr<IMAPIFolder> folder = mailbox.MakeFolder(mailbox.Inbox(), "Plans");

    ASSERT_EQ(SetText(*folder, PR_DISPLAY_NAME_W, OLESTR("Pläne")), S_OK);

    EXPECT_EQ(TextOf(*mailbox.OpenFolder(BinaryOf(*folder, PR_ENTRYID)), PR_DISPLAY_NAME_W), OLESTR("Pläne"));
}

TEST_F(StoreFolderTest, AnEmptiedFolderKeepsItsAssociatedMessages)
{
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    mailbox.MakeFolder(mailbox.Inbox(), "Below");
    ComPtr<IMessage> hidden;
    ASSERT_EQ(mailbox.Inbox().CreateMessage(nullptr, MAPI_ASSOCIATED, hidden.Put()), S_OK);
    ASSERT_EQ(SetText(*hidden, PR_SUBJECT_W, OLESTR("Settings")), S_OK);
    ASSERT_EQ(hidden->SaveChanges(0), S_OK);

    ASSERT_EQ(mailbox.Inbox().EmptyFolder(0, nullptr, 0), S_OK);

    EXPECT_EQ(LongOf(mailbox.Inbox(), PR_CONTENT_COUNT), 0);
    EXPECT_EQ(SubjectsOf(*ContentsOf(mailbox.Inbox(), MAPI_ASSOCIATED)),
              std::vector<OleString>{OLESTR("Settings")});
}

}  // namespace
}  // namespace quorvane
