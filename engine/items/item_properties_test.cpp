#include "engine/items/arguments.h"
#include "engine/items/testing/mail_test.h"
#include "engine/storeaccess/hex.h"

namespace quorvane {
namespace {

using testing::MakeDetachedMessage;
using testing::TestMailbox;
using testing::Text;

class ItemPropertiesTest : public testing::MailTest {
protected:
    // What GetProperty gives for a tag; fails the test if it fails.
    Variant Property(ULONG tag)
    {
        Variant value;
        EXPECT_EQ(item->GetProperty(TagArgument(tag), value.Put()), S_OK);
        return value;
    }

    ComPtr<IMessage> message = mailbox.AddMessage(*inbox, {"Subject", "Body", {}, {}});
    ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *message);
};

TEST_F(ItemPropertiesTest, PutRawTakesTheIdentifiersAndTheTime)
{
    EXPECT_EQ(item->m_bstrEntryID.View(), TestMailbox::IdOf(*message).View());
    EXPECT_EQ(item->m_bstrStoreID.View(), mailbox.StoreId().View());
    EXPECT_GT(item->m_dblLastModified, 40000.0);
}

TEST_F(ItemPropertiesTest, PutRawOfAMessageWithoutIdentifiersKeepsTheOldOnes)
{
    const Bstr entryId = item->m_bstrEntryID;
    const ComPtr<IMessage> detached = MakeDetachedMessage({"Detached", "", {}, {}});

    ASSERT_EQ(item->put_Raw(detached.Get()), S_OK);

    EXPECT_EQ(item->m_bstrEntryID.View(), entryId.View());
    EXPECT_EQ(item->Message(), detached.Get());
}

TEST_F(ItemPropertiesTest, PutRawOfSomethingElseFailsAndKeepsTheMessage)
{
    EXPECT_EQ(item->put_Raw(inbox.Get()), E_NOINTERFACE);
    EXPECT_EQ(item->put_Raw(nullptr), E_POINTER);
    EXPECT_EQ(item->Message(), message.Get());
}

TEST_F(ItemPropertiesTest, ATextComesAsText)
{
    EXPECT_EQ(ViewOf(Property(PR_SUBJECT_A).Raw().bstrVal), OLESTR("Subject"));
    EXPECT_EQ(ViewOf(Property(PR_SUBJECT_W).Raw().bstrVal), OLESTR("Subject"));
}

TEST_F(ItemPropertiesTest, ABinaryComesAsHexadecimalText)
{
    const Variant value = Property(PR_ENTRYID);

    ASSERT_TRUE(value.Is(VT_BSTR));
    EXPECT_EQ(ViewOf(value.Raw().bstrVal), item->m_bstrEntryID.View());
}

TEST_F(ItemPropertiesTest, ATimeComesAsANumber)
{
    const Variant value = Property(PR_LAST_MODIFICATION_TIME);

    ASSERT_TRUE(value.Is(VT_R8));
    EXPECT_EQ(value.Raw().dblVal, item->m_dblLastModified);
}

TEST_F(ItemPropertiesTest, ANumberComesAsNothing)
{
    EXPECT_TRUE(Property(PR_MESSAGE_FLAGS).Is(VT_EMPTY));
}

TEST_F(ItemPropertiesTest, ATagThatIsATextOfDigitsIsTaken)
{
    const Bstr tag(Widen(std::to_string(PR_SUBJECT_A)));
    Variant value;

    EXPECT_EQ(item->GetProperty(Text(tag), value.Put()), S_OK);
    EXPECT_TRUE(value.Is(VT_BSTR));
}

TEST_F(ItemPropertiesTest, ATagThatIsNoNumberIsRefused)
{
    Variant value;

    EXPECT_EQ(item->GetProperty(Text(Bstr(OLESTR("FileAs"))), value.Put()), E_INVALIDARG);
    EXPECT_EQ(item->GetProperty(TagArgument(PR_SUBJECT_A), nullptr), E_POINTER);
}

TEST_F(ItemPropertiesTest, APropertyThatTheMessageLacksFails)
{
    Variant value;

    EXPECT_LT(item->GetProperty(TagArgument(PROP_TAG(PT_STRING8, 0x3FF9)), value.Put()), 0);
    EXPECT_TRUE(value.Is(VT_EMPTY));
}

TEST_F(ItemPropertiesTest, RawOpensTheMessageOfTheIdentifiers)
{
    const ComPtr<CItem> other = MakeItem();
    other->m_bstrEntryID = item->m_bstrEntryID;
    other->m_bstrStoreID = item->m_bstrStoreID;
    ComPtr<IUnknown> raw;

    ASSERT_EQ(other->get_Raw(raw.Put()), S_OK);

    ComPtr<IMessage> opened;
    ASSERT_EQ(raw.As(opened), S_OK);
    EXPECT_EQ(TestMailbox::Read(*opened).subject, "Subject");
}

TEST_F(ItemPropertiesTest, RawWithoutAnIdentifierIsRefused)
{
    const ComPtr<CItem> other = MakeItem();
    ComPtr<IUnknown> raw;

    EXPECT_EQ(other->get_Raw(raw.Put()), E_INVALIDARG);
    other->m_bstrEntryID = item->m_bstrEntryID;
    EXPECT_EQ(other->get_Raw(raw.Put()), E_INVALIDARG);
    other->m_bstrStoreID = Bstr(OLESTR("no hex"));
    EXPECT_EQ(other->get_Raw(raw.Put()), E_FAIL);
    EXPECT_FALSE(raw);
}

TEST_F(ItemPropertiesTest, RawOfADeletedItemOpensNothing)
{
    const ComPtr<CItem> other = MakeItem();
    other->m_bstrEntryID = item->m_bstrEntryID;
    other->m_bstrStoreID = item->m_bstrStoreID;
    ASSERT_EQ(other->put_Action(qv_ac_Deleted), S_OK);
    ComPtr<IUnknown> raw;

    EXPECT_EQ(other->get_Raw(raw.Put()), E_POINTER);
    EXPECT_EQ(other->Message(), nullptr);
}

TEST_F(ItemPropertiesTest, TheFolderIsFoundByTheMessagesParent)
{
    ComPtr<IFolder> found;

    ASSERT_EQ(item->get_Folder(found.Put()), S_OK);

    EXPECT_EQ(found.Get(), static_cast<IFolder*>(&folder));
    EXPECT_EQ(item->m_bstrFolderEntryID.View(), TestMailbox::IdOf(*inbox).View());
}

TEST_F(ItemPropertiesTest, TheFolderOfAnItemInAPrivateFolderIsntFound)
{
    const ComPtr<IMAPIFolder> other = mailbox.MakeFolder("Private");
    const ComPtr<CItem> moved = MakeItem(OLESTR("{B}"), *mailbox.AddMessage(*other, {"Private", "", {}, {}}));
    ComPtr<IFolder> found;

    EXPECT_EQ(moved->get_Folder(found.Put()), DISP_E_MEMBERNOTFOUND);
}

TEST_F(ItemPropertiesTest, DeletePropertyOfAnItemWithoutAMessageDoesNothing)
{
    EXPECT_EQ(MakeItem()->DeleteProperty(Text(Bstr(OLESTR("not a tag")))), S_OK);
}

TEST_F(ItemPropertiesTest, DeletePropertyRemovesOneProperty)
{
    ASSERT_EQ(item->DeleteProperty(TagArgument(PR_BODY_A)), S_OK);

    EXPECT_EQ(TestMailbox::Read(*message).body, "");
    EXPECT_EQ(TestMailbox::Read(*message).subject, "Subject");
}

TEST_F(ItemPropertiesTest, DeletePropertyOfAnUnknownFileAsIsRefused)
{
    EXPECT_EQ(item->DeleteProperty(Text(Bstr(OLESTR("FileAs")))), E_INVALIDARG);
    EXPECT_EQ(item->DeleteProperty(Text(Bstr(OLESTR("other text")))), E_INVALIDARG);
}

TEST_F(ItemPropertiesTest, OnlyFileAsItselfDeletesAFileAsThatIsThere)
{
    GUID addresses{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    MAPINAMEID name{};
    name.lpguid = &addresses;
    name.ulKind = MNID_ID;
    name.Kind.lID = 0x8005;
    MAPINAMEID* names = &name;
    MapiBuffer<SPropTagArray> tags;
    ASSERT_EQ(message->GetIDsFromNames(1, &names, MAPI_CREATE, tags.Put()), S_OK);
    const ULONG tag = PROP_TAG(PT_STRING8, PROP_ID(tags->aulPropTag[0]));
    SPropValue value{};
    value.ulPropTag = tag;
    char text[] = "Alice";
    value.Value.lpszA = text;
    ASSERT_EQ(message->SetProps(1, &value, nullptr), S_OK);
    const auto isThere = [&] {
        PropValue found;
        return SUCCEEDED(mapi::HrGetOneProp(message.Get(), tag, found.Put()));
    };

    EXPECT_EQ(item->DeleteProperty(Text(Bstr(OLESTR("other text")))), E_INVALIDARG);
    EXPECT_TRUE(isThere());
    EXPECT_EQ(item->DeleteProperty(Text(Bstr(OLESTR("FileAs")))), S_OK);
    EXPECT_FALSE(isThere());
}

TEST_F(ItemPropertiesTest, OnlyMinusOneMakesAnItemUnread)
{
    VARIANT_BOOL unread = VARIANT_FALSE;
    ASSERT_EQ(item->get_UnRead(&unread), S_OK);
    EXPECT_EQ(unread, VARIANT_TRUE);

    ASSERT_EQ(item->put_UnRead(1), S_OK);
    ASSERT_EQ(item->get_UnRead(&unread), S_OK);
    EXPECT_EQ(unread, VARIANT_FALSE);
}

TEST_F(ItemPropertiesTest, AnActionIsKeptUnchecked)
{
    qv_Action action = qv_ac_NoAction;
    ASSERT_EQ(item->put_Action(static_cast<qv_Action>(77)), S_OK);
    ASSERT_EQ(item->get_Action(&action), S_OK);
    EXPECT_EQ(static_cast<LONG>(action), 77);
}

TEST_F(ItemPropertiesTest, OnlyTheItemsInterfaceCarriesErrorTexts)
{
    EXPECT_EQ(item->InterfaceSupportsErrorInfo(IID_IItem), S_OK);
    EXPECT_EQ(item->InterfaceSupportsErrorInfo(IID_IPersistStorage), S_FALSE);
}

TEST_F(ItemPropertiesTest, AnItemIsCalledLateByItsIdentifiers)
{
    Variant value;
    const VARIANT tag = TagArgument(PR_SUBJECT_A);
    ComPtr<IDispatch> late;
    ASSERT_EQ(item.As(late), S_OK);

    ASSERT_EQ(InvokeById(late.Get(), 9, DISPATCH_METHOD, {&tag, 1}, &value), S_OK);

    EXPECT_EQ(ViewOf(value.Raw().bstrVal), OLESTR("Subject"));
}

}  // namespace
}  // namespace quorvane
