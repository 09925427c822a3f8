#include "host/commands/check_agreement.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/base/errors.h"
#include "host/mailbox/comparison_records.h"
#include "host/mailbox/deleted_messages.h"
#include "host/mailbox/hash_records.h"
#include "host/mailbox/records.h"
#include "host/mailbox/sharing_rows.h"
#include "host/sharing/message_content.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// The rows of the sharing database, and what is written to it.
class RowTable {
public:
    explicit RowTable(const Mailbox& mailbox) : database_(mailbox.OpenSharingDatabase())
    {
        Statement select(database_, "SELECT ID, EntryID, StoreID, LastModified FROM tblItem");
        while (select.Step()) {
            SharingRow row{select.Text(0), select.Text(1), select.Text(2), select.Real(3)};
            entries_.insert(row.entryId);
            std::string id = row.id;
            rows_.emplace(std::move(id), std::move(row));
        }
    }
    const std::unordered_map<std::string, SharingRow>& All() const { return rows_; }
    const SharingRow* Find(const std::string& id) const
    {
        const auto found = rows_.find(id);
        return found == rows_.end() ? nullptr : &found->second;
    }
    bool HasEntry(const std::string& entryId) const { return entries_.contains(entryId); }

    void Put(const std::string& id, const std::string& entryId, const std::string& storeId,
             std::uint64_t modified)
    {
        Statement(database_,
                  "INSERT INTO tblItem (ID, EntryID, StoreID, LastModified, Version) VALUES (?, ?, ?, "
                  "CAST(? AS REAL), 3.0)")
            .Bind(1, id)
            .Bind(2, entryId)
            .Bind(3, storeId)
            .Bind(4, RowTimeText(modified))
            .Run();
        entries_.insert(entryId);
    }
    void Drop(const std::string& id)
    {
        Statement(database_, "DELETE FROM tblItem WHERE ID = ?").Bind(1, id).Run();
        if (const SharingRow* const row = Find(id))
            entries_.erase(row->entryId);
    }

private:
    Database database_;
    std::unordered_map<std::string, SharingRow> rows_;  // by ID
    std::unordered_set<std::string> entries_;
};

class AgreementCheck {
public:
    AgreementCheck(const Mailbox& mailbox, const MailSession& session, CheckReport& report, Mender& mender)
        : mailbox_(mailbox),
          session_(session),
          report_(report),
          mender_(mender),
          records_(mailbox.HostDatabasePath().string()),
          rows_(mailbox),
          deletions_(mailbox)
    {}

    std::size_t Run()
    {
        for (const Share& share : records_.Shares()) {
            CheckItems(share);
            CheckHashes(share);
        }
        return CountDeletions();
    }

private:
    bool IsGone(const std::string& entryId) const { return FolderOfMessage(session_, entryId).empty(); }

    void CheckItems(const Share& share)
    {
        const ComPtr<IMAPIFolder> folder = OpenFolder(session_, share.entryId);
        if (!folder)
            return;  // a run names it
        std::vector<ItemRecord> rowless;
        records_.ForEachItem(share.folderId, Records::Deleted::kLeftOut, [&](const ItemRecord& record) {
            if (!record.isWhole || record.isPending || record.modified == 0)
                return;  // a run is at work on it
            const SharingRow* const row = rows_.Find(record.id);
            if (!row)
                rowless.push_back(record);
            else if (!IsDamaged(session_, row->entryId) && IsGone(row->entryId) &&
                     !deletions_.MayHave(row->entryId))
                FindLostMessage(share, record);
        });
        if (!rowless.empty())
            FindLostRows(share, *folder, rowless);
    }

    void FindLostMessage(const Share& share, const ItemRecord& record)
    {
        lost_.insert(record.id);
        report_.AddDisagreement("lost-message", share.name, record.id,
                                "is known as whole, and its message is gone without having been deleted");
        if (!mender_.IsAsked())
            return;
        mender_.KeepDatabase(mailbox_.SharingDatabasePath());
        // The record first: without a row, and not whole, it is asked for.
        AskFor(share, record);
        rows_.Drop(record.id);
        Mended("sharing.db", record.id, "the other members are asked for it");
    }

