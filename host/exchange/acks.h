// host/exchange/acks.h: what a device has taken from whom, and what it misses: the file "acks", replaced as a
// whole.
//
// As bytes, all numbers little-endian:
//
//     8   "QV3ACKS" and the format's version, 1
//     8   serial number: of two the one with the greater number holds
//     2   number of senders, and for each, by rising id:
//         16 the sender, 16 its epoch, 8 the number up to which all its packages are applied and durable
//         1 number of gaps that are asked for, and for each, rising and apart: 8 the first number, 8 the last
//     64  signature over all that
#ifndef QUORVANE_HOST_EXCHANGE_ACKS_H_
#define QUORVANE_HOST_EXCHANGE_ACKS_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/keys.h"
#include "host/exchange/seal.h"

namespace quorvane::host::exchange {

// Sequence numbers, both ends included.
struct SequenceRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    bool operator==(const SequenceRange&) const = default;
};

struct Acknowledged {
    Epoch epoch{};
    std::uint64_t applied = 0;
    std::vector<SequenceRange> asked;  // behind `applied`
    bool operator==(const Acknowledged&) const = default;
};

struct Acks {
    static constexpr std::size_t kMostSenders = 4096;
    static constexpr std::size_t kMostGaps = 16;
    static constexpr std::size_t kLongest = std::size_t{2} << 20;

    std::uint64_t serial = 0;
    std::map<DeviceId, Acknowledged> senders;
    bool operator==(const Acks&) const = default;
};

// Throws an Error (kRefused) for what ReadAcks would refuse.
std::string WriteAcks(const DeviceKeys& keys, const Acks& acks);

// Throws an Error (kRefused) unless the bytes are acks that the device with this key signed.
Acks ReadAcks(std::string_view bytes, const SigningKey& by);

// The number up to which a device has acknowledged what `sender` sent in this epoch; 0 when it is in another
// one.
std::uint64_t AcknowledgedUpTo(const Acks& acks, const DeviceId& sender, const Epoch& epoch);

// The number up to which a device has applied what `sender` sent in another epoch than this: what has a
// number up to it passes there for old (intake.h). 0 for none.
std::uint64_t AppliedOfAnotherEpoch(const Acks& acks, const DeviceId& sender, const Epoch& epoch);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_ACKS_H_
