#include "engine/items/item.h"
#include "engine/items/package.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// Of a message that can't be read, what can be is sent. What the package has no room for must not be missing
// from an element that passes for whole.
bool IsOfPackage(HRESULT copied) noexcept
{
    constexpr HRESULT kStorageFacility = 3;  // of the codes STG_E_*
    return FAILED(copied) && (((copied >> 16) & 0x1FFF) == kStorageFacility || copied == E_OUTOFMEMORY);
}

}  // namespace

HRESULT CItem::Send(IStorage* target) noexcept
{
    return Traced{"CItem::Send"}(Save(target, TRUE));
}

// The package puts the element in its place as a whole, with "Contents" written last; it is closed before the
// package is unlocked.
HRESULT CItem::Send(BSTR Recipients)
{
    const Traced traced{"CItem::Send"};
    const SessionUse use(m_pSession);
    HR_TRY(traced, use.Result());
    PackageTurn package;
    HR_TRY(traced, package.Begin(*m_pSession, Recipients));
    return traced(package.WriteItem(m_bstrID.Get(), [this](IStorage& target) noexcept {
        HRESULT copied = S_OK;
        HR_TRY_QUIET(SaveWith(target, TRUE, copied));
        return IsOfPackage(copied) ? copied : S_OK;
    }));
}

}  // namespace quorvane
