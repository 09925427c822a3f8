// change/items_col.h: a folder's contents table as an automation object, for the host's restriction.
#ifndef QUORVANE_ENGINE_CHANGE_ITEMS_COL_H_
#define QUORVANE_ENGINE_CHANGE_ITEMS_COL_H_

#include "engine/session/context/operations.h"

namespace quorvane {

// Holds one table. Any thread may call; the table itself is its owner's.
class CItemsCol final : public ComObject<CItemsCol, DispatchImpl<IItemsCol>> {
public:
    // table  [in]  a reference is kept; null for an object that holds none.
    explicit CItemsCol(IUnknown* table = nullptr) noexcept : m_pTable(table) {}

    // One more reference to the table, null when none is held. S_OK; E_POINTER.
    HRESULT STDMETHODCALLTYPE get_RawTable(IUnknown** pVal) override;

private:
    ComPtr<IUnknown> m_pTable;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_CHANGE_ITEMS_COL_H_
