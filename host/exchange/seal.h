// host/exchange/seal.h: sealed packages: content that only its receivers can read, and of which they know who
// sent it.
//
// As bytes, all numbers little-endian:
//
//     8   "QV3PACK" and the format's version, 1
//     16  the sending device, 16 its epoch, 8 the sequence number within that, from 1
//     1   what it is (PackageKind)
//     8   size of the content
//     2   number of receiving devices, from 1, and for each: 16 its id, 8 the sequence number of the package
//         before this one that is for it (0 for none), and 80 the content's key, sealed to it
//     24  header of the content's stream
//         the content in chunks: 4 size, and so many bytes, which crypto_secretstream_xchacha20poly1305 made
//         of a byte that says how the chunk is kept (0 as it is, 1 deflated) and of up to 256 KiB of content;
//         the digest of everything before them goes into the first one, and the last one is marked
//     64  signature over the digest of all that
//
// Memory doesn't grow with the content.
#ifndef QUORVANE_HOST_EXCHANGE_SEAL_H_
#define QUORVANE_HOST_EXCHANGE_SEAL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/exchange/byte_source.h"
#include "host/exchange/keys.h"

namespace quorvane::host::exchange {

using Epoch = std::array<unsigned char, 16>;

enum class PackageKind : std::uint8_t { kItems = 1, kMembership = 2, kDigest = 3, kFlags = 4 };

struct PackageLabel {
    DeviceId sender;
    Epoch epoch{};
    std::uint64_t sequence = 0;
    PackageKind kind = PackageKind::kItems;
};

// A device that a package is for.
struct Receiver {
    DeviceId id;
    SealingKey sealing{};
    std::uint64_t previous = 0;  // the number of the package before this one that is for it; 0 for none
};

inline constexpr std::size_t kMostReceivers = 1024;

// Writes a package of this content to `package`. label.sender is the sender's own id.
// Throws an Error: no receiver or too many, a key that is none, a number before that isn't lower, content
// that can't be read.
void Seal(const DeviceKeys& sender, const PackageLabel& label, const std::vector<Receiver>& receivers,
          const ByteSource& content, const ByteSink& package);

// A package that somebody sent. All methods throw an Error (kRefused) that says what is wrong with it.
class SealedPackage {
public:
    // Reads what stands before the content, and believes nothing of it. package: outlives this object, and
    // nobody else can write to it. what: names it in errors.
    SealedPackage(const ByteSource& package, std::string what);

    const PackageLabel& Label() const noexcept { return label_; }
    std::uint64_t ContentSize() const noexcept { return contentSize_; }
    std::uint64_t Size() const { return package_.Size(); }
    // The devices that it is for, and for each the number of the package before this one that is for it.
    std::vector<std::pair<DeviceId, std::uint64_t>> Receivers() const;
    // The number of the package before this one that is for a device; empty when this one isn't for it.
    std::optional<std::uint64_t> PreviousFor(const DeviceId& device) const;

    // Refuses it unless the device that it names, whose key this is, signed all of it. The first thing to do.
    // `hasRead` is told once in a while how many of Size() bytes were read.
    void Verify(const SigningKey& sender, const std::function<void(std::uint64_t)>& hasRead = {});

    // Gives the content, piece by piece, to `content`. Nothing that was given may be used before this has
    // returned. Refuses a package that isn't for this device, or whose content isn't what its sender sealed.
    // A call before Verify is an error of the caller's (std::logic_error).
    void Unseal(const DeviceKeys& own, const ByteSink& content) const;

private:
    struct Entry {
        std::uint64_t previous = 0;
        std::string sealedKey;
    };
    std::optional<Entry> EntryOf(const DeviceId& device) const;

    const ByteSource& package_;
    std::string what_;
    PackageLabel label_;
    std::uint64_t contentSize_ = 0;
    std::string header_;  // everything before the chunks
    bool isVerified_ = false;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_SEAL_H_
