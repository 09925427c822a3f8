// What the worker makes of a scan's lists, and of each step that fails.
#include "engine/monitor/notification_worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/items/item.h"
#include "engine/items/testing/noting_packages.h"
#include "engine/items/testing/test_mailbox.h"
#include "engine/monitor/test_doubles.h"
#include "engine/persist/hash_db.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// Refuses to keep moved items, as a session without memory.
class WorkerSession final : public MonitorSession {
public:
    HRESULT RememberMovedItem(BSTR entryId, BSTR id) noexcept override
    {
        return FAILED(movedResult) ? movedResult : MonitorSession::RememberMovedItem(entryId, id);
    }
    HRESULT ForgetMovedItem(BSTR entryId) noexcept override
    {
        return FAILED(movedResult) ? movedResult : MonitorSession::ForgetMovedItem(entryId);
    }
    HRESULT movedResult = S_OK;
};

struct Changed {
    Bstr entryId;
    Bstr hash = Bstr(OLESTR("new"));
    LONG flags = 3;
};

ScanResult Lists(const std::vector<Changed>& changed, const std::vector<Bstr>& deleted = {})
{
    ScanResult found;
    for (const Changed& one : changed)
        EXPECT_EQ(found.AddChanged(one.entryId.View(), one.hash.View(), one.flags, false), S_OK);
    for (const Bstr& one : deleted)
        EXPECT_EQ(found.deleted.Append(one.View()), S_OK);
    return found;
}

class NotificationWorkerTest : public ::testing::Test {
protected:
    NotificationWorkerTest()
    {
        session.mapiSession = mailbox.Session();
        session.storageFiles = ComPtr<IStorageFiles>(packages.Get());
        sink->SetSession(&session);
        sink->m_bstrEntryID = TestMailbox::IdOf(*folder);
        sink->m_bstrStoreID = mailbox.StoreId();
        sink->m_bstrFolderID = Bstr(OLESTR("{F}"));
        EXPECT_EQ(hashes.Init(Bstr(Widen(files.File(""))).Get()), S_OK);
    }

    Bstr AddMail()
    {
        return TestMailbox::IdOf(*mailbox.AddMessage(*folder.Get(), {"Hello", "body", {}, {}}));
    }
    // A message that has a row of the item "{A}" and a hash.
    Bstr AddKnown()
    {
        Bstr id = AddMail();
        session.Execute("INSERT INTO tblItem (ID, EntryID, StoreID, LastModified, Version) VALUES ('{A}', '" +
                        Narrow(id.View()) + "', '" + Narrow(mailbox.StoreId().View()) + "', 1, 2)");
        EXPECT_EQ(hashes.SetHash(id.Get(), Bstr(OLESTR("old")).Get(), 1), S_OK);
        return id;
    }
    HRESULT Process(const ScanResult& found, ULONG event = TABLE_ROW_MODIFIED)
    {
        return NotificationWorker(*sink.Get(), hashes, event).Process(found);
    }
    // Processes lists one of whose items fails: the trace names the worker, and the host hears of the other
    // item.
    std::string TracedWhen(const ScanResult& found, ULONG event = TABLE_ROW_MODIFIED)
    {
        const std::string lines = TracedLines([&] { EXPECT_EQ(Process(found, event), S_OK); });
        EXPECT_THAT(lines, HasSubstr("NotifyThreadProc("));
        return lines;
    }

    // "hash/flags" of a key, "/-1" without one.
    std::string HashOf(const Bstr& key)
    {
        Bstr hash;
        LONG flags = 99;
        EXPECT_EQ(hashes.GetHash(key.Get(), hash.Put(), &flags), S_OK);
        return Narrow(hash.View()) + "/" + std::to_string(flags);
    }
    std::string RowOf(const Bstr& entryId)
    {
        return session.Ask("SELECT ID || ' ' || Version FROM tblItem WHERE EntryID='" +
                           Narrow(entryId.View()) + "'");
    }
    std::string Folder() { return Narrow(sink->m_bstrEntryID.View()); }
    void Refuse(const std::string& statement)
    {
        session.Execute("CREATE TRIGGER refuse BEFORE " + statement +
                        " ON tblItem BEGIN SELECT RAISE(ABORT, 'refused'); END");
    }
    void FailHostFor(const char* id)
    {
        session.host.whenItemReported = [id](IItem* item, bool&) {
            Bstr its;
            item->get_ID(its.Put());
            return Narrow(its.View()) == id ? E_ACCESSDENIED : S_OK;
        };
    }

    TestMailbox mailbox;
    WorkerSession session;
    const test::TestDirectory files;
    CHashDB hashes{OLESTR("F")};
    const ComPtr<NotingPackages> packages = MakeComObject<NotingPackages>();
    const ComPtr<IMAPIFolder> folder = mailbox.MakeFolder("Shared");
    const ComPtr<CAdviseSink> sink = MakeComObject<CAdviseSink>();
};

