#include "engine/folders/folder.h"

#include <filesystem>

#include "engine/folders/folders.h"
#include "engine/items/testing/mail_test.h"
#include "platform/com/error_text.h"
#include "platform/testing/unimplemented_dispatch.h"

namespace quorvane {
namespace {

using testing::MakeDetachedMessage;
using testing::Number;
using testing::TestMailbox;
using testing::Text;

// A host's restriction that counts its references.
class CountedRestriction final : public test::UnimplementedDispatchOf<IQuorvaneRestrict> {
public:
    LONG references = 1;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        *object = riid == DIID_IQuorvaneRestrict ? this : nullptr;
        references += *object ? 1 : 0;
        return *object ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }
};

class FolderTest : public ::testing::Test {
protected:
    FolderTest()
    {
        session.mapiSession = mailbox.Session();
        folders = MakeComObject<CFolders>(&session);
        session.folders = ComPtr<IFolders>(folders.Get());
        SetNoListeners(Number(0));
        EXPECT_EQ(folder->put_ID(Bstr(OLESTR("{F}")).Get()), S_OK);
    }

    ~FolderTest() override { session.folders.Reset(); }

    void SetNoListeners(const VARIANT& value)
    {
        const ComPtr<COptions> options = MakeComObject<COptions>();
        EXPECT_EQ(options->Add(kNoListeners, value), S_OK);
        session.options = ComPtr<IOptions>(options.Get());
    }

    HRESULT Open()
    {
        EXPECT_EQ(folder->put_StoreID(mailbox.StoreId().Get()), S_OK);
        return folder->put_EntryID(TestMailbox::IdOf(*inbox).Get());
    }

    std::string HashDirectory() const { return session.directory.File("qvdata/share"); }

    TestMailbox mailbox;
    testing::TestSession session;
    ComPtr<CFolders> folders;
    ComPtr<IMAPIFolder> inbox = mailbox.MakeFolder("Inbox");
    ComPtr<CFolder> folder = MakeComObject<CFolder>(&session);
};

TEST_F(FolderTest, OpeningMakesTheHashStoreBesideTheDatabase)
{
    ASSERT_EQ(Open(), S_OK);

    EXPECT_NE(session.HashStores().Find(Bstr(OLESTR("{F}")).Get()), nullptr);
    EXPECT_TRUE(std::filesystem::exists(HashDirectory() + "/{F}.dat"));
}

TEST_F(FolderTest, AnIdThatIsAPathMakesNoFileElsewhere)
{
    ASSERT_EQ(folder->put_ID(Bstr(OLESTR("../../outside")).Get()), S_OK);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_FALSE(std::filesystem::exists(session.directory.File("outside.dat")));
}

TEST_F(FolderTest, OpeningAgainKeepsTheHashStore)
{
    ASSERT_EQ(Open(), S_OK);
    CHashDB* const store = session.HashStores().Find(Bstr(OLESTR("{F}")).Get());

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(session.HashStores().Find(Bstr(OLESTR("{F}")).Get()), store);
}

TEST_F(FolderTest, WithoutListenersNothingIsMade)
{
    SetNoListeners(Number(1));

    ASSERT_EQ(Open(), S_OK);

    EXPECT_EQ(session.HashStores().Find(Bstr(OLESTR("{F}")).Get()), nullptr);
    EXPECT_FALSE(std::filesystem::exists(session.directory.File("qvdata")));
}

TEST_F(FolderTest, AnOptionThatCantBeReadMeansListening)
{
    session.options.Reset();

    ASSERT_EQ(Open(), S_OK);

    EXPECT_NE(session.HashStores().Find(Bstr(OLESTR("{F}")).Get()), nullptr);
}

TEST_F(FolderTest, TheEntryIdentifierBeforeTheStoreIsRefusedAndKept)
{
    const Bstr entryId = TestMailbox::IdOf(*inbox);

    EXPECT_EQ(folder->put_EntryID(entryId.Get()), E_POINTER);

    Bstr kept;
    ASSERT_EQ(folder->get_EntryID(kept.Put()), S_OK);
    EXPECT_EQ(kept.View(), entryId.View());
}

TEST_F(FolderTest, AFolderThatIsGoneDoesntOpen)
{
    ASSERT_EQ(folder->put_StoreID(mailbox.StoreId().Get()), S_OK);

    EXPECT_LT(folder->put_EntryID(Bstr(OLESTR("00000000ABCD")).Get()), 0);
    EXPECT_EQ(folder->put_EntryID(Bstr(OLESTR("odd")).Get()), E_FAIL);
}

TEST_F(FolderTest, ValidateAndRawNeedBothIdentifiers)
{
    ComPtr<IUnknown> raw;
    EXPECT_EQ(folder->Validate(), E_POINTER);
    EXPECT_EQ(folder->get_Raw(raw.Put()), E_POINTER);

    ASSERT_EQ(Open(), S_OK);
    EXPECT_EQ(folder->Validate(), S_OK);
    ASSERT_EQ(folder->get_Raw(raw.Put()), S_OK);
    ComPtr<IMAPIFolder> opened;
    EXPECT_EQ(raw.As(opened), S_OK);
}

TEST_F(FolderTest, ValidateTellsThatTheStoreDoesntOpen)
{
    ASSERT_EQ(Open(), S_OK);
    ASSERT_EQ(folder->put_StoreID(Bstr(OLESTR("not hex")).Get()), S_OK);

    EXPECT_EQ(folder->Validate(), E_FAIL);
}

TEST_F(FolderTest, EveryCallOpensTheStoreAnew)
{
    ASSERT_EQ(Open(), S_OK);
    ComPtr<IUnknown> first;
    ComPtr<IUnknown> second;

    ASSERT_EQ(folder->OpenStore(MDB_NO_MAIL, first.Put()), S_OK);
    ASSERT_EQ(folder->OpenStore(MDB_NO_MAIL, second.Put()), S_OK);

    EXPECT_FALSE(first == second);
    ComPtr<IMsgStore> store;
    EXPECT_EQ(first.As(store), S_OK);
}

TEST_F(FolderTest, AStoreThatDoesntOpenIsNull)
{
    auto* store = reinterpret_cast<IUnknown*>(0x10);

    EXPECT_LT(folder->OpenStore(MDB_NO_MAIL, &store), 0);

    EXPECT_EQ(store, nullptr);
}

TEST_F(FolderTest, AFolderInTheCollectionRefusesItsOwnId)
{
    ComPtr<IFolder> added;
    ASSERT_EQ(folders->Add(TestMailbox::IdOf(*inbox).Get(), mailbox.StoreId().Get(),
                           Text(Bstr(OLESTR("{G}"))), Variant::Missing().Raw(), added.Put()),
              S_OK);

    EXPECT_EQ(added->put_ID(Bstr(OLESTR("{G}")).Get()), DISP_E_EXCEPTION);
    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("Folder already exists"));
    EXPECT_EQ(added->put_ID(Bstr(OLESTR("{H}")).Get()), S_OK);
}

