// msgstore/table/restriction_codec.h: a restriction as a run of bytes, for places that keep it.
//
// Little-endian. A node is its kind (RES_..., 4 bytes) and then:
//   RES_AND, RES_OR    the count of parts (4), the parts
//   RES_NOT            the part
//   RES_CONTENT        level (4), tag (4), the value
//   RES_PROPERTY       relation (4), tag (4), the value
//   RES_COMPAREPROPS   relation (4), both tags (4 each)
//   RES_BITMASK        BMR_EQZ or BMR_NEZ (4), tag (4), mask (4)
//   RES_SIZE           relation (4), tag (4), size (4)
//   RES_EXIST          tag (4)
//   RES_SUBRESTRICTION tag (4), the part
//   RES_COMMENT        the count of values (4), the values, 1 if a part follows, else 0 (4), the part
// A value is its tag as it was given (4), the size of what follows (4), and a run of properties
// (property_codec.h) with it alone.
#ifndef QUORVANE_MSGSTORE_TABLE_RESTRICTION_CODEC_H_
#define QUORVANE_MSGSTORE_TABLE_RESTRICTION_CODEC_H_

#include <span>

#include "msgstore/props/large_value.h"
#include "msgstore/util/memory.h"

namespace quorvane {

// source  [in]   one that Restriction::Make has taken.
// bytes   [out]  undefined on failure.
//
// S_OK; MAPI_E_TOO_COMPLEX: it takes more than a MB; MAPI_E_INVALID_PARAMETER, MAPI_E_INVALID_TYPE: a value
// of a RES_COMMENT is malformed.
[[nodiscard]] HRESULT EncodeRestriction(const SRestriction& source, Bytes& bytes) noexcept;

// unicode  [in]   texts are given as PT_UNICODE, else as PT_STRING8.
// result   [out]  a chain with all that it points at; untouched on failure.
//
// S_OK; MAPI_E_CORRUPT_DATA; E_OUTOFMEMORY.
[[nodiscard]] HRESULT DecodeRestriction(std::span<const BYTE> bytes, bool unicode,
                                        MapiBuffer<SRestriction>& result) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_TABLE_RESTRICTION_CODEC_H_
