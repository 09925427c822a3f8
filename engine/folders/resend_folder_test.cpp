#include "engine/folders/resend_folder.h"

#include "engine/folders/resend_for_test.h"
#include "engine/items/testing/failing_mailbox.h"
#include "platform/testing/unimplemented_dispatch.h"

QUORVANE_IID(quorvane::test::UnimplementedDispatchOf<IQuorvaneRestrict>, DIID_IQuorvaneRestrict);

namespace quorvane {
namespace {

using testing::ProgressNotes;
using testing::SubjectRestriction;
using testing::TestMailbox;
using testing::TracedLines;
using Strings = std::vector<std::string>;

constexpr char kRefusedUpdate[] =
    "CREATE TRIGGER refused BEFORE UPDATE ON tblItem BEGIN SELECT RAISE(FAIL, 'no'); END";
constexpr char kRefusedInsert[] =
    "CREATE TRIGGER refused BEFORE INSERT ON tblItem BEGIN SELECT RAISE(FAIL, 'no'); END";
constexpr char kRefusedDelete[] =
    "CREATE TRIGGER refused BEFORE DELETE ON tblItem BEGIN SELECT RAISE(FAIL, 'no'); END";

// The host's object, which crosses to other threads as it is, until it is found to be none.
class LostRestriction final
    : public ComObject<LostRestriction, Answers<test::UnimplementedDispatchOf<IQuorvaneRestrict>, IDispatch>,
                       FreeThreaded> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (isLost && IsEqualIID(riid, Iid<IQuorvaneRestrict>())) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        return ComObject::QueryInterface(riid, object);
    }

    std::atomic<bool> isLost{false};
};

// Jobs for bob, each made on this thread and run on one of its own.
class ResendFolderTest : public testing::ResendFixture {
protected:
    ResendFolderTest() { EXPECT_EQ(stop.Create(false), S_OK); }

    HRESULT Run(bool all, IQuorvaneRestrict* restriction = nullptr)
    {
        ComPtr<IUnknown> store;
        EXPECT_EQ(folder->OpenStore(MDB_NO_MAIL, store.Put()), S_OK);
        return Run(all, restriction, store.Get());
    }
    HRESULT Run(bool all, IQuorvaneRestrict* restriction, IUnknown* store)
    {
        auto job = std::make_unique<CResendFolder>(
            folder.Get(), store, hasProgress ? progress.Callback().Get() : nullptr, restriction,
            Bstr(OLESTR("bob")).Get(), jobId.Get(), 0.0, all ? 1u : 0u, VARIANT_FALSE);
        job->m_pSession = &session;
        if (whenMade)
            whenMade();
        DWORD result = 0;
        std::thread([&] {
            result = job->ThreadProc(stop);
            job.reset();
        }).join();
        return static_cast<HRESULT>(result);
    }
    // The same with its trace, whose every failure is the job's own or below it.
    HRESULT RunTraced(bool all, const std::string& code)
    {
        HRESULT hr = S_OK;
        const std::string lines = TracedLines([&] { hr = Run(all); });
        const size_t name = lines.find("CResendFolder::ResendThreadProc(");
        EXPECT_NE(name, std::string::npos) << lines;
        if (name != std::string::npos) {
            EXPECT_NE(lines.find(code, name), std::string::npos) << lines;
        }
        return hr;
    }

    Strings Calls() const { return session.host.Calls(); }
    // A row's version, and how many rows there are.
    std::string VersionOf(const std::string& id)
    {
        return session.Ask("SELECT Version FROM tblItem WHERE ID='" + id + "'");
    }
    std::string Rows() { return session.Ask("SELECT COUNT(*) FROM tblItem"); }

    ProgressNotes progress;
    bool hasProgress = true;
    Bstr jobId{OLESTR("job")};
    Event stop;
    std::function<void()> whenMade;  // between the making of a job and its start
};

TEST_F(ResendFolderTest, AnEmptyFolderTellsNoLimits)
{
    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(progress.Notes(), "");
    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, WithResendAllEveryItemOfAnUnchangedFolderIsOfferedAndSent)
{
    AddKnown(3);

    EXPECT_EQ(Run(true), S_OK);

    Strings calls = Calls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (Strings{"resend {A} job", "resend {B} job", "resend {C} job"}));
    EXPECT_EQ(Sent("bob"), (Strings{"{A} 20 A", "{B} 20 B", "{C} 20 C"}));
    EXPECT_EQ(progress.Notes(), "0-3 1/3 2/3 3/3 ");
}

