#include "engine/items/contents_stream.h"
#include "engine/items/exclusions.h"
#include "engine/items/testing/mail_test.h"
#include "engine/storeaccess/mapi_memory.h"
#include "platform/cfb/stg.h"

namespace quorvane {
namespace {

using testing::Exclusions;
using testing::MakeDetachedMessage;
using testing::Number;
using testing::TestMail;
using testing::TestMailbox;
using testing::Text;

const TestMail kMail{"Subject", "Body", {"ann", "bob"}, {"a.txt", "b.txt"}};

bool Has(IStorage& storage, const OLECHAR* name)
{
    ComPtr<IStorage> element;
    return SUCCEEDED(storage.OpenStorage(name, nullptr, kOpenMode, nullptr, 0, element.Put()));
}

class ItemSaveTest : public testing::MailTest {
protected:
    static MemoryStorage MakeStorage()
    {
        MemoryStorage made;
        EXPECT_EQ(made.Create(), S_OK);
        return made;
    }

    // The message in a saved item's storage.
    static ComPtr<IMessage> CarriedMessage(IStorage& storage, ComPtr<IStorage>& data)
    {
        ComPtr<IMessage> carried;
        EXPECT_EQ(storage.OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put()), S_OK);
        EXPECT_EQ(OpenMessageOnStorage(nullptr, *data, carried), S_OK);
        return carried;
    }

    static void ExpectMail(const TestMail& mail)
    {
        EXPECT_EQ(mail.subject, kMail.subject);
        EXPECT_EQ(mail.body, kMail.body);
        EXPECT_EQ(mail.recipients, kMail.recipients);
        EXPECT_EQ(mail.attachments, kMail.attachments);
    }

    // What the item's Stream gives to another item.
    ComPtr<CItem> ThroughStream(Variant& stream)
    {
        EXPECT_EQ(item->get_Stream(stream.Put()), S_OK);
        ComPtr<CItem> other = MakeItem(OLESTR("{B}"));
        EXPECT_EQ(other->put_Stream(stream.Raw()), S_OK);
        return other;
    }

    ComPtr<IMessage> message = mailbox.AddMessage(*inbox, kMail);
    ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *message);
    MemoryStorage target = MakeStorage();
};

TEST_F(ItemSaveTest, AMessageIsCarriedWithRecipientsAndAttachments)
{
    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);

    ComPtr<IStorage> data;
    ExpectMail(TestMailbox::Read(*CarriedMessage(*target.storage, data)));
}

TEST_F(ItemSaveTest, ARecipientWithANameOfAnySizeIsCarried)
{
    for (const size_t size : {32766u, 32767u, 32768u, 32769u, 40000u, 300000u}) {
        const TestMail large{"Subject", "Body", {"ann", std::string(size, 'n')}, {}};
        const ComPtr<CItem> sent = MakeItem(OLESTR("{L}"), *mailbox.AddMessage(*inbox, large));
        ASSERT_EQ(sent->Save(target.storage.Get(), TRUE), S_OK);

        ComPtr<IStorage> data;
        const TestMail carried = TestMailbox::Read(*CarriedMessage(*target.storage, data));
        EXPECT_EQ(carried.subject, "Subject") << size;
        EXPECT_EQ(carried.recipients, large.recipients) << size;
    }
}

TEST_F(ItemSaveTest, TheCarriedMessageIsUnread)
{
    ASSERT_EQ(message->SetReadFlag(0), S_OK);
    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);

    ComPtr<IStorage> data;
    EXPECT_FALSE(TestMailbox::IsRead(*CarriedMessage(*target.storage, data)));
}

TEST_F(ItemSaveTest, AnItemWithoutAMessageIsItsContentsAlone)
{
    ASSERT_EQ(MakeItem()->Save(target.storage.Get(), TRUE), S_OK);

    ComPtr<IStream> contents;
    EXPECT_EQ(OpenContents(*target.storage, contents), S_OK);
    EXPECT_FALSE(Has(*target.storage, kMessageDataName));
}

TEST_F(ItemSaveTest, ADeletionRemovesTheMessageOfAnEarlierSave)
{
    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);
    ASSERT_TRUE(Has(*target.storage, kMessageDataName));

    ASSERT_EQ(MakeItem()->Save(target.storage.Get(), TRUE), S_OK);

    EXPECT_FALSE(Has(*target.storage, kMessageDataName));
}

