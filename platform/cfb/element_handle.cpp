#include "platform/cfb/element_handle.h"

#include <cstring>

namespace quorvane::cfb {

HRESULT FillStat(const DirEntry& entry, unsigned formatVersion, bool withName, STATSTG* stat) noexcept
{
    *stat = STATSTG{};
    const bool stream = entry.Type() == EntryType::kStream;
    stat->type = stream ? STGTY_STREAM : STGTY_STORAGE;
    if (stream)
        stat->cbSize.QuadPart = entry.Size(formatVersion);
    stat->ctime = entry.Created();
    stat->mtime = entry.Modified();
    stat->clsid = entry.Clsid();
    stat->grfStateBits = entry.StateBits();
    if (!withName)
        return S_OK;
    const ElementName name = entry.Name();
    const std::size_t bytes = (name.Length() + 1) * sizeof(OLECHAR);
    stat->pwcsName = static_cast<LPOLESTR>(::CoTaskMemAlloc(bytes));
    if (!stat->pwcsName)
        return E_OUTOFMEMORY;
    std::memcpy(stat->pwcsName, name.Text(), bytes);
    return S_OK;
}

}  // namespace quorvane::cfb
