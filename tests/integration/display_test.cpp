// Items shown in a form, through the public headers: the engine is the form's host.
#include <gtest/gtest.h>

#include <optional>

#include "platform/testing/form/test_form.h"
#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

class DisplayTest : public testing::Test {
protected:
    DisplayTest()
    {
        logon->Share(folder, "{folder}");
        RegisterTestForm(ContentsOf(*folder.Open(mail)).messageClass);
        forms = {};
    }

    ComPtr<IItem> ItemOf(const std::string& id)
    {
        const Bstr itemId(FromUtf8("{item}"));
        const Bstr entryId(FromUtf8(id));
        const Bstr storeId(FromUtf8(folder.StoreId()));
        EXPECT_EQ(logon->Session().ImportItem(itemId.Get(), entryId.Get(), storeId.Get()), S_OK);
        ComPtr<IItem> item;
        const Variant none = Variant::Missing();
        EXPECT_EQ(logon->Session().GetItemFromID(Variant::Text(itemId.View()).Raw(), none.Raw(), none.Raw(),
                                                 item.Put()),
                  S_OK);
        return item;
    }

    TestForms& forms = FormsOfLibrary();
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
    std::string mail = folder.Add("Subject", "Body");
    std::optional<TestLogon> logon{std::in_place, mailbox};
};

TEST_F(DisplayTest, TheFormsSiteLeadsToTheFolderAndTheMessage)
{
    ASSERT_EQ(ItemOf(mail)->Display(VARIANT_TRUE, 0), S_OK);

    ASSERT_EQ(forms.alive, 1);
    ComPtr<IMessage> message;
    ComPtr<IMAPIFolder> place;
    ASSERT_EQ(forms.last->site->GetMessage(message.Put()), S_OK);
    ASSERT_EQ(forms.last->site->GetFolder(place.Put()), S_OK);
    EXPECT_EQ(ContentsOf(*message.Get()), ContentsOf(*folder.Open(mail)));
    EXPECT_EQ(TestFolder(ComPtr<IMsgStore>(&mailbox.Store()), place).EntryId(), folder.EntryId());
    forms.last->Close();
    EXPECT_EQ(forms.alive, 0);
}

TEST_F(DisplayTest, AFormOutlivesTheSession)
{
    ASSERT_EQ(ItemOf(mail)->Display(VARIANT_FALSE, 0), S_OK);

    logon.reset();

    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    ComPtr<IMessage> message;
    EXPECT_EQ(forms.last->site->GetMessage(message.Put()), S_OK);
    EXPECT_EQ(ContentsOf(*message.Get()).subject, "Subject");
    message.Reset();
    forms.last->Close();
    EXPECT_EQ(forms.alive, 0);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST_F(DisplayTest, ANewMessageComesIntoTheSharedFolderAndIsReported)
{
    ASSERT_EQ(ItemOf(mail)->Display(VARIANT_FALSE, 0), S_OK);
    const ComPtr<TestForm> shown(forms.last);
    const ComPtr<TestForm> reply = MakeComObject<TestForm>(forms);
    ComPtr<IMessage> message;
    ComPtr<IMAPIMessageSite> site;
    ComPtr<IMAPIViewContext> context;

    EXPECT_EQ(shown->site->NewMessage(FALSE, nullptr, reply.Get(), message.Put(), site.Put(), context.Put()),
              S_OK);

    EXPECT_EQ(folder.Count(), 2u);
    EXPECT_TRUE(logon->Host().Heard("added"));
    reply->Close();
    shown->Close();
}

}  // namespace
}  // namespace quorvane::test
