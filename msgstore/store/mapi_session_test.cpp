#include "msgstore/store/mapi_session.h"

#include <gtest/gtest.h>

#include "msgstore/store/profile_admin.h"
#include "msgstore/store/test_mailbox.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

class SessionTest : public ::testing::Test {
protected:
    static LPSTR Mutable(const char* text) { return const_cast<LPSTR>(text); }
    static HRESULT LogOn(const char* profile, ULONG flags, ComPtr<IMAPISession>& session)
    {
        return Logon(Mutable(profile), MAPI_EXTENDED | flags, session.Put());
    }
    HRESULT OpenOnlyStore(IMAPISession& session, ComPtr<IMsgStore>& store, ULONG flags = MDB_NO_MAIL)
    {
        ComPtr<IMAPITable> table;
        EXPECT_EQ(session.GetMsgStoresTable(0, table.Put()), S_OK);
        RowSet rows;
        EXPECT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);
        if (rows.size() != 1)
            return E_UNEXPECTED;
        BinaryValue id = BinaryOf(rows[0], PR_ENTRYID);
        return session.OpenMsgStore(0, static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                    nullptr, flags, store.Put());
    }

    TestDirectory directory;
    RegistryScope registry{directory.Path()};
    const std::string path = (directory.Path() / "mail.qvs").string();
};

TEST_F(SessionTest, WithoutADefaultProfileNobodyLogsOn)
{
    ComPtr<IMAPISession> session;

    EXPECT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, session), MAPI_E_LOGON_FAILED);
    EXPECT_FALSE(session);
}

TEST_F(SessionTest, AnUnknownProfileIsRefused)
{
    ASSERT_EQ(MakeProfile("known", path), S_OK);
    ComPtr<IMAPISession> session;

    EXPECT_EQ(LogOn("unknown", 0, session), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(LogOn("known", 0, session), S_OK);
    EXPECT_EQ(LogOn("KNOWN", 0, session), S_OK);
}

TEST_F(SessionTest, TheStoreOfADeletedFileIsNotFoundAndSaysSo)
{
    ASSERT_EQ(MakeProfile("p", path), S_OK);
    std::filesystem::remove(path);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, session), S_OK);
    ComPtr<IMsgStore> store;

    EXPECT_EQ(OpenOnlyStore(*session, store), MAPI_E_NOT_FOUND);
    EXPECT_FALSE(store);
}

TEST_F(SessionTest, AnotherStoreInTheProfilesPlaceIsRefused)
{
    ASSERT_EQ(MakeProfile("p", path), S_OK);
    std::filesystem::remove(path);
    ASSERT_EQ(MakeProfile("q", path), S_OK);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(LogOn("p", 0, session), S_OK);
    ComPtr<IMsgStore> store;

    EXPECT_EQ(OpenOnlyStore(*session, store), MAPI_E_UNCONFIGURED);
}

TEST_F(SessionTest, EachSessionKeepsItsMailboxWhenTheRegistryBecomesAnother)
{
    ASSERT_EQ(MakeProfile("p", path), S_OK);
    ComPtr<IMAPISession> first;
    ASSERT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, first), S_OK);

    const TestDirectory other;
    const RegistryScope scope(other.Path());
    ASSERT_EQ(MakeProfile("p", (other.Path() / "mail.qvs").string()), S_OK);
    ComPtr<IMAPISession> second;
    ASSERT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, second), S_OK);

    ComPtr<IMsgStore> firstStore;
    ComPtr<IMsgStore> secondStore;
    ASSERT_EQ(OpenOnlyStore(*first, firstStore), S_OK);
    ASSERT_EQ(OpenOnlyStore(*second, secondStore), S_OK);
    EXPECT_NE(BinaryOf(*firstStore, PR_ENTRYID), BinaryOf(*secondStore, PR_ENTRYID));
}