TEST_F(ResendFolderTest, WithoutResendAllAnUnchangedFolderOffersNothingButItsDeletedItems)
{
    const std::vector<Bstr> mails = AddKnown(2);
    Delete(mails[1]);

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(Calls(), Strings{"deleted {B}"});
    EXPECT_TRUE(Sent("bob").empty());
    EXPECT_EQ(progress.Notes(), "0-1 1/1 ");
}

TEST_F(ResendFolderTest, WithoutResendAllAChangedItemAloneIsSent)
{
    const std::vector<Bstr> mails = AddKnown(2);
    Change(mails[0], "Changed");

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(Sent("bob"), Strings{"{A} 20 Changed"});
    EXPECT_EQ(HashOf(mails[0]), PresentHash(mails[0]));
    EXPECT_EQ(progress.Notes(), "0-1 1/1 ");
    session.host.Forget();
    EXPECT_EQ(Run(false), S_OK);
    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, AnItemWhoseFlagsAloneChangedIsNotSent)
{
    const std::vector<Bstr> mails = AddKnown(1);
    ASSERT_EQ(mailbox.Open(mails[0], MAPI_MODIFY)->SetReadFlag(0), S_OK);

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, AnItemThatTheHostIgnoresIsNotSentAndIsRecordedAllTheSame)
{
    const Bstr mail = Add("A");
    Know(mail, "{A}", "3.5");
    session.host.whenItemResent = [&](IItem*, BSTR, bool& ignore) {
        // What the scan has stored: the job's own record is seen.
        Hashes().SetHash(mail.Get(), nullptr, 0);
        ignore = true;
        return S_OK;
    };

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_TRUE(Sent("bob").empty());
    EXPECT_EQ(VersionOf("{A}"), "3.0");
    EXPECT_EQ(HashOf(mail), PresentHash(mail));
}

TEST_F(ResendFolderTest, AnUnknownItemIsAppendedAndTreatedLikeTheOthers)
{
    const Bstr mail = Add("New");
    std::string rowAtTheCall;
    LONG action = 0;
    session.host.whenItemResent = [&](IItem* item, BSTR, bool&) {
        rowAtTheCall = session.Ask("SELECT Version||EntryID FROM tblItem");
        qv_Action given = qv_ac_NoAction;
        EXPECT_EQ(item->get_Action(&given), S_OK);
        action = given;
        return S_OK;
    };

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(rowAtTheCall, "3.0" + Narrow(mail.View()));
    EXPECT_EQ(action, qv_ac_Added);
    EXPECT_EQ(Rows(), "1");
    const std::string id = session.Ask("SELECT ID FROM tblItem");
    EXPECT_EQ(Sent("bob"), Strings{id + " 10 New"});
    EXPECT_EQ(HashOf(mail), PresentHash(mail));
}

// The rows of a folder in the order of its table; the third one is of an earlier version.
class OldRowTest : public ResendFolderTest {
protected:
    OldRowTest()
    {
        for (int i = 0; i < 5; ++i)
            Add("Mail");
        const std::vector<Bstr> mails = TestMailbox::MailsIn(*inbox);
        for (size_t i = 0; i < mails.size(); ++i)
            Know(mails[i], "{" + std::to_string(i + 1) + "}", i == 2 ? "2.0" : "3.0");
    }
};

TEST_F(OldRowTest, FromAnOldRowOnNothingIsOffered)
{
    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(Calls(), (Strings{"resend {1} job", "resend {2} job"}));
    EXPECT_EQ(Sent("bob"), (Strings{"{1} 20 Mail", "{2} 20 Mail"}));
    EXPECT_EQ(progress.Notes(), "0-5 1/5 2/5 3/5 4/5 5/5 ");
    EXPECT_EQ(VersionOf("{3}"), "3.0") << "its row and hash are brought up to date";
    for (const Bstr& mail : TestMailbox::MailsIn(*inbox))
        EXPECT_EQ(HashOf(mail), PresentHash(mail));
}

TEST_F(OldRowTest, WithResendAllEverythingIsOffered)
{
    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(Calls().size(), 5u);
    EXPECT_EQ(Sent("bob").size(), 5u);
}

TEST_F(OldRowTest, TheNextJobOffersAgain)
{
    EXPECT_EQ(Run(false), S_OK);
    session.host.Forget();
    const std::vector<Bstr> mails = TestMailbox::MailsIn(*inbox);
    Change(mails[3], "Changed");

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(Calls(), Strings{"resend {4} job"});
}

