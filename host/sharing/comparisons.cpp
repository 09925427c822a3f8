#include "host/sharing/comparisons.h"

#include <algorithm>

#include "host/base/files.h"
#include "host/base/output.h"
#include "host/mailbox/item_text.h"
#include "host/sharing/recipients.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr std::uint64_t kSecond = 10'000'000;  // of a FILETIME
constexpr auto kLookInterval = std::chrono::milliseconds(1000);
constexpr std::size_t kSentAtATime = 50;
// How long an answer is waited for, and after how long what differed is compared again, at first and at last.
constexpr std::uint64_t kAnswerSeconds = 60;
constexpr std::uint64_t kFirstPauseSeconds = 2;
constexpr std::int64_t kMostDoublings = 10;

exchange::KnownItem KnownOf(const ItemRecord& record)
{
    return {record.id, record.heads.Shown() ? record.heads : FormerHeads(record.version, record.deleted),
            record.isWhole || record.deleted};
}

// A folder as the records know it.
class RecordedFolder final : public exchange::FolderView {
public:
    // flags: null where they aren't compared.
    RecordedFolder(Records& records, FlagRecords* flags, const std::string& folderId)
        : records_(records),
          folderId_(folderId),
          flags_(flags ? flags->Of(folderId) : std::map<std::string, exchange::ItemFlags>())
    {}
    void ForEach(const Visit& visit) const override
    {
        records_.ForEachItem(folderId_, Records::Deleted::kIncluded,
                             [&](const ItemRecord& record) { visit(KnownWithFlags(record)); });
    }
    void ForEachIn(std::uint8_t bucket, const Visit& visit) const override
    {
        if (!ids_)
            ListIds();
        for (const auto& record : records_.FindItems((*ids_)[bucket]))
            if (record)
                visit(KnownWithFlags(*record));
    }

private:
    exchange::KnownItem KnownWithFlags(const ItemRecord& record) const
    {
        exchange::KnownItem item = KnownOf(record);
        if (const auto found = flags_.find(record.id); found != flags_.end())
            item.flags = found->second;
        exchange::DropFlagsOfDeleted(item);
        return item;
    }
    void ListIds() const
    {
        ids_.emplace(exchange::FolderDigest::kBuckets);
        records_.ForEachItem(folderId_, Records::Deleted::kIncluded, [&](const ItemRecord& record) {
            (*ids_)[exchange::BucketOf(record.id)].push_back(record.id);
        });
    }

    Records& records_;
    std::string folderId_;
    std::map<std::string, exchange::ItemFlags> flags_;
    mutable std::optional<std::vector<std::vector<std::string>>>
        ids_;  // of each bucket, once they are asked for
};

// Begun here, and an answer may still come.
bool IsUnderWay(const ComparisonRecord& pair, std::uint64_t now)
{
    return pair.opened > std::max(pair.equal, pair.differed) && now < pair.opened + kAnswerSeconds * kSecond;
}

std::string ReportName()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), "name", "a report");
    OLECHAR text[40] = {};
    StringFromGUID2(guid, text, 40);
    return "report-" + ToUtf8(text).substr(1, 36) + ".qvr";
}

}  // namespace

Comparisons::Comparisons(const Addin::Parts& parts, Sender& sender, FlagSharing& flags,
                         std::function<void(const std::string&)> report, std::int64_t after)
    : parts_(parts),
      sender_(sender),
      flags_(flags),
      report_(std::move(report)),
      after_(after),
      own_(parts.records.OwnChanger().device),
      records_(parts.mailbox.HostDatabasePath().string())
{}

void Comparisons::Miss(const exchange::DeviceId& device)
{
    records_.Want({}, exchange::TextOf(device), FileTimeNow());
}

// Like any other package it is noted first, and outlives a kill.
void Comparisons::Send(const exchange::FolderReport& report, const std::string& device)
{
    const std::filesystem::path path = parts_.mailbox.PackagesPath() / ReportName();
    WriteDurably(path, report.Write());
    parts_.records.AddOutgoing(path.string(), ReportRecipients(device));
}

