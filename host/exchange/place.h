// host/exchange/place.h: the exchange's directory as one device sees it.
//
//     EXCHANGE/<device id>/card              who the device is (card.h)
//     EXCHANGE/<device id>/out/<seq>.qvx     its sealed packages (seal.h); <seq> has 20 decimal digits
//     EXCHANGE/<device id>/acks              what it has taken from whom
//
// A device writes below its own directory and nowhere else, and everybody else only reads there. What stands
// at names that aren't these is nobody's business.
#ifndef QUORVANE_HOST_EXCHANGE_PLACE_H_
#define QUORVANE_HOST_EXCHANGE_PLACE_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/exchange/keys.h"
#include "host/exchange/outside.h"

namespace quorvane::host::exchange {

// One thread at a time. Methods throw an Error (outside.h); one that failed may be tried again.
class Place {
public:
    enum class Note { kCard, kAcks };

    // How much of what others laid there is looked at.
    static constexpr std::size_t kMostDevices = 4096;
    static constexpr std::size_t kMostPackages = 4096;

    // directory: the exchange's; it needn't be there, and is never made: a mount that is gone isn't to be
    // filled behind its back. readers: who else may read what this device lays there.
    Place(std::filesystem::path directory, const DeviceId& own, Readers readers = Readers::kGroup)
        : directory_(std::move(directory)), own_(own), readers_(readers)
    {}

    bool IsReachable() const noexcept;

    // All devices that have a directory, this one's own among them, in their ids' order; of more than
    // kMostDevices the first ones by id.
    std::vector<DeviceId> Devices() const;

    // A device's card or acks; empty when there is none. Refused when longer than `limit`.
    std::optional<std::string> Read(const DeviceId& device, Note note, std::size_t limit) const;

    // The numbers, from `from` on, of the packages that lie there, rising; of more than kMostPackages the
    // lowest.
    std::vector<std::uint64_t> Packages(const DeviceId& device, std::uint64_t from) const;

    // A package, to be looked at (seal.h) and copied (CopyIn); empty when it isn't there.
    std::unique_ptr<OutsideFile> Open(const DeviceId& device, std::uint64_t sequence) const;

    // What this device lays there itself. When one of these returns, it is on the disk.
    void Write(Note note, std::string_view bytes) const;
    void Put(std::uint64_t sequence, const ByteSource& package) const;
    void Remove(std::uint64_t sequence) const;
    // Lets the readers read what it has laid there before, and nobody else.
    void LetRead() const;

private:
    std::unique_ptr<OutsideDirectory> Root() const;
    std::unique_ptr<OutsideDirectory> Home(const DeviceId& device) const;
    std::unique_ptr<OutsideDirectory> Out(const DeviceId& device) const;

    std::filesystem::path directory_;
    DeviceId own_;
    Readers readers_;
};

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_PLACE_H_
