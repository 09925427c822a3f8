// What a store's object notifications become: most of them the store's own, some made up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "engine/items/item.h"
#include "engine/items/testing/failing_mailbox.h"
#include "engine/items/testing/noting_packages.h"
#include "engine/items/testing/test_mailbox.h"
#include "engine/monitor/msg_stores.h"
#include "engine/monitor/test_doubles.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/hex.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr ULONG kAllEvents =
    fnevObjectCreated | fnevObjectDeleted | fnevObjectModified | fnevObjectMoved | fnevObjectCopied;

// Stands between the store and the classifier, and tells when a notification of a message was dealt with.
class Relay final : public ComObject<Relay, IMAPIAdviseSink> {
public:
    explicit Relay(CMsgStores& target) : target_(target) {}

    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        const ULONG result = target_.OnNotify(count, notifications);
        const MutexLock lock(mutex_);
        for (ULONG i = 0; i < count; ++i)
            done_ += notifications[i].info.obj.ulObjType == MAPI_MESSAGE ? 1 : 0;
        changed_.NotifyAll();
        return result;
    }
    // False when the deadline passes first.
    bool Waited(unsigned count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        const MutexLock lock(mutex_);
        while (done_ < count) {
            if (!changed_.WaitUntil(mutex_, deadline))
                return false;
        }
        return true;
    }

private:
    CMsgStores& target_;
    Mutex mutex_;
    ConditionVariable changed_;
    unsigned done_ QV_GUARDED_BY(mutex_) = 0;
};

class ClassifierTest : public ::testing::Test {
protected:
    ClassifierTest()
    {
        session.mapiSession = mailbox.Session();
        session.folders = ComPtr<IFolders>(folders.Get());
        session.storageFiles = ComPtr<IStorageFiles>(packages.Get());
    }
    ~ClassifierTest() override
    {
        if (connection_ != 0) {
            EXPECT_EQ(mailbox.Store().Unadvise(connection_), S_OK);
        }
    }

