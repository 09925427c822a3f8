// msgstore/util/value_copy.h: deep copies of MAPI structures into one block.
#ifndef QUORVANE_MSGSTORE_UTIL_VALUE_COPY_H_
#define QUORVANE_MSGSTORE_UTIL_VALUE_COPY_H_

#include <cstdint>
#include <vector>

#include "platform/mapi/mapi.h"

namespace quorvane {

// Lays copies out one after the other in a block, each aligned to 8 bytes. With a null block it only
// counts, so that one walk over the structures serves both. The block has the size counted before.
class BlockWriter {
public:
    struct Values {
        LPSPropValue values;  // null while counting
        HRESULT result;
    };

    explicit BlockWriter(void* block) noexcept : block_(static_cast<BYTE*>(block)) {}

    // The place for `size` bytes: null while counting. `size` 0 takes no room.
    void* Take(std::uint64_t size) noexcept;
    // Copies bytes. Null while counting, and for null or empty sources.
    void* Copy(const void* bytes, std::uint64_t size) noexcept;
    // Copies text with its terminator; null for null.
    LPSTR CopyText(const char* text) noexcept;
    LPWSTR CopyText(const WCHAR* text) noexcept;

    // Copies an array of values with all that they point at.
    // MAPI_E_INVALID_PARAMETER: a value whose type is none of MAPI's, or a null array with a count.
    Values CopyValues(ULONG count, const SPropValue* values) noexcept;
    // Copies what a value points at. `copy` is a plain copy of `source` beforehand; its pointers are
    // set to the new places (while counting it's left as it is).
    [[nodiscard]] HRESULT CopyPayload(const SPropValue& source, SPropValue& copy) noexcept;

    // What was taken so far. MAPI_E_TOO_BIG: more than 32 bits hold.
    [[nodiscard]] HRESULT GiveSize(ULONG* size) const noexcept;
    bool counting() const noexcept { return block_ == nullptr; }

private:
    [[nodiscard]] HRESULT CopySingle(const SPropValue& source, SPropValue& copy) noexcept;
    [[nodiscard]] HRESULT CopyMultiple(const SPropValue& source, SPropValue& copy) noexcept;
    template <class Array, class Element>
    [[nodiscard]] HRESULT CopyFixed(const Array& source, Array& copy, Element* Array::*pointer) noexcept;
    template <class Array, class Text>
    [[nodiscard]] HRESULT CopyTexts(const Array& source, Array& copy, Text* Array::*pointer) noexcept;
    [[nodiscard]] HRESULT CopyBinaries(const SBinaryArray& source, SBinaryArray& copy) noexcept;

    BYTE* block_;
    std::uint64_t used_ = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_UTIL_VALUE_COPY_H_
