// What a host hears of the changes in a shared folder, and what it can do about it.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <mutex>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

constexpr char kFolderId[] = "shared";

// Counts what a table tells.
class CountingSink final : public ComObject<CountingSink, IMAPIAdviseSink> {
public:
    ULONG STDMETHODCALLTYPE OnNotify(ULONG, LPNOTIFICATION) override
    {
        ++calls;
        return static_cast<ULONG>(S_OK);
    }

    std::atomic<int> calls{0};
};

class NotificationsTest : public testing::Test {
protected:
    // Adds a mail and waits until the engine has recorded it.
    std::string AddKnown(const std::string& subject)
    {
        const std::string id = folder.Add(subject, "body");
        WaitForRecords();
        EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE EntryID = '" + id + "'"), 1);
        return id;
    }

    // A batch that was begun before this one has ended when this one is heard: they come one at a time, and a
    // host that is asked about the fence is asked after everything before it was recorded.
    void WaitForRecords()
    {
        const std::string id = folder.Add("fence", "body");
        ASSERT_TRUE(Eventually([&] {
            for (const HostEvent& event : logon.Host().Events("added")) {
                if (event.entryId == id)
                    return true;
            }
            return false;
        }));
    }

    std::vector<HostEvent> EventsOf(const std::string& what, const std::string& id)
    {
        auto events = logon.Host().Events(what);
        std::erase_if(events, [&](const HostEvent& event) { return event.entryId != id; });
        return events;
    }

    bool Packed(size_t items)
    {
        return Eventually([&] {
            const auto path = FindPackage(logon, folder.EntryId());
            const auto count = path ? CountPackage(*path) : std::nullopt;
            return count && count->items == items;
        });
    }

    // Whether the folder's hash file has a record of an item.
    bool HasHash(const std::string& id) const
    {
        std::ifstream file(mailbox.Directory() / "qvdata" / "share" / (std::string(kFolderId) + ".dat"),
                           std::ios::binary);
        EXPECT_TRUE(file);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        std::string key;
        for (const char digit : id)
            key += {digit, '\0'};
        return bytes.find(key) != std::string::npos;
    }

    // A contents table of a folder in the engine's own MAPI session, whose sinks are called in their order.
    ComPtr<IMAPITable> TableInEnginesSession(const TestFolder& of)
    {
        ComPtr<IUnknown> raw;
        EXPECT_EQ(logon.Session().get_Raw(raw.Put()), S_OK);
        ComPtr<IMAPISession> session;
        EXPECT_EQ(raw.As(session), S_OK);
        LPSPropValue storeId = nullptr;
        LPSPropValue folderId = nullptr;
        EXPECT_EQ(HrGetOneProp(&mailbox.Store(), PR_ENTRYID, &storeId), S_OK);
        EXPECT_EQ(HrGetOneProp(&of.Folder(), PR_ENTRYID, &folderId), S_OK);
        const auto idOf = [](LPSPropValue value) {
            return reinterpret_cast<LPENTRYID>(value->Value.bin.lpb);
        };
        ComPtr<IMsgStore> store;
        EXPECT_EQ(
            session->OpenMsgStore(0, storeId->Value.bin.cb, idOf(storeId), nullptr, MDB_NO_MAIL, store.Put()),
            S_OK);
        ComPtr<IUnknown> entry;
        ULONG type = 0;
        EXPECT_EQ(store->OpenEntry(folderId->Value.bin.cb, idOf(folderId), nullptr, 0, &type, entry.Put()),
                  S_OK);
        MAPIFreeBuffer(storeId);
        MAPIFreeBuffer(folderId);
        ComPtr<IMAPIFolder> opened;
        EXPECT_EQ(entry.As(opened), S_OK);
        ComPtr<IMAPITable> table;
        EXPECT_EQ(opened->GetContentsTable(0, table.Put()), S_OK);
        return table;
    }