    // From now on the store's notifications are dealt with.
    void Listen()
    {
        ASSERT_EQ(mailbox.Store().Advise(0, nullptr, kAllEvents, relay.Get(), &connection_), S_OK);
    }
    // Adds a message that has a row, as of an item that was shared before: of the message's time, which
    // counts in seconds. Its sharing ID is "{A}".
    Bstr AddKnown(IMAPIFolder& folder)
    {
        const ComPtr<IMessage> message = mailbox.AddMessage(folder, {"Hello", "body", {}, {}});
        const auto item = MakeComObject<CItem>(&session);
        item->m_bstrID = Bstr(OLESTR("{A}"));
        EXPECT_EQ(item->put_Raw(message.Get()), S_OK);
        EXPECT_EQ(item->DBAppend(), S_OK);
        session.Execute("UPDATE tblItem SET Version=2");
        return TestMailbox::IdOf(*message);
    }
    // The row's time is an older one then.
    void ChangeSubject(const Bstr& entryId)
    {
        session.Execute("UPDATE tblItem SET LastModified=LastModified-1");
        const ComPtr<IMessage> message = mailbox.Open(entryId);
        TestMailbox::Fill(*message, {"Changed", "body", {}, {}});
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
    void Transfer(IMAPIFolder& from, IMAPIFolder& to, const Bstr& entryId, ULONG flags)
    {
        BinaryId id;
        ASSERT_EQ(BinaryFromHex(entryId.Get(), id), S_OK);
        SBinary binary = id.Binary();
        ENTRYLIST list{1, &binary};
        ASSERT_EQ(from.CopyMessages(&list, nullptr, &to, 0, nullptr, flags), S_OK);
    }

    // A notification made by hand. Its identifiers last as long as the test.
    NOTIFICATION Made(ULONG event, const Bstr& entryId, const Bstr& parent = {}, const Bstr& oldParent = {})
    {
        NOTIFICATION notification{};
        notification.ulEventType = event;
        OBJECT_NOTIFICATION& object = notification.info.obj;
        object.ulObjType = MAPI_MESSAGE;
        object.lpEntryID = Keep(entryId, object.cbEntryID);
        object.lpParentID = Keep(parent, object.cbParentID);
        object.lpOldParentID = Keep(oldParent, object.cbOldParentID);
        return notification;
    }
    ULONG Notify(std::vector<NOTIFICATION> notifications)
    {
        return stores->OnNotify(static_cast<ULONG>(notifications.size()), notifications.data());
    }
    std::string TracedWhen(std::vector<NOTIFICATION> notifications)
    {
        return TracedLines([&] { EXPECT_EQ(Notify(std::move(notifications)), static_cast<ULONG>(S_OK)); });
    }
    // A failing notification costs itself alone: the failure is traced, and the next one is dealt with.
    void FailsAlone(const NOTIFICATION& failing, const char* code)
    {
        const std::string lines = TracedWhen({failing});
        EXPECT_THAT(lines, HasSubstr("CMsgStores::OnNotify("));
        EXPECT_THAT(lines, HasSubstr(std::string(") ") + code + "\r\n"));
    }

    std::string TextOf(const ComPtr<IMAPIFolder>& folder)
    {
        return Narrow(TestMailbox::IdOf(*folder).View());
    }
    std::string OnlyId() { return session.Ask("SELECT ID FROM tblItem"); }
    std::string Rows() { return session.Ask("SELECT count(*) FROM tblItem"); }
    // Whether the row was written since AddKnown.
    bool IsRowWritten() { return session.Ask("SELECT count(*) FROM tblItem WHERE Version=3") == "1"; }
    void IgnoreAll()
    {
        session.host.whenItemReported = [](IItem*, bool& ignore) {
            ignore = true;
            return S_OK;
        };
    }

    TestMailbox mailbox;
    MonitorSession session;
    const ComPtr<SharedFolders> folders = MakeComObject<SharedFolders>();
    const ComPtr<NotingPackages> packages = MakeComObject<NotingPackages>();
    const ComPtr<IMAPIFolder> shared = mailbox.MakeFolder("Shared");
    const ComPtr<IMAPIFolder> sharedToo = mailbox.MakeFolder("Shared too");
    const ComPtr<IMAPIFolder> other = mailbox.MakeFolder("Other");
    SharedFolder& first = folders->Share(OLESTR("{F}"), TestMailbox::IdOf(*shared), mailbox.StoreId());
    SharedFolder& second = folders->Share(OLESTR("{G}"), TestMailbox::IdOf(*sharedToo), mailbox.StoreId());
    const ComPtr<CMsgStores> stores = MakeComObject<CMsgStores>(&session);
    const ComPtr<Relay> relay = MakeComObject<Relay>(*stores.Get());

private:
    LPENTRYID Keep(const Bstr& text, ULONG& size)
    {
        if (text.IsEmpty())
            return nullptr;
        kept_.emplace_back();
        EXPECT_EQ(BinaryFromHex(text.Get(), kept_.back()), S_OK);
        size = kept_.back().Size();
        return kept_.back().EntryId();
    }

    std::vector<BinaryId> kept_;
    ULONG connection_ = 0;
};

TEST_F(ClassifierTest, AMessageMadeInASharedFolderIsOfferedSentAndKnown)
{
    Listen();
    mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}});
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("added " + OnlyId()));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " " + OnlyId() + " mail"));
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, WhatTheHostIgnoresIsKnownAndNotSent)
{
    IgnoreAll();
    Listen();
    mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}});
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("added " + OnlyId()));
    EXPECT_THAT(packages->Sent(), IsEmpty());
}

TEST_F(ClassifierTest, AMessageInAnotherFolderConcernsNobody)
{
    Listen();
    mailbox.AddMessage(*other.Get(), {"Hello", "body", {}, {}});
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, ACopyInASharedFolderIsAnAddition)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*other.Get(), {"Hello", "body", {}, {}}));
    Listen();
    Transfer(*other.Get(), *shared.Get(), id, 0);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("added " + OnlyId()));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " " + OnlyId() + " mail"));
}

TEST_F(ClassifierTest, AChangeThatTheHostDoesntIgnoreIsNeitherSentNorWrittenToTheRow)
{
    const Bstr id = AddKnown(*shared.Get());
    Listen();
    ChangeSubject(id);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("changed {A}"));
    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_FALSE(IsRowWritten());
}

