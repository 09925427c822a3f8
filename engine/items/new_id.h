// items/new_id.h: fresh sharing IDs.
#ifndef QUORVANE_ENGINE_ITEMS_NEW_ID_H_
#define QUORVANE_ENGINE_ITEMS_NEW_ID_H_

#include "platform/com/bstr.h"

namespace quorvane {

// Makes a GUID in its text form, in braces: 38 characters. Failures come from CoCreateGuid; E_OUTOFMEMORY.
// `id` is untouched after a failure.
[[nodiscard]] HRESULT MakeNewId(Bstr& id) noexcept;

// Takes the text of an optional argument; anything but a text (a missing argument too) makes a new ID.
[[nodiscard]] HRESULT TakeOrMakeId(const VARIANT& argument, Bstr& id) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_NEW_ID_H_