TEST_F(NotificationWorkerTest, AnUnknownItemOfAnAddedRowIsAddedSentAndRecorded)
{
    const Bstr id = AddMail();
    EXPECT_EQ(Process(Lists({{id}}), TABLE_ROW_ADDED), S_OK);

    const std::string given = session.Ask("SELECT ID FROM tblItem");
    EXPECT_THAT(session.host.Calls(), ElementsAre("added " + given));
    EXPECT_THAT(packages->Sent(), ElementsAre(Folder() + " " + given + " mail"));
    EXPECT_EQ(HashOf(id), "new/3");
}

TEST_F(NotificationWorkerTest, AnUnknownItemOfAnyOtherEventIsReportedAsChanged)
{
    for (const ULONG event : {TABLE_CHANGED, TABLE_ROW_MODIFIED})
        EXPECT_EQ(Process(Lists({{AddMail()}}), event), S_OK);

    ASSERT_EQ(session.host.Calls().size(), 2u);
    EXPECT_THAT(session.host.Calls()[0], HasSubstr("changed {"));
    EXPECT_THAT(session.host.Calls()[1], HasSubstr("changed {"));
}

TEST_F(NotificationWorkerTest, AKnownItemOfAnAddedRowGetsANewIdAndItsRowKeepsTheOld)
{
    const Bstr id = AddKnown();
    EXPECT_EQ(Process(Lists({{id}}), TABLE_ROW_ADDED), S_OK);

    ASSERT_EQ(session.host.Calls().size(), 1u);
    EXPECT_THAT(session.host.Calls()[0], HasSubstr("added {"));
    EXPECT_NE(session.host.Calls()[0], "added {A}");
    EXPECT_EQ(RowOf(id), "{A} 2.0");
    Bstr old;
    EXPECT_EQ(session.FindMovedItem(id.Get(), old.Put()), S_OK);
    EXPECT_EQ(old.View(), OLESTR("{A}"));
}

TEST_F(NotificationWorkerTest, ADeletionAfterSuchAnAdditionIsToldUnderTheOldIdAndRowAndHashStay)
{
    const Bstr id = AddKnown();
    ASSERT_EQ(session.RememberMovedItem(id.Get(), Bstr(OLESTR("{B}")).Get()), S_OK);
    EXPECT_EQ(Process(Lists({}, {id})), S_OK);

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {B}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(Folder() + " {B}"));
    EXPECT_EQ(RowOf(id), "{A} 2.0");
    EXPECT_EQ(HashOf(id), "old/1");
    Bstr old;
    EXPECT_EQ(session.FindMovedItem(id.Get(), old.Put()), E_FAIL);
}

TEST_F(NotificationWorkerTest, ADeletionIsSentWithoutAMessageAndForgotten)
{
    const Bstr id = AddKnown();
    EXPECT_EQ(Process(Lists({}, {id})), S_OK);

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {A}"));
    EXPECT_THAT(packages->Sent(), ElementsAre(Folder() + " {A}"));
    EXPECT_EQ(RowOf(id), "");
    EXPECT_EQ(HashOf(id), "/-1");
}

// A host asks for the folder of what it hears of; of a message that is gone nothing else could tell it.
TEST_F(NotificationWorkerTest, WhatTheHostHearsOfKnowsItsStoreAndFolder)
{
    const Bstr id = AddKnown();
    std::vector<std::string> told;
    session.host.whenItemReported = [&](IItem* reported, bool&) {
        const auto& item = *static_cast<CItem*>(reported);
        told.push_back(Narrow(item.m_bstrStoreID.View()) + " " + Narrow(item.m_bstrFolderEntryID.View()) +
                       " " + Narrow(item.m_bstrFolderID.View()));
        return S_OK;
    };

    ASSERT_EQ(Process(Lists({{id}})), S_OK);
    ASSERT_EQ(Process(Lists({}, {id}), TABLE_ROW_DELETED), S_OK);

    const std::string here = Narrow(mailbox.StoreId().View()) + " " + Folder() + " {F}";
    EXPECT_THAT(told, ElementsAre(here, here));
}

TEST_F(NotificationWorkerTest, ADeletionOfAnItemWithoutARowIsSilentAndItsHashStays)
{
    const Bstr id = AddMail();
    ASSERT_EQ(hashes.SetHash(id.Get(), Bstr(OLESTR("old")).Get(), 1), S_OK);
    EXPECT_EQ(Process(Lists({}, {id})), S_OK);

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(HashOf(id), "old/1");
}

