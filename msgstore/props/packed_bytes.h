// msgstore/props/packed_bytes.h: bytes made fewer and made again, as raw deflate (RFC 1951).
//
// A dictionary is other bytes that both sides have at hand: what stands in it as well takes next to nothing.
// Its first 32 KB count. All functions may be called on any thread; those that aren't noexcept throw
// std::bad_alloc.
#ifndef QUORVANE_MSGSTORE_PROPS_PACKED_BYTES_H_
#define QUORVANE_MSGSTORE_PROPS_PACKED_BYTES_H_

#include <cstdint>
#include <span>

#include "msgstore/props/large_value.h"

namespace quorvane {

// Appends the bytes packed, in `limit` bytes at the most. False: they take more, and nothing was appended.
bool AppendPacked(std::span<const BYTE> bytes, std::span<const BYTE> dictionary, std::size_t limit,
                  Bytes& to);

// Fills `bytes` with what `packed` was made of. False: it isn't packed with that dictionary, or wasn't made
// of as many bytes as that.
bool Unpack(std::span<const BYTE> packed, std::span<const BYTE> dictionary, std::span<BYTE> bytes);

// What a value that is itself one zlib stream (RFC 1950) was made of, as a dictionary; empty for all others.
Bytes DictionaryOf(std::span<const BYTE> value);

// Of bytes, to tell that they were changed (CRC-32, as in RFC 1952).
std::uint32_t Checksum(std::span<const BYTE> bytes) noexcept;

// Whether bytes look as if they were packed already (an image, an archive): packing them costs time and saves
// nothing.
bool LooksPacked(std::span<const BYTE> bytes) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PACKED_BYTES_H_