TEST_F(ClassifierTest, AChangeThatTheHostIgnoresIsSentAndWrittenToTheRow)
{
    const Bstr id = AddKnown(*shared.Get());
    IgnoreAll();
    Listen();
    ChangeSubject(id);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("changed {A}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " {A} mail"));
    EXPECT_TRUE(IsRowWritten());
}

TEST_F(ClassifierTest, ADeletionIsOfferedSentWithoutAMessageAndForgotten)
{
    const Bstr id = AddKnown(*shared.Get());
    Listen();
    mailbox.Delete(*shared.Get(), id);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " {A}"));
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, AnIgnoredDeletionIsForgottenAndNotSent)
{
    const Bstr id = AddKnown(*shared.Get());
    IgnoreAll();
    Listen();
    mailbox.Delete(*shared.Get(), id);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}"));
    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, TheDeletionOfAnUnknownItemIsSilent)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    Listen();
    mailbox.Delete(*shared.Get(), id);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_THAT(packages->Sent(), IsEmpty());
}

TEST_F(ClassifierTest, TheDeletionOfAMessageElsewhereConcernsNobody)
{
    const Bstr id = AddKnown(*other.Get());
    Listen();
    mailbox.Delete(*other.Get(), id);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, AMoveOutOfSharingIsADeletionFromTheOldFolder)
{
    const Bstr id = AddKnown(*shared.Get());
    Listen();
    Transfer(*shared.Get(), *other.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " {A}"));
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, AMoveIntoSharingIsAnAdditionWhateverTheTimes)
{
    const Bstr id = AddKnown(*other.Get());
    Listen();
    Transfer(*other.Get(), *shared.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("added {A}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " {A} mail"));
    EXPECT_TRUE(IsRowWritten());
}

TEST_F(ClassifierTest, AnIgnoredMoveIntoSharingIsNotSent)
{
    const Bstr id = AddKnown(*other.Get());
    IgnoreAll();
    Listen();
    Transfer(*other.Get(), *shared.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_FALSE(IsRowWritten());
}

TEST_F(ClassifierTest, AMoveBetweenSharedFoldersIsADeletionAndThenAnAdditionOfTheSameItem)
{
    const Bstr id = AddKnown(*shared.Get());
    std::vector<IItem*> items;
    std::vector<std::string> folderIds;
    session.host.whenItemReported = [&](IItem* item, bool&) {
        items.push_back(item);
        folderIds.push_back(Narrow(static_cast<CItem*>(item)->m_bstrFolderID.View()));
        return S_OK;
    };
    Listen();
    Transfer(*shared.Get(), *sharedToo.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}", "added {A}"));
    EXPECT_THAT(folderIds, ElementsAre("{F}", "{G}"));
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0], items[1]);
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " {A}", TextOf(sharedToo) + " {A} mail"));
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, AnIgnoredDeletionHalfOfAMoveStillTakesTheRowAndTheAdditionGoesOn)
{
    const Bstr id = AddKnown(*shared.Get());
    std::string rowsBetween;
    session.host.whenItemReported = [&](IItem* item, bool& ignore) {
        qv_Action action = qv_ac_NoAction;
        item->get_Action(&action);
        ignore = action == qv_ac_Deleted;
        return S_OK;
    };
    session.Execute(
        "CREATE TABLE deleted (ID); CREATE TRIGGER note AFTER DELETE ON tblItem BEGIN INSERT INTO "
        "deleted VALUES (OLD.ID); END");
    Listen();
    Transfer(*shared.Get(), *sharedToo.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}", "added {A}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(sharedToo) + " {A} mail"));
    EXPECT_EQ(session.Ask("SELECT ID FROM deleted"), "{A}");
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, AMoveBetweenOtherFoldersConcernsNobody)
{
    const ComPtr<IMAPIFolder> away = mailbox.MakeFolder("Away");
    const Bstr id = AddKnown(*other.Get());
    Listen();
    Transfer(*other.Get(), *away.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, AnItemWhoseRowHasTheMessagesTimeIsNoNews)
{
    const Bstr id = AddKnown(*shared.Get());

    EXPECT_EQ(Notify({Made(fnevObjectModified, id), Made(fnevObjectCreated, id), Made(fnevObjectCopied, id)}),
              static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), IsEmpty());
}

TEST_F(ClassifierTest, AChangeOfAnItemWithoutARowGivesItOneAndIsReported)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));

    EXPECT_EQ(Notify({Made(fnevObjectModified, id)}), static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), ElementsAre("changed " + OnlyId()));
}

TEST_F(ClassifierTest, ANotificationOfAFolderIsPassedOverBeforeAnyWork)
{
    session.ItemSubmitEvent().Reset();  // whoever waits for it waits for ever
    NOTIFICATION folder = Made(fnevObjectModified, TestMailbox::IdOf(*shared));
    folder.info.obj.ulObjType = MAPI_FOLDER;

    EXPECT_EQ(Notify({folder}), static_cast<ULONG>(S_OK));
    session.ItemSubmitEvent().Set();
}

