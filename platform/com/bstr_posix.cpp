#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/com/bstr.h"

namespace {

// In front of the text: four bytes that keep it aligned, then its length in bytes.
constexpr size_t kHeader = 8;
constexpr size_t kLengthOffset = 4;
// Two zero bytes behind the text; a third so that an odd byte count still ends in a whole zero character.
constexpr size_t kTail = 3;
constexpr UINT kMaxBytes = std::numeric_limits<UINT>::max() - 16;

BSTR AllocateBytes(UINT bytes) noexcept
{
    if (bytes > kMaxBytes)
        return nullptr;
    auto* const block = static_cast<BYTE*>(std::calloc(1, kHeader + bytes + kTail));
    if (!block)
        return nullptr;
    std::memcpy(block + kLengthOffset, &bytes, sizeof(bytes));
    return reinterpret_cast<BSTR>(block + kHeader);
}

}  // namespace

BSTR SysAllocStringLen(const OLECHAR* text, UINT length)
{
    if (length > kMaxBytes / sizeof(OLECHAR))
        return nullptr;
    const UINT bytes = length * static_cast<UINT>(sizeof(OLECHAR));
    BSTR const result = AllocateBytes(bytes);
    if (result && text && bytes)
        std::memcpy(result, text, bytes);
    return result;
}

BSTR SysAllocString(const OLECHAR* text)
{
    if (!text)
        return nullptr;
    const size_t length = std::char_traits<OLECHAR>::length(text);
    return length <= kMaxBytes ? SysAllocStringLen(text, static_cast<UINT>(length)) : nullptr;
}

BSTR SysAllocStringByteLen(LPCSTR bytes, UINT length)
{
    BSTR const result = AllocateBytes(length);
    if (result && bytes && length)
        std::memcpy(result, bytes, length);
    return result;
}

INT SysReAllocString(BSTR* text, const OLECHAR* value)
{
    if (!text)
        return FALSE;
    BSTR const replacement = SysAllocString(value);
    if (value && !replacement)
        return FALSE;
    SysFreeString(*text);
    *text = replacement;
    return TRUE;
}

void SysFreeString(BSTR text)
{
    if (text)
        std::free(reinterpret_cast<BYTE*>(text) - kHeader);
}

UINT SysStringByteLen(BSTR text)
{
    UINT bytes = 0;
    if (text)
        std::memcpy(&bytes, reinterpret_cast<BYTE*>(text) - kHeader + kLengthOffset, sizeof(bytes));
    return bytes;
}

UINT SysStringLen(BSTR text)
{
    return SysStringByteLen(text) / static_cast<UINT>(sizeof(OLECHAR));
}
