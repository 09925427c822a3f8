#include "host/sharing/addin.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "host/base/output.h"
#include "host/base/path_text.h"
#include "host/base/progress.h"
#include "host/mailbox/item_text.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr char kNoItem[] = "-";  // an ID that no row has

// Answers a report so that the engine sends nothing and leaves row and hash as they are.
constexpr HRESULT kDeclined = E_ABORT;

// How long a change waits for the end of an item being applied, should the end never be told.
constexpr auto kApplyingPatience = std::chrono::seconds(10);

std::string FolderIdOf(IItem& item)
{
    ComPtr<IFolder> folder;
    Check(item.get_Folder(folder.Put()), "find the folder of", "an item");
    return ReadText(*folder, &IFolder::get_ID);
}

}  // namespace

ComPtr<IFolder> AddEngineFolder(const EngineSession& engine, const Share& share)
{
    const Variant id = Variant::Text(FromUtf8(share.folderId));
    const Variant missing = Variant::Missing();
    ComPtr<IFolder> folder;
    Check(engine.Folders()->Add(BstrOf(share.entryId).Get(), BstrOf(share.storeId).Get(), id.Raw(),
                                missing.Raw(), folder.Put()),
          "watch the folder", share.name);
    return folder;
}

void Addin::Log(const char* event, const std::string& id, const std::string& what) const
{
    if (parts_.verbose)
        Tell(std::string(event) + " " + id + (what.empty() ? "" : " ") + what);
}

// With the subject that the item has here, if it is here.
void Addin::LogWithSubject(const char* event, const std::string& id) const
{
    if (!parts_.verbose)
        return;
    const auto row = parts_.state.RowOfId(id);
    const ComPtr<IMessage> message = row ? OpenMessage(parts_.mail, row->entryId, false) : nullptr;
    Log(event, id, message ? TextOf(*message, PR_SUBJECT_W) : std::string());
}

// A scan of the whole folder can meet a message between its last change by the engine and its row: the change
// then looks like one made here, and is judged when the item in hand is done. A message without a row that
// anybody knows may be any item of its folder.
void Addin::AwaitApplying(const std::string& entryId, const std::string& folderId) const
{
    const ApplyGuard::Item inHand = parts_.applying.InHand();
    if (inHand.id.empty() || inHand.folderId != folderId)
        return;
    const auto row = parts_.state.RowOfEntry(entryId);
    if (!row || row->id == inHand.id || !parts_.records.FindItem(row->id))
        parts_.applying.AwaitEnd(inHand, kApplyingPatience);
}

// A message that appears in a folder and has a row already passes for one that was moved there, and the
// engine gives it a new ID. One that is changed right after it was applied looks the same, and stays the item
// that it is. The row to update is the one of the ID that the item had before the last put_ID.
HRESULT Addin::ChooseId(IItem& item, const SharingRow& row, bool stays)
{
    const Bstr chosen = BstrOf(stays ? row.id : ReadText(item, &IItem::get_ID));
    const HRESULT hr = item.put_ID(BstrOf(row.id).Get());
    return SUCCEEDED(hr) ? item.put_ID(chosen.Get()) : hr;
}

HRESULT Addin::Examine(IItem& item, LocalItem& local)
{
    parts_.statistics.Touch();
    const std::string entryId = ReadText(item, &IItem::get_EntryID);
    local.folderId = FolderIdOf(item);
    AwaitApplying(entryId, local.folderId);
    HRESULT hr = item.get_Raw(local.raw.Put());
    if (SUCCEEDED(hr))
        hr = local.raw.As(local.message);
    if (FAILED(hr))
        return hr;
    local.modified = TimeOf(*local.message, PR_LAST_MODIFICATION_TIME);
    local.row = parts_.state.DropStrayRows(entryId);
    if (local.row)
        local.known = parts_.records.FindItem(local.row->id);
    local.isOfThisFolder = local.known && !local.known->deleted && local.known->folderId == local.folderId;
    local.isCurrent = local.isOfThisFolder && ItemState::IsCurrent(*local.row, *local.known, local.modified);
    return S_OK;
}