TEST_F(ItemSaveTest, SavingTwiceLeavesTheLaterMessage)
{
    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);
    const ComPtr<CItem> later = MakeItem(OLESTR("{A}"), *mailbox.AddMessage(*inbox, {"Later", "", {}, {}}));

    ASSERT_EQ(later->Save(target.storage.Get(), TRUE), S_OK);

    ComPtr<IStorage> data;
    const TestMail carried = TestMailbox::Read(*CarriedMessage(*target.storage, data));
    EXPECT_EQ(carried.subject, "Later");
    EXPECT_TRUE(carried.attachments.empty());
}

TEST_F(ItemSaveTest, AnExcludedTagIsntCarried)
{
    item->m_ExcludedProperties = Exclusions({Number(static_cast<LONG>(PR_BODY_A))});

    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);

    ComPtr<IStorage> data;
    const TestMail carried = TestMailbox::Read(*CarriedMessage(*target.storage, data));
    EXPECT_EQ(carried.subject, kMail.subject);
    EXPECT_EQ(carried.body, "");
}

TEST_F(ItemSaveTest, AnExclusionThatIsNoNumberExcludesNothing)
{
    const Bstr keyword(kFileAs);
    item->m_ExcludedProperties = Exclusions({Text(keyword)});

    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);

    ComPtr<IStorage> data;
    ExpectMail(TestMailbox::Read(*CarriedMessage(*target.storage, data)));
}

TEST_F(ItemSaveTest, TheStreamOfAnItemWithoutAMessageIsAnError)
{
    Variant stream;

    ASSERT_EQ(MakeItem()->get_Stream(stream.Put()), S_OK);

    EXPECT_TRUE(stream.Is(VT_ERROR));
}

TEST_F(ItemSaveTest, AMessageGoesThroughTheStream)
{
    Variant stream;
    const ComPtr<CItem> other = ThroughStream(stream);

    EXPECT_TRUE(stream.Is(VT_ARRAY | VT_UI1));
    ASSERT_NE(other->Message(), nullptr);
    ExpectMail(TestMailbox::Read(*other->Message()));
}

TEST_F(ItemSaveTest, AnEmptyStreamMakesADeletion)
{
    ByteArrayBuilder nothing;
    SafeArray array;
    ASSERT_EQ(nothing.Take(array), S_OK);
    const Variant stream = array.DetachAsVariant();

    ASSERT_EQ(item->put_Stream(stream.Raw()), S_OK);

    EXPECT_EQ(item->Message(), nullptr);
    ASSERT_EQ(item->Save(target.storage.Get(), TRUE), S_OK);
    EXPECT_FALSE(Has(*target.storage, kMessageDataName));
}

TEST_F(ItemSaveTest, AStreamThatIsNoCompoundFileIsRefused)
{
    ByteArrayBuilder bytes;
    for (int i = 0; i < 2000; ++i)
        ASSERT_EQ(bytes.Append(static_cast<BYTE>(i * 7)), S_OK);
    SafeArray array;
    ASSERT_EQ(bytes.Take(array), S_OK);
    const Variant stream = array.DetachAsVariant();

    EXPECT_LT(item->put_Stream(stream.Raw()), 0);

    EXPECT_EQ(item->Message(), nullptr);
}

TEST_F(ItemSaveTest, AStreamThatIsNoArrayOfBytesIsRefused)
{
    EXPECT_EQ(item->put_Stream(Number(1)), DISP_E_TYPEMISMATCH);
}

TEST_F(ItemSaveTest, AFileHoldsContentsAndMessageAtItsRoot)
{
    const test::TestDirectory files;
    const Bstr path(Widen(files.File("item.qvi")));

    ASSERT_EQ(item->SaveToFile(path.Get()), S_OK);

    ComPtr<IStorage> file;
    ASSERT_EQ(StgOpenStorage(path.Get(), nullptr, kOpenMode, nullptr, 0, file.Put()), S_OK);
    ComPtr<IStorage> data;
    ExpectMail(TestMailbox::Read(*CarriedMessage(*file, data)));
    ComPtr<IStream> contents;
    EXPECT_EQ(OpenContents(*file, contents), S_OK);
}

TEST_F(ItemSaveTest, AFileThatCantBeMadeIsTold)
{
    const test::TestDirectory files;

    EXPECT_LT(item->SaveToFile(Bstr(Widen(files.File("no/such/item.qvi"))).Get()), 0);
    EXPECT_EQ(item->SaveToFile(nullptr), E_INVALIDARG);
}

}  // namespace
}  // namespace quorvane
