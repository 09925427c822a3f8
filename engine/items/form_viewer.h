// items/form_viewer.h: CMyMAPIFormViewer, what surrounds a message's form: its site, its view and its
// listener.
//
// The form asks the site for the message, store and session, and has the site save and submit the message;
// the viewer listens to the form so that it hears when the form closes. The form keeps the viewer alive by
// the references that it takes, and the viewer the form by IPersistMessage: a form that closes lets go of its
// own.
//
// Threading: the form's thread. A form of another apartment reaches it through COM.
#ifndef QUORVANE_ENGINE_ITEMS_FORM_VIEWER_H_
#define QUORVANE_ENGINE_ITEMS_FORM_VIEWER_H_

#include <atomic>

#include "platform/com/class_factory.h"
#include "platform/com/com_object.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

class CMyMAPIFormViewer final
    : public ComObject<CMyMAPIFormViewer, IMAPIMessageSite, IMAPIViewContext, IMAPIViewAdviseSink> {
public:
    // Takes references on all four; none null.
    CMyMAPIFormViewer(IMsgStore* store, IMAPISession* session, IMAPIFolder* folder,
                      IMessage* message) noexcept
        : m_pFolder(folder), m_pMessage(message), m_pStore(store), m_pSession(session)
    {}

    // The form that shows the viewer's message: keeps its IPersistMessage and listens to it. What was kept is
    // let go of.
    //
    // What IMAPIForm and IPersistMessage answer: E_NOINTERFACE, others of Advise.
    [[nodiscard]] HRESULT SetPersistFromForm(IMAPIForm* form) noexcept;

    // The same from the other side of the form, as NewMessage does it. `persist` may be null: nothing is
    // kept.
    //
    // The routine takes two references on the form's object, the kept one and one of IMAPIForm, and on its
    // way out gives both back: afterwards the object's count is what it was before. So the viewer owns no
    // reference on this form. It knows the form for as long as the form keeps hold of the listener that
    // Advise gave it, and has forgotten it when the form lets go, at the latest as it ends.
    [[nodiscard]] HRESULT SetPersistMessage(IPersistMessage* persist) noexcept;

    // Stops listening to the form and lets go of it: a form that failed to open keeps nothing alive.
    void LetGoOfForm() noexcept;

    // IMAPIMessageSite.

    // S_OK, and nothing filled in. Also IMAPIViewContext's.
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) override;
    // A reference for the caller. E_POINTER: no place for it.
    HRESULT STDMETHODCALLTYPE GetSession(LPMAPISESSION* session) override;
    HRESULT STDMETHODCALLTYPE GetStore(LPMDB* store) override;
    HRESULT STDMETHODCALLTYPE GetFolder(LPMAPIFOLDER* folder) override;
    // S_FALSE and null: the message was submitted.
    HRESULT STDMETHODCALLTYPE GetMessage(LPMESSAGE* message) override;
    HRESULT STDMETHODCALLTYPE GetFormManager(LPMAPIFORMMGR* manager) override;
    // Makes a message in the viewer's own folder, and a viewer for it whose folder is `folderFocus` if the
    // caller composes in a folder and names one, else the viewer's own. See SetPersistMessage about
    // `persist`. After a failure the out-parameters are null; a message that was saved already stays in the
    // folder.
    HRESULT STDMETHODCALLTYPE NewMessage(ULONG composeInFolder, LPMAPIFOLDER folderFocus,
                                         LPPERSISTMESSAGE persist, LPMESSAGE* message,
                                         LPMAPIMESSAGESITE* site, LPMAPIVIEWCONTEXT* context) override;
    // MAPI_E_NO_SUPPORT.
    HRESULT STDMETHODCALLTYPE CopyMessage(LPMAPIFOLDER destination) override;
    HRESULT STDMETHODCALLTYPE MoveMessage(LPMAPIFOLDER destination, LPMAPIVIEWCONTEXT context,
                                          LPCRECT position) override;
    HRESULT STDMETHODCALLTYPE DeleteMessage(LPMAPIVIEWCONTEXT context, LPCRECT position) override;
    // Both have the form write into the message first. E_UNEXPECTED: there is no form, or no message any
    // more. After a failure to submit the message is still there.
    HRESULT STDMETHODCALLTYPE SaveMessage() override;
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) override;
    // VCSTATUS_NEW_MESSAGE, VCSTATUS_SAVE and VCSTATUS_SUBMIT.
    HRESULT STDMETHODCALLTYPE GetSiteStatus(ULONG* status) override;

    // IMAPIViewContext.

    // Takes a reference on the sink; null clears.
    HRESULT STDMETHODCALLTYPE SetAdviseSink(LPMAPIFORMADVISESINK sink) override;
    // S_OK, nothing done; nothing filled in.
    HRESULT STDMETHODCALLTYPE ActivateNext(ULONG direction, LPCRECT position) override;
    HRESULT STDMETHODCALLTYPE GetPrintSetup(ULONG flags, LPFORMPRINTSETUP* setup) override;
    HRESULT STDMETHODCALLTYPE GetSaveStream(ULONG* flags, ULONG* format, LPSTREAM* stream) override;
    // VCSTATUS_INTERACTIVE, VCSTATUS_NEXT and VCSTATUS_PREV.
    HRESULT STDMETHODCALLTYPE GetViewStatus(ULONG* status) override;

    // IMAPIViewAdviseSink.

    // Stops listening. E_UNEXPECTED: there is no form.
    HRESULT STDMETHODCALLTYPE OnShutdown() override;
    // S_OK.
    HRESULT STDMETHODCALLTYPE OnNewMessage() override;
    HRESULT STDMETHODCALLTYPE OnPrint(ULONG pageNumber, HRESULT status) override;
    HRESULT STDMETHODCALLTYPE OnSubmitted() override;
    HRESULT STDMETHODCALLTYPE OnSaved() override;

private:
    class Listener;

    // The form, whether a reference on it is owned or not.
    HRESULT Form(ComPtr<IPersistMessage>& persist) const noexcept;
    // Has the form write into the message.
    HRESULT WriteBack(ComPtr<IPersistMessage>& persist, ComPtr<IMessage>& message) noexcept;

    const ComPtr<IMAPIFolder> m_pFolder;
    ComPtr<IMessage> m_pMessage;
    ComPtr<IMAPIFormAdviseSink> m_pFormAdviseSink;
    ComPtr<IPersistMessage> m_pPersistMessage;
    // A form on which no reference is owned, and the listener by which it is known to live. Both or neither.
    IPersistMessage* m_pKnownForm = nullptr;
    Listener* m_pListener = nullptr;
    ULONG_PTR m_ulConnection = 0;  // of the form's Advise
    const ComPtr<IMsgStore> m_pStore;
    const ComPtr<IMAPISession> m_pSession;
    const ServerLockScope
        m_ServerLock;  // a form may be open longer than anything else of the library's lives
};

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_FORM_VIEWER_H_