// The row of a message that was moved here is about to get a new ID: of the item that it was in another
// shared folder nothing but a note is left then, should the engine not report that it is gone from there.
void Addin::NoteDeparture(const LocalItem& local)
{
    if (!local.row || !local.known || local.isOfThisFolder || local.known->deleted ||
        !parts_.records.FindShare(local.known->folderId))
        return;
    const auto lock = versions_.Hold();
    deletions_.Note(local.row->id, local.known->folderId);
}

// Makes the item ready to be sent: under its ID, and as the version that it is. One whose content is as it
// was sent isn't sent, and one that shows what isn't here waits for that.
HRESULT Addin::Stamp(IItem& item, const LocalItem& local, const char* event, bool isGiven, bool& ignore)
{
    NoteDeparture(local);
    HRESULT hr = local.row ? ChooseId(item, *local.row, local.isOfThisFolder || !local.known) : S_OK;
    if (FAILED(hr))
        return hr;
    const auto lock = versions_.Hold();
    const std::string id = ReadText(item, &IItem::get_ID);
    ItemRecord record = versions_.Known(id, local.folderId);
    if (!record.isWhole)
        return kDeclined;
    const bool wasPending = record.isPending;
    if (!local.isCurrent)
        record = versions_.Present(id, local.folderId, *local.message);
    // Nobody but the member who is given it waits for it.
    record.isPending = wasPending || (record.isPending && !isGiven);
    ignore = !isGiven && !record.isPending;
    record.modified = local.modified;
    hr = ignore ? S_OK : item.put_CustomInfo(BstrOf(FormatItem(record)).Get());
    if (FAILED(hr))
        return hr;
    parts_.records.PutItem(record);
    if (ignore)
        return S_OK;
    MakeRoomFor(*local.message);
    ++parts_.statistics.itemsSent;
    Log(event, record.id, TextOf(*local.message, PR_SUBJECT_W));
    return S_OK;
}

void Addin::MakeRoomFor(IMessage& message)
{
    const LONG size = LongOf(message, PR_MESSAGE_SIZE);
    const std::lock_guard lock(rulesMutex_);
    if (room_)
        room_->MakeRoom(size > 0 ? static_cast<std::uint64_t>(size) : 0);
}

HRESULT Addin::OnLocalChange(const char* event, IItem& item, bool& ignore)
{
    LocalItem local;
    HRESULT hr = Examine(item, local);
    // Gives the item the time of the message, which the engine then writes to the row, sent or not.
    if (SUCCEEDED(hr))
        hr = item.put_Raw(local.raw.Get());
    if (FAILED(hr))
        return hr;
    if (local.isCurrent) {
        if (local.known->version.member != parts_.mailbox.Name())
            ++parts_.statistics.echoes;
        ignore = true;
        return S_OK;
    }
    if (local.known && !local.isOfThisFolder && local.row->id == ReadText(item, &IItem::get_ID)) {
        ignore = true;  // moved here, and the engine doesn't know: it is sent as what it is, by comparison
        return S_OK;
    }
    return Stamp(item, local, event, false, ignore);
}

// One that was moved here is sent by comparison.
bool Addin::IsWanted(BSTR job, const LocalItem& local)
{
    if (!local.row || (local.known && !local.isOfThisFolder))
        return false;
    const std::lock_guard lock(rulesMutex_);
    return rules_ && rules_->Wants(ToUtf8(ViewOf(job)), local.row->id, local.known, local.isCurrent);
}

// An item that isn't wanted keeps the time in its row: if it has changed, that is still to be found.
HRESULT Addin::OnItemResend(IItem* item, BSTR jobId, bool& ignore)
{
    LocalItem local;
    HRESULT hr = Examine(*item, local);
    if (FAILED(hr))
        return hr;
    ignore = !IsWanted(jobId, local);
    if (ignore)
        return S_OK;
    hr = item->put_Raw(local.raw.Get());
    return SUCCEEDED(hr) ? Stamp(*item, local, "onItemResend", true, ignore) : hr;
}

// The engine takes for deleted what it doesn't see in the folder's table, and a table that can't be read to
// its end hides messages that are there.
bool Addin::IsStillThere(IItem& item) const
{
    ComPtr<IFolder> folder;
    Check(item.get_Folder(folder.Put()), "find the folder of", "an item");
    const std::string place = FolderOfMessage(parts_.mail, ReadText(item, &IItem::get_EntryID));
    return !place.empty() && place == ReadText(*folder, &IFolder::get_EntryID);
}