void Comparisons::Hear(const Peer& peer, const exchange::FolderReport& report)
{
    const std::string device = exchange::TextOf(peer.id);
    const std::uint64_t now = FileTimeNow();
    const bool withFlags = report.withFlags && flags_.Flags().AreShared(report.folder);
    const RecordedFolder own(parts_.records, withFlags ? &flags_.Flags() : nullptr, report.folder);
    exchange::FolderReport ours = exchange::ReportOf(report.folder, own, report.withFlags);
    if (ours.digest == report.digest) {
        records_.NoteEqual(report.folder, device, now);
        if (!report.answersLists) {
            ours.answersLists = true;
            Send(ours, device);
        }
        return;
    }
    if (IsAnsweredThere(peer, report, now))
        return;
    exchange::Comparison result = exchange::Compare(own, std::move(ours), report);
    std::vector<std::string> items = result.lacking;
    items.insert(items.end(), result.lackingFlags.begin(), result.lackingFlags.end());
    items.insert(items.end(), result.missing.begin(), result.missing.end());
    std::sort(items.begin(), items.end());
    items.erase(std::unique(items.begin(), items.end()), items.end());
    if (!report.buckets.empty()) {
        records_.NoteDiffered(report.folder, device, items, now);
        const auto share = parts_.records.FindShare(report.folder);
        report_("'" + (share ? share->name : report.folder) + "' differs from that of '" + peer.member +
                "' in " + Counted(items.size(), "item") + "; " + std::to_string(result.lacking.size()) +
                " are sent");
    }
    flags_.Send(report.folder, device, result.lackingFlags);
    for (std::string& item : result.lacking)
        lacking_.push_back({report.folder, peer.member, std::move(item)});
    if (result.answer)
        Send(*result.answer, device);
    parts_.statistics.Touch();
}

// Where both have begun, the report of the lesser device is the one that is answered: what either lacks would
// else be sent twice.
bool Comparisons::IsAnsweredThere(const Peer& peer, const exchange::FolderReport& report, std::uint64_t now)
{
    if (!report.buckets.empty() || report.answersLists || peer.id < own_)
        return false;
    const auto pairs = records_.All(now);
    return std::any_of(pairs.begin(), pairs.end(), [&](const ComparisonRecord& pair) {
        return pair.folderId == report.folder && pair.device == exchange::TextOf(peer.id) &&
               IsUnderWay(pair, now);
    });
}

void Comparisons::SendOne(const Lacking& lacking)
{
    const auto share = parts_.records.FindShare(lacking.folderId);
    const auto record = parts_.records.FindItem(lacking.item);
    if (!share || !record || record->folderId != lacking.folderId)
        return;
    const std::string recipients = MemberRecipients(lacking.member, lacking.folderId);
    if (record->deleted || !record->isWhole) {
        sender_.SendDeletion(*share, lacking.item, recipients);
        return;
    }
    if (const auto row = parts_.state.RowOfId(lacking.item))
        sender_.SendItem(*share, row->entryId, recipients);
}

// An item that can't be sent now holds up no other: the next comparison tells of it again.
void Comparisons::SendLacking()
{
    for (std::size_t count = 0; count < kSentAtATime && !lacking_.empty(); ++count) {
        const Lacking lacking = lacking_.front();
        lacking_.pop_front();
        try {
            SendOne(lacking);
        } catch (const HostError& error) {
            report_(error.what());
        }
    }
}

bool Comparisons::IsDue(const ComparisonRecord& pair, std::uint64_t now) const
{
    if (pair.unacknowledged > 0)
        return false;
    if (IsUnderWay(pair, now))
        return false;
    if (pair.isWanted && pair.tries == 0)
        return true;
    if (pair.isWanted)
        return now >=
               pair.differed + (kFirstPauseSeconds << std::min(pair.tries - 1, kMostDoublings)) * kSecond;
    return now >= std::max({pair.since, pair.opened, pair.equal, pair.differed}) +
                      static_cast<std::uint64_t>(after_) * kSecond;
}

bool Comparisons::HasWork()
{
    const std::uint64_t now = FileTimeNow();
    const auto pairs = records_.All(now);
    return !lacking_.empty() || std::any_of(pairs.begin(), pairs.end(),
                                            [&](const ComparisonRecord& pair) { return IsDue(pair, now); });
}

void Comparisons::Step(bool isQuiet)
{
    SendLacking();
    if (!isQuiet || !lacking_.empty() || Clock::now() < nextLook_)
        return;
    nextLook_ = Clock::now() + kLookInterval;
    const std::uint64_t now = FileTimeNow();
    for (const ComparisonRecord& pair : records_.All(now))
        if (IsDue(pair, now)) {
            const bool withFlags =
                flags_.Flags().AreShared(pair.folderId) && flags_.Flags().KnowsOf(pair.folderId, pair.device);
            const RecordedFolder own(parts_.records, withFlags ? &flags_.Flags() : nullptr, pair.folderId);
            Send(exchange::ReportOf(pair.folderId, own, withFlags), pair.device);
            records_.NoteOpened(pair.folderId, pair.device, now);
        }
}

}  // namespace quorvane::host
