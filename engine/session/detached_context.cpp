#include "engine/session/detached_context.h"

#include <new>

#include "engine/session/context/notification_gate.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

DetachedContext* DetachedContext::Instance() noexcept
{
    static DetachedContext* const instance = [] {
        auto* const made = new (std::nothrow) DetachedContext;
        if (made)
            HR_IGNORE(made->submitEvent_.Create(true), "nobody waits for a writer that can't write");
        return made;
    }();
    return instance;
}

HRESULT DetachedContext::GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept
{
    addin.Reset();
    return E_UNEXPECTED;
}

}  // namespace quorvane