TEST_F(ResendFolderTest, ADeletedItemGoesToTheFoldersUsualMembersAndIsForgotten)
{
    const std::vector<Bstr> mails = AddKnown(2);
    Delete(mails[0]);

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(Sent(Narrow(folderEntryId.View())), Strings{"{A} 30"});
    EXPECT_EQ(Rows(), "1");
    EXPECT_EQ(HashOf(mails[0]), "");
    EXPECT_EQ(SavedHashes(mails).size(), 1u);
}

TEST_F(ResendFolderTest, ADeletedItemKnowsItsFolder)
{
    const std::vector<Bstr> mails = AddKnown(1);
    Delete(mails[0]);
    std::string told;
    session.host.whenItemDeleted = [&](IItem* item, bool&) {
        Bstr entryId;
        Bstr storeId;
        qv_Action action = qv_ac_NoAction;
        EXPECT_EQ(item->get_EntryID(entryId.Put()), S_OK);
        EXPECT_EQ(item->get_StoreID(storeId.Put()), S_OK);
        EXPECT_EQ(item->get_Action(&action), S_OK);
        EXPECT_EQ(action, qv_ac_Deleted);
        EXPECT_EQ(storeId.View(), mailbox.StoreId().View());
        told = Narrow(entryId.View());
        return S_OK;
    };

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(told, Narrow(mails[0].View()));
}

TEST_F(ResendFolderTest, ADeletionThatTheHostIgnoresIsNotSentAndIsForgotten)
{
    const std::vector<Bstr> mails = AddKnown(1);
    Delete(mails[0]);
    session.host.whenItemDeleted = [](IItem*, bool& ignore) {
        ignore = true;
        return S_OK;
    };

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_TRUE(Sent(Narrow(folderEntryId.View())).empty());
    EXPECT_EQ(Rows(), "0");
    EXPECT_TRUE(SavedHashes(mails).empty());
}

TEST_F(ResendFolderTest, ADeletedKeyWithoutARowIsForgottenSilently)
{
    const std::vector<Bstr> mails = AddKnown(1);
    session.Execute("DELETE FROM tblItem");
    Delete(mails[0]);

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_TRUE(Calls().empty());
    EXPECT_TRUE(SavedHashes(mails).empty());
    EXPECT_EQ(progress.Notes(), "0-1 1/1 ");
}

TEST_F(ResendFolderTest, ChangedItemsComeBeforeDeletedOnesUnderOneCount)
{
    const std::vector<Bstr> mails = AddKnown(2);
    Delete(mails[0]);
    std::string atTheDeletion;
    session.host.whenItemDeleted = [&](IItem*, bool&) {
        atTheDeletion = progress.Notes();
        return S_OK;
    };

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(Calls(), (Strings{"resend {B} job", "deleted {A}"}));
    EXPECT_EQ(atTheDeletion, "0-2 1/2 ") << "a deletion counts when it is done";
    EXPECT_EQ(progress.Notes(), "0-2 1/2 2/2 ");
}

TEST_F(ResendFolderTest, AnItemCountsBeforeItIsOffered)
{
    AddKnown(1);
    std::string atTheCall;
    session.host.whenItemResent = [&](IItem*, BSTR, bool&) {
        atTheCall = progress.Notes();
        return S_OK;
    };

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(atTheCall, "0-1 1/1 ");
}

TEST_F(ResendFolderTest, AStopBetweenItemsLeavesTheRestAndTheDeletedItemsAndSavesTheMap)
{
    std::vector<Bstr> mails = AddKnown(4);
    Delete(mails[3]);
    session.host.whenItemResent = [&](IItem*, BSTR, bool&) { return stop.Set(); };

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(Calls().size(), 1u);
    EXPECT_EQ(Sent("bob").size(), 1u);
    EXPECT_EQ(progress.Notes(), "0-4 1/4 ");
    EXPECT_FALSE(Hashes().SuspendSave);
    EXPECT_EQ(Rows(), "4");
    EXPECT_EQ(SavedHashes(mails).size(), 4u);
}

TEST_F(ResendFolderTest, AStopBetweenDeletedItemsLeavesTheOthers)
{
    const std::vector<Bstr> mails = AddKnown(3);
    Delete(mails[0]);
    Delete(mails[1]);
    session.host.whenItemDeleted = [&](IItem*, bool&) { return stop.Set(); };

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_EQ(Calls().size(), 1u);
    EXPECT_EQ(Rows(), "2");
    EXPECT_EQ(SavedHashes(mails).size(), 2u);
}

