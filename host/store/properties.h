// host/store/properties.h: small owners and readers over MAPI's properties, rows and identifiers.
#ifndef QUORVANE_HOST_STORE_PROPERTIES_H_
#define QUORVANE_HOST_STORE_PROPERTIES_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "quorvane3/com.h"
#include "quorvane3/mapi.h"

namespace quorvane::host {

// Owns what MAPIAllocateBuffer gave.
template <class T>
class MapiMemory {
public:
    MapiMemory() noexcept = default;
    MapiMemory(const MapiMemory&) = delete;
    MapiMemory& operator=(const MapiMemory&) = delete;
    ~MapiMemory() { MAPIFreeBuffer(memory_); }

    T** Put() noexcept
    {
        MAPIFreeBuffer(memory_);
        memory_ = nullptr;
        return &memory_;
    }
    T* Get() const noexcept { return memory_; }
    T* operator->() const noexcept { return memory_; }
    explicit operator bool() const noexcept { return memory_ != nullptr; }

private:
    T* memory_ = nullptr;
};

// Owns the rows of a table.
class Rows {
public:
    Rows() noexcept = default;
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    ~Rows() { FreeProws(rows_); }

    LPSRowSet* Put() noexcept
    {
        FreeProws(rows_);
        rows_ = nullptr;
        return &rows_;
    }
    ULONG Count() const noexcept { return rows_ ? rows_->cRows : 0; }
    const SRow& operator[](ULONG index) const noexcept { return rows_->aRow[index]; }

private:
    LPSRowSet rows_ = nullptr;
};

using Bytes = std::vector<BYTE>;

// Hexadecimal text of bytes, two uppercase digits each, and back. FromHex throws a HostError on anything
// else.
std::string Hex(const SBinary& binary);
std::string Hex(const Bytes& bytes);
Bytes FromHex(std::string_view text);

inline LPENTRYID EntryIdOf(Bytes& bytes) noexcept
{
    return reinterpret_cast<LPENTRYID>(bytes.data());
}

// The value of exactly this tag in a row; null when the row has none.
const SPropValue* FindValue(const SRow& row, ULONG tag) noexcept;

// Readings of a row's value, with an empty or zero answer for an absent one. Texts are UTF-8; a text is found
// in either of its forms.
std::string TextOf(const SRow& row, ULONG tag);
std::uint64_t TimeOf(const SRow& row, ULONG tag) noexcept;
LONG LongOf(const SRow& row, ULONG tag) noexcept;
std::string HexOf(const SRow& row, ULONG tag);

// The same of an object's single property; false or empty when the object lacks it.
std::string TextOf(IMAPIProp& object, ULONG tag);
std::string HexOf(IMAPIProp& object, ULONG tag);
std::uint64_t TimeOf(IMAPIProp& object, ULONG tag);
LONG LongOf(IMAPIProp& object, ULONG tag);

// Sets one property. The result is SetProps'.
HRESULT SetText(IMAPIProp& object, ULONG tag, const std::string& utf8);
HRESULT SetLong(IMAPIProp& object, ULONG tag, LONG value);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_STORE_PROPERTIES_H_
