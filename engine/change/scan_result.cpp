#include "engine/change/scan_result.h"

#include "engine/session/trace/trace.h"

namespace quorvane {

HRESULT ScanLists::Open(const ScanResult& found) noexcept
{
    ArrayView<ULONG> hashUnchanged;
    HR_TRY_QUIET(entryIds.Open(found.entryIds.Raw()));
    HR_TRY_QUIET(hashes.Open(found.hashes.Raw()));
    HR_TRY_QUIET(deleted.Open(found.deleted.Raw()));
    HR_TRY_QUIET(flags.Open(found.flags.Raw()));
    HR_TRY_QUIET(hashUnchanged.Open(found.hashUnchanged.Raw()));
    const bool parallel = hashes.Count() == entryIds.Count() && flags.Count() == entryIds.Count();
    return parallel ? S_OK : E_UNEXPECTED;
}

}  // namespace quorvane
