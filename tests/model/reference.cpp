#include "tests/model/reference.h"

#include <algorithm>
#include <sstream>

#include "msgstore/store/test_switches.h"

namespace quorvane::model {

namespace {

// More rows than this a table tells of as a whole.
constexpr std::size_t kMostRowEvents = 64;
constexpr long kNoFlags = -1;

std::string HashOf(const Mail& mail)
{
    return "#" + mail.time;
}

std::string RecordOf(const std::string& hash, long flags)
{
    return hash + "\t" + std::to_string(flags);
}

// A record as it is read: what tabs divide, without the empty parts. So the
// flags of a record without a hash are taken for the hash.
struct ReadRecord {
    std::string hash;
    long flags = kNoFlags;
};
ReadRecord Read(const std::map<EntryId, std::string>& hashes, const EntryId& entryId)
{
    ReadRecord record;
    const auto found = hashes.find(entryId);
    if (found == hashes.end())
        return record;
    std::vector<std::string> parts;
    std::istringstream text(found->second);
    for (std::string part; std::getline(text, part, '\t');) {
        if (!part.empty())
            parts.push_back(part);
    }
    if (!parts.empty())
        record.hash = parts[0];
    if (parts.size() > 1)
        record.flags = std::stol(parts[1]);
    return record;
}

}  // namespace

void Reference::Put(const EntryId& entryId, const Mail& mail)
{
    const auto old = mails_.find(entryId);
    if (old != mails_.end())
        Touch(old->second.folder, entryId);
    Touch(mail.folder, entryId);
    mails_[entryId] = mail;
}

void Reference::PutCopy(const EntryId& entryId, const Mail& mail, unsigned from)
{
    Touch(from, entryId);
    Put(entryId, mail);
}

void Reference::Remove(const EntryId& entryId)
{
    Touch(mails_.at(entryId).folder, entryId);
    mails_.erase(entryId);
}

void Reference::Touch(unsigned folder, const EntryId& entryId)
{
    if (folder >= kFolders)
        return;
    std::vector<EntryId>& touched = watched_[folder].touched;
    if (std::find(touched.begin(), touched.end(), entryId) == touched.end())
        touched.push_back(entryId);
}

// Locks and moved items live in memory. What a table had to tell is lost with
// its subscription.
void Reference::EndSession(bool forgets)
{
    locks_.clear();
    moved_.clear();
    for (unsigned folder = 0; folder < kFolders; ++folder) {
        TakeEvents(folder);
        watched_[folder].suspended = false;
        if (forgets)
            watched_[folder].hashes.clear();
    }
}

std::vector<EntryId> Reference::Table(unsigned folder) const
{
    std::vector<EntryId> rows;
    for (const auto& [entryId, mail] : mails_) {
        if (mail.folder == folder)
            rows.push_back(entryId);
    }
    std::sort(rows.begin(), rows.end(), [this](const EntryId& left, const EntryId& right) {
        return mails_.at(left).number < mails_.at(right).number;
    });
    return rows;
}

// A row that came and went is nothing, one that went and came is modified.
std::vector<Reference::TableEvent> Reference::TakeEvents(unsigned folder)
{
    Watched& watched = watched_[folder];
    const std::vector<EntryId> rows = Table(folder);
    const std::set<EntryId> shown(rows.begin(), rows.end());
    std::vector<TableEvent> events;
    for (const EntryId& entryId : watched.touched) {
        const bool was = watched.shown.contains(entryId);
        const bool is = shown.contains(entryId);
        if (was || is)
            events.push_back({!was ? Event::Added : is ? Event::Modified : Event::Deleted, entryId});
    }
    watched.touched.clear();
    watched.shown = shown;
    if (events.size() > kMostRowEvents || (!events.empty() && rules_.tellsOfTablesOnly))
        events = {{Event::Changed, {}}};
    return events;
}

Delivery Reference::Deliver(unsigned folder, unsigned seed)
{
    std::vector<TableEvent> events = TakeEvents(folder);
    if (seed != 0)
        ShuffleBySeed(seed, events.data(), events.size());
    Delivery delivery;
    delivery.told = static_cast<unsigned>(events.size());
    if (watched_[folder].suspended)
        return delivery;
    bool deletionsDone = false;
    for (const auto& [event, entryId] : events) {
        std::vector<Change> changes;
        std::vector<EntryId> gone;
        if (event == Event::Deleted && std::exchange(deletionsDone, true))
            continue;
        if (event == Event::Changed || event == Event::Deleted)
            gone = FindGone(folder);
        if (event == Event::Changed || (event != Event::Deleted && rules_.rowsAreNarrow))
            changes = ScanTable(folder);
        else if (event != Event::Deleted)
            ScanRow(folder, entryId, false, changes);
        WorkOff(folder, event, changes, gone, delivery);
    }
    return delivery;
}

// At first sight flags are recorded at once, and what there was for a hash is
// kept.
void Reference::ScanRow(unsigned folder, const EntryId& entryId, bool all, std::vector<Change>& changes)
{
    const Mail& mail = mails_.at(entryId);
    std::map<EntryId, std::string>& hashes = watched_[folder].hashes;
    const ReadRecord before = Read(hashes, entryId);
    if (before.flags == kNoFlags)
        hashes[entryId] = RecordOf(before.hash, mail.flags);
    if (all || before.hash != HashOf(mail))
        changes.push_back({entryId, HashOf(mail), mail.flags});
}

// What a look at the whole table found is recorded before anybody is asked, and
// so is what a restriction hides.
std::vector<Reference::Change> Reference::ScanTable(unsigned folder, bool all,
                                                    const std::optional<std::string>& since)
{
    std::vector<Change> changes;
    for (const EntryId& entryId : Table(folder)) {
        if (!since || std::stoull(mails_.at(entryId).time) >= std::stoull(*since))
            ScanRow(folder, entryId, all, changes);
    }
    std::vector<Change> again;
    for (const EntryId& entryId : Table(folder))
        ScanRow(folder, entryId, all, again);
    for (const Change& change : again)
        watched_[folder].hashes[change.entryId] = RecordOf(change.hash, change.flags);
    return changes;
}

std::vector<EntryId> Reference::FindGone(unsigned folder) const
{
    std::vector<EntryId> gone;
    for (const auto& [entryId, record] : watched_[folder].hashes) {
        const auto mail = mails_.find(entryId);
        if (mail == mails_.end() || mail->second.folder != folder)
            gone.push_back(entryId);
    }
    return gone;
}

void Reference::WorkOff(unsigned folder, Event event, const std::vector<Change>& changes,
                        const std::vector<EntryId>& gone, Delivery& delivery)
{
    for (const Change& change : changes) {
        if (const auto call = WorkOffChange(folder, event, change))
            delivery.calls.push_back({*call});
    }
    std::vector<Call> deletions;
    for (const EntryId& entryId : gone) {
        if (const auto call = WorkOffDeletion(folder, entryId))
            deletions.push_back(*call);
    }
    if (!deletions.empty())
        delivery.calls.push_back(deletions);
}

// An item that is known but comes as an addition is told and sent under a new
// ID, while its row keeps the old one. Where the host fails, nothing is
// recorded.
std::optional<Call> Reference::WorkOffChange(unsigned folder, Event event, const Change& change)
{
    const bool locked = TakeLock(change.entryId);
    const bool added = event == Event::Added;
    const auto [row, isNew] = rows_.try_emplace(change.entryId);
    if (isNew)
        row->second = NewId();
    Id id = row->second;
    if (!isNew && added) {
        moved_[change.entryId] = id;
        id = NewId();
    }
    std::optional<Call> call;
    if (!locked) {
        call = Call{change.entryId, id, added ? kAdded : kModified};
        const Answer answer = TakeAnswer(change.entryId);
        if (answer == Answer::Fail)
            return call;
        if (answer == Answer::Accept)
            Send(folderIds_[folder], folder, id, call->action, mails_.at(change.entryId).subject);
    }
    watched_[folder].hashes[change.entryId] = RecordOf(change.hash, change.flags);
    return call;
}

// What nobody knows goes unheard. A moved item's row and hash stay, for it in
// its new place.
std::optional<Call> Reference::WorkOffDeletion(unsigned folder, const EntryId& entryId)
{
    const bool locked = TakeLock(entryId);
    const auto row = rows_.find(entryId);
    if (row == rows_.end())
        return std::nullopt;
    const auto moved = moved_.find(entryId);
    const Id id = moved != moved_.end() ? moved->second : row->second;
    std::optional<Call> call;
    if (!locked) {
        call = Call{entryId, id, kDeleted};
        const Answer answer = TakeAnswer(entryId);
        if (answer == Answer::Fail)
            return call;
        if (answer == Answer::Accept)
            Send(folderIds_[folder], folder, id, kDeleted, std::nullopt);
    }
    if (moved != moved_.end()) {
        moved_.erase(moved);
    } else {
        rows_.erase(row);
        watched_[folder].hashes.erase(entryId);
    }
    return call;
}

bool Reference::TakeLock(const EntryId& entryId)
{
    const auto lock = locks_.find(entryId);
    if (lock == locks_.end())
        return false;
    if (lock->second)
        locks_.erase(lock);
    return true;
}

Answer Reference::TakeAnswer(const EntryId& entryId)
{
    const auto answer = answers_.extract(entryId);
    return answer ? answer.mapped() : Answer::Accept;
}

void Reference::Send(const std::string& to, unsigned folder, const Id& id, long action,
                     std::optional<std::string> subject)
{
    packages_[to][id] = {folderIds_[folder], action, std::move(subject)};
}

// What differs is offered, or everything; then what is gone, to the folder's
// usual members. Locks and moves count for nothing. A host that cancels is
// asked about nothing more.
Delivery Reference::RunResend(const Resend& resend)
{
    const std::string job = resend.job ? *resend.job : resend.isExtended ? "" : NewId();
    if (!resend.isExtended)
        jobs_.push_back({job, folderIds_[resend.folder], resend.to});
    const std::vector<EntryId> gone = FindGone(resend.folder);
    const std::vector<Change> changes = ScanTable(resend.folder, resend.all, resend.since);
    const long total = static_cast<long>(changes.size() + gone.size());
    Delivery delivery;
    long count = 0;
    for (const Change& change : changes) {
        delivery.progress.emplace_back(++count, total);
        delivery.calls.push_back({ResendChange(resend, job, change)});
        if (count == static_cast<long>(resend.cancelAt)) {
            CancelResends();
            return delivery;
        }
    }
    std::vector<Call> deletions;
    for (const EntryId& entryId : gone) {
        if (ResendDeletion(resend.folder, entryId, deletions))
            delivery.progress.emplace_back(++count, total);
    }
    if (!deletions.empty())
        delivery.calls.push_back(deletions);
    return delivery;
}

Call Reference::ResendChange(const Resend& resend, const std::string& job, const Change& change)
{
    const auto [row, isNew] = rows_.try_emplace(change.entryId);
    if (isNew)
        row->second = NewId();
    const Call call{change.entryId, row->second, isNew ? kAdded : kModified, true, job};
    const Answer answer = TakeAnswer(change.entryId);
    if (answer == Answer::Fail)
        return call;
    if (answer == Answer::Accept)
        Send(resend.to, resend.folder, call.id, call.action, mails_.at(change.entryId).subject);
    watched_[resend.folder].hashes[change.entryId] = RecordOf(change.hash, change.flags);
    return call;
}

// What nobody knows is forgotten without a word.
bool Reference::ResendDeletion(unsigned folder, const EntryId& entryId, std::vector<Call>& calls)
{
    const auto row = rows_.find(entryId);
    if (row != rows_.end()) {
        calls.push_back({entryId, row->second, kDeleted});
        const Answer answer = TakeAnswer(entryId);
        if (answer == Answer::Fail)
            return false;
        if (answer == Answer::Accept)
            Send(folderIds_[folder], folder, row->second, kDeleted, std::nullopt);
        rows_.erase(row);
    }
    watched_[folder].hashes.erase(entryId);
    return true;
}

}  // namespace quorvane::model
