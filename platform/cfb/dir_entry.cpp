#include "platform/cfb/dir_entry.h"

#include <cstring>

namespace quorvane::cfb {

DirEntry::DirEntry() noexcept
{
    SetLeft(kNoEntry);
    SetRight(kNoEntry);
    SetChild(kNoEntry);
}

DirEntry::DirEntry(EntryType type, const ElementName& name) noexcept : DirEntry()
{
    bytes_[kAtType] = static_cast<BYTE>(type);
    StoreName(name);
    SetStart(type == EntryType::kStorage ? 0 : kEndOfChain);
}

void DirEntry::SetName(const ElementName& name) noexcept
{
    std::memset(bytes_.data(), 0, 2 * (kMaxName + 1));
    StoreName(name);
}

// Over nothing but zeros.
void DirEntry::StoreName(const ElementName& name) noexcept
{
    StoreUnits(bytes_.data(), name.Text(), name.Length());
    StoreU16(&bytes_[kAtNameBytes], static_cast<std::uint16_t>(2 * (name.Length() + 1)));
}

CLSID DirEntry::Clsid() const noexcept
{
    const BYTE* const raw = &bytes_[kAtClsid];
    CLSID clsid;
    clsid.Data1 = LoadU32(raw);
    clsid.Data2 = LoadU16(raw + 4);
    clsid.Data3 = LoadU16(raw + 6);
    std::memcpy(clsid.Data4, raw + 8, 8);
    return clsid;
}

void DirEntry::SetClsid(const CLSID& clsid) noexcept
{
    BYTE* const raw = &bytes_[kAtClsid];
    StoreU32(raw, clsid.Data1);
    StoreU16(raw + 4, clsid.Data2);
    StoreU16(raw + 6, clsid.Data3);
    std::memcpy(raw + 8, clsid.Data4, 8);
}

FILETIME DirEntry::TimeAt(std::size_t at) const noexcept
{
    FILETIME time;
    time.dwLowDateTime = LoadU32(&bytes_[at]);
    time.dwHighDateTime = LoadU32(&bytes_[at + 4]);
    return time;
}

void DirEntry::SetTimeAt(std::size_t at, const FILETIME& time) noexcept
{
    StoreU32(&bytes_[at], time.dwLowDateTime);
    StoreU32(&bytes_[at + 4], time.dwHighDateTime);
}

}  // namespace quorvane::cfb
