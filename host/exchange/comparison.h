// host/exchange/comparison.h: how two devices find out in which items of a folder they differ, and who sends
// the other what.
//
// When nothing else passes between them, one reports the folder's digest. The other answers with lists of the
// buckets that differ. Whoever gets lists sends the items that the other lacks, and answers with its own
// lists of those buckets, once, if it lacks something itself. So a package that was lost, refused or wrongly
// applied costs one comparison; where the two are equal it costs a digest.
//
// Nothing is kept between calls: any thread, each with data of its own.
//
// A report as bytes, little-endian: 2 length of the folder's id and the id, the digest (folder_digest.h), 1
// whether it answers lists, plus 2 where flags are compared too, 2 number of buckets that are listed, and for
// each, rising: 1 its number, 4 number of items, and for each by rising id: 2 length of the id and the id, 1
// whether its content is there, 4 length of its heads and the heads (item_heads.h), and where flags are
// compared, the item's flags (item_flags.h).
#ifndef QUORVANE_HOST_EXCHANGE_COMPARISON_H_
#define QUORVANE_HOST_EXCHANGE_COMPARISON_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/folder_digest.h"
#include "host/exchange/item_flags.h"
#include "host/exchange/item_heads.h"

namespace quorvane::host::exchange {

// What a device knows of an item, deleted ones included.
struct KnownItem {
    std::string id;
    ItemHeads heads;
    // Whether the content that it shows is here. Where a report alone told of a revision, or one that was
    // beaten comes back, it may not be; then somebody else has it.
    bool isWhole = true;
    ItemFlags flags{};  // where the folder's members share them; of one that shows a deletion none

    bool operator==(const KnownItem&) const = default;
};

// The items of a folder as they are known here, each once, by rising id. Between two questions they may
// change.
class FolderView {
public:
    using Visit = std::function<void(const KnownItem&)>;
    virtual ~FolderView() = default;
    virtual void ForEach(const Visit& visit) const = 0;
    // Those of one bucket (BucketOf).
    virtual void ForEachIn(std::uint8_t bucket, const Visit& visit) const = 0;
};

struct FolderReport {
    // Longer ones are refused unread.
    static constexpr std::size_t kLongest = std::size_t{16} << 20;
    // A list ends behind the bucket that reaches so many items; the next comparison goes on.
    static constexpr std::size_t kItemsListed = 20'000;

    std::string folder;
    FolderDigest digest;
    bool answersLists = false;
    bool withFlags = false;  // digest and lists hold the items' flags
    std::map<std::uint8_t, std::vector<KnownItem>> buckets;

    std::string Write() const;
    // Throws an Error (kRefused) for bytes that aren't a report. what: names it there.
    static FolderReport Read(std::string_view bytes, std::string_view what);

    bool operator==(const FolderReport&) const = default;
};

// What opens a comparison.
FolderReport ReportOf(const std::string& folder, const FolderView& own, bool withFlags = false);

// What is to be done with another device's report.
struct Comparison {
    std::vector<std::string>
        lacking;  // ids of items that the other device is to be sent, with all their heads
    std::vector<std::string> lackingFlags;  // ids of items of whose flags it is to be told
    std::vector<std::string> missing;  // ids of those that it has listed and that this one lacks something of
    std::optional<FolderReport> answer;  // to be sent to it
};

// ours  what ReportOf has just given of `own`, with flags where theirs has them: looked at once more is only
// what
//       differs.
Comparison Compare(const FolderView& own, FolderReport ours, const FolderReport& theirs);

// What came of an item that another device sent.
enum class ItemTaken {
    kKnown,    // nothing that wasn't known
    kNoted,    // the heads are others, the item shows what it showed
    kApply,    // it shows what came now, or is deleted: Shown() tells
    kMissing,  // it shows now what isn't here: the item ConflictCopyId may have it, or somebody else
};

// Takes what another device sent of an item (whole, when its content came along). Throws an Error (kRefused)
// when there would be too many heads; then nothing changed.
ItemTaken TakeItem(KnownItem& own, const KnownItem& theirs);

// Takes what another device knows of an item's flags; an item that shows a deletion takes none. One that
// isn't known yet keeps them until it comes. True when there was anything new.
bool TakeFlags(KnownItem& own, const ItemFlags& theirs);
// After whatever changed an item: one that shows a deletion has no flags.
void DropFlagsOfDeleted(KnownItem& own);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_COMPARISON_H_
