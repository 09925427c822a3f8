#include <thread>

#include "engine/items/exclusions.h"
#include "engine/items/testing/mail_test.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/item_hash.h"
#include "engine/storeaccess/mapi_memory.h"
#include "engine/storeaccess/objects_cache.h"

namespace quorvane {
namespace {

using testing::Exclusions;
using testing::MakeDetachedMessage;
using testing::Number;
using testing::TestMail;
using testing::TestMailbox;
using testing::Text;

const TestMail kReceived{"Received", "Body", {"ann"}, {"a.txt"}};

class ItemSubmitTest : public testing::MailTest {
protected:
    ItemSubmitTest() { EXPECT_EQ(session.Database().OpenSession(database), S_OK); }

    // An item as Load leaves it: in its folder, with what the package carried.
    ComPtr<CItem> Received(OleStringView id, const TestMail& mail)
    {
        ComPtr<CItem> item = Deletion(id);
        EXPECT_EQ(item->put_Raw(MakeDetachedMessage(mail).Get()), S_OK);
        return item;
    }

    ComPtr<CItem> Deletion(OleStringView id)
    {
        ComPtr<CItem> item = MakeItem(id);
        item->m_bstrFolderEntryID = folder.entryId;
        item->m_bstrStoreID = mailbox.StoreId();
        return item;
    }

    HRESULT Submit(CItem& item) { return item.Submit(database, cache); }

    // Makes a message that the database knows as `id`.
    Bstr Share(OleStringView id, const TestMail& mail)
    {
        const ComPtr<CItem> item = MakeItem(id, *mailbox.AddMessage(*inbox, mail));
        EXPECT_EQ(item->DBAppend(database), S_OK);
        session.HashStores().SetHash(item->m_bstrEntryID.Get(), Bstr(testing::kFolderId).Get(),
                                     item->Message());
        return item->m_bstrEntryID;
    }

    static std::string ExpectedHash(IMessage& message)
    {
        PropValue time;
        EXPECT_EQ(mapi::HrGetOneProp(&message, PR_LAST_MODIFICATION_TIME, time.Put()), S_OK);
        return Narrow(ItemHash(time->Value.ft));
    }

    std::string Row(const std::string& column)
    {
        return session.Ask("SELECT " + column + " FROM tblItem WHERE ID='{A}'");
    }

    DatabaseSession database;
    CMapiObjectsCache cache{mailbox.Session().Get()};
};

TEST_F(ItemSubmitTest, ANewItemBecomesAMessageOfItsFolder)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_EQ(TestMailbox::Subjects(*inbox), std::vector<std::string>{"Received"});
    const ComPtr<IMessage> made = mailbox.Open(item->m_bstrEntryID);
    ASSERT_TRUE(made);
    const TestMail mail = TestMailbox::Read(*made);
    EXPECT_EQ(mail.body, kReceived.body);
    EXPECT_EQ(mail.recipients, kReceived.recipients);
    EXPECT_EQ(mail.attachments, kReceived.attachments);
    EXPECT_FALSE(TestMailbox::IsRead(*made));
}

TEST_F(ItemSubmitTest, AfterASubmitTheItemStandsForTheLiveMessage)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);

    ASSERT_EQ(Submit(*item), S_OK);

    ASSERT_NE(item->Message(), nullptr);
    EXPECT_EQ(item->m_bstrEntryID.View(), TestMailbox::IdOf(*item->Message()).View());
    EXPECT_EQ(item->m_bstrStoreID.View(), mailbox.StoreId().View());
    EXPECT_EQ(Row("EntryID"), Narrow(item->m_bstrEntryID.View()));
    EXPECT_EQ(Row("Version"), "3.0");
    EXPECT_EQ(item->DBCheckModified(), E_FAIL);
}

TEST_F(ItemSubmitTest, TheHashStoreKnowsTheMessageAsItWasSaved)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_EQ(HashOf(item->m_bstrEntryID), ExpectedHash(*mailbox.Open(item->m_bstrEntryID)));
}

