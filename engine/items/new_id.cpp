#include "engine/items/new_id.h"

namespace quorvane {

HRESULT MakeNewId(Bstr& id) noexcept
{
    constexpr int kGuidCapacity = 39;  // 38 characters and the terminator
    GUID guid;
    if (const HRESULT hr = CoCreateGuid(&guid); FAILED(hr))
        return hr;
    OLECHAR text[kGuidCapacity];
    if (StringFromGUID2(guid, text, kGuidCapacity) == 0)
        return E_FAIL;
    BSTR made = SysAllocString(text);
    if (!made)
        return E_OUTOFMEMORY;
    id = Bstr::Attach(made);
    return S_OK;
}

HRESULT TakeOrMakeId(const VARIANT& argument, Bstr& id) noexcept
{
    return argument.vt == VT_BSTR ? id.Assign(argument.bstrVal) : MakeNewId(id);
}

}  // namespace quorvane
