// platform/com/sdk/scalars.h: the SDK's scalar types and calling-convention words, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_SCALARS_H_
#define QUORVANE_PLATFORM_COM_SDK_SCALARS_H_

#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using CHAR = char;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using BOOL = std::int32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using FLOAT = float;
using DOUBLE = double;
using DATE = double;
using HRESULT = LONG;
using SCODE = LONG;
using WCHAR = char16_t;
using OLECHAR = char16_t;
using VARTYPE = std::uint16_t;
using VARIANT_BOOL = std::int16_t;
using LCID = DWORD;
using DISPID = LONG;
using MEMBERID = DISPID;

using LPVOID = void*;
using LPBYTE = BYTE*;
using LPLONG = LONG*;
using LPULONG = ULONG*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPTSTR = char*;
using LPCTSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using BSTR = OLECHAR*;
using HANDLE = void*;
using HWND = void*;
using HGLOBAL = void*;

#define OLESTR(text) u##text

#define STDMETHODCALLTYPE
#define STDAPICALLTYPE
#define WINAPI
#define CALLBACK
#define STDMETHOD(method) virtual HRESULT STDMETHODCALLTYPE method
#define STDMETHOD_(type, method) virtual type STDMETHODCALLTYPE method
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define STDAPI extern "C" HRESULT STDAPICALLTYPE
#define STDAPI_(type) extern "C" type STDAPICALLTYPE
#define PURE = 0
#define interface struct

#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif

#define VARIANT_TRUE (static_cast<VARIANT_BOOL>(-1))
#define VARIANT_FALSE (static_cast<VARIANT_BOOL>(0))

#define MAX_PATH 260

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

union ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
};

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

union CY {
    struct {
        ULONG Lo;
        LONG Hi;
    } parts;
    LONGLONG int64;
};

#endif  // QUORVANE_PLATFORM_COM_SDK_SCALARS_H_
