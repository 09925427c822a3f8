#include "host/sharing/recovery.h"

#include <utility>

#include "host/sharing/message_content.h"
#include "host/store/folders.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// A damaged message shows nothing.
bool Shows(const exchange::ItemHeads& heads, IMessage& message, const std::string& id)
try {
    const exchange::Revision* const shown = heads.Shown();
    return shown && !shown->isDeletion && shown->content == DigestOf(ReadContent(message, id));
} catch (const HostError& error) {
    if (error.IsPassing())
        throw;
    return false;
}

// What an item shows that was taken up here and never changed since.
exchange::ItemHeads FirstHeads(const Records::Changer& own, const exchange::Revision& shown)
{
    exchange::Revision first = shown;
    first.version = {};
    first.version.Raise(own.changer);
    first.by = own.device;
    exchange::ItemHeads heads;
    heads.Take(first);
    return heads;
}

}  // namespace

void Recovery::MendReceived(const std::filesystem::path& path)
{
    std::map<std::string, Wanted> wanted;  // by folder
    const auto visit = [&](const PackageRecord& record, IStorage& storage) {
        const auto sent = ParseItem(record.customInfo, false);
        if (!sent || !sent->heads.Shown())
            return;
        const Item item{record.id, record.folderId, *sent};
        if (const auto row = parts_.state.RowOfId(item.id)) {
            Mend(item, *row);
            return;
        }
        const auto known = parts_.records.FindItem(item.id);
        MsgFile file;
        // A copy of one that was deleted shares its search key.
        if ((known && known->deleted) || FAILED(file.OpenOn(storage)))
            return;
        if (const std::string key = HexOf(file.Message(), PR_SEARCH_KEY); !key.empty())
            wanted[item.folderId].emplace(key, item);
    };
    ReadPackage(*OpenCompoundFile(path), path.string(), visit);
    for (const auto& [folderId, items] : wanted)
        MatchFolder(folderId, items);
}

void Recovery::Mend(const Item& item, const SharingRow& row)
{
    if (const ComPtr<IMessage> message = OpenMessage(parts_.mail, row.entryId, false)) {
        MendMessage(item, *message);
        return;
    }
    if (WasDeleted(row.entryId) || !FolderOfMessage(parts_.mail, row.entryId).empty())
        return;
    if (auto record = parts_.records.FindItem(item.id); record && !record->deleted) {
        record->isWhole = false;
        record->modified = 0;
        parts_.records.PutItem(*record);
    }
    Check(engine_.Session().DeleteItem(BstrOf(item.id).Get()), "forget the row of", item.id);
}

// A message's time grows with each change of it.
void Recovery::MendMessage(const Item& item, IMessage& message)
{
    const std::uint64_t modified = TimeOf(message, PR_LAST_MODIFICATION_TIME);
    const auto known = parts_.records.FindItem(item.id);
    if (known && (known->deleted || !known->isWhole || known->modified == modified))
        return;
    ItemRecord record = known.value_or(ItemRecord{item.id, item.folderId, {}, false, 0});
    const bool isLost = modified < record.modified;
    if (!isLost && (!Shows(item.sent.heads, message, item.id) ||
                    (record.heads.Shown() && !record.heads.Lacks(item.sent.heads))))
        return;  // changed here since
    if (!isLost) {
        record.heads.Take(item.sent.heads);
        if (*record.heads.Shown() != *item.sent.heads.Shown())
            return;
        record.version = {record.heads.Shown()->stamp, item.sent.member};
    }
    record.isWhole = false;
    record.modified = modified;
    parts_.records.PutItem(record);
}

// Nothing is written while the folder is read.
void Recovery::MatchFolder(const std::string& folderId, const Wanted& wanted)
{
    const auto share = parts_.records.FindShare(folderId);
    const ComPtr<IMAPIFolder> folder = share ? OpenFolder(parts_.mail, share->entryId) : nullptr;
    if (!folder)
        return;
    std::map<std::string, std::pair<std::string, Item>> matches;  // by item
    ForEachItem(*folder, [&](const ItemInfo& row) {
        const auto [begin, end] = wanted.equal_range(row.searchKey);
        if (begin == end || parts_.state.RowOfEntry(row.entryId))
            return;
        const ComPtr<IMessage> message = OpenMessage(parts_.mail, row.entryId, false);
        for (auto item = begin; message && item != end; ++item)
            if (!matches.contains(item->second.id) &&
                Shows(item->second.sent.heads, *message, item->second.id)) {
                matches.emplace(item->second.id, std::pair(row.entryId, item->second));
                return;
            }
    });
    for (const auto& [id, match] : matches) {
        const auto& [entryId, item] = match;
        Check(engine_.Session().ImportItem(BstrOf(id).Get(), BstrOf(entryId).Get(),
                                           BstrOf(share->storeId).Get()),
              "note an item of", share->name);
        if (const ComPtr<IMessage> message = OpenMessage(parts_.mail, entryId, false))
            MendMessage(item, *message);
    }
}

bool Recovery::WasDeleted(const std::string& entryId)
{
    if (!deleted_)
        deleted_.emplace(parts_.mailbox);
    return deleted_->Has(entryId);
}

void Recovery::ForgetUnsent(const Share& share)
{
    const Records::Changer own = parts_.records.OwnChanger();
    parts_.records.ForEachItem(share.folderId, Records::Deleted::kLeftOut, [&](const ItemRecord& record) {
        const exchange::Revision* const shown = record.heads.Shown();
        if (record.isWhole && shown && !shown->isDeletion && record.heads == FirstHeads(own, *shown) &&
            !parts_.state.RowOfId(record.id))
            parts_.records.ForgetItem(record.id);
    });
}

}  // namespace quorvane::host
