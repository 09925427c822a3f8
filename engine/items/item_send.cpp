#include "engine/items/item.h"
#include "engine/items/package.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

HRESULT CItem::Send(IStorage* target) noexcept
{
    return Traced{"CItem::Send"}(Save(target, TRUE));
}

// Saves into memory first, so that the element in the package is written in one go. The element is closed
// before the package is unlocked.
HRESULT CItem::Send(BSTR Recipients)
{
    const Traced traced{"CItem::Send"};
    PackageTurn package;
    HR_TRY(traced, package.Begin(*m_pSession, Recipients));
    ComPtr<IStorage> target;
    HR_TRY(traced, package.OpenItem(m_bstrID.Get(), target));
    MemoryStorage memory;
    HR_TRY(traced, memory.Create());
    HR_TRY(traced, Save(memory.storage.Get(), TRUE));
    return traced(memory.storage->CopyTo(0, nullptr, nullptr, target.Get()));
}

}  // namespace quorvane