    void Lock(const std::string& id, VARIANT_BOOL autoUnlock)
    {
        ASSERT_EQ(logon.Session().LockItem(Text(id).Get(), Text(folder.StoreId()).Get(), autoUnlock), S_OK);
    }
    bool IsLocked(const std::string& id)
    {
        VARIANT_BOOL locked = VARIANT_FALSE;
        EXPECT_EQ(logon.Session().IsItemLocked(Text(id).Get(), Text(folder.StoreId()).Get(), &locked), S_OK);
        return locked == VARIANT_TRUE;
    }

    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
    TestLogon logon{mailbox};
    ComPtr<IFolder> shared = logon.Share(folder, kFolderId);
};

TEST_F(NotificationsTest, ANewMailIsAddedOnceAndRecorded)
{
    const std::string id = folder.Add("One", "body");
    ASSERT_TRUE(logon.Host().Heard("added"));
    WaitForRecords();

    EXPECT_EQ(EventsOf("added", id).size(), 1u);
    EXPECT_TRUE(EventsOf("changed", id).empty());
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE EntryID = '" + id + "' AND Version = 3.0"),
              1);
}

TEST_F(NotificationsTest, AChangeIsReportedUnderTheSameId)
{
    const std::string id = AddKnown("One");
    folder.SetSubject(id, "Two");
    ASSERT_TRUE(logon.Host().Heard("changed"));
    WaitForRecords();

    ASSERT_EQ(EventsOf("changed", id).size(), 1u);
    EXPECT_EQ(EventsOf("changed", id).front().id, EventsOf("added", id).front().id);
    EXPECT_EQ(EventsOf("changed", id).front().action, qv_ac_Modified);
}

TEST_F(NotificationsTest, ADeletionIsReportedOnceAndForgotten)
{
    const std::string id = AddKnown("One");
    folder.Delete(id);
    ASSERT_TRUE(logon.Host().Heard("deleted"));
    WaitForRecords();

    EXPECT_EQ(EventsOf("deleted", id).size(), 1u);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE EntryID = '" + id + "'"), 0);
}

TEST_F(NotificationsTest, ADeletionTakesTheItemsHash)
{
    const std::string id = AddKnown("One");
    EXPECT_TRUE(HasHash(id));
    folder.Delete(id);
    ASSERT_TRUE(logon.Host().Heard("deleted"));
    WaitForRecords();

    EXPECT_FALSE(HasHash(id));
}

TEST_F(NotificationsTest, ADeletionOfAnUnknownItemIsSilent)
{
    const std::string id = AddKnown("One");
    mailbox.Execute("DELETE FROM tblItem WHERE EntryID = '" + id + "'");
    folder.Delete(id);
    const std::string other = AddKnown("Two");
    folder.Delete(other);
    ASSERT_TRUE(logon.Host().Heard("deleted"));

    EXPECT_TRUE(EventsOf("deleted", id).empty());
    EXPECT_EQ(EventsOf("deleted", other).size(), 1u);
}

TEST_F(NotificationsTest, AnAutomaticLockSwallowsOneChange)
{
    const std::string id = AddKnown("One");
    Lock(id, VARIANT_TRUE);
    folder.SetSubject(id, "Two");
    ASSERT_TRUE(Eventually([&] { return !IsLocked(id); }));
    WaitForRecords();
    EXPECT_TRUE(EventsOf("changed", id).empty());

    folder.SetSubject(id, "Three");
    ASSERT_TRUE(logon.Host().Heard("changed"));
    EXPECT_EQ(EventsOf("changed", id).size(), 1u);
}

TEST_F(NotificationsTest, ALockWithoutAutoUnlockSwallowsEveryChange)
{
    const std::string id = AddKnown("One");
    Lock(id, VARIANT_FALSE);
    folder.SetSubject(id, "Two");
    WaitForRecords();
    folder.SetSubject(id, "Three");
    WaitForRecords();

    EXPECT_TRUE(IsLocked(id));
    EXPECT_TRUE(EventsOf("changed", id).empty());
}

TEST_F(NotificationsTest, ALockedDeletionIsSilentAndTheRowGoes)
{
    const std::string id = AddKnown("One");
    Lock(id, VARIANT_TRUE);
    folder.Delete(id);

    EXPECT_TRUE(Eventually(
        [&] { return mailbox.Query("SELECT count(*) FROM tblItem WHERE EntryID = '" + id + "'") == 0; }));
    EXPECT_TRUE(EventsOf("deleted", id).empty());
}

