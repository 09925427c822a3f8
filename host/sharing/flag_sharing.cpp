#include "host/sharing/flag_sharing.h"

#include <algorithm>
#include <functional>
#include <system_error>

#include "host/base/files.h"
#include "host/base/output.h"
#include "host/base/progress.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

static_assert(kAllMarks == (1 << exchange::ItemFlags::kCount) - 1);

// How long the folders of a store that changes all the time aren't looked at after a look: so many times what
// it took, but neither less nor more than this.
constexpr int kRestForMarks = 4;
constexpr auto kShortestMarkRest = std::chrono::milliseconds(50);
constexpr auto kLongestMarkRest = std::chrono::milliseconds(500);

std::string FlagFileName()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), "name", "a package");
    OLECHAR text[40] = {};
    StringFromGUID2(guid, text, 40);
    return "note-flags-" + ToUtf8(text).substr(1, 36) + ".qvn";
}

}  // namespace

FlagSharing::FlagSharing(const Addin::Parts& parts)
    : parts_(parts),
      records_(parts.mailbox.HostDatabasePath().string()),
      own_(parts.records.OwnChanger().device)
{}

FlagRecord FlagSharing::Known(const std::string& id, const std::string& folderId)
{
    FlagRecord record = records_.Find(id).value_or(FlagRecord{id, {}, {}, false, 0});
    record.folderId = folderId;
    return record;
}

bool FlagSharing::NoteMarks(Marks marks, FlagRecord& record) const
{
    const auto made = static_cast<Marks>((marks & ~record.due) | (record.flags.Shown() & record.due));
    if (!record.flags.Show(made, FileTimeNow(), own_))
        return false;
    record.isPending = true;
    return true;
}

// What was marked here and nobody has looked at yet counts as marked now.
void FlagSharing::KeepMarks(const std::string& id, const std::string& folderId)
{
    if (!records_.AreShared(folderId))
        return;
    const std::lock_guard lock(keeping_);
    FlagRecord record = Known(id, folderId);
    const auto row = parts_.state.RowOfId(id);
    const auto item = parts_.records.FindItem(id);
    const ComPtr<IMessage> message = row ? OpenMessage(parts_.mail, row->entryId, false) : nullptr;
    if (message && item && item->isWhole)
        NoteMarks(MarksOf(*message), record);
    if (record.flags.IsEmpty())
        return;
    record.due = kAllMarks;
    records_.Put({record});
}

bool FlagSharing::Hear(const exchange::FlagNote& note)
{
    const auto share = parts_.records.FindShare(note.folder);
    if (!share)
        return true;
    ShowDue();
    Look(*share);
    std::int64_t waiting = -1;
    bool isAllTaken = true;
    std::vector<FlagRecord> changed;
    const std::lock_guard lock(keeping_);
    for (const exchange::FlagNote::Item& told : note.items) {
        const auto item = parts_.records.FindItem(told.id);
        if (item && item->deleted)
            continue;
        if (!item && waiting < 0)
            waiting = records_.CountWaiting(note.folder);
        if (!item && waiting >= FlagRecords::kMostWaiting) {
            isAllTaken = false;
            continue;
        }
        FlagRecord record = Known(told.id, note.folder);
        const std::uint8_t before = record.flags.Shown();
        if (!record.flags.Take(told.flags))
            continue;
        waiting += item ? 0 : 1;
        record.due |= record.flags.Shown() ^ before;
        changed.push_back(std::move(record));
    }
    records_.Put(changed);
    parts_.statistics.flagsTaken += changed.size();
    parts_.statistics.Touch();
    return isAllTaken;
}

std::vector<Share> FlagSharing::SharedWithFlags()
{
    std::vector<Share> shares = parts_.records.Shares();
    std::erase_if(shares, [](const Share& share) { return !share.hasFlags; });
    return shares;
}

// Of an item that is gone nothing is left to show; when it comes, it is due again.
bool FlagSharing::ShowOne(const FlagRecord& record)
{
    const auto row = parts_.state.RowOfId(record.item);
    return row && SetMarks(parts_.mail, row->entryId, record.flags.Shown(), record.due);
}

void FlagSharing::ShowDue()
{
    for (const FlagRecord& record : records_.Due()) {
        if (ShowOne(record) && parts_.verbose)
            Tell("marked " + record.item + " " + std::to_string(record.flags.Shown()));
        records_.NoteShown(record);
        parts_.statistics.Touch();
    }
}

// Changes with each change of the store, and of what the engine reported of it.
std::string FlagSharing::LookOfStore() const
{
    const std::string store = parts_.mailbox.StorePath().string();
    return LookOfFile(store) + LookOfFile(store + "-wal") +
           std::to_string(parts_.statistics.lastActivity.load());
}

// Whether a row is as it is known to be.
bool FlagSharing::LookAt(const Share& share, const std::string& entryId, Marks marks,
                         std::vector<FlagRecord>& changed)
{
    const auto row = parts_.state.RowOfEntry(entryId);
    const auto item = row ? parts_.records.FindItem(row->id) : std::nullopt;
    if (!item || item->deleted || !item->isWhole || item->folderId != share.folderId)
        return false;
    FlagRecord record = Known(row->id, share.folderId);
    const bool isShown = record.due == 0;
    if (NoteMarks(marks, record))
        changed.push_back(std::move(record));
    return isShown;
}

