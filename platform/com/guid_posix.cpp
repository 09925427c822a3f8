#include <sys/random.h>

#include <cerrno>

#include "platform/com/com.h"

namespace {

// Where each byte of a GUID stands in its text, and the characters between them.
constexpr char kPattern[] = "{33221100-5544-7766-8899-AABBCCDDEEFF}";
constexpr INT kTextLength = 38;
static_assert(sizeof(kPattern) - 1 == kTextLength);

constexpr int HexValue(char32_t c) noexcept
{
    if (c >= '0' && c <= '9')
        return static_cast<int>(c - '0');
    if (c >= 'A' && c <= 'F')
        return static_cast<int>(c - 'A') + 10;
    if (c >= 'a' && c <= 'f')
        return static_cast<int>(c - 'a') + 10;
    return -1;
}

}  // namespace

HRESULT CoCreateGuid(GUID* guid)
{
    if (!guid)
        return E_INVALIDARG;
    auto* bytes = reinterpret_cast<BYTE*>(guid);
    for (size_t got = 0; got < sizeof(GUID);) {
        const ssize_t more = getrandom(bytes + got, sizeof(GUID) - got, 0);
        if (more < 0 && errno != EINTR)
            return E_UNEXPECTED;
        got += more > 0 ? static_cast<size_t>(more) : 0;
    }
    // RFC 4122: version 4, variant 1.
    guid->Data3 = static_cast<std::uint16_t>((guid->Data3 & 0x0FFF) | 0x4000);
    guid->Data4[0] = static_cast<std::uint8_t>((guid->Data4[0] & 0x3F) | 0x80);
    return S_OK;
}

INT StringFromGUID2(REFGUID guid, LPOLESTR text, INT capacity)
{
    if (!text || capacity < kTextLength + 1)
        return 0;
    const auto* const bytes = reinterpret_cast<const BYTE*>(&guid);
    for (INT i = 0; i < kTextLength; ++i) {
        const int place = HexValue(static_cast<unsigned char>(kPattern[i]));
        if (place < 0) {
            text[i] = static_cast<OLECHAR>(kPattern[i]);
            continue;
        }
        text[i] = OLESTR("0123456789ABCDEF")[bytes[place] >> 4];
        text[++i] = OLESTR("0123456789ABCDEF")[bytes[place] & 15];
    }
    text[kTextLength] = 0;
    return kTextLength + 1;
}

HRESULT CLSIDFromString(LPCOLESTR text, CLSID* clsid)
{
    if (!clsid)
        return E_INVALIDARG;
    *clsid = CLSID_NULL;
    if (!text)
        return S_OK;
    CLSID result{};
    auto* const bytes = reinterpret_cast<BYTE*>(&result);
    for (INT i = 0; i < kTextLength; ++i) {
        const int place = HexValue(static_cast<unsigned char>(kPattern[i]));
        if (place < 0) {
            if (text[i] != static_cast<OLECHAR>(kPattern[i]))
                return CO_E_CLASSSTRING;
            continue;
        }
        const int high = HexValue(text[i]);
        const int low = high < 0 ? -1 : HexValue(text[++i]);
        if (low < 0)
            return CO_E_CLASSSTRING;
        bytes[place] = static_cast<BYTE>(high << 4 | low);
    }
    if (text[kTextLength] != 0)
        return CO_E_CLASSSTRING;
    *clsid = result;
    return S_OK;
}