// What was sent before is taken away: an item that is sent again would be one more in the next package.
TEST_F(NotificationsTest, AnIgnoredChangeIsNotSentAndNotOfferedAgain)
{
    logon.Host().AnswerWith([](const HostEvent& event, bool& ignore) {
        ignore = event.what == "changed";
        return S_OK;
    });
    const std::string id = AddKnown("One");
    TakePackage(logon, folder.EntryId(), 2, mailbox);
    folder.SetSubject(id, "Two");
    ASSERT_TRUE(logon.Host().Heard("changed"));
    WaitForRecords();
    WaitForRecords();

    EXPECT_EQ(EventsOf("changed", id).size(), 1u);
    EXPECT_TRUE(Packed(2)) << "the two fences";
}

TEST_F(NotificationsTest, AnIgnoredAdditionIsRecordedAndNotSent)
{
    logon.Host().AnswerWith([](const HostEvent&, bool& ignore) {
        ignore = true;
        return S_OK;
    });
    const std::string id = AddKnown("One");

    EXPECT_FALSE(FindPackage(logon, folder.EntryId()));
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE EntryID = '" + id + "'"), 1);
}

TEST_F(NotificationsTest, AnIgnoredDeletionIsNotSentAndTheRowGoes)
{
    const std::string id = AddKnown("One");
    TakePackage(logon, folder.EntryId(), 2, mailbox);
    logon.Host().AnswerWith([](const HostEvent& event, bool& ignore) {
        ignore = event.what == "deleted";
        return S_OK;
    });
    folder.Delete(id);
    ASSERT_TRUE(logon.Host().Heard("deleted"));
    WaitForRecords();

    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE EntryID = '" + id + "'"), 0);
    EXPECT_TRUE(Packed(1)) << "the fence";
}

// A scan is due when a store tells of many changes as one.
TEST_F(NotificationsTest, AChangeThatTheHostFailedIsOfferedAgainByTheNextScanOfTheFolder)
{
    const std::string id = AddKnown("One");
    std::atomic<bool> fails{true};
    logon.Host().AnswerWith([&](const HostEvent& event, bool&) {
        return event.what == "changed" && fails.exchange(false) ? E_FAIL : S_OK;
    });
    folder.SetSubject(id, "Two");
    ASSERT_TRUE(logon.Host().Heard("changed", 1));
    WaitForRecords();
    ASSERT_EQ(EventsOf("changed", id).size(), 1u);

    const ComPtr<IStoreTestSwitches> switches = mailbox.StoreSwitches();
    ASSERT_EQ(switches->TellOfTablesOnly(TRUE), S_OK);
    folder.Add("Other", "body");
    ASSERT_TRUE(logon.Host().Heard("changed", 2));
    ASSERT_EQ(switches->TellOfTablesOnly(FALSE), S_OK);
    WaitForRecords();

    EXPECT_EQ(EventsOf("changed", id).size(), 2u);
}

TEST_F(NotificationsTest, WhileTheFolderIgnoresEventsNothingIsHeard)
{
    ASSERT_EQ(shared->put_IgnoreEvents(VARIANT_TRUE), S_OK);
    const TestFolder otherFolder = mailbox.MakeFolder("Other");
    const auto other = logon.Share(otherFolder, "other");
    const std::string missed = folder.Add("One", "body");
    const std::string heard = otherFolder.Add("Two", "body");
    ASSERT_TRUE(logon.Host().Heard("added"));

    EXPECT_TRUE(EventsOf("added", missed).empty());
    EXPECT_EQ(EventsOf("added", heard).size(), 1u);
}

TEST_F(NotificationsTest, WithNoListenersNothingIsHeard)
{
    logon.SetOption(OLESTR("NoListeners"), Variant::Bool(true));
    const TestFolder deaf = mailbox.MakeFolder("Deaf");
    const auto object = logon.Share(deaf, "deaf");
    const std::string missed = deaf.Add("One", "body");
    AddKnown("Two");

    EXPECT_TRUE(EventsOf("added", missed).empty());
}

