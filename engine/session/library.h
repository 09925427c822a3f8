// session/library.h: CLibrary, the object that a host creates first.
//
// Threading: made, used and released on the host's thread.
#ifndef QUORVANE_ENGINE_SESSION_LIBRARY_H_
#define QUORVANE_ENGINE_SESSION_LIBRARY_H_

#include "engine/session/session.h"
#include "platform/com/class_factory.h"

namespace quorvane {

class CLibrary final : public ComObject<CLibrary, DispatchImpl<ILibrary>> {
public:
    CLibrary() noexcept = default;
    // Drops the library's reference of the session, which ends here unless the host holds another, and shuts
    // the trace log.
    ~CLibrary();

    // Starts everything that a session needs and makes it this library's session.
    //
    // Addin    [in]   the host's callback. A reference is held for the length of the session; it is called
    //                 from the engine's threads in the way that its own thread asks for.
    // Session  [out]  one reference, the caller's; null after a failure.
    //
    // S_OK           the session is up, the database open and upgraded.
    // E_OUTOFMEMORY  no session could be made; Session was not touched.
    // E_POINTER      there is no host, or no place for the session; the latter shows when all is started.
    // others         what MAPI, the database or the host answered. Nothing is left behind, save the trace
    //                log, which stays on; the next Logon starts anew.
    //
    // A second Logon isn't refused: the earlier session then lives until the process ends.
    HRESULT STDMETHODCALLTYPE Logon(IQuorvaneExt* Addin, ISession2** Session) override;

    // The session of the last successful Logon. Without one: DISP_E_EXCEPTION, with error info on the thread
    // whose text is "Please login first.".
    HRESULT STDMETHODCALLTYPE get_Session(ISession2** pVal) override;

    // Do nothing. S_OK.
    HRESULT STDMETHODCALLTYPE ForceLogoff() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Test() override { return S_OK; }

private:
    static HRESULT Start(CSession2& session, IQuorvaneExt* addin, ISession2** wanted,
                         ComPtr<ISession2>& started) noexcept;
    static void StartTraceLog(CSession2& session) noexcept;

    ComPtr<CSession2> m_pSession;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_LIBRARY_H_
