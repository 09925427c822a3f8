// quorvane3/host_session.h: a logon to the engine, for a scope.
#ifndef QUORVANE3_HOST_SESSION_H_
#define QUORVANE3_HOST_SESSION_H_

#include "quorvane3/callbacks.h"
#include "quorvane3/library.h"

namespace quorvane {

// Owns the library, its session and the callback object, or nothing, and lets go of them in the right order.
// Children of the session (folders, items, packages) are released before it. Logon and Logoff are for one
// thread; the session itself is for any.
class HostSession {
public:
    HostSession() noexcept = default;
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;
    ~HostSession() { Logoff(); }

    // Starts the engine. An older logon is ended first.
    //
    // handler  [in]  hears the callbacks until Logoff returns.
    //
    // The codes of ILibrary::Logon; nothing is held after a failure.
    [[nodiscard]] HRESULT Logon(ExtHandler& handler) noexcept
    {
        Logoff();
        callback_ = MakeComObject<ExtCallback>(handler);
        HRESULT hr = callback_ ? CreateLibrary(library_) : E_OUTOFMEMORY;
        if (SUCCEEDED(hr))
            hr = library_->Logon(callback_.Get(), session_.Put());
        if (FAILED(hr))
            Logoff();
        return hr;
    }

    // Ends the session: waits for its jobs and for every callback under way. Does nothing without a logon.
    // Not called from within a callback.
    void Logoff() noexcept
    {
        session_.Reset();
        library_.Reset();
        if (callback_)
            callback_->Close();
        callback_.Reset();
    }

    bool IsLoggedOn() const noexcept { return static_cast<bool>(session_); }
    // The session, null without a logon. Borrowed: a reference kept beyond Logoff keeps the engine running.
    ISession2* Get() const noexcept { return session_.Get(); }
    ISession2* operator->() const noexcept { return session_.Get(); }

private:
    ComPtr<ExtCallback> callback_;
    ComPtr<ILibrary> library_;
    ComPtr<ISession2> session_;
};

}  // namespace quorvane

#endif  // QUORVANE3_HOST_SESSION_H_
