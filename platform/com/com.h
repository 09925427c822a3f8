// platform/com/com.h: COM's published types, functions and constants, from one place on every platform.
//
// On Windows this is the SDK. Elsewhere the headers under sdk/ declare the same subset, with the SDK's
// names, vtable order and structure layout; the functions among them live in this library. What a
// function returns off Windows is what the SDK documents for it, unless its declaration says otherwise.
#ifndef QUORVANE_PLATFORM_COM_COM_H_
#define QUORVANE_PLATFORM_COM_COM_H_

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// After windows.h, which they rest on.
#include <objbase.h>
#include <ocidl.h>
#include <ole2.h>
#include <oleauto.h>
#include <olectl.h>
#else
#include "platform/com/sdk/automation.h"
#include "platform/com/sdk/connection_point.h"
#include "platform/com/sdk/error_info.h"
#include "platform/com/sdk/guid.h"
#include "platform/com/sdk/hresult.h"
#include "platform/com/sdk/marshal.h"
#include "platform/com/sdk/objbase.h"
#include "platform/com/sdk/persist.h"
#include "platform/com/sdk/scalars.h"
#include "platform/com/sdk/storage.h"
#include "platform/com/sdk/unknown.h"
#endif

#include <string>
#include <string_view>

namespace quorvane {

// Text in units of OLECHAR: UTF-16 on every platform.
using OleString = std::basic_string<OLECHAR>;
using OleStringView = std::basic_string_view<OLECHAR>;

static_assert(sizeof(LONG) == 4 && sizeof(ULONG) == 4 && sizeof(DWORD) == 4);
static_assert(sizeof(BOOL) == 4 && sizeof(HRESULT) == 4 && sizeof(OLECHAR) == 2);
static_assert(sizeof(VARIANT_BOOL) == 2 && sizeof(LARGE_INTEGER) == 8 && sizeof(FILETIME) == 8);
static_assert(sizeof(GUID) == 16 && sizeof(VARIANT) == 8 + 2 * sizeof(void*));
static_assert(static_cast<HRESULT>(0x80004005) < 0, "failure codes are negative");

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_COM_H_
