#include "platform/cfb/element_handle.h"

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
    const std::size_t length = entry.NameLength();
    stat->pwcsName = static_cast<LPOLESTR>(::CoTaskMemAlloc((length + 1) * sizeof(OLECHAR)));
    if (!stat->pwcsName)
        return E_OUTOFMEMORY;
    LoadUnits(stat->pwcsName, entry.Bytes(), length);
    stat->pwcsName[length] = 0;
    return S_OK;
}

}  // namespace quorvane::cfb
