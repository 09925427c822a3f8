// storeaccess/hex.h: identifiers between binary and hexadecimal text.
//
// The text form has two uppercase digits for each byte, as MAPI's HexFromBin writes it. Any thread may call.
#ifndef QUORVANE_ENGINE_STOREACCESS_HEX_H_
#define QUORVANE_ENGINE_STOREACCESS_HEX_H_

#include "engine/storeaccess/mapi_memory.h"
#include "platform/com/bstr.h"

namespace quorvane {

// An identifier in binary form.
class BinaryId {
public:
    ULONG Size() const noexcept { return size_; }
    BYTE* Bytes() const noexcept { return bytes_.Get(); }
    // As the entry identifier that it is. Its buffer is never shorter than an ENTRYID.
    LPENTRYID EntryId() const noexcept { return reinterpret_cast<LPENTRYID>(bytes_.Get()); }
    SBinary Binary() const noexcept { return {size_, bytes_.Get()}; }

    // A buffer of `size` zeroed bytes in place of what is held. E_OUTOFMEMORY, or what MAPIAllocateBuffer
    // answers: nothing is held.
    [[nodiscard]] HRESULT Allocate(ULONG size) noexcept;
    // A copy of another identifier. As Allocate.
    [[nodiscard]] HRESULT Assign(const void* bytes, ULONG size) noexcept;

private:
    MapiBuffer<BYTE> bytes_;
    ULONG size_ = 0;
};

// bytes  [in]   may be null when `count` is 0.
// text   [out]  two digits a byte; untouched after a failure.
//
// E_OUTOFMEMORY: also for more bytes than a text can hold. E_FAIL: HexFromBin isn't bound.
[[nodiscard]] HRESULT HexFromBinary(const void* bytes, ULONG count, Bstr& text) noexcept;
[[nodiscard]] inline HRESULT HexFromBinary(const SBinary& binary, Bstr& text) noexcept
{
    return HexFromBinary(binary.lpb, binary.cb, text);
}

// text  [in]   hexadecimal digits in either case; null and empty give an identifier of no bytes.
// id    [out]  half as many bytes as the text has digits; nothing is held after a failure.
//
// E_INVALIDARG: the text isn't hexadecimal or has an odd number of digits, or FBinFromHex isn't bound.
// E_OUTOFMEMORY. What MAPIAllocateBuffer answers: E_FAIL when it isn't bound.
[[nodiscard]] HRESULT BinaryFromHex(BSTR text, BinaryId& id) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_STOREACCESS_HEX_H_