TEST_F(ClassifierTest, EventsWithoutAnObjectArePassedOver)
{
    session.ItemSubmitEvent().Reset();
    NOTIFICATION newMail = Made(fnevNewMail, TestMailbox::IdOf(*shared));
    NOTIFICATION table = Made(fnevTableModified, {});

    EXPECT_EQ(Notify({newMail, table}), static_cast<ULONG>(S_OK));
    session.ItemSubmitEvent().Set();
}

TEST_F(ClassifierTest, AnyOtherObjectEventDoesNothing)
{
    const Bstr id = AddKnown(*shared.Get());

    EXPECT_EQ(Notify({Made(fnevSearchComplete, id)}), static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), IsEmpty());
}

TEST_F(ClassifierTest, AHiddenMessageIsNeverReported)
{
    ComPtr<IMessage> hidden;
    ASSERT_EQ(shared->CreateMessage(nullptr, MAPI_ASSOCIATED, hidden.Put()), S_OK);
    TestMailbox::Fill(*hidden, {"Hidden", "body", {}, {}});
    ASSERT_EQ(hidden->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    EXPECT_EQ(Notify({Made(fnevObjectCreated, TestMailbox::IdOf(*hidden))}), static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, ALockedChangeLeavesNoTraceAndAnAutomaticLockIsGoneThen)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    session.locks.Lock(id.Get(), mailbox.StoreId().Get(), VARIANT_TRUE);

    EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_EQ(Rows(), "0");
    EXPECT_FALSE(session.locks.IsLocked(id.Get(), mailbox.StoreId().Get()));
    EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(S_OK));
    EXPECT_EQ(session.host.Calls().size(), 1u);
}

TEST_F(ClassifierTest, AMoveOutOfSharingIsLockedUnderTheOldFoldersStore)
{
    const Bstr id = AddKnown(*shared.Get());
    session.locks.Lock(id.Get(), mailbox.StoreId().Get(), VARIANT_FALSE);
    Listen();
    Transfer(*shared.Get(), *other.Get(), id, MESSAGE_MOVE);
    ASSERT_TRUE(relay->Waited(1));

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_TRUE(session.locks.IsLocked(id.Get(), mailbox.StoreId().Get()));
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, TheLockOfAnItemThatIsntSharedIsNotAskedFor)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*other.Get(), {"Hello", "body", {}, {}}));
    session.locks.Lock(id.Get(), mailbox.StoreId().Get(), VARIANT_TRUE);

    EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(S_OK));
    EXPECT_TRUE(session.locks.IsLocked(id.Get(), mailbox.StoreId().Get()));
}

TEST_F(ClassifierTest, ADeletionUnderAShortTermIdentifierIsTracedAndLookedUpByIt)
{
    session.Execute(
        "INSERT INTO tblItem (ID, EntryID, StoreID, LastModified) VALUES ('{S}', '80000000AB', 'CD', 1)");

    const std::string lines =
        TracedWhen({Made(fnevObjectDeleted, Bstr(OLESTR("80000000AB")), TestMailbox::IdOf(*shared))});

    EXPECT_THAT(lines, HasSubstr("Warning: EntryID is short term"));
    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {S}"));
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, AMessageThatIsGoneAgainConcernsNobodyAndIsNoFailure)
{
    const Bstr id = AddKnown(*shared.Get());
    mailbox.Delete(*shared.Get(), id);

    EXPECT_EQ(TracedWhen({Made(fnevObjectModified, id)}), "");
    EXPECT_THAT(session.host.Calls(), IsEmpty());
}

TEST_F(ClassifierTest, AFolderThatIsntSharedIsNoFailure)
{
    const Bstr id = AddKnown(*other.Get());

    EXPECT_EQ(TracedWhen({Made(fnevObjectModified, id)}), "");
}

TEST_F(ClassifierTest, WorkBeginsWhenNoItemIsBeingApplied)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    session.ItemSubmitEvent().Reset();
    Event done;
    ASSERT_EQ(done.Create(false), S_OK);
    std::thread notifier([&] {
        EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(S_OK));
        done.Set();
    });
    EXPECT_FALSE(done.Wait(std::chrono::milliseconds(50)));
    EXPECT_EQ(Rows(), "0");
    session.ItemSubmitEvent().Set();
    notifier.join();

    EXPECT_EQ(session.host.Calls().size(), 1u);
}

