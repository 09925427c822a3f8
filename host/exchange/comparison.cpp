#include "host/exchange/comparison.h"

#include <algorithm>
#include <utility>

#include "host/exchange/error.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::size_t kLongestId = 256;

// A report's byte that says what it is.
constexpr unsigned kAnswersLists = 1;
constexpr unsigned kWithFlags = 2;

bool IsShownDeleted(const KnownItem& item)
{
    return item.heads.Shown() && item.heads.Shown()->isDeletion;
}

// What the digest holds of an item: two devices are equal when the one that lacks content got it.
std::string StateOf(const KnownItem& item, bool withFlags)
{
    WireWriter state;
    state.Put(static_cast<std::uint8_t>(item.isWhole)).Put(item.heads.Write());
    if (withFlags && !item.flags.IsEmpty())
        item.flags.Write(state);
    return state.Bytes();
}

void WriteItem(const KnownItem& item, bool withFlags, WireWriter& to)
{
    const std::string heads = item.heads.Write();
    to.Put(static_cast<std::uint16_t>(item.id.size()))
        .Put(item.id)
        .Put(static_cast<std::uint8_t>(item.isWhole));
    to.Put(static_cast<std::uint32_t>(heads.size())).Put(heads);
    if (withFlags)
        item.flags.Write(to);
}

KnownItem ReadItem(WireReader& from, bool withFlags, std::string_view what)
{
    KnownItem item;
    item.id = from.Take(from.Get<std::uint16_t>());
    if (item.id.empty() || item.id.size() > kLongestId)
        Refuse(std::string(what) + " has an item without a proper id");
    const auto isWhole = from.Get<std::uint8_t>();
    if (isWhole > 1)
        Refuse(std::string(what) + " has an item that is neither there nor missing");
    item.isWhole = isWhole == 1;
    item.heads = ItemHeads::Read(from.Take(from.Get<std::uint32_t>()), what);
    if (!item.heads.Shown())
        Refuse(std::string(what) + " has an item that nobody made");
    if (withFlags)
        item.flags = ItemFlags::Read(from, what);
    DropFlagsOfDeleted(item);
    return item;
}

