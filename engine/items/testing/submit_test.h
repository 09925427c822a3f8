// items/testing/submit_test.h: a fixture for items that arrive from elsewhere and are submitted, whatever
// fails.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_SUBMIT_TEST_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_SUBMIT_TEST_H_

#include "engine/items/testing/mail_test.h"
#include "engine/storeaccess/hex.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/storeaccess/mapi_memory.h"
#include "engine/storeaccess/objects_cache.h"

namespace quorvane::testing {

// What the item {A} is here before it arrives, and what arrives.
inline const TestMail kOldMail{"Old", "Old body", {"zed", "zoe"}, {"old.txt", "old2.txt"}};
inline const TestMail kNewMail{"New", "New body", {"ann", "bob"}, {"new.txt"}};

class SubmitTest : public MailTest {
protected:
    SubmitTest() { EXPECT_EQ(session.Database().OpenSession(database), S_OK); }

    // The item as a package carries it, placed as Load does; without a message it is a deletion.
    ComPtr<CItem> Arrived(bool hasMessage)
    {
        ComPtr<CItem> item = MakeItem(OLESTR("{A}"));
        item->m_bstrFolderEntryID = folder.entryId;
        item->m_bstrStoreID = mailbox.StoreId();
        EXPECT_GE(item->DBReadByID(database), 0);
        if (hasMessage) {
            const Bstr entryId = item->m_bstrEntryID;
            EXPECT_EQ(item->put_Raw(MakeDetachedMessage(kNewMail).Get()), S_OK);
            item->m_bstrEntryID = entryId;
        }
        return item;
    }

    HRESULT Submit(CItem& item)
    {
        CMapiObjectsCache cache(session.MapiSession());
        return publicForm ? item.Submit() : item.Submit(database, cache);
    }

    // The folder with nothing in it, or with one mail that is the item here.
    void Prepare(bool known)
    {
        for (const Bstr& id : Mails())
            mailbox.Delete(*inbox, id);
        session.Execute("DELETE FROM tblItem");
        if (!known)
            return;
        const ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *mailbox.AddMessage(*inbox, kOldMail));
        ASSERT_EQ(item->DBAppend(database), S_OK);
        session.HashStores().SetHash(item->m_bstrEntryID.Get(), Bstr(kFolderId).Get(), item->Message());
        knownHash = HashOf(item->m_bstrEntryID);
    }

    // The entry identifiers of the folder's mails.
    std::vector<Bstr> Mails() { return TestMailbox::MailsIn(*inbox); }
    // The entry identifiers in the item's rows.
    std::string Rows() { return session.Ask("SELECT group_concat(EntryID) FROM tblItem WHERE ID='{A}'"); }

    bool Is(const Bstr& entryId, const TestMail& expected)
    {
        const TestMail mail = TestMailbox::Read(*mailbox.Open(entryId));
        return mail.subject == expected.subject && mail.body == expected.body &&
               mail.recipients == expected.recipients && mail.attachments == expected.attachments;
    }

    // One mail is in the folder, and it is the item.
    void ExpectOnly(const TestMail& mail)
    {
        const std::vector<Bstr> mails = Mails();
        ASSERT_EQ(mails.size(), 1u);
        EXPECT_TRUE(Is(mails[0], mail));
        EXPECT_EQ(Rows(), Narrow(mails[0].View()));
    }
    void ExpectNothing()
    {
        EXPECT_TRUE(Mails().empty());
        EXPECT_EQ(Rows(), "NULL");
    }

    // Nobody is writing to the store.
    void ExpectFree()
    {
        EXPECT_TRUE(session.ItemSubmitEvent().IsSet());
        ASSERT_TRUE(session.SubmitLock().TryLock());
        session.SubmitLock().Unlock();
    }

    DatabaseSession database;
    std::string knownHash;
    bool publicForm = false;  // of Submit
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_SUBMIT_TEST_H_