TEST_F(ClassifierTest, WithoutTheHostTheBatchIsLost)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    session.hostIsThere = false;
    const std::string lines =
        TracedLines([&] { EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(E_FAIL)); });

    EXPECT_THAT(lines, HasSubstr("CMsgStores::OnNotify("));
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, AfterTheSessionNothingIsLookedAt)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    session.gate->CloseAndWait();

    EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(S_OK));
    EXPECT_EQ(session.addinsAsked, 0);
    EXPECT_EQ(MakeComObject<CMsgStores>()->OnNotify(0, nullptr), static_cast<ULONG>(E_UNEXPECTED));
}

TEST_F(ClassifierTest, AFailureEndsTheWorkOnItsOwnNotificationAlone)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    const std::string lines =
        TracedWhen({Made(fnevObjectDeleted, id, Bstr(OLESTR("00000000AB"))), Made(fnevObjectCreated, id)});

    EXPECT_THAT(lines, HasSubstr("CMsgStores::OnNotify("));
    EXPECT_THAT(session.host.Calls(), ElementsAre("added " + OnlyId()));
}

TEST_F(ClassifierTest, AMovesFoldersMustOpenAndItsMessageNeedNot)
{
    const Bstr unknown(OLESTR("00000000AB"));
    const Bstr folder = TestMailbox::IdOf(*shared);
    EXPECT_THAT(TracedWhen({Made(fnevObjectMoved, unknown, folder, unknown)}),
                HasSubstr("CMsgStores::OnNotify("));
    EXPECT_THAT(TracedWhen({Made(fnevObjectMoved, unknown, unknown, folder)}),
                HasSubstr("CMsgStores::OnNotify("));
    EXPECT_THAT(session.host.Calls(), IsEmpty());

    // Out of the shared folder: reported with what is known of the item, which is nothing.
    EXPECT_EQ(Notify({Made(fnevObjectMoved, unknown, TestMailbox::IdOf(*other), folder)}),
              static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted "));
}

// The deletion half needs no message; the item that would be added has nothing in it.
TEST_F(ClassifierTest, AMoveBetweenSharedFoldersWhoseMessageIsGoneEndsWithTheDeletion)
{
    const Bstr unknown(OLESTR("00000000AB"));

    const std::string lines = TracedWhen(
        {Made(fnevObjectMoved, unknown, TestMailbox::IdOf(*sharedToo), TestMailbox::IdOf(*shared))});

    EXPECT_THAT(lines, HasSubstr("CMsgStores::OnNotify("));
    EXPECT_THAT(lines, HasSubstr(") 0x80004003\r\n"));
    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted "));
    EXPECT_THAT(packages->Sent(), ElementsAre(TextOf(shared) + " "));
    EXPECT_EQ(Rows(), "0");
}

TEST_F(ClassifierTest, WhatTheListOfFoldersAnswersMustBeAFolder)
{
    const Bstr id = AddKnown(*shared.Get());
    ChangeSubject(id);
    folders->found = Variant::Long(5);
    FailsAlone(Made(fnevObjectModified, id), "0x80020005");
    folders->found = Variant::Dispatch(static_cast<IStorageFiles*>(packages.Get()));
    FailsAlone(Made(fnevObjectModified, id), "0x80004002");

    EXPECT_THAT(session.host.Calls(), IsEmpty());
}

TEST_F(ClassifierTest, AFolderThatDoesntTellItsIdsEndsTheWork)
{
    const Bstr id = AddKnown(*shared.Get());
    ChangeSubject(id);
    first.idResult = E_ACCESSDENIED;
    FailsAlone(Made(fnevObjectModified, id), "0x80070005");
    first.idResult = S_OK;
    first.storeIdResult = E_OUTOFMEMORY;
    FailsAlone(Made(fnevObjectModified, id), "0x8007000E");

    EXPECT_THAT(session.host.Calls(), IsEmpty());
}

// A message that doesn't tell its folder is in none that is known; the next question is the one for the
// flags.
TEST_F(ClassifierTest, AMessageThatDoesntTellItsFlagsEndsTheWork)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    const auto call = std::make_shared<FailingCall>();
    session.mapiSession = MakeFailingSession(mailbox.Session(), call);
    std::vector<std::string> failed;
    for (unsigned at = 1; at <= 3; ++at) {
        call->SetAt(at);
        const std::string lines = TracedWhen({Made(fnevObjectCreated, id)});
        failed.push_back(call->Failed());
        EXPECT_EQ(lines.find("CMsgStores::OnNotify(") != std::string::npos, at == 3) << at;
    }

    EXPECT_THAT(failed, ElementsAre("IMAPISession::OpenEntry", "IMessage::GetProps", "IMessage::GetProps"));
    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(Rows(), "0");
    call->Clear();
    EXPECT_EQ(Notify({Made(fnevObjectCreated, id)}), static_cast<ULONG>(S_OK));
    EXPECT_THAT(session.host.Calls(), ElementsAre("added " + OnlyId()));
}