// Whether the store itself is told to stop is seen by the folder's own tests.
TEST_F(NotificationsTest, ARemovedFolderIsHeardNoMore)
{
    const TestFolder otherFolder = mailbox.MakeFolder("Other");
    logon.Share(otherFolder, "other");
    const std::string heard = otherFolder.Add("One", "body");
    ASSERT_TRUE(logon.Host().Heard("added"));
    ComPtr<IFolders> folders;
    ASSERT_EQ(logon.Session().get_Folders(folders.Put()), S_OK);
    ASSERT_EQ(folders->Remove(Variant::Text(FromUtf8(otherFolder.EntryId())).Raw()), S_OK);
    const std::string missed = otherFolder.Add("Two", "body");
    AddKnown("Three");

    EXPECT_EQ(EventsOf("added", heard).size(), 1u);
    EXPECT_TRUE(EventsOf("added", missed).empty());
}

TEST_F(NotificationsTest, WhatWaitsForItsTurnWhenItsFolderGoesIsDropped)
{
    const TestFolder otherFolder = mailbox.MakeFolder("Other");
    ComPtr<IFolder> other = logon.Share(otherFolder, "other");
    const ComPtr<IMAPITable> table = TableInEnginesSession(otherFolder);
    const ComPtr<CountingSink> behind = MakeComObject<CountingSink>();
    ULONG connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, behind.Get(), &connection), S_OK);
    std::mutex gate;
    logon.Host().AnswerWith([&](const HostEvent&, bool&) {
        const std::lock_guard wait(gate);
        return S_OK;
    });
    std::unique_lock closed(gate);
    folder.Add("Holds the line", "body");
    ASSERT_TRUE(logon.Host().Heard("added"));
    // What the second sink hears the engine's has heard before, or else what comes next.
    std::vector<std::string> missed;
    for (int told = 1; told <= 2; ++told) {
        missed.push_back(otherFolder.Add("Mail " + std::to_string(told), "body"));
        ASSERT_TRUE(Eventually([&] { return behind->calls >= told; }));
    }
    ComPtr<IFolders> folders;
    ASSERT_EQ(logon.Session().get_Folders(folders.Put()), S_OK);
    ASSERT_EQ(folders->Remove(Variant::Text(FromUtf8(otherFolder.EntryId())).Raw()), S_OK);
    other.Reset();
    closed.unlock();
    AddKnown("Two");

    for (const std::string& id : missed)
        EXPECT_TRUE(EventsOf("added", id).empty());
    EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(NotificationsTest, AKnownItemThatAppearsAnewHasANewIdUntilItsDeletionIsSeen)
{
    std::mutex gate;
    logon.Host().AnswerWith([&](const HostEvent&, bool&) {
        const std::lock_guard wait(gate);
        return S_OK;
    });
    std::unique_lock closed(gate);
    folder.Add("Holds the line", "body");
    ASSERT_TRUE(logon.Host().Heard("added"));
    const std::string id = folder.Add("One", "body");
    ASSERT_EQ(logon.Session().ImportItem(Text("{old}").Get(), Text(id).Get(), Text(folder.StoreId()).Get()),
              S_OK);
    closed.unlock();
    WaitForRecords();

    ASSERT_EQ(EventsOf("added", id).size(), 1u);
    EXPECT_NE(EventsOf("added", id).front().id, "{old}");
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE ID = '{old}' AND EntryID = '" + id + "'"), 1);

    folder.Delete(id);
    ASSERT_TRUE(logon.Host().Heard("deleted"));
    WaitForRecords();
    EXPECT_EQ(EventsOf("deleted", id).front().id, "{old}");
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE ID = '{old}'"), 1);
}

TEST_F(NotificationsTest, ASessionMayEndWhileBatchesAreUnderWay)
{
    const TestFolder busy = mailbox.MakeFolder("Busy");
    {
        TestLogon brief(mailbox);
        const auto object = brief.Share(busy, "busy");
        for (int i = 0; i < 20; ++i)
            busy.Add("Mail " + std::to_string(i), "body");
        ASSERT_TRUE(brief.Host().Heard("added"));
    }
    EXPECT_EQ(busy.Count(), 20u);
}

}  // namespace
}  // namespace quorvane::test
