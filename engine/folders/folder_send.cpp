// Sending a folder's announcement, and starting the jobs that send its items.
#include <new>

#include "engine/folders/folder.h"
#include "engine/folders/resend_folder.h"
#include "engine/items/new_id.h"
#include "engine/items/package.h"
#include "engine/persist/statements.h"
#include "engine/session/trace/trace.h"

namespace quorvane {

namespace {

// What changes into no object means that nobody wants to hear of the progress.
HRESULT FindProgress(const VARIANT& progressBar, ComPtr<IQuorvaneProgress>& progress) noexcept
{
    Variant bar;
    HR_TRY_QUIET(bar.Assign(progressBar));
    if (FAILED(bar.ChangeType(VT_DISPATCH)) || !bar.Raw().pdispVal)
        return S_OK;
    return QueryFor(bar.Raw().pdispVal, progress);
}

HRESULT WantsAll(const VARIANT& resendAll, bool& all) noexcept
{
    Variant value;
    HR_TRY_QUIET(value.Assign(resendAll));
    all = SUCCEEDED(value.ChangeType(VT_BOOL)) && value.Raw().boolVal == VARIANT_TRUE;
    return S_OK;
}

}  // namespace

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
    return traced(package.WriteFolder(m_bstrID.Get(),
                                      [this](IStorage& storage) noexcept { return Save(&storage, TRUE); }));
}

HRESULT CFolder::Resend(BSTR Recipients, VARIANT JobID, VARIANT resendAll, VARIANT ProgressBar)
{
    const Traced traced{"CFolder::Resend"};
    Bstr jobId;
    HR_TRY(traced, TakeOrMakeId(JobID, jobId));
    HR_TRY_QUIET(RecordResend(jobId.Get(), Recipients));
    return Resend(Recipients, jobId.Get(), 0.0, resendAll, ProgressBar, nullptr);
}

HRESULT CFolder::RecordResend(BSTR jobId, BSTR recipients) noexcept
{
    const Traced traced{"CFolder::Resend"};
    DatabaseSession session;
    HR_TRY(traced, m_pSession->Database().OpenSession(session));
    StatementParameters parameters;
    parameters.Text(width::kJobId, jobId)
        .Text(width::kFolderId, m_bstrID.Get())
        .Text(width::kRecipients, recipients);
    return TracedStatement(traced, session.Execute(statements::kAddResendJob, parameters));
}

HRESULT CFolder::ResendEx(BSTR Recipients, IQuorvaneRestrict* Restriction, VARIANT resendAll, VARIANT JobID,
                          VARIANT ProgressBar)
{
    if (Restriction)
        Restriction->AddRef();
    BSTR const jobId = JobID.vt == VT_BSTR ? JobID.bstrVal : nullptr;
    return Resend(Recipients, jobId, 0.0, resendAll, ProgressBar, Restriction);
}

HRESULT CFolder::Resend(BSTR Recipients, BSTR JobID, double Reserved, VARIANT resendAll, VARIANT ProgressBar,
                        IQuorvaneRestrict* Restriction) noexcept
{
    const Traced traced{"CFolder::Resend"};
    ComPtr<IQuorvaneProgress> progress;
    HR_TRY(traced, FindProgress(ProgressBar, progress));
    bool all = false;
    HR_TRY(traced, WantsAll(resendAll, all));
    ComPtr<IUnknown> store;
    HR_TRY(traced, OpenStore(MDB_NO_MAIL, store.Put()));
    CCustomThreadPool* const pool = m_pSession->ResendPool();
    if (!pool)
        return traced(E_UNEXPECTED);
    try {
        auto job = std::make_unique<CResendFolder>(this, store.Get(), progress.Get(), Restriction, Recipients,
                                                   JobID, Reserved, all ? 1u : 0u, VARIANT_FALSE);
        job->m_pSession = m_pSession;
        return traced(pool->Add(std::move(job)));
    } catch (const std::bad_alloc&) {
        return traced(E_FAIL);
    }
}

}  // namespace quorvane
