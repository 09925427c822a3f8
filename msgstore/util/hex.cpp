// Identifiers as text of two hexadecimal digits a byte.
#include "platform/mapi/mapi.h"

namespace {

int DigitValue(char digit) noexcept
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

bool IsHexText(const char* text) noexcept
{
    std::size_t length = 0;
    while (text[length] != '\0') {
        if (DigitValue(text[length]) < 0)
            return false;
        ++length;
    }
    return length % 2 == 0;
}

}  // namespace

// The text is checked whole before the first byte is written, so that a refused text leaves the
// caller's buffer as it was.
STDAPI_(BOOL) FBinFromHex(LPTSTR text, LPBYTE bytes)
{
    if (!text || !bytes || !IsHexText(text))
        return FALSE;
    for (; *text != '\0'; text += 2)
        *bytes++ = static_cast<BYTE>(DigitValue(text[0]) * 16 + DigitValue(text[1]));
    return TRUE;
}

STDAPI_(void) HexFromBin(LPBYTE bytes, INT count, LPTSTR text)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    if (!text)
        return;
    for (INT i = 0; bytes && i < count; ++i) {
        *text++ = kDigits[bytes[i] >> 4];
        *text++ = kDigits[bytes[i] & 0x0F];
    }
    *text = '\0';
}
