// host/exchange/version.h: of two states of an item, which one had seen the other.
//
// As bytes, little-endian: 2 number of devices, and for each, by rising id: 16 its id, 8 how many changes of
// its own the state holds, from 1.
#ifndef QUORVANE_HOST_EXCHANGE_VERSION_H_
#define QUORVANE_HOST_EXCHANGE_VERSION_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "host/exchange/keys.h"

namespace quorvane::host::exchange {

class Version {
public:
    enum class Order {
        kEqual,
        kOlder,  // the other one had seen this one
        kNewer,  // this one had seen the other
        kConflict,
    };

    // The devices of a version that somebody sends, at the most, and the changes of one.
    static constexpr std::size_t kMostChangers = 1024;
    static constexpr std::uint64_t kMostChanges = std::uint64_t{1} << 48;

    // This state, changed once more by a device.
    void Raise(const DeviceId& device) { ++changes_[device]; }
    // The state that has seen both.
    void Merge(const Version& other);
    Order Against(const Version& other) const;

    std::string Write() const;
    // Throws an Error (kRefused) for bytes that aren't a version. what: names it there.
    static Version Read(std::string_view bytes, std::string_view what);

    bool operator==(const Version&) const = default;

private:
    bool HasSeen(const Version& other) const;

    std::map<DeviceId, std::uint64_t> changes_;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_VERSION_H_