HRESULT Addin::OnItemDeleted(IItem* item, bool& ignore)
{
    parts_.statistics.Touch();
    const std::string id = ReadText(*item, &IItem::get_ID);
    const std::string folderId = FolderIdOf(*item);
    if (IsStillThere(*item)) {
        Log("onItemDeleted", id, "is still there");
        return kDeclined;
    }
    const auto lock = versions_.Hold();
    const auto known = parts_.records.FindItem(id);
    if (known && known->folderId != folderId) {
        // It was moved to another folder, and is that one's item already: its row stays.
        ignore = true;
        return item->put_ID(BstrOf(kNoItem).Get());
    }
    const ItemRecord record = deletions_.Note(id, folderId);
    const HRESULT hr = item->put_CustomInfo(BstrOf(FormatItem(record)).Get());
    if (FAILED(hr))
        return hr;
    ++parts_.statistics.deletionsSent;
    Log("onItemDeleted", record.id, {});
    return S_OK;
}

void Addin::KeepMarks(const Arrival& arrival)
{
    const std::lock_guard lock(rulesMutex_);
    if (marks_)
        marks_->KeepMarks(arrival.id, arrival.folderId);
}

// What is known of it is noted before it is applied: a kill in between brings the item again, which is then
// applied.
HRESULT Addin::OnItemReceived(IItem* item, BSTR tag, bool& ignore)
{
    parts_.statistics.Touch();
    parts_.applying.End();  // of the item before, should it have failed
    qv_Action action = qv_ac_NoAction;
    const HRESULT hr = item->get_Action(&action);
    if (FAILED(hr))
        return hr;
    const bool deletion = action == qv_ac_Deleted;
    const Arrival arrival{ReadText(*item, &IItem::get_ID), FolderIdOf(*item), ToUtf8(ViewOf(tag)),
                          ReadText(*item, &IItem::get_CustomInfo), !deletion};
    const auto lock = versions_.Hold();
    const ItemVersions::Verdict verdict = versions_.Judge(arrival);
    if (verdict.isApplied && !deletion) {
        KeepMarks(arrival);
        parts_.applying.Begin(arrival.id, arrival.folderId);
    }
    if (verdict.isNoted || verdict.isApplied)
        parts_.records.PutItem(verdict.record);
    ignore = !verdict.isApplied;
    if (ignore) {
        ++parts_.statistics.itemsIgnored;
        LogWithSubject("ignored", arrival.id);
        return S_OK;
    }
    LogWithSubject(deletion ? "deleted" : "onItemReceived", arrival.id);
    ignore = deletion && !parts_.state.RowOfId(arrival.id);  // nothing here to delete
    deletion ? ++parts_.statistics.deletionsApplied : ++parts_.statistics.itemsApplied;
    return S_OK;
}

// The message that was just written is the item's present version: its exact time goes into the record.
HRESULT Addin::OnPostprocess(BSTR entryId, BSTR /*storeId*/)
{
    struct EndOfItem {
        ApplyGuard& applying;
        ~EndOfItem() { applying.End(); }
    };
    const EndOfItem end{parts_.applying};
    parts_.statistics.Touch();
    const std::string entry = ToUtf8(ViewOf(entryId));
    const auto row = parts_.state.RowOfEntry(entry);
    const ComPtr<IMessage> message = OpenMessage(parts_.mail, entry, false);
    if (row && message) {
        const std::uint64_t modified = TimeOf(*message, PR_LAST_MODIFICATION_TIME);
        if (row->lastModified == RowTimeOf(modified))
            parts_.records.SetModified(row->id, modified);
        if (parts_.verbose)
            Log("applied", row->id, TextOf(*message, PR_SUBJECT_W));
    }
    return S_OK;
}

HRESULT Addin::DatabasePath(Bstr& path)
{
    path = Bstr(OleTextOf(parts_.mailbox.SharingDatabasePath()));
    return S_OK;
}

HRESULT Addin::ProductCode(Bstr& code)
{
    code = Bstr(OleStringView(kProductCode));
    return S_OK;
}

}  // namespace quorvane::host
