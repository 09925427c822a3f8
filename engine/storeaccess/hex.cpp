#include "engine/storeaccess/hex.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace quorvane {
namespace {

// Identifiers are short; what is larger than this is nobody's identifier, and its text would overflow INT.
constexpr ULONG kMaxBytes = std::numeric_limits<INT>::max() / 4;

constexpr bool IsHexDigit(OLECHAR c) noexcept
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

}  // namespace

HRESULT BinaryId::Allocate(ULONG size) noexcept
{
    size_ = 0;
    bytes_.Reset();
    if (size > kMaxBytes)
        return E_OUTOFMEMORY;
    const ULONG room = std::max<ULONG>(size, sizeof(ENTRYID));
    MapiBuffer<BYTE> bytes;
    const HRESULT hr = bytes.Allocate(room);
    if (FAILED(hr))
        return hr;
    std::memset(bytes.Get(), 0, room);
    bytes_ = std::move(bytes);
    size_ = size;
    return S_OK;
}

HRESULT BinaryId::Assign(const void* bytes, ULONG size) noexcept
{
    const HRESULT hr = Allocate(size);
    if (SUCCEEDED(hr) && size)
        std::memcpy(bytes_.Get(), bytes, size);
    return hr;
}

HRESULT HexFromBinary(const void* bytes, ULONG count, Bstr& text) noexcept
{
    if (count > kMaxBytes)
        return E_OUTOFMEMORY;
    try {
        std::string digits(2 * static_cast<size_t>(count) + 1, '\0');
        if (count) {
            mapi::HexFromBin(static_cast<LPBYTE>(const_cast<void*>(bytes)), static_cast<INT>(count),
                             digits.data());
            if (digits[digits.size() - 2] == '\0')
                return E_FAIL;
        }
        digits.pop_back();
        text = Bstr(OleString(digits.begin(), digits.end()));
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT BinaryFromHex(BSTR text, BinaryId& id) noexcept
{
    const OleStringView digits = ViewOf(text);
    BinaryId result;
    id = BinaryId();
    if (digits.size() % 2 != 0 || digits.size() / 2 > kMaxBytes || !std::ranges::all_of(digits, IsHexDigit))
        return E_INVALIDARG;
    const HRESULT hr = result.Allocate(static_cast<ULONG>(digits.size() / 2));
    if (FAILED(hr))
        return hr;
    try {
        std::string narrow(digits.begin(), digits.end());
        if (!narrow.empty() && !mapi::FBinFromHex(narrow.data(), result.Bytes()))
            return E_INVALIDARG;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    id = std::move(result);
    return S_OK;
}

}  // namespace quorvane
