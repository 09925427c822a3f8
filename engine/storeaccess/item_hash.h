// storeaccess/item_hash.h: the text by which a change of an item is told from no change.
#ifndef QUORVANE_ENGINE_STOREACCESS_ITEM_HASH_H_
#define QUORVANE_ENGINE_STOREACCESS_ITEM_HASH_H_

#include "engine/storeaccess/md5.h"
#include "platform/com/com.h"

namespace quorvane {

// The MD5 of an item's PR_LAST_MODIFICATION_TIME as 32 lowercase digits: of its eight bytes, the low half
// first, each half little-endian. Throws std::bad_alloc.
inline OleString ItemHash(const FILETIME& modified)
{
    std::array<std::uint8_t, 8> bytes;
    for (unsigned i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(modified.dwLowDateTime >> (8 * i));
        bytes[i + 4] = static_cast<std::uint8_t>(modified.dwHighDateTime >> (8 * i));
    }
    return Md5Text<OLECHAR>(Md5(bytes.data(), bytes.size()));
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_ITEM_HASH_H_
