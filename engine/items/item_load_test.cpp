#include <cstring>

#include "engine/items/contents_stream.h"
#include "engine/items/testing/mail_test.h"
#include "platform/cfb/stg.h"

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

// A number of the compound file's header, tables or entries.
std::uint32_t NumberAt(const std::string& file, std::size_t at)
{
    std::uint32_t number = 0;
    std::memcpy(&number, file.data() + at, sizeof number);
    return number;
}

// Its properties are there, and the sectors of its body end too early.
TEST_F(ItemLoadTest, AMessageOfWhichNotAllCanBeReadIsRefused)
{
    Pack(MakeItem(OLESTR("{A}"), *MakeDetachedMessage({"Carried", std::string(20'000, 'x'), {}, {}})));
    package.storage.Reset();
    STATSTG stat{};
    ASSERT_EQ(package.bytes->Stat(&stat, STATFLAG_NONAME), S_OK);
    std::string file(stat.cbSize.QuadPart, '\0');
    ASSERT_EQ(package.bytes->ReadAt({}, file.data(), static_cast<ULONG>(file.size()), nullptr), S_OK);
    constexpr std::size_t kSector = 512, kFirstTable = 76, kStartInEntry = 116;
    const OleString name = OLESTR("__substg1.0_1000001");  // the body, whatever its letters are
    const std::size_t entry =
        file.find(std::string(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(OLECHAR)));
    ASSERT_NE(entry, std::string::npos);
    const std::size_t table = (NumberAt(file, kFirstTable) + 1) * kSector;
    ULARGE_INTEGER link;
    link.QuadPart = table + NumberAt(file, entry + kStartInEntry) * sizeof(std::uint32_t);
    ASSERT_LT(link.QuadPart, table + kSector);
    const std::uint32_t endOfChain = 0xFFFFFFFE;
    ASSERT_EQ(package.bytes->WriteAt(link, &endOfChain, sizeof endOfChain, nullptr), S_OK);
    ASSERT_EQ(StgOpenStorageOnILockBytes(package.bytes.Get(), nullptr, kOpenMode, nullptr, 0,
                                         package.storage.Put()),
              S_OK);

    EXPECT_TRUE(FAILED(Load()));
    EXPECT_EQ(loaded->Message(), nullptr);
}

// What a copy left that was cut short opens as a message, and must not pass for one.
class TornMessageTest : public ItemLoadTest {
protected:
    TornMessageTest()
    {
        EXPECT_EQ(known->DBAppend(database), S_OK);
        const ComPtr<IMessage> message =
            MakeDetachedMessage({"Carried", "Body", {"ann", "bob"}, {"a.txt", "b.txt"}});
        Pack(MakeItem(OLESTR("{A}"), *message));
        EXPECT_EQ(package.storage->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put()),
                  S_OK);
    }

    void Destroy(const OLECHAR* name) { EXPECT_EQ(data->DestroyElement(name), S_OK); }
    // Puts these bytes at a place of a stream.
    static void Overwrite(IStorage& storage, LONGLONG at, const std::string& bytes)
    {
        ComPtr<IStream> stream;
        ASSERT_EQ(storage.OpenStream(kProperties, nullptr, kOpenMode, 0, stream.Put()), S_OK);
        LARGE_INTEGER place;
        place.QuadPart = at;
        ASSERT_EQ(stream->Seek(place, STREAM_SEEK_SET, nullptr), S_OK);
        ASSERT_EQ(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), S_OK);
    }
    ComPtr<IStorage> Part(const OLECHAR* name)
    {
        ComPtr<IStorage> part;
        EXPECT_EQ(data->OpenStorage(name, nullptr, kOpenMode, nullptr, 0, part.Put()), S_OK);
        return part;
    }

    void ExpectRefused()
    {
        data.Reset();
        EXPECT_EQ(Load(), MAPI_E_CORRUPT_DATA);
        EXPECT_EQ(loaded->Message(), nullptr);
        EXPECT_EQ(TestMailbox::Read(*mailbox.Open(known->m_bstrEntryID)).subject, "Ours");
    }

    static constexpr OLECHAR kProperties[] = OLESTR("__properties_version1.0");
    ComPtr<CItem> known = MakeItem(OLESTR("{A}"), *mailbox.AddMessage(*inbox, {"Ours", "Body", {}, {}}));
    ComPtr<IStorage> data;
};

TEST_F(TornMessageTest, AWholeOneLoads)
{
    data.Reset();
    ASSERT_EQ(Load(), S_OK);
    EXPECT_EQ(TestMailbox::Read(*loaded->Message()).recipients, (std::vector<std::string>{"ann", "bob"}));
}

TEST_F(TornMessageTest, AnEmptyStorageIsDamaged)
{
    data.Reset();
    ASSERT_EQ(package.storage->CreateStorage(kMessageDataName, kCreateMode, 0, 0, data.Put()), S_OK);
    ExpectRefused();
}

TEST_F(TornMessageTest, OneWithoutItsPropertiesIsDamaged)
{
    Destroy(kProperties);
    ExpectRefused();
}

TEST_F(TornMessageTest, PropertiesThatAreShorterThanTheirHeaderAreDamaged)
{
    ComPtr<IStream> properties;
    ASSERT_EQ(data->CreateStream(kProperties, kCreateMode, 0, 0, properties.Put()), S_OK);
    ASSERT_EQ(properties->Write("short", 5, nullptr), S_OK);
    properties.Reset();
    ExpectRefused();
}

TEST_F(TornMessageTest, ARecipientTooFewIsDamage)
{
    Destroy(OLESTR("__recip_version1.0_#00000001"));
    ExpectRefused();
}

TEST_F(TornMessageTest, AnAttachmentTooFewIsDamage)
{
    Destroy(OLESTR("__attach_version1.0_#00000000"));
    ExpectRefused();
}

TEST_F(TornMessageTest, CountsThatAreTooSmallAreDamage)
{
    Overwrite(*data, 16, std::string(1, '\1'));
    ExpectRefused();
}

TEST_F(TornMessageTest, PartsWithoutPropertiesAreDamage)
{
    EXPECT_EQ(Part(OLESTR("__recip_version1.0_#00000001"))->DestroyElement(kProperties), S_OK);
    ExpectRefused();
}

TEST_F(TornMessageTest, AnAttachmentWithoutPropertiesIsDamage)
{
    EXPECT_EQ(Part(OLESTR("__attach_version1.0_#00000001"))->DestroyElement(kProperties), S_OK);
    ExpectRefused();
}

class TornEmbeddedMessageTest : public TornMessageTest {
protected:
    TornEmbeddedMessageTest()
    {
        ComPtr<IMessage> outer = MakeDetachedMessage({"Outer", "", {}, {}});
        MakeAttached(*outer);
        data.Reset();
        Pack(MakeItem(OLESTR("{A}"), *outer));
        EXPECT_EQ(Load(), S_OK);
        loaded = MakeComObject<CItem>(&session);
        EXPECT_EQ(package.storage->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put()),
                  S_OK);
    }

    static void MakeAttached(IMessage& outer)
    {
        ComPtr<IAttach> attachment;
        ComPtr<IMessage> inner;
        ULONG number = 0;
        ASSERT_EQ(outer.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        SPropValue method{};
        method.ulPropTag = PR_ATTACH_METHOD;
        method.Value.l = ATTACH_EMBEDDED_MSG;
        ASSERT_EQ(attachment->SetProps(1, &method, nullptr), S_OK);
        ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                           inner.PutUnknown()),
                  S_OK);
        TestMailbox::Fill(*inner, {"Inner", "", {"ann"}, {}});
        ASSERT_EQ(inner->SaveChanges(0), S_OK);
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    }

    void DestroyWithin(const OLECHAR* name)
    {
        const ComPtr<IStorage> part = Part(OLESTR("__attach_version1.0_#00000000"));
        ComPtr<IStorage> message;
        ASSERT_EQ(part->OpenStorage(kEmbedded, nullptr, kOpenMode, nullptr, 0, message.Put()), S_OK);
        EXPECT_EQ(message->DestroyElement(name), S_OK);
    }

    static constexpr OLECHAR kEmbedded[] = OLESTR("__substg1.0_3701000D");
};

TEST_F(TornEmbeddedMessageTest, ItsRecipientsAreCountedAsWell)
{
    DestroyWithin(OLESTR("__recip_version1.0_#00000000"));
    ExpectRefused();
}

TEST_F(TornEmbeddedMessageTest, WithoutItsPropertiesItIsDamaged)
{
    DestroyWithin(kProperties);
    ExpectRefused();
}

TEST_F(TornEmbeddedMessageTest, AnAttachmentThatSaysThatItIsAMessageHasOne)
{
    EXPECT_EQ(Part(OLESTR("__attach_version1.0_#00000000"))->DestroyElement(kEmbedded), S_OK);
    ExpectRefused();
}

}  // namespace
}  // namespace quorvane
