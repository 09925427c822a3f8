#include "host/sharing/item_versions.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "host/base/output.h"
#include "host/base/progress.h"
#include "host/exchange/error.h"
#include "host/sharing/message_content.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

void SayOfItem(const std::string& line)
{
    Tell("quorvane: " + line);
}

// Whether two revisions have the same content, as far as that is known: of a former version's it isn't.
bool IsSameText(const exchange::Revision& one, const exchange::Revision& another)
{
    return !one.isDeletion && !another.isDeletion && one.content == another.content &&
           one.content != exchange::ContentDigest{};
}

}  // namespace

std::string RevisionText(const exchange::Revision& revision)
{
    exchange::ItemHeads alone;
    alone.Take(revision);
    return FormatHeads(alone);
}

ItemRecord ItemVersions::Known(const std::string& id, const std::string& folderId)
{
    auto record = records_.FindItem(id);
    if (!record)
        return ItemRecord{id, folderId, {}, false, 0};
    if (!record->heads.Shown())
        record->heads = FormerHeads(record->version, record->deleted);
    record->folderId = folderId;
    return *record;
}

// Brings what the records tell of who made the shown version up to the heads.
void ItemVersions::ShowHeads(ItemRecord& record, const std::string& member) const
{
    const exchange::Revision& shown = *record.heads.Shown();
    const std::string known = records_.MemberOf(shown.by);
    record.version = {shown.stamp, known.empty() ? member : known};
    record.deleted = shown.isDeletion;
}

void ItemVersions::Change(ItemRecord& record, std::uint64_t when,
                          const std::optional<exchange::ContentDigest>& content)
{
    const Records::Changer own = records_.OwnChanger();
    const exchange::Revision made =
        record.heads.Change(own.changer, own.device, when, content, [&](const exchange::Revision& beaten) {
            return records_.FindItem(exchange::ConflictCopyId(record.id, beaten)).has_value();
        });
    record.isWhole = *record.heads.Shown() == made;
    record.isPending = true;
    ShowHeads(record, mailbox_.Name());
}

ItemRecord ItemVersions::Present(const std::string& id, const std::string& folderId, IMessage& message)
{
    ItemRecord record = Known(id, folderId);
    const exchange::ContentDigest content = DigestOf(ReadContent(message, id));
    const exchange::Revision* const shown = record.heads.Shown();
    if (!shown || shown->isDeletion || shown->content != content)
        Change(record, TimeOf(message, PR_LAST_MODIFICATION_TIME), content);
    return record;
}

ItemRecord ItemVersions::Deleted(const std::string& id, const std::string& folderId)
{
    ItemRecord record = Known(id, folderId);
    const exchange::Revision* const shown = record.heads.Shown();
    if (!shown || !shown->isDeletion)
        Change(record, FileTimeNow(), std::nullopt);
    return record;
}

// A change of a message that didn't show what its item does: it made no version.
exchange::Revision ItemVersions::Unseen(const std::string& id, IMessage& message) const
{
    exchange::Revision made;
    made.stamp = TimeOf(message, PR_LAST_MODIFICATION_TIME);
    made.by = records_.OwnChanger().device;
    made.content = DigestOf(ReadContent(message, id));
    return made;
}

// The content that goes, before anything takes its place; what was made here comes back as an item of its
// own.
void ItemVersions::Keep(const ItemRecord& before, const ItemRecord& after, IMessage& message,
                        const std::optional<exchange::Revision>& unseen)
{
    const exchange::Revision gone = unseen.value_or(*before.heads.Shown());
    const exchange::Revision& next = *after.heads.Shown();
    // Of an item that isn't whole here, the message shows something else.
    if (before.isWhole &&
        (gone.isDeletion || (!next.isDeletion && next.Supersedes(gone)) || IsSameText(gone, next)))
        return;
    const std::vector<exchange::Revision> beaten = after.heads.Beaten();
    const bool isBeaten = std::find(beaten.begin(), beaten.end(), gone) != beaten.end();
    const bool isOwn = unseen || (before.isWhole && isBeaten && gone.by == records_.OwnChanger().device);
    TrashEntry entry;
    entry.item = before.id;
    entry.folderId = before.folderId;
    entry.folder = FolderName(before.folderId);
    entry.revision =
        before.isWhole || unseen ? RevisionText(gone) : TimeText(TimeOf(message, PR_LAST_MODIFICATION_TIME));
    entry.subject = TextOf(message, PR_SUBJECT_W);
    entry.member = after.version.member;
    entry.since = FileTimeNow();
    entry.why = isOwn             ? TrashEntry::Why::kBeaten
                : next.isDeletion ? TrashEntry::Why::kDeleted
                                  : TrashEntry::Why::kReplaced;
    if (isOwn)
        entry.copy = exchange::ConflictCopyId(before.id, gone);
    trash_.Keep(entry, message);
    if (isOwn)
        SayOfItem("conflict: '" + entry.subject + "' in '" + entry.folder + "' was changed here and by '" +
                  entry.member + "' at once; what '" + entry.member +
                  "' made of it is shown, and what was made of it here is kept beside it");
}

