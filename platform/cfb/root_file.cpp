#include "platform/cfb/root_file.h"

#include <cstring>

#include "platform/com/result.h"

namespace quorvane::cfb {

void RootFile::Drop(OpenElementPtr element) noexcept
{
    const MutexLock lock(lock_);
    const OpenElementPtr dropped = std::move(element);
}

void RootFile::Close(OpenElementPtr held, bool written) noexcept
{
    const MutexLock lock(lock_);
    const OpenElementPtr element = std::move(held);
    if (--element->users > 0 || !file_)
        return;
    file_->Close(*element);
    if (element->type == EntryType::kRoot) {
        try {
            if (written)
                file_->Tidy();
        } catch (const std::bad_alloc&) {
            file_->Failed();  // without memory the file keeps its free space
        }
        file_->Leave();
        file_.reset();
        store_.reset();
    }
}

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

HRESULT ElementHandle::Stat(STATSTG* stat, DWORD flags) const noexcept
{
    if (!stat)
        return STG_E_INVALIDPOINTER;
    return Run([&](CompoundFile& file, OpenElement& element) -> HRESULT {
        const bool withName = (flags & STATFLAG_NONAME) == 0;
        const bool isRoot = element.type == EntryType::kRoot;
        DirEntry entry;
        QV_TRY(file.Stat(element, &entry));
        QV_TRY(FillStat(entry, file.FormatVersion(), withName && !isRoot, stat));
        stat->grfMode = mode_;
        if (!withName || !isRoot)
            return S_OK;
        const OleString& path = root_->Path();
        const std::size_t bytes = (path.size() + 1) * sizeof(OLECHAR);
        stat->pwcsName = static_cast<LPOLESTR>(::CoTaskMemAlloc(bytes));
        if (!stat->pwcsName)
            return E_OUTOFMEMORY;
        std::memcpy(stat->pwcsName, path.c_str(), bytes);
        return S_OK;
    });
}

}  // namespace quorvane::cfb
