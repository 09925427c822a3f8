#include "engine/monitor/advise_sink.h"

#include <new>

#include "engine/monitor/notify_thread.h"
#include "engine/session/trace/trace.h"
#include "platform/com/detached_thread.h"

namespace quorvane {

void CAdviseSink::SetSession(SessionContext* session) noexcept
{
    m_pSession = session;
    m_pGate = session ? session->Notifications() : nullptr;
}

void CAdviseSink::SetFolder(IFolder* folder) noexcept
{
    const MutexLock lock(m_csFolder);
    m_pFolder = folder;
}

CAdviseSink::FolderState CAdviseSink::StateOfFolder() const noexcept
{
    const MutexLock lock(m_csFolder);
    if (!m_pFolder)
        return FolderState::Gone;
    VARIANT_BOOL ignoreEvents = VARIANT_FALSE;
    HR_IGNORE(m_pFolder->get_IgnoreEvents(&ignoreEvents), "a folder that can't tell listens");
    return ignoreEvents == VARIANT_TRUE ? FolderState::IgnoresEvents : FolderState::Listens;
}

ULONG CAdviseSink::OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications)
{
    const Traced traced{"CAdviseSink::OnNotify"};
    GatePass pass(m_pGate);
    if (!pass.IsHeld())
        return static_cast<ULONG>(S_OK);
    try {
        const auto args = std::make_shared<NotifyThreadArgs>();
        args->cNotif = cNotif;
        args->lpNotifications = lpNotifications;
        if (FAILED(args->hReady.Create(false)))
            return static_cast<ULONG>(traced(E_POINTER));
        auto batch = [pass = std::move(pass), sink = ComPtr<CAdviseSink>(this), args]() mutable {
            HR_IGNORE(NotifyThreadProc(std::move(sink), std::move(args)), "traced, and nobody reads it");
        };
        if (FAILED(StartDetachedThread(std::move(batch))))
            return static_cast<ULONG>(traced(E_POINTER));
        args->hReady.Wait();
        return static_cast<ULONG>(S_OK);
    } catch (const std::bad_alloc&) {
        return static_cast<ULONG>(traced(E_POINTER));
    }
}

}  // namespace quorvane
