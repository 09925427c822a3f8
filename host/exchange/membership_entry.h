// host/exchange/membership_entry.h: one signed change of who shares a folder.
//
// As bytes, all numbers little-endian:
//
//     8   "QV3MEMB" and the format's version, 1
//     1   what it does (MembershipChange)
//     2   length of the folder's id, and the id
//     32  the member whom it is about, by the signing key of his first device
//     1   length of his name, and the name, where he is brought in; else 0
//     32  signing key of a device of his, where it links or unlinks one; the id of the change that founded
//         the folder that this one lies in, where it says that; else zeros
//     64  where it links one, the signature by which that device agrees to it (device_link.h); else nothing
//     1   number of entries that its author had seen and that no other of these had, and 32 the id of each,
//         rising
//     32  signing key of the device that signs it
//     64  signature over all that
//
// An entry's id is the first 32 bytes of the BLAKE2b digest of its bytes.
#ifndef QUORVANE_HOST_EXCHANGE_MEMBERSHIP_ENTRY_H_
#define QUORVANE_HOST_EXCHANGE_MEMBERSHIP_ENTRY_H_

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "host/exchange/keys.h"

namespace quorvane::host::exchange {

enum class MembershipChange : std::uint8_t {
    kFound = 1,   // the folder, with its founder; has seen nothing
    kAdd = 2,     // a member
    kLink = 3,    // another device of the author's
    kRemove = 4,  // a member: by himself, or by the founder
    kUnlink = 5,  // a device of the author's, or the author itself
    kFlags = 6,  // members share the items' flags (item_flags.h) from there on; by the founder, about himself
    kNest = 7,   // the folder lies in another one that the founder shares; by him, about himself
};

using EntryId = std::array<unsigned char, 32>;

struct MembershipEntry {
    MembershipChange change = MembershipChange::kFound;
    std::string folder;
    SigningKey member{};
    std::string name;
    SigningKey device{};
    Signature agreement{};
    EntryId outer{};  // the founding of the folder that it lies in
    std::set<EntryId> seen;
    SigningKey author{};
};

inline constexpr std::size_t kLongestEntry = 8192;

EntryId IdOfEntry(std::string_view bytes);

// entry.author is taken from the keys. Throws an Error (kRefused) for one that ReadMembershipEntry would
// refuse.
std::string WriteMembershipEntry(const DeviceKeys& keys, MembershipEntry entry);

// Throws an Error (kRefused) unless the bytes are an entry that its author signed. Whether he may is another
// question (Membership).
MembershipEntry ReadMembershipEntry(std::string_view bytes);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_MEMBERSHIP_ENTRY_H_