// Whether the message of an item that isn't whole was changed by somebody: it is neither what it was when the
// item became that, nor what the item shows, which a kill came behind. A row's time tells whole seconds, in
// which somebody may well have changed it.
bool ItemVersions::IsUnseen(const ItemRecord& record, IMessage& message) const
{
    const exchange::Revision* const shown = record.heads.Shown();
    return shown && !shown->isDeletion && record.modified != TimeOf(message, PR_LAST_MODIFICATION_TIME) &&
           DigestOf(ReadContent(message, record.id)) != shown->content;
}

void ItemVersions::KeepUnseen(const ItemRecord& record, IMessage& message)
{
    if (IsUnseen(record, message))
        Keep(record, record, message, Unseen(record.id, message));
}

std::string ItemVersions::FolderName(const std::string& folderId)
{
    const auto share = records_.FindShare(folderId);
    return share ? share->name : folderId;
}

// What is known of an item, and of a change of its message that nobody was told of.
ItemRecord ItemVersions::KnownWith(const Arrival& arrival, const SharingRow& row, IMessage& message,
                                   bool& isUnseen)
{
    const ItemRecord record = Known(arrival.id, arrival.folderId);
    if (!record.isWhole) {
        isUnseen = IsUnseen(record, message);
        return record;
    }
    if (state_.IsCurrent(row, arrival.folderId, TimeOf(message, PR_LAST_MODIFICATION_TIME)))
        return record;
    ItemRecord changed = Present(arrival.id, arrival.folderId, message);
    changed.modified = record.modified;
    return changed;
}

ItemVersions::Verdict ItemVersions::Judge(const Arrival& arrival)
{
    const auto sent = ParseItem(arrival.text, !arrival.hasMessage);
    Verdict verdict;
    verdict.record = Known(arrival.id, arrival.folderId);
    if (!sent || (arrival.hasMessage && sent->heads.Shown()->isDeletion)) {
        SayOfItem("left out an item from '" + arrival.sender +
                  "': what it says of its version can't be understood");
        return verdict;
    }
    const auto row = state_.RowOfId(arrival.id);
    const ComPtr<IMessage> message = row ? OpenMessage(mail_, row->entryId, false) : nullptr;
    bool isUnseen = false;
    if (message)
        verdict.record = KnownWith(arrival, *row, *message, isUnseen);
    try {
        Join(arrival, *sent, {row.has_value(), message.Get(), isUnseen}, verdict);
    } catch (const exchange::Error& error) {
        SayOfItem("left out an item from '" + arrival.sender + "': " + error.what());
    }
    return verdict;
}

void ItemVersions::Join(const Arrival& arrival, const ItemText& sent, const Held& here, Verdict& verdict)
{
    const auto [hasRow, message, isUnseen] = here;
    ItemRecord& record = verdict.record;
    const ItemRecord before = record;
    // Without a row there is no message, whatever the records say: a power cut came between them.
    if (!hasRow && before.heads.Shown() && !before.heads.Shown()->isDeletion)
        record.isWhole = false;
    exchange::KnownItem own{record.id, record.heads, record.isWhole};
    const bool isWhole = arrival.hasMessage || sent.heads.Shown()->isDeletion;
    const exchange::ItemTaken taken = exchange::TakeItem(own, {arrival.id, sent.heads, isWhole});
    record.heads = own.heads;
    record.isWhole = own.isWhole;
    const exchange::Revision& shown = *record.heads.Shown();
    const bool isAnother = !before.heads.Shown() || shown != *before.heads.Shown();
    ShowHeads(record, isAnother || before.version.member.empty() ? sent.member : before.version.member);
    // A deletion that a kill came before.
    const bool isLeftOver = shown.isDeletion && !arrival.hasMessage && message;
    verdict.isApplied = taken == exchange::ItemTaken::kApply || isLeftOver;
    verdict.isNoted = taken != exchange::ItemTaken::kKnown || record.isPending;
    if (message && before.heads.Shown() && (isAnother || isUnseen) &&
        (verdict.isApplied || !record.isWhole)) {
        const bool goes = isUnseen && verdict.isApplied;
        Keep(before, record, *message, goes ? std::optional(Unseen(record.id, *message)) : std::nullopt);
    }
    // What is here isn't what the item shows, and was kept: whatever is another than this is changed later.
    const std::uint64_t dealtWith = message ? TimeOf(*message, PR_LAST_MODIFICATION_TIME) : 0;
    if (!verdict.isApplied) {
        if (message && !record.isWhole && !isUnseen)
            record.modified = dealtWith;
        return;
    }
    if (before.deleted && !record.deleted)
        SayOfItem("'" + record.version.member + "' changed an item of '" + FolderName(record.folderId) +
                  "' that was deleted meanwhile: it is back");
    if (record.deleted)
        return;
    // The same edit made by two is applied already.
    if (message && !isUnseen && before.isWhole && before.heads.Shown() &&
        IsSameText(*before.heads.Shown(), shown)) {
        verdict.isApplied = false;
        return;
    }
    record.isWhole = false;  // until it is applied to the end
    record.modified = dealtWith;
}

}  // namespace quorvane::host