TEST_F(NotificationWorkerTest, WhatTheHostIgnoresIsRecordedAndNotSent)
{
    session.host.whenItemReported = [](IItem*, bool& ignore) {
        ignore = true;
        return S_OK;
    };
    const Bstr changed = AddKnown();
    EXPECT_EQ(Process(Lists({{changed}})), S_OK);
    EXPECT_EQ(RowOf(changed), "{A} 3.0");
    EXPECT_EQ(HashOf(changed), "new/3");

    EXPECT_EQ(Process(Lists({}, {changed})), S_OK);
    EXPECT_EQ(RowOf(changed), "");
    EXPECT_EQ(HashOf(changed), "/-1");
    EXPECT_THAT(session.host.Calls(), ElementsAre("changed {A}", "deleted {A}"));
    EXPECT_THAT(packages->Sent(), IsEmpty());
}

TEST_F(NotificationWorkerTest, ALockedChangeIsSilentAndRecordedAndAnAutomaticLockIsGoneThen)
{
    const Bstr id = AddKnown();
    session.locks.Lock(id.Get(), mailbox.StoreId().Get(), VARIANT_TRUE);
    EXPECT_EQ(Process(Lists({{id}})), S_OK);

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(RowOf(id), "{A} 3.0");
    EXPECT_EQ(HashOf(id), "new/3");
    EXPECT_EQ(Process(Lists({{id}})), S_OK);
    EXPECT_THAT(session.host.Calls(), ElementsAre("changed {A}"));
}

TEST_F(NotificationWorkerTest, ALockThatStaysSwallowsADeletionToo)
{
    const Bstr id = AddKnown();
    session.locks.Lock(id.Get(), mailbox.StoreId().Get(), VARIANT_FALSE);
    EXPECT_EQ(Process(Lists({{id}}, {id})), S_OK);

    EXPECT_THAT(session.host.Calls(), IsEmpty());
    EXPECT_EQ(RowOf(id), "");
    EXPECT_TRUE(session.locks.IsLocked(id.Get(), mailbox.StoreId().Get()));
}

TEST_F(NotificationWorkerTest, ChangesComeBeforeDeletionsInTheListsOrder)
{
    const Bstr known = AddKnown();
    const Bstr first = AddMail();
    const Bstr second = AddMail();
    std::vector<std::string> heard;
    session.host.whenItemReported = [&](IItem* item, bool&) {
        Bstr id;
        item->get_EntryID(id.Put());
        heard.push_back(Narrow(id.View()));
        return S_OK;
    };
    EXPECT_EQ(Process(Lists({{second}, {first}}, {known})), S_OK);

    EXPECT_THAT(heard, ElementsAre(Narrow(second.View()), Narrow(first.View()), Narrow(known.View())));
}

TEST_F(NotificationWorkerTest, WithoutTheHostTheBatchEnds)
{
    session.hostIsThere = false;
    const Bstr id = AddMail();
    const std::string lines = TracedLines([&] { EXPECT_EQ(Process(Lists({{id}})), E_FAIL); });

    EXPECT_THAT(lines, HasSubstr("NotifyThreadProc("));
    EXPECT_EQ(RowOf(id), "");
}

TEST_F(NotificationWorkerTest, AnItemThatGetsNoRowIsNotOffered)
{
    const Bstr known = AddKnown();
    const Bstr id = AddMail();
    Refuse("INSERT");
    EXPECT_THAT(TracedWhen(Lists({{id}, {known}})), HasSubstr("CItem::DBAppend("));

    EXPECT_THAT(session.host.Calls(), ElementsAre("changed {A}"));
    EXPECT_EQ(HashOf(id), "/-1");
    EXPECT_EQ(HashOf(known), "new/3");
}

TEST_F(NotificationWorkerTest, AMovedItemThatCantBeRememberedIsNotOffered)
{
    const Bstr known = AddKnown();
    const Bstr id = AddMail();
    session.movedResult = E_FAIL;
    TracedWhen(Lists({{known}, {id}}), TABLE_ROW_ADDED);

    ASSERT_EQ(session.host.Calls().size(), 1u);
    EXPECT_EQ(HashOf(known), "old/1");
    EXPECT_EQ(HashOf(id), "new/3");
}

TEST_F(NotificationWorkerTest, AChangeThatTheHostFailsIsNeitherSentNorRecorded)
{
    const Bstr known = AddKnown();
    const Bstr id = AddMail();
    FailHostFor("{A}");
    EXPECT_THAT(TracedWhen(Lists({{known}, {id}})), HasSubstr(") 0x80070005\r\n"));

    EXPECT_EQ(packages->Sent().size(), 1u);
    EXPECT_EQ(RowOf(known), "{A} 2.0");
    EXPECT_EQ(HashOf(known), "old/1");
    EXPECT_EQ(HashOf(id), "new/3");
}