TEST_F(ItemSubmitTest, AKnownItemReplacesItsMessageWhole)
{
    const Bstr entryId = Share(OLESTR("{A}"), {"Old", "Old body", {"zoe", "zed"}, {"old.txt", "old2.txt"}});
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_bstrEntryID = entryId;

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_EQ(item->m_bstrEntryID.View(), entryId.View());
    const TestMail mail = TestMailbox::Read(*mailbox.Open(entryId));
    EXPECT_EQ(mail.subject, "Received");
    EXPECT_EQ(mail.recipients, kReceived.recipients);
    EXPECT_EQ(mail.attachments, kReceived.attachments);
    EXPECT_EQ(TestMailbox::Subjects(*inbox).size(), 1u);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "1");
}

TEST_F(ItemSubmitTest, AnItemWhoseMessageIsGoneIsMadeAnewAndItsRowFollows)
{
    const Bstr oldId = Share(OLESTR("{A}"), {"Old", "", {}, {}});
    mailbox.Delete(*inbox, oldId);
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_bstrEntryID = oldId;

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_NE(item->m_bstrEntryID.View(), oldId.View());
    EXPECT_EQ(Row("EntryID"), Narrow(item->m_bstrEntryID.View()));
}

TEST_F(ItemSubmitTest, AMalformedEntryIdentifierCountsAsNotFound)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_bstrEntryID = Bstr(OLESTR("not hex"));

    EXPECT_EQ(Submit(*item), S_OK);
    EXPECT_EQ(TestMailbox::Subjects(*inbox).size(), 1u);
}

TEST_F(ItemSubmitTest, ADeletionRemovesMessageRowAndHash)
{
    const Bstr entryId = Share(OLESTR("{A}"), {"Old", "", {}, {}});
    ASSERT_NE(HashOf(entryId), "");
    const ComPtr<CItem> item = Deletion(OLESTR("{A}"));
    item->m_bstrEntryID = entryId;

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
    EXPECT_EQ(HashOf(entryId), "");
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ItemSubmitTest, ADeletionOfAMessageThatIsGoneChangesNothing)
{
    const Bstr entryId = Share(OLESTR("{A}"), {"Old", "", {}, {}});
    mailbox.Delete(*inbox, entryId);
    const ComPtr<CItem> item = Deletion(OLESTR("{A}"));
    item->m_bstrEntryID = entryId;

    EXPECT_LT(Submit(*item), 0);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "1");
}

TEST_F(ItemSubmitTest, ADeletionOfAnItemThatWasNeverHereSucceeds)
{
    EXPECT_EQ(Submit(*Deletion(OLESTR("{A}"))), S_OK);
}

TEST_F(ItemSubmitTest, AnItemWithoutAStoreIsRefused)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_bstrStoreID = Bstr();
    EXPECT_EQ(Submit(*item), E_INVALIDARG);

    item->m_bstrStoreID = Bstr(OLESTR("xy"));
    EXPECT_EQ(Submit(*item), E_INVALIDARG);
}

TEST_F(ItemSubmitTest, AnItemWhoseIdFitsNoRowIsRefusedBeforeAnythingIsWritten)
{
    for (const OleString& id : {OleString(50, OLESTR('x')), OleString(5000, OLESTR('x')),
                                OleString(50, OLESTR('\u4E2D')), OleString(OLESTR("a\0b"), 3)}) {
        const ComPtr<CItem> item = Received(id, kReceived);
        EXPECT_EQ(Submit(*item), E_INVALIDARG);
        EXPECT_EQ(item->Submit(), E_INVALIDARG);
    }
    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_TRUE(session.host.Calls().empty());

    const ComPtr<CItem> longest = Received(OleString(49, OLESTR('x')), kReceived);
    EXPECT_EQ(Submit(*longest), S_OK);
    EXPECT_EQ(session.Ask("SELECT length(ID) FROM tblItem"), "49");
}

TEST_F(ItemSubmitTest, AnItemOfAFolderThatIsntSharedWritesNothing)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_bstrFolderEntryID = Bstr(OLESTR("00AB"));

    EXPECT_EQ(Submit(*item), DISP_E_MEMBERNOTFOUND);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
}

TEST_F(ItemSubmitTest, TheHostIsToldOnceTheItemIsInTheStore)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    bool writing = true;
    session.host.whenPostprocessed = [&] {
        writing = !session.ItemSubmitEvent().IsSet() || !session.SubmitLock().TryLock();
        if (!writing)
            session.SubmitLock().Unlock();
        return S_OK;
    };

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_EQ(session.host.Calls(),
              std::vector<std::string>{"postprocess " + Narrow(item->m_bstrEntryID.View())});
    EXPECT_FALSE(writing);
}

