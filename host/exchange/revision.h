// host/exchange/revision.h: one state of an item, as the device that made it tells of it.
//
// As bytes, little-endian: 2 length of the version and the version (version.h), 8 stamp, 16 the device, 1
// what it is (0 content, 1 deletion), and of content 32 its digest.
#ifndef QUORVANE_HOST_EXCHANGE_REVISION_H_
#define QUORVANE_HOST_EXCHANGE_REVISION_H_

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/exchange/keys.h"
#include "host/exchange/version.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

// The first 32 bytes of the BLAKE2b digest over whatever makes an item's content; what the program doesn't
// count as content (whether it was read) isn't in it.
using ContentDigest = std::array<unsigned char, 32>;

struct Revision {
    // A greater stamp than this is refused: nobody's clock stands there, and later ones must have room.
    static constexpr std::uint64_t kLatestStamp = std::uint64_t{1} << 62;

    Version version;          // which changes it holds
    std::uint64_t stamp = 0;  // when it was made, a FILETIME; greater than those that it has seen
    DeviceId by;              // who made it
    bool isDeletion = false;
    ContentDigest content{};  // zeros of a deletion

    bool operator==(const Revision&) const = default;
    // Whether it was made by one who had seen the other.
    bool Supersedes(const Revision& other) const
    {
        return version.Against(other.version) == Version::Order::kNewer;
    }
};

// Which of two revisions that didn't see each other an item shows, the same on all devices: content before a
// deletion, then the later one, then the greater device. False of equal ones.
bool IsShownBefore(const Revision& one, const Revision& another);

void Write(const Revision& revision, WireWriter& to);
// Throws an Error (kRefused) for bytes that aren't a revision. what: names it there.
Revision ReadRevision(WireReader& from, std::string_view what);

// The id of the item that keeps this revision's content beside the one that the item shows: the same whoever
// makes it, so that it is there once. A GUID's text in braces.
std::string ConflictCopyId(std::string_view item, const Revision& revision);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_REVISION_H_
