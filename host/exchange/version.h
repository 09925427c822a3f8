// host/exchange/version.h: of two states of an item, which one had seen the other.
//
// Each change raises the count of whoever made it. A device counts anew in each of its epochs, under another
// name: a mailbox that came out of a backup would else give the counts of lost changes to others.
//
// As bytes, little-endian: 2 number of changers, and for each, by rising id: 16 its id, 8 how many changes of
// its own the state holds, from 1.
#ifndef QUORVANE_HOST_EXCHANGE_VERSION_H_
#define QUORVANE_HOST_EXCHANGE_VERSION_H_

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/exchange/keys.h"
#include "host/exchange/seal.h"

namespace quorvane::host::exchange {

// A device in one of its epochs.
struct ChangerId {
    std::array<unsigned char, 16> bytes{};
    auto operator<=>(const ChangerId&) const = default;
};

ChangerId ChangerOf(const DeviceId& device, const Epoch& epoch);

class Version {
public:
    enum class Order {
        kEqual,
        kOlder,  // the other one had seen this one
        kNewer,  // this one had seen the other
        kConflict,
    };

    // The changers of a version that somebody sends, at the most, and the changes of one.
    static constexpr std::size_t kMostChangers = 1024;
    static constexpr std::uint64_t kMostChanges = std::uint64_t{1} << 48;

    // This state, changed once more by one who has made so many changes before: no count is given twice.
    void Raise(const ChangerId& changer, std::uint64_t before = 0)
    {
        std::uint64_t& changes = changes_[changer];
        changes = std::max(changes, before) + 1;
    }
    std::uint64_t ChangesOf(const ChangerId& changer) const;
    // The state that has seen both.
    void Merge(const Version& other);
    Order Against(const Version& other) const;

    std::string Write() const;
    // Throws an Error (kRefused) for bytes that aren't a version. what: names it there.
    static Version Read(std::string_view bytes, std::string_view what);

    bool operator==(const Version&) const = default;

private:
    bool HasSeen(const Version& other) const;

    std::map<ChangerId, std::uint64_t> changes_;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_VERSION_H_