TEST_F(ItemSubmitTest, AHostThatFailsDoesntFailTheSubmit)
{
    session.host.whenPostprocessed = [] { return E_FAIL; };
    EXPECT_EQ(Submit(*Received(OLESTR("{A}"), kReceived)), S_OK);

    session.hostIsThere = false;
    EXPECT_EQ(Submit(*Received(OLESTR("{B}"), kReceived)), S_OK);
}

TEST_F(ItemSubmitTest, EventAndLockAreFreeAfterAFailure)
{
    session.Execute("DROP TABLE tblItem");

    EXPECT_LT(Submit(*Received(OLESTR("{A}"), kReceived)), 0);

    EXPECT_TRUE(session.ItemSubmitEvent().IsSet());
    ASSERT_TRUE(session.SubmitLock().TryLock());
    session.SubmitLock().Unlock();
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ItemSubmitTest, ASubmitWaitsForTheOneBeforeIt)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    session.SubmitLock().Lock();
    HRESULT hr = E_FAIL;
    std::thread submitter([&] { hr = Submit(*item); });

    // The event is reset before the lock is entered, so that it tells that the thread has come there.
    while (session.ItemSubmitEvent().IsSet())
        std::this_thread::yield();
    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    session.SubmitLock().Unlock();
    submitter.join();

    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(TestMailbox::Subjects(*inbox).size(), 1u);
}

TEST_F(ItemSubmitTest, AnExcludedTagIsntApplied)
{
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_ExcludedProperties = Exclusions({Number(static_cast<LONG>(PR_BODY_A))});

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_EQ(TestMailbox::Read(*item->Message()).body, "");
    EXPECT_EQ(TestMailbox::Read(*item->Message()).subject, "Received");
}

TEST_F(ItemSubmitTest, AnExcludedFileAsThatTheMessageLacksChangesNothing)
{
    const Bstr keyword(kFileAs);
    const ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
    item->m_ExcludedProperties = Exclusions({Text(keyword), Text(keyword)});

    ASSERT_EQ(Submit(*item), S_OK);

    EXPECT_EQ(TestMailbox::Read(*item->Message()).body, kReceived.body);
}

TEST_F(ItemSubmitTest, ApplyingAnItemTwiceLeavesOneMessageAndOneRow)
{
    const ComPtr<CItem> first = Received(OLESTR("{A}"), kReceived);
    ASSERT_EQ(Submit(*first), S_OK);
    const ComPtr<CItem> again = Received(OLESTR("{A}"), kReceived);
    again->m_bstrEntryID = first->m_bstrEntryID;

    ASSERT_EQ(Submit(*again), S_OK);

    EXPECT_EQ(again->m_bstrEntryID.View(), first->m_bstrEntryID.View());
    EXPECT_EQ(TestMailbox::Subjects(*inbox).size(), 1u);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "1");
}

class ItemPublicSubmitTest : public ItemSubmitTest {
protected:
    ComPtr<CItem> item = Received(OLESTR("{A}"), kReceived);
};

TEST_F(ItemPublicSubmitTest, ANewItemBecomesAMessageAndARow)
{
    ASSERT_EQ(item->Submit(), S_OK);

    EXPECT_EQ(TestMailbox::Subjects(*inbox), std::vector<std::string>{"Received"});
    EXPECT_EQ(Row("EntryID"), Narrow(item->m_bstrEntryID.View()));
}

TEST_F(ItemPublicSubmitTest, NeitherHashNorHostNorLockTakePart)
{
    session.SubmitLock().Lock();
    EXPECT_EQ(item->Submit(), S_OK);
    session.SubmitLock().Unlock();

    EXPECT_EQ(HashOf(item->m_bstrEntryID), "");
    EXPECT_TRUE(session.host.Calls().empty());
    EXPECT_TRUE(session.ItemSubmitEvent().IsSet());
}

TEST_F(ItemPublicSubmitTest, ExclusionsTakeNoPart)
{
    item->m_ExcludedProperties = Exclusions({Number(static_cast<LONG>(PR_BODY_A))});

    ASSERT_EQ(item->Submit(), S_OK);

    EXPECT_EQ(TestMailbox::Read(*mailbox.Open(item->m_bstrEntryID)).body, kReceived.body);
}

