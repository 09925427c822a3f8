#include "engine/change/items_col.h"

namespace quorvane {

HRESULT STDMETHODCALLTYPE CItemsCol::get_RawTable(IUnknown** pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = ComPtr<IUnknown>(m_pTable).Detach();
    return S_OK;
}

}  // namespace quorvane
