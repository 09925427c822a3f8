// items/testing/mail_test.h: a fixture with a mailbox, a shared folder in it, and a session over both.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_MAIL_TEST_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_MAIL_TEST_H_

#include <gtest/gtest.h>

#include "engine/items/item.h"
#include "engine/items/testing/test_folders.h"
#include "engine/items/testing/test_mailbox.h"
#include "engine/items/testing/test_session.h"
#include "engine/session/options/options.h"

namespace quorvane::testing {

inline VARIANT Text(const Bstr& text)
{
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = text.Get();
    return value;
}

inline VARIANT Number(LONG number)
{
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_I4;
    value.lVal = number;
    return value;
}

// The exclusions of an item, from tags and texts.
inline SafeArray Exclusions(std::initializer_list<VARIANT> elements)
{
    VariantArrayBuilder builder;
    for (const VARIANT& element : elements)
        EXPECT_EQ(builder.Append(element), S_OK);
    SafeArray array;
    EXPECT_EQ(builder.Take(array), S_OK);
    return array;
}

// The sharing ID of the fixture's folder.
inline constexpr OLECHAR kFolderId[] = OLESTR("{F}");

class MailTest : public ::testing::Test {
protected:
    MailTest()
    {
        session.mapiSession = mailbox.Session();
        session.folders = ComPtr<IFolders>(folders.Get());
        folder.options = MakeOptions();
        EXPECT_EQ(session.HashStores().Add(Bstr(kFolderId).Get(), Bstr(Widen(hashes.File(""))).Get()), 1);
    }

    static ComPtr<IOptions> MakeOptions(VARIANT updateReadStatus = Variant::Bool(true).Raw())
    {
        const ComPtr<COptions> options = MakeComObject<COptions>();
        EXPECT_EQ(options->Add(kUpdateReadStatus, updateReadStatus), S_OK);
        return ComPtr<IOptions>(options.Get());
    }

    ComPtr<CItem> MakeItem(OleStringView id = OLESTR("{A}"))
    {
        ComPtr<CItem> made = MakeComObject<CItem>(&session);
        made->m_bstrID = Bstr(id);
        made->m_bstrFolderID = Bstr(kFolderId);
        return made;
    }

    // An item around a message.
    ComPtr<CItem> MakeItem(OleStringView id, IMessage& message)
    {
        ComPtr<CItem> made = MakeItem(id);
        EXPECT_EQ(made->put_Raw(&message), S_OK);
        return made;
    }

    std::string HashOf(const Bstr& entryId)
    {
        Bstr hash;
        LONG flags = 0;
        EXPECT_EQ(
            session.HashStores().Find(Bstr(kFolderId).Get())->GetHash(entryId.Get(), hash.Put(), &flags),
            S_OK);
        return Narrow(hash.View());
    }

    TestMailbox mailbox;
    const test::TestDirectory hashes;
    TestSession session;
    ComPtr<SharedFolders> folders = ComPtr<SharedFolders>::Attach(new SharedFolders);
    ComPtr<IMAPIFolder> inbox = mailbox.MakeFolder("Inbox");
    SharedFolder& folder = folders->Share(kFolderId, TestMailbox::IdOf(*inbox), mailbox.StoreId());
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_MAIL_TEST_H_
