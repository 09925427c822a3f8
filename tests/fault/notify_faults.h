// tests/fault/notify_faults.h: notifications of which one thing fails, again and again, and what has to be
// left.
#ifndef QUORVANE_TESTS_FAULT_NOTIFY_FAULTS_H_
#define QUORVANE_TESTS_FAULT_NOTIFY_FAULTS_H_

#include "engine/monitor/notify_thread.h"
#include "platform/clock/clock.h"
#include "tests/fault/resend_faults.h"

namespace quorvane::testing {

// What happened to the folder of ResendFaultsFixture, as the mail store tells it: row by row (one mail is
// new, {B} was changed, {D} is gone), or all at once.
enum class Told { kRows, kTable };

class NotifyFaultsFixture : public ResendFaultsFixture {
protected:
    NotifyFaultsFixture()
    {
        ReplacePauses([](std::chrono::microseconds) noexcept {});
    }
    ~NotifyFaultsFixture() override { ReplacePauses(nullptr); }

    void Prepare() override
    {
        ResendFaultsFixture::Prepare();
        HR_IGNORE(session.ForgetMovedItem(unknown.Get()), "there is none, mostly");
        sink = MakeComObject<CAdviseSink>();
        sink->SetSession(&session);
        sink->SetFolder(folder.Get());
        sink->m_bstrEntryID = folderEntryId;
        sink->m_bstrStoreID = mailbox.StoreId();
        sink->m_bstrFolderID = Bstr(kFolderId);
        ComPtr<IUnknown> store;
        EXPECT_EQ(folder->OpenStore(MDB_NO_MAIL, store.Put()), S_OK);
        EXPECT_EQ(store.As(sink->m_pStore), S_OK);
        OpenTable();
    }

    // Makes one batch ready, for NotifyThreadProc.
    std::shared_ptr<NotifyThreadArgs> Batch(Told told)
    {
        if (told == Told::kRows)
            batch_ = {Of(TABLE_ROW_ADDED, unknown), Of(TABLE_ROW_MODIFIED, b), Of(TABLE_ROW_DELETED)};
        else
            batch_ = {Of(TABLE_CHANGED)};
        auto args = std::make_shared<NotifyThreadArgs>();
        EXPECT_EQ(args->hReady.Create(false), S_OK);
        args->cNotif = static_cast<ULONG>(batch_.size());
        args->lpNotifications = batch_.data();
        return args;
    }
    void NotifyOnThread(Told told)
    {
        auto args = Batch(told);
        std::thread([&] {
            HR_IGNORE(NotifyThreadProc(sink, std::move(args)), "the test looks at what it left");
        }).join();
    }

    // What the folder's members get: whole or known for damaged, and no known item has lost its row.
    void ExpectMembersGetWhole(bool misled)
    {
        for (const std::string& item : SentWhole()) {
            const bool isDeletion = item.ends_with(" 30");
            EXPECT_EQ(std::count(item.begin(), item.end(), ' '), isDeletion ? 1 : 2) << item;
            if (isDeletion && !misled) {
                EXPECT_EQ(item, "{D} 30");
            }
        }
        if (misled)
            return;
        EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem WHERE (ID='{A}' AND EntryID='" +
                              Narrow(a.View()) + "') OR (ID='{B}' AND EntryID='" + Narrow(b.View()) + "')"),
                  "2");
    }

    // A change that is held for told is in the package; one that couldn't be copied is there as damaged.
    void ExpectToldIsSent()
    {
        const std::vector<std::string> sent = Sent(Members());
        const bool damaged = Has(sent, "damaged");
        EXPECT_TRUE(HashOf(b) != PresentHash(b) || damaged || Has(sent, "{B} 20 B"));
        const bool keptRow = session.Ask("SELECT COUNT(*) FROM tblItem WHERE ID='{D}'") == "1";
        EXPECT_TRUE(keptRow || damaged || Has(sent, "{D} 30"));
    }

    // The rows told once more, with nothing failing, bring what hadn't been told.
    void ExpectNextTellingCompletes()
    {
        const bool toldB = HashOf(b) == PresentHash(b);
        const bool toldNew = HashOf(unknown) == PresentHash(unknown);
        NotifyOnThread(Told::kRows);
        const std::vector<std::string> sent = Sent(Members());
        const auto isNew = [](const std::string& item) { return item.ends_with(" 10 C"); };
        EXPECT_TRUE(toldB || Has(sent, "{B} 20 B"));
        EXPECT_TRUE(toldNew || std::any_of(sent.begin(), sent.end(), isNew));
        EXPECT_TRUE(Has(sent, "{D} 30") || Has(sent, "damaged"));
        EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "3");
        for (const Bstr& mail : {a, b, unknown})
            EXPECT_EQ(HashOf(mail), PresentHash(mail));
        EXPECT_EQ(HashOf(gone), "");
    }

    std::string Members() const { return Narrow(folderEntryId.View()); }
    std::vector<std::string> SentWhole()
    {
        std::vector<std::string> sent = Sent(Members());
        std::erase(sent, "damaged");
        return sent;
    }
    static bool Has(const std::vector<std::string>& items, const std::string& item)
    {
        return std::find(items.begin(), items.end(), item) != items.end();
    }

    ComPtr<CAdviseSink> sink;

private:
    NOTIFICATION Of(ULONG event)
    {
        NOTIFICATION notification{};
        notification.ulEventType = fnevTableModified;
        notification.info.tab.ulTableEvent = event;
        return notification;
    }
    // With the mail's row, as a table with enough columns tells it.
    NOTIFICATION Of(ULONG event, const Bstr& mail)
    {
        NOTIFICATION notification = Of(event);
        for (const SRow& row : rows_) {
            Bstr entryId;
            const SPropValue* const value = mapi::PpropFindProp(row.lpProps, row.cValues, PR_ENTRYID);
            EXPECT_EQ(HexFromBinary(value->Value.bin, entryId), S_OK);
            if (entryId.View() == mail.View())
                notification.info.tab.row = row;
        }
        EXPECT_GE(notification.info.tab.row.cValues, 5u);
        return notification;
    }

    void OpenTable()
    {
        BinaryId id;
        ULONG type = 0;
        ComPtr<IUnknown> opened;
        ComPtr<IMAPIFolder> contents;
        EXPECT_EQ(BinaryFromHex(folderEntryId.Get(), id), S_OK);
        EXPECT_EQ(sink->m_pStore->OpenEntry(id.Size(), id.EntryId(), nullptr, 0, &type, opened.Put()), S_OK);
        EXPECT_EQ(opened.As(contents), S_OK);
        EXPECT_EQ(contents->GetContentsTable(0, sink->m_pTable.Put()), S_OK);
        ComPtr<IMAPITable> table;
        EXPECT_EQ(inbox->GetContentsTable(0, table.Put()), S_OK);
        EXPECT_EQ(table->QueryRows(100, 0, rows_.Put()), S_OK);
    }

    RowSet rows_;
    std::vector<NOTIFICATION> batch_;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_TESTS_FAULT_NOTIFY_FAULTS_H_
