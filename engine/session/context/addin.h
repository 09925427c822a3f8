// session/context/addin.h: Addin, the engine's calls to the host, typed.
#ifndef QUORVANE_ENGINE_SESSION_CONTEXT_ADDIN_H_
#define QUORVANE_ENGINE_SESSION_CONTEXT_ADDIN_H_

#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "quorvane3/object_model.h"

namespace quorvane {

class SessionContext;

// Calls IQuorvaneExt through IDispatch::Invoke, by identifier. Made on the thread that calls, or handed to
// another as it is: what SessionContext::GetAddin gave stands for the host's object wherever that lives, and
// a call returns when the host has run it.
//
// Arguments are borrowed for the call; a null text is passed as null, a null item isn't passed on: E_POINTER.
// `ignore` goes in as it stands and comes out true when the host left anything but zero there; it is
// untouched after a failure. A failure of the host's comes back as the host gave it; E_POINTER when there is
// no host.
class Addin {
public:
    Addin() noexcept = default;
    explicit Addin(ComPtr<IQuorvaneExt> host) noexcept : host_(std::move(host)) {}

    // Asks the session for the host. What SessionContext::GetAddin gives; no host is held after a failure.
    [[nodiscard]] HRESULT Connect(SessionContext& session) noexcept;

    IQuorvaneExt* Get() const noexcept { return host_.Get(); }

    [[nodiscard]] HRESULT OnItemResend(IItem* item, BSTR jobId, bool& ignore) const noexcept;
    [[nodiscard]] HRESULT OnFolderReceived(IFolder* folder, BSTR tag) const noexcept;
    [[nodiscard]] HRESULT OnItemAdded(IItem* item, bool& ignore) const noexcept;
    [[nodiscard]] HRESULT OnItemChanged(IItem* item, bool& ignore) const noexcept;
    [[nodiscard]] HRESULT OnItemDeleted(IItem* item, bool& ignore) const noexcept;
    [[nodiscard]] HRESULT OnItemReceived(IItem* item, BSTR tag, bool& ignore) const noexcept;
    [[nodiscard]] HRESULT OnPostprocess(BSTR entryId, BSTR storeId) const noexcept;

    // S_OK; DISP_E_TYPEMISMATCH: the host gave something other than a text; the output is untouched then.
    [[nodiscard]] HRESULT DatabasePath(Bstr& path) const noexcept;
    [[nodiscard]] HRESULT ProductCode(Bstr& code) const noexcept;

private:
    HRESULT CallItemEvent(DISPID id, IItem* item, const VARIANT* text, bool& ignore) const noexcept;
    HRESULT ReadText(DISPID id, Bstr& text) const noexcept;

    ComPtr<IQuorvaneExt> host_;
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_CONTEXT_ADDIN_H_