TEST_F(ItemPublicSubmitTest, AReadItemStaysReadWhereTheFolderKeepsReadStates)
{
    ASSERT_EQ(item->put_UnRead(VARIANT_FALSE), S_OK);

    ASSERT_EQ(item->Submit(), S_OK);

    EXPECT_TRUE(TestMailbox::IsRead(*mailbox.Open(item->m_bstrEntryID)));
}

TEST_F(ItemPublicSubmitTest, AReadItemArrivesUnreadWhereTheFolderDoesnt)
{
    folder.options = MakeOptions(Variant::Bool(false).Raw());
    ASSERT_EQ(item->put_UnRead(VARIANT_FALSE), S_OK);

    ASSERT_EQ(item->Submit(), S_OK);

    EXPECT_FALSE(TestMailbox::IsRead(*mailbox.Open(item->m_bstrEntryID)));
}

// Options of which each is a number, and no object.
class PlainOptions final : public ComObject<PlainOptions, DispatchImpl<IOptions>> {
public:
    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT, VARIANT* pvar) override
    {
        *pvar = Number(0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Count(LONG*) override { return E_NOTIMPL; }
};

TEST_F(ItemPublicSubmitTest, AnOptionThatIsMissingOrNoObjectIsTracedAndCountsAsTrue)
{
    const ComPtr<PlainOptions> plain = ComPtr<PlainOptions>::Attach(new PlainOptions);
    for (const auto& [options, failure] :
         {std::pair<ComPtr<IOptions>, const char*>{ComPtr<IOptions>(MakeComObject<COptions>().Get()), "0x8"},
          std::pair<ComPtr<IOptions>, const char*>{ComPtr<IOptions>(plain.Get()), "0x80070057"}}) {
        folder.options = options;
        for (const bool isRead : {true, false}) {
            const ComPtr<CItem> made = Received(OLESTR("{A}"), kReceived);
            ASSERT_EQ(made->put_UnRead(isRead ? VARIANT_FALSE : VARIANT_TRUE), S_OK);
            HRESULT hr = E_FAIL;
            const std::string lines = testing::TracedLines([&] { hr = made->Submit(); });
            EXPECT_EQ(hr, S_OK);
            EXPECT_NE(lines.find("CItem::Submit("), std::string::npos) << lines;
            EXPECT_NE(lines.find(failure), std::string::npos) << lines;
            EXPECT_EQ(TestMailbox::IsRead(*mailbox.Open(made->m_bstrEntryID)), isRead);
        }
    }
}

TEST_F(ItemPublicSubmitTest, AFolderWithoutOptionsLeavesTheEventReset)
{
    folder.optionsResult = E_UNEXPECTED;

    EXPECT_EQ(item->Submit(), E_UNEXPECTED);

    EXPECT_FALSE(session.ItemSubmitEvent().IsSet());
    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
}

TEST_F(ItemPublicSubmitTest, AKnownItemReplacesItsMessage)
{
    const Bstr entryId = Share(OLESTR("{A}"), {"Old", "Old body", {"zoe"}, {"old.txt"}});
    item->m_bstrEntryID = entryId;

    ASSERT_EQ(item->Submit(), S_OK);

    const TestMail mail = TestMailbox::Read(*mailbox.Open(entryId));
    EXPECT_EQ(mail.subject, "Received");
    EXPECT_EQ(mail.attachments, kReceived.attachments);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "1");
}

TEST_F(ItemPublicSubmitTest, ADeletionRemovesMessageAndRow)
{
    const ComPtr<CItem> deletion = Deletion(OLESTR("{A}"));
    deletion->m_bstrEntryID = Share(OLESTR("{A}"), {"Old", "", {}, {}});

    ASSERT_EQ(deletion->Submit(), S_OK);

    EXPECT_TRUE(TestMailbox::Subjects(*inbox).empty());
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
}

TEST_F(ItemPublicSubmitTest, AnItemWithoutAStoreIsRefused)
{
    item->m_bstrStoreID = Bstr();
    EXPECT_EQ(item->Submit(), E_INVALIDARG);
    item->m_bstrStoreID = Bstr(OLESTR("xy"));
    EXPECT_EQ(item->Submit(), E_INVALIDARG);
}

}  // namespace
}  // namespace quorvane
