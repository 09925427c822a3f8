// platform/com/sdk/guid.h: GUID and its comparison, off Windows.
#ifndef QUORVANE_PLATFORM_COM_SDK_GUID_H_
#define QUORVANE_PLATFORM_COM_SDK_GUID_H_

#include <cstring>

#include "platform/com/sdk/scalars.h"

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

using IID = GUID;
using CLSID = GUID;
using FMTID = GUID;
using LPGUID = GUID*;
using LPIID = IID*;
using LPCLSID = CLSID*;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using REFFMTID = const FMTID&;

inline bool IsEqualGUID(REFGUID a, REFGUID b) noexcept
{
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool IsEqualIID(REFIID a, REFIID b) noexcept
{
    return IsEqualGUID(a, b);
}
inline bool IsEqualCLSID(REFCLSID a, REFCLSID b) noexcept
{
    return IsEqualGUID(a, b);
}
inline bool operator==(REFGUID a, REFGUID b) noexcept
{
    return IsEqualGUID(a, b);
}
inline bool operator!=(REFGUID a, REFGUID b) noexcept
{
    return !IsEqualGUID(a, b);
}

#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    inline constexpr GUID name                                       \
    {                                                                \
        l, w1, w2,                                                   \
        {                                                            \
            b1, b2, b3, b4, b5, b6, b7, b8                           \
        }                                                            \
    }
#define DEFINE_OLEGUID(name, l, w1, w2) DEFINE_GUID(name, l, w1, w2, 0xC0, 0, 0, 0, 0, 0, 0, 0x46)

inline constexpr GUID GUID_NULL{};
inline constexpr IID IID_NULL{};
inline constexpr CLSID CLSID_NULL{};

#endif  // QUORVANE_PLATFORM_COM_SDK_GUID_H_
