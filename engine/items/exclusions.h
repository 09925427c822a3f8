// items/exclusions.h: an item's ExcludedProperties as a list of tags for CopyTo.
#ifndef QUORVANE_ENGINE_ITEMS_EXCLUSIONS_H_
#define QUORVANE_ENGINE_ITEMS_EXCLUSIONS_H_

#include "engine/storeaccess/mapi_memory.h"
#include "platform/com/safe_array.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

using TagList = MapiBuffer<SPropTagArray>;

inline constexpr OLECHAR kFileAs[] = OLESTR("FileAs");

// For what is carried away: each element changed to a number, 0 where that fails. No list (null) for no
// elements. E_OUTOFMEMORY.
[[nodiscard]] HRESULT CarriedExclusions(const SafeArray& excluded, TagList& tags) noexcept;

// For what is applied to a store: a number as it stands; "FileAs" as the tag of that named property in
// `message`, 0 where it has none; 0 for any other text. E_OUTOFMEMORY.
[[nodiscard]] HRESULT AppliedExclusions(const SafeArray& excluded, IMessage& message, TagList& tags) noexcept;

// The tag of the named property "FileAs" as `message` numbers it, with its type unspecified.
// MAPI_E_NOT_FOUND: the name isn't known. Others come from GetIDsFromNames.
[[nodiscard]] HRESULT FindFileAsTag(IMessage& message, ULONG& tag) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_EXCLUSIONS_H_