std::vector<KnownItem> ReadBucket(std::uint8_t bucket, WireReader& from, bool withFlags,
                                  std::string_view what)
{
    std::vector<KnownItem> items;
    for (auto left = from.Get<std::uint32_t>(); left != 0; --left) {
        KnownItem item = ReadItem(from, withFlags, what);
        const bool isRising = items.empty() || items.back().id < item.id;
        if (!isRising || BucketOf(item.id) != bucket)
            Refuse(std::string(what) + " lists an item where it doesn't belong");
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<KnownItem> ItemsIn(const FolderView& folder, std::uint8_t bucket)
{
    std::vector<KnownItem> items;
    folder.ForEachIn(bucket, [&](const KnownItem& item) { items.push_back(item); });
    return items;
}

// What two lists of one bucket differ in.
struct Difference {
    std::vector<std::string> theyLack;
    std::vector<std::string> theyLackFlags;
    std::vector<std::string> weLack;
};

// Whether one who knows `has` of an item lacks something that the other one has.
bool Lacks(const KnownItem& has, const KnownItem& other)
{
    return has.heads.Lacks(other.heads) || (!has.isWhole && other.isWhole);
}

Difference Differ(const std::vector<KnownItem>& own, const std::vector<KnownItem>& theirs)
{
    Difference difference;
    auto ours = own.begin();
    auto other = theirs.begin();
    while (ours != own.end() || other != theirs.end()) {
        if (other == theirs.end() || (ours != own.end() && ours->id < other->id)) {
            difference.theyLack.push_back(ours->id);
            if (!ours->flags.IsEmpty())
                difference.theyLackFlags.push_back(ours->id);
            ++ours;
        } else if (ours == own.end() || other->id < ours->id) {
            difference.weLack.push_back((other++)->id);
        } else {
            if (Lacks(*other, *ours))
                difference.theyLack.push_back(ours->id);
            if (other->flags.Lacks(ours->flags))
                difference.theyLackFlags.push_back(ours->id);
            if (Lacks(*ours, *other) || ours->flags.Lacks(other->flags))
                difference.weLack.push_back(ours->id);
            ++ours;
            ++other;
        }
    }
    return difference;
}

}  // namespace

std::string FolderReport::Write() const
{
    WireWriter report;
    report.Put(static_cast<std::uint16_t>(folder.size())).Put(folder).Put(digest.Write());
    report.Put(static_cast<std::uint8_t>((answersLists ? kAnswersLists : 0) | (withFlags ? kWithFlags : 0)))
        .Put(static_cast<std::uint16_t>(buckets.size()));
    for (const auto& [bucket, items] : buckets) {
        report.Put(bucket).Put(static_cast<std::uint32_t>(items.size()));
        for (const KnownItem& item : items)
            WriteItem(item, withFlags, report);
    }
    return report.Bytes();
}

FolderReport FolderReport::Read(std::string_view bytes, std::string_view what)
{
    if (bytes.size() > kLongest)
        Refuse(std::string(what) + " is longer than a report may be");
    WireReader reader(bytes, what);
    FolderReport report;
    report.folder = reader.Take(reader.Get<std::uint16_t>());
    report.digest =
        FolderDigest::Read(reader.Take(FolderDigest::kBuckets * sizeof(FolderDigest::Bucket)), what);
    const auto answers = reader.Get<std::uint8_t>();
    if (answers > (kAnswersLists | kWithFlags))
        Refuse(std::string(what) + " neither opens nor answers");
    report.answersLists = (answers & kAnswersLists) != 0;
    report.withFlags = (answers & kWithFlags) != 0;
    for (auto left = reader.Get<std::uint16_t>(); left != 0; --left) {
        const auto bucket = reader.Get<std::uint8_t>();
        if (!report.buckets.empty() && report.buckets.rbegin()->first >= bucket)
            Refuse(std::string(what) + " has its lists out of order");
        report.buckets.emplace(bucket, ReadBucket(bucket, reader, report.withFlags, what));
    }
    reader.End();
    return report;
}

FolderReport ReportOf(const std::string& folder, const FolderView& own, bool withFlags)
{
    FolderReport report;
    report.folder = folder;
    report.withFlags = withFlags;
    FolderDigestMaker digest;
    own.ForEach([&](const KnownItem& item) { digest.Add(item.id, StateOf(item, withFlags)); });
    report.digest = digest.Finish();
    return report;
}

Comparison Compare(const FolderView& own, FolderReport ours, const FolderReport& theirs)
{
    Comparison result;
    FolderReport answer = std::move(ours);
    answer.answersLists = !theirs.buckets.empty();
    std::size_t listed = 0;
    for (const std::uint8_t bucket : Differing(answer.digest, theirs.digest)) {
        const auto list = theirs.buckets.find(bucket);
        const bool isListed = list != theirs.buckets.end();
        // What the other one didn't list of the buckets that differ waits for the next comparison.
        if (!isListed && answer.answersLists)
            continue;
        std::vector<KnownItem> items = ItemsIn(own, bucket);
        if (isListed) {
            const Difference difference = Differ(items, list->second);
            result.lacking.insert(result.lacking.end(), difference.theyLack.begin(),
                                  difference.theyLack.end());
            result.lackingFlags.insert(result.lackingFlags.end(), difference.theyLackFlags.begin(),
                                       difference.theyLackFlags.end());
            result.missing.insert(result.missing.end(), difference.weLack.begin(), difference.weLack.end());
            if (difference.weLack.empty() || theirs.answersLists)
                continue;
        }
        if (listed >= FolderReport::kItemsListed)
            continue;
        listed += items.size();
        answer.buckets.emplace(bucket, std::move(items));
    }
    if (!answer.buckets.empty())
        result.answer = std::move(answer);
    return result;
}

ItemTaken TakeItem(KnownItem& own, const KnownItem& theirs)
{
    using Taken = ItemHeads::Taken;
    const Taken taken = own.heads.Take(theirs.heads);
    const Revision& shown = *own.heads.Shown();
    const bool hasCome = shown.isDeletion || (theirs.isWhole && shown == *theirs.heads.Shown());
    const bool isAnother = taken == Taken::kShown || taken == Taken::kOther;
    if (isAnother || (!own.isWhole && hasCome)) {
        own.isWhole = hasCome;
        return hasCome ? ItemTaken::kApply : ItemTaken::kMissing;
    }
    return taken == Taken::kKnown ? ItemTaken::kKnown : ItemTaken::kNoted;
}

bool TakeFlags(KnownItem& own, const ItemFlags& theirs)
{
    return !IsShownDeleted(own) && own.flags.Take(theirs);
}

void DropFlagsOfDeleted(KnownItem& own)
{
    if (IsShownDeleted(own))
        own.flags = {};
}

}  // namespace quorvane::host::exchange
