// host/exchange/item_flags.h: what readers make of an item of a folder whose members share that: whether it
// is read, flagged, answered, forwarded, marked as a draft, marked for deletion. No content and no version of
// the item: small records of their own.
//
// Of each flag the last change wins: the one with the later stamp, of two with the same stamp the one of the
// greater device. Flags are joined change by change, so that devices that heard of the same changes, in
// whatever order and however often, know the same. An item that shows a deletion has none.
//
// An item's flags as bytes, little-endian: 1 a bit for each flag that was ever changed, from the lowest, and
// for each of these 1 whether it is set, 8 the stamp, 16 the device that changed it.
#ifndef QUORVANE_HOST_EXCHANGE_ITEM_FLAGS_H_
#define QUORVANE_HOST_EXCHANGE_ITEM_FLAGS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/keys.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

class ItemFlags {
public:
    // Read, flagged, answered, forwarded, a draft, for deletion: the bits of Shown() from the lowest.
    static constexpr std::size_t kCount = 6;
    // No later stamp is taken, or made: who changes a flag after that can't be told from who did before.
    static constexpr std::uint64_t kLastStamp = std::uint64_t{1} << 62;

    // Those that are set.
    std::uint8_t Shown() const noexcept;
    // Whether nobody ever changed one.
    bool IsEmpty() const noexcept;

    // Notes that `shown` is what this device makes of the item from now on. when: in units of 100 nanoseconds
    // since 1601; a change is later than those that it has seen, whatever the clock says. True when anything
    // changed.
    bool Show(std::uint8_t shown, std::uint64_t when, const DeviceId& by);
    // Takes the changes that another device knows of. True when there were any that weren't known.
    bool Take(const ItemFlags& others);
    // Whether the other knows of a change that isn't known here.
    bool Lacks(const ItemFlags& other) const;

    void Write(WireWriter& to) const;
    // Throws an Error (kRefused) for what can't be. what: names it there.
    static ItemFlags Read(WireReader& from, std::string_view what);

    bool operator==(const ItemFlags&) const = default;

private:
    struct Change {
        std::uint64_t stamp = 0;  // 0: nobody ever changed it
        DeviceId by;
        bool isSet = false;
        auto operator<=>(const Change&) const = default;
    };
    std::array<Change, kCount> changes_{};
};

// The content of a package of the kind kFlags: what is known of some items of a folder.
//
// As bytes, little-endian:
//
//     8   "QV3FLAG" and the format's version, 1
//     2   length of the folder's id, and the id
//     4   number of items, and for each, by rising id: 2 length of the id and the id, and its flags
struct FlagNote {
    // More items travel in several.
    static constexpr std::size_t kMostItems = 20'000;
    // Longer ones are refused unread.
    static constexpr std::uint64_t kLongest = std::uint64_t{8} << 20;

    struct Item {
        std::string id;
        ItemFlags flags;
        bool operator==(const Item&) const = default;
    };
    std::string folder;
    std::vector<Item> items;

    std::string Write() const;
    // Throws an Error (kRefused) for bytes that aren't one. what: names it there.
    static FlagNote Read(std::string_view bytes, std::string_view what);

    bool operator==(const FlagNote&) const = default;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_ITEM_FLAGS_H_
