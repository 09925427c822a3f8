#include "engine/items/contents_stream.h"
#include "engine/items/testing/mail_test.h"
#include "engine/storeaccess/objects_cache.h"

namespace quorvane {
namespace {

using testing::MakeDetachedMessage;
using testing::TestMailbox;

class ItemLoadTest : public testing::MailTest {
protected:
    ItemLoadTest()
    {
        EXPECT_EQ(session.Database().OpenSession(database), S_OK);
        EXPECT_EQ(package.Create(), S_OK);
    }

    // Saves an item as a package carries it.
    void Pack(const ComPtr<CItem>& item) { ASSERT_EQ(item->Save(package.storage.Get(), TRUE), S_OK); }
    void PackMessage() { Pack(MakeItem(OLESTR("{A}"), *MakeDetachedMessage({"Carried", "Body", {}, {}}))); }

    void DamageMessageData()
    {
        ComPtr<IStorage> data;
        ASSERT_EQ(package.storage->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put()),
                  S_OK);
        ComPtr<IStream> properties;
        ASSERT_EQ(data->CreateStream(OLESTR("__properties_version1.0"), kCreateMode, 0, 0, properties.Put()),
                  S_OK);
        ASSERT_EQ(properties->Write("short", 5, nullptr), S_OK);
    }

    HRESULT Load() { return loaded->Load(package.storage.Get(), database); }

    DatabaseSession database;
    MemoryStorage package;
    ComPtr<CItem> loaded = MakeComObject<CItem>(&session);
};

TEST_F(ItemLoadTest, ANewItemTakesItsPlaceFromTheFolder)
{
    PackMessage();

    ASSERT_EQ(Load(), S_OK);

    EXPECT_EQ(loaded->m_bstrID.View(), OLESTR("{A}"));
    EXPECT_EQ(loaded->m_bstrFolderEntryID.View(), TestMailbox::IdOf(*inbox).View());
    EXPECT_EQ(loaded->m_bstrStoreID.View(), mailbox.StoreId().View());
    EXPECT_TRUE(loaded->m_bstrEntryID.IsEmpty());
    ASSERT_NE(loaded->Message(), nullptr);
    EXPECT_EQ(TestMailbox::Read(*loaded->Message()).subject, "Carried");
}

TEST_F(ItemLoadTest, ARowOverridesTheFoldersStore)
{
    PackMessage();
    session.Execute("INSERT INTO tblItem VALUES ('{A}', '00AB', '5707', 1, 3)");

    ASSERT_EQ(Load(), S_OK);

    EXPECT_EQ(loaded->m_bstrEntryID.View(), OLESTR("00AB"));
    EXPECT_EQ(loaded->m_bstrStoreID.View(), OLESTR("5707"));
    EXPECT_EQ(loaded->m_dblLastModified, 0);
}

TEST_F(ItemLoadTest, AnItemWithoutMessageDataLoadsWithoutAMessage)
{
    Pack(MakeItem());

    EXPECT_EQ(Load(), S_OK);
    EXPECT_EQ(loaded->Message(), nullptr);
}

TEST_F(ItemLoadTest, ALoadedDeletionLetsGoOfTheMessageHeldBefore)
{
    Pack(MakeItem());
    ASSERT_EQ(loaded->put_Raw(MakeDetachedMessage({"Old", "", {}, {}}).Get()), S_OK);

    ASSERT_EQ(Load(), S_OK);

    EXPECT_EQ(loaded->Message(), nullptr);
}

TEST_F(ItemLoadTest, AnItemOfAFolderThatIsntSharedHereFails)
{
    folder.id = Bstr(OLESTR("{other}"));
    PackMessage();

    EXPECT_EQ(Load(), DISP_E_MEMBERNOTFOUND);

    EXPECT_EQ(loaded->m_bstrID.View(), OLESTR("{A}"));
    EXPECT_TRUE(loaded->m_bstrFolderEntryID.IsEmpty());
}

TEST_F(ItemLoadTest, AnItemOfAFolderThatDoesntOpenFails)
{
    folder.validated = MAPI_E_NOT_FOUND;
    PackMessage();

    EXPECT_EQ(Load(), MAPI_E_NOT_FOUND);
    EXPECT_FALSE(loaded->m_bstrFolderEntryID.IsEmpty());
}

TEST_F(ItemLoadTest, ADatabaseThatFailsDoesntEndTheLoad)
{
    PackMessage();
    session.Execute("DROP TABLE tblItem");

    EXPECT_EQ(Load(), S_OK);
    EXPECT_NE(loaded->Message(), nullptr);
}

TEST_F(ItemLoadTest, AStorageWithoutContentsFails)
{
    EXPECT_EQ(Load(), STG_E_FILENOTFOUND);
}

TEST_F(ItemLoadTest, DamagedContentsFail)
{
    ComPtr<IStream> contents;
    ASSERT_EQ(CreateContents(*package.storage, contents), S_OK);
    const BYTE tooNew[] = {0x01, 0x0A, 0, 0};
    ASSERT_EQ(contents->Write(tooNew, sizeof(tooNew), nullptr), S_OK);
    contents.Reset();

    EXPECT_EQ(Load(), E_FAIL);
}

TEST_F(ItemLoadTest, ADamagedMessageReplacesNothing)
{
    const ComPtr<CItem> known =
        MakeItem(OLESTR("{A}"), *mailbox.AddMessage(*inbox, {"Ours", "Body", {}, {}}));
    ASSERT_EQ(known->DBAppend(database), S_OK);
    PackMessage();
    DamageMessageData();
    CMapiObjectsCache cache(mailbox.Session().Get());

    const HRESULT hr = Load();
    EXPECT_TRUE(FAILED(hr) || FAILED(loaded->Submit(database, cache)));

    EXPECT_EQ(TestMailbox::Read(*mailbox.Open(known->m_bstrEntryID)).subject, "Ours");
    EXPECT_EQ(TestMailbox::Subjects(*inbox).size(), 1u);
}

}  // namespace
}  // namespace quorvane