void FlagSharing::Look(const Share& share)
{
    const ComPtr<IMAPIFolder> folder = OpenFolder(parts_.mail, share.entryId);
    if (!folder)
        return;
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, PR_MESSAGE_FLAGS, quorvane::kPrMessageStatus}};
    std::vector<FlagRecord> changed;
    const std::lock_guard lock(keeping_);
    ForEachItemRow(*folder, reinterpret_cast<LPSPropTagArray>(&columns), [&](const SRow& row) {
        const std::string entryId = HexOf(row, PR_ENTRYID);
        const Marks marks = MarksOf(LongOf(row, PR_MESSAGE_FLAGS), LongOf(row, quorvane::kPrMessageStatus));
        const std::size_t key = std::hash<std::string>()(entryId);
        const auto seen = seen_.find(key);
        if (seen != seen_.end() && seen->second == marks)
            return;
        if (LookAt(share, entryId, marks, changed))
            seen_[key] = marks;
        else
            seen_.erase(key);
    });
    records_.Put(changed);
    if (!changed.empty())
        parts_.statistics.Touch();
}

void FlagSharing::Show()
{
    if (!SharedWithFlags().empty())
        ShowDue();
}

void FlagSharing::Step(bool isFree)
{
    const std::vector<Share> shares = SharedWithFlags();
    if (shares.empty())
        return;
    if (isFree)
        ShowDue();
    const std::string look = LookOfStore();
    if (isFree && (look != looked_ || !isSettled_) && Clock::now() >= nextLook_) {
        const auto begin = Clock::now();
        for (const Share& share : shares)
            Look(share);
        isSettled_ = look == looked_;
        looked_ = look;
        const Clock::duration rest = kRestForMarks * (Clock::now() - begin);
        nextLook_ = Clock::now() + std::clamp<Clock::duration>(rest, kShortestMarkRest, kLongestMarkRest);
    }
    for (const Share& share : shares) {
        PackChanges(share);
        PackAll(share);
    }
}

bool FlagSharing::HasWork()
{
    const std::vector<Share> shares = SharedWithFlags();
    if (shares.empty())
        return false;
    if (!isSettled_ || LookOfStore() != looked_ || records_.HasPending() || !records_.Due().empty())
        return true;
    for (const Share& share : shares)
        if (!records_.Owed(share.folderId).empty())
            return true;
    return false;
}

std::string FlagSharing::WriteNote(const exchange::FlagNote& note)
{
    const std::filesystem::path path = parts_.mailbox.PackagesPath() / FlagFileName();
    WriteDurably(path, note.Write());
    return path.string();
}

// Who isn't told yet will be told of all.
void FlagSharing::PackChanges(const Share& share)
{
    FlagRecords::Going going;
    going.sent = records_.Pending(share.folderId, exchange::FlagNote::kMostItems);
    if (going.sent.empty())
        return;
    going.recipients = share.entryId;
    going.folderId = share.folderId;
    going.devices = records_.Told(share.folderId);
    if (!going.devices.empty()) {
        exchange::FlagNote note{share.folderId, {}};
        for (const FlagRecord& record : going.sent)
            note.items.push_back({record.item, record.flags});
        going.paths.push_back(WriteNote(note));
        parts_.statistics.flagsSent += going.sent.size();
        parts_.statistics.Touch();
    }
    records_.NoteGoing(going);
}

void FlagSharing::PackAll(const Share& share)
{
    const std::vector<std::string> devices = records_.Owed(share.folderId);
    if (!devices.empty())
        SendAll(share, devices, records_.Of(share.folderId), true);
}

void FlagSharing::SendAll(const Share& share, const std::vector<std::string>& devices,
                          const std::map<std::string, exchange::ItemFlags>& flags, bool isAll)
{
    FlagRecords::Going going;
    going.recipients = share.entryId;
    going.folderId = share.folderId;
    going.devices = devices;
    going.isAll = isAll;
    exchange::FlagNote note{share.folderId, {}};
    for (const auto& [item, known] : flags) {
        note.items.push_back({item, known});
        if (note.items.size() == exchange::FlagNote::kMostItems) {
            going.paths.push_back(WriteNote(note));
            note.items.clear();
        }
    }
    if (!note.items.empty())
        going.paths.push_back(WriteNote(note));
    if (going.paths.empty() && !isAll)
        return;
    parts_.statistics.flagsSent += flags.size();
    records_.NoteGoing(going);
    parts_.statistics.Touch();
}

void FlagSharing::Send(const std::string& folderId, const std::string& device,
                       const std::vector<std::string>& items)
{
    const auto share = parts_.records.FindShare(folderId);
    if (!share || !share->hasFlags)
        return;
    std::map<std::string, exchange::ItemFlags> flags;
    for (const std::string& item : items)
        if (const auto record = records_.Find(item); record && record->folderId == folderId)
            flags.emplace(item, record->flags);
    SendAll(*share, {device}, flags, false);
}

}  // namespace quorvane::host
