#include "host/exchange/version.h"

#include <algorithm>

#include "host/exchange/error.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

ChangerId ChangerOf(const DeviceId& device, const Epoch& epoch)
{
    WireWriter bytes;
    bytes.Put("a changer").Put(device.bytes).Put(epoch);
    return {BeginningOfDigest<sizeof(ChangerId::bytes)>(bytes.Bytes())};
}

std::uint64_t Version::ChangesOf(const ChangerId& changer) const
{
    const auto changes = changes_.find(changer);
    return changes == changes_.end() ? 0 : changes->second;
}

void Version::Merge(const Version& other)
{
    for (const auto& [changer, count] : other.changes_) {
        std::uint64_t& own = changes_[changer];
        own = std::max(own, count);
    }
}

bool Version::HasSeen(const Version& other) const
{
    return std::all_of(other.changes_.begin(), other.changes_.end(), [&](const auto& change) {
        const auto own = changes_.find(change.first);
        return own != changes_.end() && own->second >= change.second;
    });
}

Version::Order Version::Against(const Version& other) const
{
    const bool seen = HasSeen(other);
    const bool wasSeen = other.HasSeen(*this);
    if (seen)
        return wasSeen ? Order::kEqual : Order::kNewer;
    return wasSeen ? Order::kOlder : Order::kConflict;
}

std::string Version::Write() const
{
    WireWriter version;
    version.Put(static_cast<std::uint16_t>(changes_.size()));
    for (const auto& [changer, count] : changes_)
        version.Put(changer.bytes).Put(count);
    return version.Bytes();
}

Version Version::Read(std::string_view bytes, std::string_view what)
{
    WireReader reader(bytes, what);
    const std::size_t count = reader.Get<std::uint16_t>();
    if (count > kMostChangers)
        Refuse(std::string(what) + " was changed by more changers than may be");
    Version version;
    for (std::size_t index = 0; index < count; ++index) {
        ChangerId changer;
        changer.bytes = reader.GetBytes<sizeof(ChangerId::bytes)>();
        const auto changes = reader.Get<std::uint64_t>();
        const bool rises = version.changes_.empty() || version.changes_.rbegin()->first < changer;
        if (!rises || changes == 0 || changes > kMostChanges)
            Refuse(std::string(what) + " has no proper version");
        version.changes_.emplace_hint(version.changes_.end(), changer, changes);
    }
    reader.End();
    return version;
}

}  // namespace quorvane::host::exchange