TEST_F(ClassifierTest, ARowThatCantBeAddedEndsTheWork)
{
    const Bstr id = TestMailbox::IdOf(*mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}}));
    session.Execute(
        "CREATE TRIGGER refuse BEFORE INSERT ON tblItem BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const std::string lines = TracedWhen({Made(fnevObjectCreated, id)});

    EXPECT_THAT(lines, HasSubstr("CItem::DBAppend("));
    EXPECT_THAT(lines, HasSubstr("CMsgStores::OnNotify("));
    EXPECT_THAT(session.host.Calls(), IsEmpty());
}

TEST_F(ClassifierTest, AFailingHostEndsTheWork)
{
    session.host.whenItemReported = [](IItem*, bool&) { return E_ACCESSDENIED; };
    const Bstr id = AddKnown(*shared.Get());
    ChangeSubject(id);
    FailsAlone(Made(fnevObjectModified, id), "0x80070005");
    FailsAlone(Made(fnevObjectCreated, id), "0x80070005");
    FailsAlone(Made(fnevObjectDeleted, id, TestMailbox::IdOf(*shared)), "0x80070005");

    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_EQ(Rows(), "1");
    EXPECT_FALSE(IsRowWritten());
}

TEST_F(ClassifierTest, AFailingSendEndsTheWorkBeforeTheRow)
{
    packages->result = E_ACCESSDENIED;
    const Bstr id = AddKnown(*shared.Get());
    ChangeSubject(id);
    FailsAlone(Made(fnevObjectCreated, id), "0x80070005");
    EXPECT_FALSE(IsRowWritten());
    FailsAlone(Made(fnevObjectDeleted, id, TestMailbox::IdOf(*shared)), "0x80070005");
    EXPECT_EQ(Rows(), "1");
    IgnoreAll();
    FailsAlone(Made(fnevObjectModified, id), "0x80070005");
    EXPECT_FALSE(IsRowWritten());
}

TEST_F(ClassifierTest, AFailingSendOfTheDeletionHalfEndsAMove)
{
    packages->result = E_ACCESSDENIED;
    const Bstr id = AddKnown(*shared.Get());
    Transfer(*shared.Get(), *sharedToo.Get(), id, MESSAGE_MOVE);
    FailsAlone(Made(fnevObjectMoved, id, TestMailbox::IdOf(*sharedToo), TestMailbox::IdOf(*shared)),
               "0x80070005");

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}"));
    EXPECT_EQ(Rows(), "1");
}

TEST_F(ClassifierTest, ARowThatCantBeWrittenIsTracedAfterTheSend)
{
    const Bstr id = AddKnown(*shared.Get());
    ChangeSubject(id);
    session.Execute(
        "CREATE TRIGGER refuse BEFORE UPDATE ON tblItem BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const std::string lines = TracedWhen({Made(fnevObjectCreated, id)});

    EXPECT_THAT(lines, HasSubstr("CItem::DBUpdate("));
    EXPECT_THAT(lines, HasSubstr("CMsgStores::OnNotify("));
    EXPECT_EQ(packages->Sent().size(), 1u);
}

TEST_F(ClassifierTest, ARowThatCantBeRemovedIsNoFailure)
{
    const Bstr id = AddKnown(*shared.Get());
    session.Execute(
        "CREATE TRIGGER refuse BEFORE DELETE ON tblItem BEGIN SELECT RAISE(ABORT, 'refused'); END");
    const std::string lines = TracedWhen({Made(fnevObjectDeleted, id, TestMailbox::IdOf(*shared))});

    EXPECT_THAT(lines, HasSubstr("CItem::DBDelete("));
    EXPECT_THAT(lines, Not(HasSubstr("CMsgStores::OnNotify(")));
    EXPECT_EQ(packages->Sent().size(), 1u);
}

}  // namespace
}  // namespace quorvane::testing