TEST_F(ResendFolderTest, AJobThatIsStoppedBeforeItsFirstItemHasMadeTheHashStoreCurrent)
{
    const Bstr mail = Add("A");
    ASSERT_EQ(stop.Set(), S_OK);

    EXPECT_EQ(Run(false), S_OK);

    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(progress.Notes(), "0-1 ");
    EXPECT_EQ(HashOf(mail), PresentHash(mail));
}

TEST_F(ResendFolderTest, WithoutAProgressObjectTheJobRunsTheSame)
{
    AddKnown(2);
    hasProgress = false;

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(Sent("bob").size(), 2u);
}

TEST_F(ResendFolderTest, AProgressObjectThatFailsChangesNothing)
{
    const std::vector<Bstr> mails = AddKnown(2);
    Delete(mails[1]);
    progress.answer = E_FAIL;

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(progress.Notes(), "0-2 1/2 2/2 ");
    EXPECT_EQ(Sent("bob").size(), 1u);
}

TEST_F(ResendFolderTest, AJobWithoutAnIdTellsTheHostNone)
{
    AddKnown(1);
    jobId = Bstr();

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_EQ(Calls(), Strings{"resend {A} null"});
}

TEST_F(ResendFolderTest, ARestrictionDecidesWhatIsOfferedAndTheHashStoreKnowsTheRestToo)
{
    const Bstr wanted = Add("Wanted");
    const Bstr hidden = Add("Hidden");
    Know(wanted, "{W}");
    Know(hidden, "{H}");
    SubjectRestriction restriction("Wanted");

    EXPECT_EQ(Run(true, restriction.Callback().Get()), S_OK);

    EXPECT_EQ(restriction.asked, 1);
    EXPECT_EQ(Sent("bob"), Strings{"{W} 20 Wanted"});
    EXPECT_EQ(progress.Notes(), "0-1 1/1 ");
    EXPECT_EQ(HashOf(hidden), PresentHash(hidden));
    session.host.Forget();
    EXPECT_EQ(Run(false), S_OK);
    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, TheJobRunsInAnApartmentOfItsOwn)
{
    AddKnown(1);
    bool isApartment = false;
    session.host.whenItemResent = [&](IItem*, BSTR, bool&) {
        isApartment = IsApartmentThread();
        return S_OK;
    };

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_TRUE(isApartment);
}

TEST_F(ResendFolderTest, TheHashStoreIsSavedOnceAtTheEnd)
{
    const std::vector<Bstr> mails = AddKnown(2);
    bool suspended = true;
    session.host.whenItemResent = [&](IItem*, BSTR, bool&) {
        suspended = suspended && Hashes().SuspendSave;
        Hashes().SetHash(mails[0].Get(), Bstr(OLESTR("marked")).Get(), 1);
        return S_OK;
    };
    size_t savedAtTheCall = 0;
    session.host.whenItemDeleted = [&](IItem*, bool&) {
        suspended = suspended && Hashes().SuspendSave;
        savedAtTheCall = SavedHashes(mails).size();
        return S_OK;
    };
    Delete(mails[1]);

    EXPECT_EQ(Run(true), S_OK);

    EXPECT_TRUE(suspended);
    EXPECT_FALSE(Hashes().SuspendSave);
    EXPECT_EQ(savedAtTheCall, 2u);
    EXPECT_EQ(SavedHashes(mails)[Narrow(mails[0].View())], PresentHash(mails[0]));
}

// What ends a job before its first item.

TEST_F(ResendFolderTest, ADatabaseThatIsntOpenEndsTheJob)
{
    AddKnown(1);
    session.CloseDatabase();

    EXPECT_EQ(RunTraced(true, "0x80040605"), kNotOpen);

    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(progress.Notes(), "");
}

