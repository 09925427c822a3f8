#include "platform/com/bstr.h"

#include <limits>
#include <new>

namespace quorvane {

BSTR Bstr::Allocate(OleStringView text)
{
    if (text.size() > std::numeric_limits<UINT>::max() / sizeof(OLECHAR) - 1)
        throw std::bad_alloc();
    BSTR const result = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!result)
        throw std::bad_alloc();
    return result;
}

HRESULT Bstr::CopyTo(BSTR* out) const noexcept
{
    if (!out)
        return E_POINTER;
    *out = text_ ? SysAllocStringLen(text_, Length()) : nullptr;
    return text_ && !*out ? E_OUTOFMEMORY : S_OK;
}

HRESULT Bstr::Assign(BSTR text) noexcept
{
    BSTR const copy = text ? SysAllocStringLen(text, SysStringLen(text)) : nullptr;
    if (text && !copy)
        return E_OUTOFMEMORY;
    SysFreeString(std::exchange(text_, copy));
    return S_OK;
}

}  // namespace quorvane
