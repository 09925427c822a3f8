#include "platform/com/own_module.h"
#include "platform/com/type_info.h"

namespace quorvane::detail {

HRESULT CountTypeInfo(REFIID riid, UINT* count) noexcept
{
    if (!count)
        return E_POINTER;
    ITypeInfo* info = nullptr;
    *count = SUCCEEDED(FindTypeInfo(riid, 0, &info)) ? 1 : 0;
    if (info)
        info->Release();
    return S_OK;
}

HRESULT FindTypeInfo(REFIID riid, UINT index, ITypeInfo** info) noexcept
{
    if (!info)
        return E_POINTER;
    *info = nullptr;
    if (index != 0)
        return DISP_E_BADINDEX;
    ComPtr<ITypeLib> library;
    HRESULT hr = OpenOwnTypeLibrary(library);
    if (SUCCEEDED(hr))
        hr = library->GetTypeInfoOfGuid(riid, info);
    return SUCCEEDED(hr) || hr == E_OUTOFMEMORY ? hr : DISP_E_BADINDEX;
}

}  // namespace quorvane::detail