TEST_F(SessionTest, AStoreTellsWhatItIs)
{
    ASSERT_EQ(MakeProfile("p", path), S_OK);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, session), S_OK);
    ComPtr<IMsgStore> store;
    ASSERT_EQ(OpenOnlyStore(*session, store), S_OK);

    EXPECT_EQ(TextOf(*store, PR_DISPLAY_NAME_W), OLESTR("Mail"));
    EXPECT_EQ(BinaryOf(*store, PR_ENTRYID).size(), 40u);
    EXPECT_EQ(BinaryOf(*store, PR_ENTRYID), BinaryOf(*store, PR_STORE_ENTRYID));
    EXPECT_NE(LongOf(*store, PR_STORE_SUPPORT_MASK) & static_cast<LONG>(STORE_NOTIFY_OK), 0);
    EXPECT_EQ(BinaryOf(*store, PR_IPM_SUBTREE_ENTRYID).size(), 40u);
}

TEST_F(SessionTest, AStoreOpensItsRootForNoIdentifier)
{
    ASSERT_EQ(MakeProfile("p", path), S_OK);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, session), S_OK);
    ComPtr<IMsgStore> store;
    ASSERT_EQ(OpenOnlyStore(*session, store), S_OK);
    ComPtr<IMAPIFolder> root;
    ULONG type = 0;

    ASSERT_EQ(store->OpenEntry(0, nullptr, nullptr, 0, &type, root.PutUnknown()), S_OK);

    EXPECT_EQ(type, MAPI_FOLDER);
    EXPECT_EQ(BinaryOf(*root, PR_ENTRYID), BinaryOf(*root, PR_PARENT_ENTRYID));
    EXPECT_EQ(LongOf(*root, PR_FOLDER_TYPE), static_cast<LONG>(FOLDER_ROOT));
}

TEST_F(SessionTest, StoresAndFoldersOpenThroughTheSession)
{
    TestMailbox mailbox;
    BinaryValue folderId = BinaryOf(mailbox.Inbox(), PR_ENTRYID);
    BinaryValue storeId = mailbox.StoreId();
    ComPtr<IMAPIProp> object;
    ULONG type = 0;

    ASSERT_EQ(mailbox.Session().OpenEntry(static_cast<ULONG>(folderId.size()),
                                          reinterpret_cast<LPENTRYID>(folderId.data()), nullptr, 0, &type,
                                          object.PutUnknown()),
              S_OK);
    EXPECT_EQ(type, MAPI_FOLDER);
    ASSERT_EQ(mailbox.Session().OpenEntry(static_cast<ULONG>(storeId.size()),
                                          reinterpret_cast<LPENTRYID>(storeId.data()), &IID_IMAPIProp, 0,
                                          &type, object.PutUnknown()),
              S_OK);
    EXPECT_EQ(type, MAPI_STORE);
    EXPECT_EQ(BinaryOf(*object, PR_ENTRYID), storeId);
}

TEST_F(SessionTest, GarbageIsNoEntryIdentifier)
{
    TestMailbox mailbox;
    const BinaryValue good = BinaryOf(mailbox.Inbox(), PR_ENTRYID);
    for (std::size_t size = 1; size < good.size(); ++size) {
        BinaryValue cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        ComPtr<IMAPIFolder> folder;
        ULONG type = 0;
        EXPECT_TRUE(FAILED(mailbox.Store().OpenEntry(static_cast<ULONG>(size),
                                                     reinterpret_cast<LPENTRYID>(cut.data()), nullptr, 0,
                                                     &type, folder.PutUnknown())));
        EXPECT_FALSE(folder);
    }
}

