// platform/com/type_info.h: what the module's type library says of an interface, in IDispatch's words. A part
// of platform/com/dispatch.h. Any thread may call.
//
// On Windows it is the library among the resources of the module that this code is part of. Elsewhere no
// module has one.
#ifndef QUORVANE_PLATFORM_COM_TYPE_INFO_H_
#define QUORVANE_PLATFORM_COM_TYPE_INFO_H_

#include "platform/com/com.h"

namespace quorvane::detail {

// count  [out]  1 if there is a description of the interface, 0 if there is none.
//
// E_POINTER.
HRESULT CountTypeInfo(REFIID riid, UINT* count) noexcept;

// info  [out]  one reference, the caller's; null after a failure.
//
// DISP_E_BADINDEX: `index` isn't 0, or there is no description. E_POINTER; E_OUTOFMEMORY.
HRESULT FindTypeInfo(REFIID riid, UINT index, ITypeInfo** info) noexcept;

}  // namespace quorvane::detail

#endif  // QUORVANE_PLATFORM_COM_TYPE_INFO_H_
