#include "platform/com/type_info.h"

namespace quorvane::detail {

HRESULT CountTypeInfo(REFIID, UINT* count) noexcept
{
    if (!count)
        return E_POINTER;
    *count = 0;
    return S_OK;
}

HRESULT FindTypeInfo(REFIID, UINT, ITypeInfo** info) noexcept
{
    if (!info)
        return E_POINTER;
    *info = nullptr;
    return DISP_E_BADINDEX;
}

}  // namespace quorvane::detail
