#include "engine/folders/folder.h"
#include "engine/items/package.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

HRESULT CFolder::Send(VARIANT Recipients)
{
    const Traced traced{"CFolder::Send"};
    Variant recipients;
    HR_TRY_QUIET(recipients.Assign(Recipients));
    if (!recipients.Is(VT_ERROR) && !recipients.Is(VT_BSTR))
        return E_INVALIDARG;
    // The folder's entry identifier is the address that stands for its usual members.
    BSTR const address = recipients.Is(VT_BSTR) ? recipients.Raw().bstrVal : m_bstrEntryID.Get();

    PackageTurn package;
    HR_TRY(traced, package.Begin(*m_pSession, address));
    ComPtr<IStorage> storage;
    HR_TRY(traced, package.OpenFolder(m_bstrID.Get(), storage));
    return traced(Save(storage.Get(), TRUE));
}

HRESULT CFolder::Resend(BSTR /*Recipients*/, VARIANT /*JobID*/, VARIANT /*resendAll*/,
                        VARIANT /*ProgressBar*/)
{
    return E_NOTIMPL;
}

HRESULT CFolder::ResendEx(BSTR /*Recipients*/, IQuorvaneRestrict* /*Restriction*/, VARIANT /*resendAll*/,
                          VARIANT /*JobID*/, VARIANT /*ProgressBar*/)
{
    return E_NOTIMPL;
}

}  // namespace quorvane