TEST_F(ResendFolderTest, AStoreThatDidntCrossEndsTheJob)
{
    AddKnown(1);
    HRESULT hr = S_OK;

    const std::string lines = TracedLines([&] { hr = Run(true, nullptr, nullptr); });

    EXPECT_EQ(hr, E_INVALIDARG);
    EXPECT_NE(lines.find("CResendFolder::ResendThreadProc("), std::string::npos);
    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, AFolderThatIsGoneEndsTheJob)
{
    AddKnown(1);
    EXPECT_LT(folder->put_EntryID(Bstr(OLESTR("00000000ABCD")).Get()), 0);

    EXPECT_LT(RunTraced(true, "0x"), 0);

    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, AFolderWithoutAHashStoreEndsTheJobWithAFailure)
{
    AddKnown(1);
    ASSERT_EQ(folder->put_ID(Bstr(OLESTR("{G}")).Get()), S_OK);

    EXPECT_EQ(RunTraced(true, "0x80004005"), E_FAIL);

    EXPECT_TRUE(Calls().empty());
}

TEST_F(ResendFolderTest, AHostThatCantBeReachedEndsTheJob)
{
    AddKnown(1);
    session.hostIsThere = false;

    EXPECT_EQ(RunTraced(true, "0x80004005"), E_FAIL);

    EXPECT_EQ(progress.Notes(), "");
    EXPECT_FALSE(Hashes().SuspendSave);
}

// Everything would go to a member who was to have a part of it.
TEST_F(ResendFolderTest, ARestrictionThatIsLostOnItsWayToTheJobEndsIt)
{
    AddKnown(2);
    const ComPtr<LostRestriction> restriction = MakeComObject<LostRestriction>();
    whenMade = [&] { restriction->isLost = true; };

    EXPECT_EQ(Run(true, restriction.Get()), E_NOINTERFACE);

    EXPECT_TRUE(Calls().empty());
    EXPECT_TRUE(Sent("bob").empty());
}

TEST_F(ResendFolderTest, ATableThatCantBeReadEndsTheJob)
{
    AddKnown(1);
    const auto call = std::make_shared<testing::FailingCall>();
    const ComPtr<IMAPISession> sound =
        std::exchange(session.mapiSession, testing::MakeFailingSession(mailbox.Session(), call));
    for (unsigned at = 1; call->Failed() != "IMAPITable::CreateBookmark"; ++at) {
        ComPtr<IUnknown> store;
        EXPECT_EQ(folder->OpenStore(MDB_NO_MAIL, store.Put()), S_OK);
        call->SetAt(at);
        HRESULT hr = S_OK;
        const std::string lines = TracedLines([&] { hr = Run(true, nullptr, store.Get()); });
        ASSERT_FALSE(call->Failed().empty()) << "the table is never marked";
        EXPECT_EQ(hr, testing::FailingCall::kFailure) << call->Failed();
        EXPECT_NE(lines.find("CResendFolder::ResendThreadProc("), std::string::npos) << call->Failed();
        EXPECT_TRUE(Calls().empty()) << call->Failed();
    }
    session.mapiSession = sound;
}

// What ends the work on one item.

TEST_F(ResendFolderTest, AnItemThatTheHostFailsOnIsDroppedAndTheNextGoesOn)
{
    const std::vector<Bstr> mails = AddKnown(3);
    session.host.whenItemResent = [&](IItem* item, BSTR, bool&) {
        Bstr id;
        item->get_ID(id.Put());
        if (id.View() != OLESTR("{B}"))
            return S_OK;
        Hashes().SetHash(mails[1].Get(), nullptr, 0);
        return E_ABORT;
    };

    EXPECT_EQ(RunTraced(true, "0x80004004"), S_OK);

    EXPECT_EQ(Sent("bob"), (Strings{"{A} 20 A", "{C} 20 C"}));
    EXPECT_EQ(progress.Notes(), "0-3 1/3 2/3 3/3 ");
    EXPECT_EQ(HashOf(mails[1]), "") << "the hash isn't set for it";
}

TEST_F(ResendFolderTest, AFailedLastItemMakesAFailedJob)
{
    AddKnown(2);
    session.host.whenItemResent = [calls = 0](IItem*, BSTR, bool&) mutable {
        return ++calls == 2 ? E_ABORT : S_OK;
    };

    EXPECT_EQ(RunTraced(true, "0x80004004"), E_ABORT);
}

TEST_F(ResendFolderTest, AnItemWhoseMessageIsGoneMeanwhileIsDropped)
{
    const std::vector<Bstr> mails = AddKnown(2);
    session.host.whenItemResent = [&](IItem* item, BSTR, bool&) {
        Bstr id;
        item->get_ID(id.Put());
        if (id.View() == OLESTR("{A}"))
            Delete(mails[0]);
        return S_OK;
    };

    RunTraced(true, "0x8004010F");

    EXPECT_EQ(Sent("bob"), Strings{"{B} 20 B"});
}

