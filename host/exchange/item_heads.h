// host/exchange/item_heads.h: what is known of a shared item: the revisions that nothing known supersedes,
// its heads.
//
// Mostly there is one. Changes that didn't see each other stay side by side until a later one has seen both.
// Heads are joined as sets, so that devices that heard of the same revisions, in whatever order and however
// often, have the same heads, and show the same one: IsShownBefore tells which. An edit is so stronger than a
// deletion that hadn't seen it.
//
// No text is lost by it: an edit that is beaten in that way by another edit, of other content, is kept as an
// item of its own (ConflictCopyId) by the device that made it, as soon as it hears of the other. And a later
// change here supersedes a beaten edit only when that copy is known, so that whoever changed or deleted the
// item could have seen it.
#ifndef QUORVANE_HOST_EXCHANGE_ITEM_HEADS_H_
#define QUORVANE_HOST_EXCHANGE_ITEM_HEADS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/revision.h"

namespace quorvane::host::exchange {

// One thread at a time.
class ItemHeads {
public:
    // More are refused. Each device adds one at the most, if it keeps to the rules.
    static constexpr std::size_t kMost = 64;

    // What came of a revision.
    enum class Taken {
        kKnown,     // it is one of the heads, or superseded: nothing changed
        kShown,     // the item shows it (of theirs: what theirs shows) now
        kNotShown,  // the item shows what it showed before
        kOther,     // the item shows another head now, one that had been beaten
    };

    // Takes a revision, or all that another device has, which came from anywhere. Throws an Error (kRefused)
    // when there would be too many heads; then nothing changed.
    Taken Take(const Revision& revision);
    Taken Take(const ItemHeads& theirs);
    // Whether the other one has a revision that isn't known here.
    bool Lacks(const ItemHeads& theirs) const;

    // The next revision, made here, which is then the one that the item shows. But a beaten edit whose copy
    // isn't known comes back with the deletion of what beat it: Shown() tells.
    //
    // changer  [in]  whose count it raises; `by` is this device.
    // now      [in]  the present time, a FILETIME.
    // content  [in]  empty for a deletion.
    // isKept   [in]  whether the copy of a beaten edit is known here.
    using IsKept = std::function<bool(const Revision&)>;
    Revision Change(const ChangerId& changer, const DeviceId& by, std::uint64_t now,
                    const std::optional<ContentDigest>& content, const IsKept& isKept);

    // The head that the item shows; null when nothing is known of it.
    const Revision* Shown() const noexcept { return heads_.empty() ? nullptr : &heads_.front(); }
    // The edits that it beats though it hadn't seen them: a conflict. Those of its own content are none.
    std::vector<Revision> Beaten() const;
    // Whether it shows an edit in spite of a deletion.
    bool IsRevived() const noexcept;

    // Equal bytes are equal heads: 2 number of revisions, and each, as they are shown before one another.
    std::string Write() const;
    // Throws an Error (kRefused) for bytes that aren't heads. what: names them there.
    static ItemHeads Read(std::string_view bytes, std::string_view what);

    bool operator==(const ItemHeads&) const = default;

private:
    bool Knows(const Revision& revision) const;
    Version SeenBy(const IsKept& isKept) const;
    void Insert(const Revision& revision);

    std::vector<Revision> heads_;  // by IsShownBefore
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_ITEM_HEADS_H_
