#include "engine/change/scan_result.h"

#include "engine/session/trace/trace.h"

namespace quorvane {

HRESULT ScanResult::AddChanged(OleStringView entryId, OleStringView hash, LONG flags,
                               bool hashUnchanged) noexcept
{
    if (isIncomplete_)
        return E_OUTOFMEMORY;
    isIncomplete_ = true;
    HR_TRY_QUIET(entryIds_.Append(entryId));
    if (const HRESULT hr = hashes_.Append(hash); FAILED(hr)) {
        entryIds_.RemoveLast();
        return hr;
    }
    try {
        states_.push_back({flags, hashUnchanged});
    } catch (...) {
        hashes_.RemoveLast();
        entryIds_.RemoveLast();
        return E_OUTOFMEMORY;
    }
    isIncomplete_ = false;
    return S_OK;
}

HRESULT ScanResult::ReadChanged(ULONG index, ChangedItem& item) const noexcept
{
    HR_TRY_QUIET(entryIds_.Read(index, item.entryId));
    HR_TRY_QUIET(hashes_.Read(index, item.hash));
    item.flags = states_[index].flags;
    item.hashUnchanged = states_[index].hashUnchanged;
    return S_OK;
}

}  // namespace quorvane
