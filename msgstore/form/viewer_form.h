// msgstore/form/viewer_form.h: the form that hands its message to a program.
#ifndef QUORVANE_MSGSTORE_FORM_VIEWER_FORM_H_
#define QUORVANE_MSGSTORE_FORM_VIEWER_FORM_H_

#include <map>
#include <string>

#include "platform/com/com_object.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

// Opened, it writes its message as a file of MIME text, starts a program on it, and closes: what the user
// sees is a copy, and nothing comes back of it. With the viewer "-", or where the program can't be started
// and a person reads the standard output, the message is written there as text.
//
// The files are the user's alone, in "Quorvane3/shown" of his local application data; those of an earlier day
// go when the next one is written. One thread at a time.
class CViewerForm final : public ComObject<CViewerForm, IMAPIForm, IPersistMessage> {
public:
    // wait  whether opening ends when the program does, and not before.
    CViewerForm(std::string viewer, bool wait) noexcept : m_viewer(std::move(viewer)), m_wait(wait) {}

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) override;

    HRESULT STDMETHODCALLTYPE SetViewContext(LPMAPIVIEWCONTEXT context) override;
    // S_FALSE and null: there is none.
    HRESULT STDMETHODCALLTYPE GetViewContext(LPMAPIVIEWCONTEXT* context) override;
    // There is never anything to save.
    HRESULT STDMETHODCALLTYPE ShutdownForm(ULONG saveOptions) override;
    // EXCHIVERB_OPEN alone; others MAPI_E_NO_SUPPORT. E_UNEXPECTED: the form has no message any more. As
    // OpenFileWith, and what writing the file gives: the form stays open.
    HRESULT STDMETHODCALLTYPE DoVerb(LONG verb, LPMAPIVIEWCONTEXT context, ULONG_PTR parent,
                                     LPCRECT position) override;
    HRESULT STDMETHODCALLTYPE Advise(LPMAPIVIEWADVISESINK sink, ULONG_PTR* connection) override;
    // MAPI_E_INVALID_PARAMETER: there is no such connection.
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG_PTR connection) override;

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override;
    HRESULT STDMETHODCALLTYPE IsDirty() override;
    // MAPI_E_NO_SUPPORT: nothing is composed here.
    HRESULT STDMETHODCALLTYPE InitNew(LPMAPIMESSAGESITE site, LPMESSAGE message) override;
    HRESULT STDMETHODCALLTYPE Load(LPMAPIMESSAGESITE site, LPMESSAGE message, ULONG messageStatus,
                                   ULONG messageFlags) override;
    HRESULT STDMETHODCALLTYPE Save(LPMESSAGE message, ULONG sameAsLoad) override;
    HRESULT STDMETHODCALLTYPE SaveCompleted(LPMESSAGE message) override;
    HRESULT STDMETHODCALLTYPE HandsOffMessage() override;

private:
    [[nodiscard]] HRESULT Show();
    [[nodiscard]] HRESULT ShowWithProgram();
    [[nodiscard]] HRESULT ShowAsText();
    void Close() noexcept;

    const std::string m_viewer;
    const bool m_wait;
    ComPtr<IMAPIMessageSite> m_site;
    ComPtr<IMessage> m_message;
    ComPtr<IMAPIViewContext> m_context;
    std::map<ULONG_PTR, ComPtr<IMAPIViewAdviseSink>> m_sinks;
    ULONG_PTR m_lastConnection = 0;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_FORM_VIEWER_FORM_H_
