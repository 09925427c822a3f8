#include "engine/items/item.h"
#include "engine/items/package.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

HRESULT CItem::Send(IStorage* target) noexcept
{
    return Traced{"CItem::Send"}(Save(target, TRUE));
}

// Saves into memory first, so that little can fail once the element in the package is begun. The element is
// closed before the package is unlocked.
HRESULT CItem::Send(BSTR Recipients)
{
    const Traced traced{"CItem::Send"};
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    PackageTurn package;
    HR_TRY(traced, package.Begin(*m_pSession, Recipients));
    return traced(package.WriteItem(m_bstrID.Get(), [this](IStorage& target) noexcept {
        MemoryStorage memory;
        HR_TRY_QUIET(memory.Create());
        HR_TRY_QUIET(Save(memory.storage.Get(), TRUE));
        return CopyElement(*memory.storage, target);
    }));
}

}  // namespace quorvane