TEST_F(ResendFolderTest, AnItemThatCantBeSentIsDropped)
{
    AddKnown(2);
    const ComPtr<IStorageFiles> files = session.storageFiles;
    session.host.whenItemResent = [&, calls = 0](IItem*, BSTR, bool&) mutable {
        session.storageFiles = ++calls == 1 ? ComPtr<IStorageFiles>() : files;
        return S_OK;
    };

    EXPECT_EQ(RunTraced(true, "0x80004003"), S_OK);

    EXPECT_EQ(Sent("bob").size(), 1u);
    EXPECT_EQ(progress.Notes(), "0-2 1/2 2/2 ");
}

TEST_F(ResendFolderTest, AnItemWhoseRowCantBeWrittenGetsNoHashFromTheJob)
{
    const Bstr mail = Add("A");
    Know(mail, "{A}");
    session.Execute(kRefusedUpdate);
    session.host.whenItemResent = [&](IItem*, BSTR, bool&) {
        Hashes().SetHash(mail.Get(), nullptr, 0);
        return S_OK;
    };

    EXPECT_LT(RunTraced(false, "0x"), 0);

    EXPECT_EQ(Sent("bob"), Strings{"{A} 20 A"});
    EXPECT_EQ(HashOf(mail), "");
}

TEST_F(ResendFolderTest, AnUnknownItemThatCantBeAppendedIsNotOffered)
{
    Add("A");
    session.Execute(kRefusedInsert);

    EXPECT_LT(RunTraced(false, "0x"), 0);

    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(progress.Notes(), "0-1 1/1 ");
}

TEST_F(ResendFolderTest, ADeletionThatTheHostFailsOnKeepsItsRowAndHashAndDoesntCount)
{
    const std::vector<Bstr> mails = AddKnown(2);
    Delete(mails[0]);
    Delete(mails[1]);
    session.host.whenItemDeleted = [calls = 0](IItem*, bool&) mutable {
        return ++calls == 1 ? E_ABORT : S_OK;
    };

    EXPECT_EQ(RunTraced(false, "0x80004004"), S_OK);

    EXPECT_EQ(Calls().size(), 2u);
    EXPECT_EQ(Rows(), "1");
    EXPECT_EQ(SavedHashes(mails).size(), 1u);
    EXPECT_EQ(progress.Notes(), "0-2 1/2 ");
}

TEST_F(ResendFolderTest, ADeletionThatCantBeSentKeepsItsRowAndHash)
{
    const std::vector<Bstr> mails = AddKnown(1);
    Delete(mails[0]);
    session.storageFiles.Reset();

    EXPECT_EQ(RunTraced(false, "0x80004003"), E_POINTER);

    EXPECT_EQ(Rows(), "1");
    EXPECT_EQ(SavedHashes(mails).size(), 1u);
    EXPECT_EQ(progress.Notes(), "0-1 ");
}

TEST_F(ResendFolderTest, ADeletionWhoseRowCantBeDeletedKeepsItsHash)
{
    const std::vector<Bstr> mails = AddKnown(1);
    Delete(mails[0]);
    session.Execute(kRefusedDelete);

    EXPECT_LT(RunTraced(false, "0x"), 0);

    EXPECT_EQ(SavedHashes(mails).size(), 1u);
    EXPECT_EQ(progress.Notes(), "0-1 ");
}

TEST_F(ResendFolderTest, AJobThatNeverRunsLetsGoOfWhatItCarried)
{
    const auto bar = progress.Callback();
    SubjectRestriction restriction("Wanted");
    const auto restricts = restriction.Callback();
    ComPtr<IUnknown> store;
    ASSERT_EQ(folder->OpenStore(MDB_NO_MAIL, store.Put()), S_OK);
    const auto references = [](IUnknown* object) {
        object->AddRef();
        return object->Release();
    };
    const ULONG folderReferences = references(static_cast<IFolder*>(folder.Get()));

    CResendFolder(folder.Get(), store.Get(), bar.Get(), restricts.Get(), nullptr, nullptr, 0.0, 0,
                  VARIANT_FALSE);

    EXPECT_EQ(references(bar.Get()), 1u);
    EXPECT_EQ(references(restricts.Get()), 1u);
    EXPECT_EQ(references(store.Get()), 1u);
    EXPECT_EQ(references(static_cast<IFolder*>(folder.Get())), folderReferences);
}

}  // namespace
}  // namespace quorvane