TEST_F(NotificationWorkerTest, AnAdditionThatTheHostFailsIsNeitherSentNorRecorded)
{
    const Bstr id = AddMail();
    session.host.whenItemReported = [](IItem*, bool&) { return E_ACCESSDENIED; };
    TracedWhen(Lists({{id}}), TABLE_ROW_ADDED);

    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_EQ(HashOf(id), "/-1");
}

TEST_F(NotificationWorkerTest, AMessageThatCantBeOpenedIsNotSent)
{
    const Bstr known = AddKnown();
    mailbox.Delete(*folder.Get(), known);
    EXPECT_THAT(TracedWhen(Lists({{known}, {AddMail()}})), HasSubstr("CItem::get_Raw("));

    EXPECT_EQ(session.host.Calls().size(), 2u);
    EXPECT_EQ(packages->Sent().size(), 1u);
    EXPECT_EQ(RowOf(known), "{A} 2.0");
    EXPECT_EQ(HashOf(known), "old/1");
}

TEST_F(NotificationWorkerTest, AFailingSendLeavesRowAndHash)
{
    const Bstr known = AddKnown();
    packages->result = E_ACCESSDENIED;
    EXPECT_THAT(TracedWhen(Lists({{known}}, {known})), HasSubstr("CItem::Send("));

    EXPECT_THAT(session.host.Calls(), ElementsAre("changed {A}", "deleted {A}"));
    EXPECT_EQ(RowOf(known), "{A} 2.0");
    EXPECT_EQ(HashOf(known), "old/1");
}

TEST_F(NotificationWorkerTest, ARowThatCantBeWrittenLeavesTheHash)
{
    const Bstr known = AddKnown();
    Refuse("UPDATE");
    EXPECT_THAT(TracedWhen(Lists({{known}})), HasSubstr("CItem::DBUpdate("));

    EXPECT_EQ(packages->Sent().size(), 1u);
    EXPECT_EQ(HashOf(known), "old/1");
}

TEST_F(NotificationWorkerTest, AHashThatCantBeRecordedIsTracedAndTheNextItemGoesOn)
{
    const Bstr known = AddKnown();
    const Bstr id = AddMail();
    const Bstr endless{OleStringView(OleString(0x100000 / 2, OLECHAR('x')))};
    EXPECT_THAT(TracedWhen(Lists({{known, endless}, {id}})), HasSubstr(") 0x80070057\r\n"));

    EXPECT_EQ(RowOf(known), "{A} 3.0");
    EXPECT_EQ(HashOf(known), "old/1");
    EXPECT_EQ(HashOf(id), "new/3");
}

TEST_F(NotificationWorkerTest, ADeletionThatTheHostFailsIsNeitherSentNorForgotten)
{
    const Bstr known = AddKnown();
    FailHostFor("{A}");
    TracedWhen(Lists({}, {known}));

    EXPECT_THAT(packages->Sent(), IsEmpty());
    EXPECT_EQ(RowOf(known), "{A} 2.0");
    EXPECT_EQ(HashOf(known), "old/1");
}

TEST_F(NotificationWorkerTest, AMovedItemThatCantBeForgottenIsTraced)
{
    const Bstr known = AddKnown();
    ASSERT_EQ(session.RememberMovedItem(known.Get(), Bstr(OLESTR("{B}")).Get()), S_OK);
    session.movedResult = E_FAIL;
    TracedWhen(Lists({}, {known}));

    EXPECT_THAT(session.host.Calls(), ElementsAre("deleted {B}"));
    EXPECT_EQ(HashOf(known), "old/1");
}

TEST_F(NotificationWorkerTest, ARowThatCantBeRemovedLeavesTheHash)
{
    const Bstr known = AddKnown();
    Refuse("DELETE");
    EXPECT_THAT(TracedWhen(Lists({}, {known})), HasSubstr("CItem::DBDelete("));

    EXPECT_EQ(packages->Sent().size(), 1u);
    EXPECT_EQ(HashOf(known), "old/1");
}

TEST_F(NotificationWorkerTest, AHashThatCantBeForgottenOnDiskIsTraced)
{
    const Bstr known = AddKnown();
    CHashDB inMemory(OLESTR("F"));
    EXPECT_TRUE(FAILED(inMemory.Init(Bstr(Widen(files.File("nowhere/"))).Get())));
    for (const Bstr& key : {known, Bstr(OLESTR("another"))})
        EXPECT_TRUE(FAILED(inMemory.SetHash(key.Get(), Bstr(OLESTR("old")).Get(), 1)));
    const std::string lines = TracedLines([&] {
        EXPECT_EQ(NotificationWorker(*sink.Get(), inMemory, TABLE_ROW_DELETED).Process(Lists({}, {known})),
                  S_OK);
    });

    EXPECT_THAT(lines, HasSubstr("NotifyThreadProc("));
    EXPECT_EQ(RowOf(known), "");
}

}  // namespace
}  // namespace quorvane::testing