TEST_F(FolderTest, TheOptionsAreMadeOnceWithReadStatesKept)
{
    ComPtr<IOptions> first;
    ComPtr<IOptions> second;

    ASSERT_EQ(folder->get_Options(first.Put()), S_OK);
    ASSERT_EQ(folder->get_Options(second.Put()), S_OK);

    EXPECT_EQ(first, second);
    bool updates = false;
    EXPECT_EQ(ReadBooleanOption(first.Get(), kUpdateReadStatus, updates), S_OK);
    EXPECT_TRUE(updates);
}

TEST_F(FolderTest, AnItemIsMadeFromAStreamInTheFoldersName)
{
    ASSERT_EQ(Open(), S_OK);
    const ComPtr<CItem> source = MakeComObject<CItem>(&session);
    ASSERT_EQ(source->put_Raw(MakeDetachedMessage({"Streamed", "", {}, {}}).Get()), S_OK);
    Variant stream;
    ASSERT_EQ(source->get_Stream(stream.Put()), S_OK);
    ComPtr<IItem> item;

    ASSERT_EQ(folder->CreateItem(stream.Raw(), Text(Bstr(OLESTR("{A}"))), item.Put()), S_OK);

    Bstr text;
    ASSERT_EQ(item->get_ID(text.Put()), S_OK);
    EXPECT_EQ(text.View(), OLESTR("{A}"));
    ComPtr<IFolder> parent;
    EXPECT_EQ(item->get_Folder(parent.Put()), DISP_E_MEMBERNOTFOUND);  // it isn't in the collection
    ComPtr<IPersistStreamInit> form;
    ASSERT_EQ(item->QueryInterface(IID_IPersistStreamInit, form.PutVoid()), S_OK);
    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    ASSERT_EQ(item->get_StoreID(text.Put()), S_OK);
    EXPECT_EQ(text.View(), mailbox.StoreId().View());
}

TEST_F(FolderTest, AStreamThatIsNoneMakesNoItem)
{
    ComPtr<IItem> item;

    EXPECT_LT(folder->CreateItem(Number(3), Variant::Missing().Raw(), item.Put()), 0);
    EXPECT_FALSE(item);
}

TEST_F(FolderTest, IgnoreEventsIsKept)
{
    VARIANT_BOOL ignores = VARIANT_TRUE;
    ASSERT_EQ(folder->get_IgnoreEvents(&ignores), S_OK);
    EXPECT_EQ(ignores, VARIANT_FALSE);

    ASSERT_EQ(folder->put_IgnoreEvents(VARIANT_TRUE), S_OK);
    ASSERT_EQ(folder->get_IgnoreEvents(&ignores), S_OK);
    EXPECT_EQ(ignores, VARIANT_TRUE);
}

TEST_F(FolderTest, ARestrictionIsAskedAndNotKept)
{
    CountedRestriction restriction;

    EXPECT_EQ(folder->put_Restriction(&restriction), S_OK);

    EXPECT_EQ(restriction.references, 2);
    ComPtr<IQuorvaneRestrict> kept;
    EXPECT_EQ(folder->get_Restriction(kept.Put()), E_POINTER);
}

TEST_F(FolderTest, OnlyTheFoldersInterfaceCarriesErrorTexts)
{
    EXPECT_EQ(folder->InterfaceSupportsErrorInfo(IID_IFolder), S_OK);
    EXPECT_EQ(folder->InterfaceSupportsErrorInfo(IID_IItem), S_FALSE);
}

TEST_F(FolderTest, TheEventsHaveAConnectionPoint)
{
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(folder.As(container), S_OK);
    ComPtr<IConnectionPoint> point;

    EXPECT_EQ(container->FindConnectionPoint(DIID__IFolderEvents, point.Put()), S_OK);
    EXPECT_TRUE(point);
}

}  // namespace
}  // namespace quorvane
