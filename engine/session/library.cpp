#include "engine/session/library.h"

#include <vector>

#include "engine/session/trace/trace.h"
#include "platform/com/error_text.h"
#include "platform/com/never_destroyed.h"

namespace quorvane {

namespace {

constexpr Traced kLogon{"CLibrary::Logon"};

// A session that a second Logon replaces keeps running, threads and all, until the process ends. The list
// keeps it in sight of whoever looks for lost memory. Throws std::bad_alloc; the session is kept all the
// same.
void KeepForever(ComPtr<CSession2> session)
{
    if (!session)
        return;
    static NeverDestroyed<Mutex> mutex;
    static NeverDestroyed<std::vector<CSession2*>> kept;
    const MutexLock lock(*mutex);
    (*kept).push_back(session.Detach());
}

}  // namespace

CLibrary::~CLibrary()
{
    const Traced traced{"CLibrary::~CLibrary"};
    traced.Line("Session shutdown");
    CSession2::g_bShuttingDown = true;
    m_pSession.Reset();
    ShutdownTrace();
}

HRESULT CLibrary::Logon(IQuorvaneExt* Addin, ISession2** Session)
{
    try {
        KeepForever(std::move(m_pSession));
    } catch (const std::bad_alloc&) {
        return kLogon(E_OUTOFMEMORY);
    }
    m_pSession = MakeComObject<CSession2>();
    if (!m_pSession)
        return kLogon(E_OUTOFMEMORY);
    ComPtr<ISession2> started;
    const HRESULT hr = Start(*m_pSession.Get(), Addin, Session, started);
    if (FAILED(hr)) {
        started.Reset();
        m_pSession.Reset();
    }
    if (Session)
        *Session = started.Detach();
    return hr;
}

HRESULT CLibrary::Start(CSession2& session, IQuorvaneExt* addin, ISession2** wanted,
                        ComPtr<ISession2>& started) noexcept
{
    ComPtr<IUnknown> host;
    HR_TRY(kLogon, QueryFor(addin, host));
    HR_TRY(kLogon, session.RegisterAddin(host.Get()));
    StartTraceLog(session);
    HR_TRY(kLogon, session.Logon());
    HR_TRY(kLogon, session.OpenDataSource());
    HR_TRY(kLogon, wanted ? session.QueryInterface(IID_ISession2, started.PutVoid()) : E_POINTER);
    return kLogon(session.UpgradeDB());
}

// Both settings are read into one value: with "Logs" absent, a text in "EnableConsole" is what is left there,
// and counts as the path.
void CLibrary::StartTraceLog(CSession2& session) noexcept
{
    DWORD flags = kTraceToFile;
    Variant value;
    if (SUCCEEDED(session.GetRegSetting(OLESTR("EnableConsole"), value)))
        flags |= kTraceToConsole;
    HR_IGNORE(session.GetRegSetting(OLESTR("Logs"), value), "without a setting the default path applies");
    try {
        const std::string path = value.Is(VT_BSTR) ? Narrow(ViewOf(value.Raw().bstrVal)) : std::string();
        StartTrace(flags, value.Is(VT_BSTR) ? path.c_str() : nullptr);
    } catch (const std::bad_alloc&) {
        StartTrace(flags, nullptr);
    }
    kLogon.Line("Startup");
}

HRESULT CLibrary::get_Session(ISession2** pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    if (!m_pSession)
        return RaiseError(IID_ILibrary, OLESTR("quorvane3.Library.1"), OLESTR("Please login first."),
                          DISP_E_EXCEPTION);
    return m_pSession.As(pVal);
}

}  // namespace quorvane
