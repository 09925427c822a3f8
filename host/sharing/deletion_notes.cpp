#include "host/sharing/deletion_notes.h"

#include "host/base/errors.h"
#include "host/sharing/text_set.h"
#include "host/store/folders.h"

namespace quorvane::host {

ItemRecord DeletionNotes::Note(const std::string& id, const std::string& folderId)
{
    const auto known = records_.FindItem(id);
    if (known && known->deleted && known->isPending && known->heads.Shown() && known->folderId == folderId)
        return *known;
    const ItemRecord record = versions_.Deleted(id, folderId);
    records_.PutItem(record);
    Row& row = rows_[folderId];
    if (++row.alone >= row.patience)
        LookAhead(folderId, row);
    return record;
}

void DeletionNotes::NoteAll(const std::vector<std::string>& ids, const std::string& folderId)
{
    std::vector<ItemRecord> notes;
    for (const std::string& id : ids)
        if (records_.FindItem(id))
            notes.push_back(versions_.Deleted(id, folderId));
    records_.PutItems(notes);
}

// A folder of which single items go is looked through less and less often.
void DeletionNotes::LookAhead(const std::string& folderId, Row& row)
{
    row.alone = 0;
    const auto share = records_.FindShare(folderId);
    const ComPtr<IMAPIFolder> folder = share ? OpenFolder(mail_, share->entryId) : nullptr;
    if (!folder)
        return;
    TextSet present;
    ForEachItem(*folder, [&](const ItemInfo& item) { present.Add(item.entryId); });
    std::vector<std::string> gone;
    records_.ForEachItem(folderId, Records::Deleted::kLeftOut, [&](const ItemRecord& record) {
        const auto known = state_.RowOfId(record.id);
        if (known && record.isWhole && !present.Has(known->entryId) && IsGone(known->entryId))
            gone.push_back(record.id);
    });
    row.patience = gone.empty() ? 2 * row.patience : kPatience;
    NoteAll(gone, folderId);
}

// From all shared folders. One that can't be read just now isn't.
bool DeletionNotes::IsGone(const std::string& entryId) const
try {
    const std::string place = FolderOfMessage(mail_, entryId);
    return place.empty() || !records_.FindShareByEntryId(place);
} catch (const HostError&) {
    return false;
}

}  // namespace quorvane::host
