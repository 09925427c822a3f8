// host/exchange/folder_note.h: what a member tells another of a shared folder: the content of a package of
// the kind kMembership. The first of a folder that somebody gets is his invitation to it.
//
// As bytes, all numbers little-endian:
//
//     8   "QV3FOLD" and the format's version, 1
//     1   1 when the sender has the folder and is to get its changes, else 0
//     16  the device that is asked to send its member's sender all that the folder holds; zeros for none
//     2   length of the folder's id, and the id
//     2   length of the folder's path at the sender, and the path
//     2   number of changes of its membership, the founding first, and for each: 2 its length, and the change
//         (membership_entry.h)
#ifndef QUORVANE_HOST_EXCHANGE_FOLDER_NOTE_H_
#define QUORVANE_HOST_EXCHANGE_FOLDER_NOTE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/membership.h"

namespace quorvane::host::exchange {

struct FolderNote {
    bool hasFolder = false;
    DeviceId asked;  // zeros for none
    std::string folder;
    std::string name;                  // the folder's path at the sender
    std::vector<std::string> entries;  // each behind those that it has seen
    bool operator==(const FolderNote&) const = default;
};

inline constexpr std::size_t kLongestFolderPath = 1000;
// Longer ones are refused unread.
inline constexpr std::uint64_t kLongestFolderNote =
    4096 + std::uint64_t{Membership::kMostEntries} * (kLongestEntry + 2);

// Throws an Error (kRefused) for one that ReadFolderNote would refuse.
std::string WriteFolderNote(const FolderNote& note);

// Throws an Error (kRefused) unless the bytes are a note. Its entries are bytes that nobody has looked at
// yet.
FolderNote ReadFolderNote(std::string_view bytes);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_FOLDER_NOTE_H_
