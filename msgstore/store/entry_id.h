// msgstore/store/entry_id.h: the identifiers that the store gives to its objects.
//
// Both forms begin alike; numbers are little-endian (docs/message-store.md):
//   0   4   flags: four zero bytes in a long-term identifier, E0 00 00 00 in a short-term one
//   4  16   the store's GUID
//  20   1   version of the form, 1
//  21   1   kind: MAPI_STORE, MAPI_FOLDER or MAPI_MESSAGE
//  22   2   zero
//  24  16   long-term: the object's GUID, of a store its own
//  24   8   short-term: the object's row in the store's file, which is never given to another object
#ifndef QUORVANE_MSGSTORE_STORE_ENTRY_ID_H_
#define QUORVANE_MSGSTORE_STORE_ENTRY_ID_H_

#include <array>
#include <cstdint>
#include <span>

#include "msgstore/props/large_value.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

// A GUID in the order of its bytes, as files and identifiers carry it.
using ObjectGuid = std::array<std::uint8_t, 16>;

// A new GUID: the time and random bits (RFC 9562, version 7, its bytes in order). Those made later sort
// behind those made before, so that a store's index of them grows at its end.
ObjectGuid MakeObjectGuid() noexcept;

// The GUID that a row holds as bytes; what is missing of it is zero.
ObjectGuid ObjectGuidOf(std::span<const std::uint8_t> bytes) noexcept;

// The parts of an entry identifier.
struct EntryId {
    ObjectGuid store{};
    ULONG kind = 0;
    bool isShortTerm = false;
    ObjectGuid object{};   // of a long-term identifier
    std::int64_t row = 0;  // of a short-term one
};

// Throw std::bad_alloc.
Bytes LongTermId(const ObjectGuid& store, ULONG kind, const ObjectGuid& object);
Bytes ShortTermId(const ObjectGuid& store, ULONG kind, std::int64_t row);

// Takes an identifier apart. MAPI_E_INVALID_ENTRYID: it isn't one of this project's stores.
[[nodiscard]] HRESULT ParseEntryId(const void* bytes, std::size_t size, EntryId& id) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_ENTRY_ID_H_