TEST_F(SessionTest, ProfilesAreMadeListedAndDeleted)
{
    ComPtr<IProfAdmin> admin;
    ASSERT_EQ(GiveProfileAdmin(admin.Put()), S_OK);
    ASSERT_EQ(admin->CreateProfile(Mutable("one"), nullptr, 0, 0), S_OK);
    ASSERT_EQ(admin->CreateProfile(Mutable("two"), nullptr, 0, 0), S_OK);
    EXPECT_EQ(admin->CreateProfile(Mutable("two"), nullptr, 0, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(admin->CreateProfile(Mutable("a\\b"), nullptr, 0, 0), MAPI_E_INVALID_PARAMETER);
    ASSERT_EQ(admin->SetDefaultProfile(Mutable("two"), 0), S_OK);
    EXPECT_EQ(admin->SetDefaultProfile(Mutable("three"), 0), MAPI_E_NOT_FOUND);

    ComPtr<IMAPITable> table;
    ASSERT_EQ(admin->GetProfileTable(MAPI_UNICODE, table.Put()), S_OK);
    RowSet rows;
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(TextOf(rows[0], PR_DISPLAY_NAME_W), OLESTR("one"));
    EXPECT_EQ(PpropFindProp(rows[0].lpProps, rows[0].cValues, PR_DEFAULT_PROFILE)->Value.b, 0);
    EXPECT_NE(PpropFindProp(rows[1].lpProps, rows[1].cValues, PR_DEFAULT_PROFILE)->Value.b, 0);

    ASSERT_EQ(admin->DeleteProfile(Mutable("two"), 0), S_OK);
    EXPECT_EQ(admin->DeleteProfile(Mutable("two"), 0), MAPI_E_NOT_FOUND);
    ComPtr<IMAPISession> session;
    EXPECT_EQ(LogOn(nullptr, MAPI_USE_DEFAULT, session), MAPI_E_LOGON_FAILED);
}

TEST_F(SessionTest, AServiceThatIsntConfiguredShowsNoStore)
{
    ComPtr<IProfAdmin> admin;
    ASSERT_EQ(GiveProfileAdmin(admin.Put()), S_OK);
    ASSERT_EQ(admin->CreateProfile(Mutable("one"), nullptr, 0, 0), S_OK);
    ComPtr<IMsgServiceAdmin> services;
    ASSERT_EQ(admin->AdminServices(Mutable("one"), nullptr, 0, 0, services.Put()), S_OK);
    EXPECT_EQ(services->CreateMsgService(Mutable("OTHER"), nullptr, 0, 0), MAPI_E_NOT_FOUND);
    ASSERT_EQ(services->CreateMsgService(Mutable(kMessageStoreService), nullptr, 0, 0), S_OK);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(LogOn("one", 0, session), S_OK);
    ComPtr<IMsgStore> store;

    EXPECT_EQ(OpenOnlyStore(*session, store), E_UNEXPECTED);
}

TEST_F(SessionTest, AStoreTakesPropertiesOnlyWhenItWasOpenedForWriting)
{
    ASSERT_EQ(MakeProfile("one", path), S_OK);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(LogOn("one", 0, session), S_OK);
    const auto set = [&](ULONG flags) {
        ComPtr<IMsgStore> store;
        EXPECT_EQ(OpenOnlyStore(*session, store, MDB_NO_MAIL | flags), S_OK);
        return store ? SetText(*store, PR_COMMENT_W, OLESTR("x")) : E_FAIL;
    };
    EXPECT_EQ(set(0), E_ACCESSDENIED);
    EXPECT_EQ(set(MDB_WRITE), S_OK);
    EXPECT_EQ(set(MAPI_BEST_ACCESS), S_OK);
}

TEST_F(SessionTest, ADeletedServiceIsGoneAndItsFileStays)
{
    ASSERT_EQ(MakeProfile("one", path), S_OK);
    ComPtr<IProfAdmin> admin;
    ASSERT_EQ(GiveProfileAdmin(admin.Put()), S_OK);
    ComPtr<IMsgServiceAdmin> services;
    ASSERT_EQ(admin->AdminServices(Mutable("one"), nullptr, 0, 0, services.Put()), S_OK);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(services->GetMsgServiceTable(0, table.Put()), S_OK);
    RowSet rows;
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);
    ASSERT_EQ(rows.size(), 1u);
    BinaryValue uid = BinaryOf(rows[0], PR_SERVICE_UID);

    ASSERT_EQ(services->DeleteMsgService(reinterpret_cast<LPMAPIUID>(uid.data())), S_OK);

    EXPECT_EQ(services->DeleteMsgService(reinterpret_cast<LPMAPIUID>(uid.data())), MAPI_E_NOT_FOUND);
    EXPECT_EQ(services->DeleteMsgService(nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_TRUE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace quorvane