    void FindLostRows(const Share& share, IMAPIFolder& folder, const std::vector<ItemRecord>& rowless)
    {
        std::multimap<std::uint64_t, std::string> unclaimed;
        ForEachItem(folder, [&](const ItemInfo& item) {
            if (!rows_.HasEntry(item.entryId))
                unclaimed.emplace(item.modified, item.entryId);
        });
        for (const ItemRecord& record : rowless) {
            report_.AddDisagreement("lost-row", share.name, record.id,
                                    "is known as whole, and the sharing database has no row of it");
            if (!mender_.IsAsked())
                continue;
            const auto [first, last] = unclaimed.equal_range(record.modified);
            const auto own = std::find_if(
                first, last, [&](const auto& message) { return IsContentOf(record, message.second); });
            if (own == last) {
                AskFor(share, record);
                Mended("host.db", record.id, "the other members are asked for it");
                continue;
            }
            mender_.KeepDatabase(mailbox_.SharingDatabasePath());
            rows_.Put(record.id, own->second, share.storeId, record.modified);
            unclaimed.erase(own);
            Mended("sharing.db", record.id, "its message was found and has its row again");
        }
    }

    bool IsContentOf(const ItemRecord& record, const std::string& entryId) const
    try {
        const ComPtr<IMessage> message = OpenMessage(session_, entryId, false);
        const exchange::Revision* const shown = record.heads.Shown();
        return message && shown && shown->content == DigestOf(ReadContent(*message, entryId));
    } catch (const HostError&) {
        return false;  // a damaged one is nobody's
    }

    void AskFor(const Share& share, ItemRecord record)
    {
        mender_.KeepDatabase(mailbox_.HostDatabasePath());
        record.isWhole = false;
        record.modified = 0;
        records_.PutItem(record);
        ComparisonRecords(mailbox_.HostDatabasePath().string()).Want(share.folderId, {}, FileTimeNow());
    }

    void CheckHashes(const Share& share)
    {
        const std::filesystem::path path = mailbox_.HashFilePath(share.folderId);
        std::error_code error;
        std::filesystem::path redo = path;
        redo += ".redo";
        const bool isUnderChange =
            std::filesystem::exists(redo, error) && std::filesystem::file_size(redo, error) > 0;
        if (isUnderChange || !std::filesystem::exists(path, error))
            return;  // the engine ends the change when it opens the file, or makes one
        const HashFileContent content = ReadHashFile(path);
        const std::string file = path.filename().string();
        std::set<std::string> stray;
        for (const HashRecordBytes& record : content.records)
            if (!rows_.HasEntry(record.key) && !stray.contains(record.key) && IsNobodys(record.key))
                stray.insert(record.key);
        for (const std::string& key : stray)
            report_.AddDisagreement("hash", share.name, key,
                                    "has a record in the hash file, and neither a row nor a message");
        if (content.damagedBytes > 0)
            report_.AddDisagreement("hash", share.name, {},
                                    "the hash file " + file + " ends in " +
                                        std::to_string(content.damagedBytes) + " bytes that are no record");
        const std::size_t found = stray.size() + (content.damagedBytes > 0 ? 1 : 0);
        if (!mender_.IsAsked() || found == 0)
            return;
        mender_.KeepFile(path);
        WriteHashFile(path, content, [&](const std::string& key) { return !stray.contains(key); });
        report_.open -= found;
        report_.AddMended(file, {}, "what is no item's was left out of it");
    }

    // A message that is there and has no row is one that a run deals with.
    bool IsNobodys(const std::string& key) const
    {
        return GuidIn(key).empty() || (!IsDamaged(session_, key) && IsGone(key));
    }

    std::size_t CountDeletions() const
    {
        return static_cast<std::size_t>(std::count_if(rows_.All().begin(), rows_.All().end(), [&](auto& row) {
            return !lost_.contains(row.first) && !IsDamaged(session_, row.second.entryId) &&
                   !OpenMessage(session_, row.second.entryId, false);
        }));
    }

    void Mended(const std::string& file, const std::string& item, const std::string& how)
    {
        --report_.open;
        report_.AddMended(file, item, how);
    }

    const Mailbox& mailbox_;
    const MailSession& session_;
    CheckReport& report_;
    Mender& mender_;
    Records records_;
    RowTable rows_;
    const DeletedMessages deletions_;
    std::set<std::string> lost_;  // items whose messages nobody has deleted
};

}  // namespace

std::size_t CheckAgreement(const Mailbox& mailbox, const MailSession& session, CheckReport& report,
                           Mender& mender)
{
    return AgreementCheck(mailbox, session, report, mender).Run();
}

}  // namespace quorvane::host
