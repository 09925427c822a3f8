// msgstore/props/packed_record.h: records of values, or other bytes, packed as one record with a head and a
// checksum.
//
// The layout is told in docs/message-store.md. All functions may be called on any thread; those that aren't
// noexcept throw std::bad_alloc.
#ifndef QUORVANE_MSGSTORE_PROPS_PACKED_RECORD_H_
#define QUORVANE_MSGSTORE_PROPS_PACKED_RECORD_H_

#include <span>
#include <vector>

#include "msgstore/props/large_value.h"

namespace quorvane {

// One that was read, whose head and checksum are right; it points into what it was read from.
class PackedRecord {
public:
    // The tag of the value that it was packed with; 0: none.
    ULONG Dictionary() const noexcept { return dictionary_; }
    // The tags of the packed values, in their order; none where other bytes are packed.
    std::size_t Count() const noexcept;
    ULONG Tag(std::size_t place) const noexcept;

    // MAPI_E_CORRUPT_DATA: it isn't what was packed with that dictionary.
    [[nodiscard]] HRESULT Unpack(const Bytes& dictionary, Bytes& unpacked) const;

    // Takes a record off the front. MAPI_E_CORRUPT_DATA: it is cut or changed, or its head tells what can't
    // be.
    [[nodiscard]] static HRESULT Take(std::span<const BYTE>& bytes, PackedRecord& record) noexcept;

private:
    std::span<const BYTE> tags_;
    std::span<const BYTE> packed_;
    std::size_t whole_ = 0;  // the byte count of what was packed
    ULONG dictionary_ = 0;
};

// Whether bytes begin with a packed record; no record of one value begins so.
bool IsPackedRecord(std::span<const BYTE> bytes) noexcept;

// Appends bytes, which are the records of the values of these tags or anything else without a tag, as one
// packed record. False, and nothing appended, where they are too few for that, too many, or not worth it.
//
// dictionaryTag, dictionary: the value that Unpack will be given what stands for, and that; 0 and empty for
// none.
bool AppendPackedRecord(const Bytes& bytes, const std::vector<ULONG>& tags, ULONG dictionaryTag,
                        const Bytes& dictionary, Bytes& to);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_PROPS_PACKED_RECORD_H_
