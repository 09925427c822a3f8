#include "engine/items/form_viewer.h"

#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_functions.h"

namespace quorvane {

// The viewer's IMAPIViewAdviseSink with a count of its own, which tells how long the form keeps hold of it.
class CMyMAPIFormViewer::Listener final : public IMAPIViewAdviseSink {
public:
    explicit Listener(CMyMAPIFormViewer& viewer) noexcept : m_pViewer(&viewer) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        if (!IsEqualIID(riid, IID_IMAPIViewAdviseSink))
            return m_pViewer->QueryInterface(riid, object);
        AddRef();
        *object = static_cast<IMAPIViewAdviseSink*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_References.fetch_add(1) + 1; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = m_References.fetch_sub(1) - 1;
        if (left != 0)
            return left;
        if (m_pViewer->m_pListener == this) {
            m_pViewer->m_pListener = nullptr;
            m_pViewer->m_pKnownForm = nullptr;
        }
        delete this;
        return 0;
    }

    // The form may let go of this object in the midst of a call.
    HRESULT STDMETHODCALLTYPE OnShutdown() override { return ComPtr(m_pViewer)->OnShutdown(); }
    HRESULT STDMETHODCALLTYPE OnNewMessage() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnPrint(ULONG, HRESULT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSubmitted() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnSaved() override { return S_OK; }

private:
    ~Listener() = default;

    const ComPtr<CMyMAPIFormViewer> m_pViewer;
    std::atomic<ULONG> m_References{1};
};

HRESULT CMyMAPIFormViewer::SetPersistFromForm(IMAPIForm* form) noexcept
{
    m_pPersistMessage.Reset();
    HR_TRY_QUIET(QueryFor(form, m_pPersistMessage));
    const HRESULT hr = form->Advise(this, &m_ulConnection);
    if (FAILED(hr))
        m_pPersistMessage.Reset();
    return hr;
}

HRESULT CMyMAPIFormViewer::SetPersistMessage(IPersistMessage* persist) noexcept
{
    m_pPersistMessage.Reset();
    m_pKnownForm = nullptr;
    m_pListener = nullptr;
    if (!persist)
        return S_OK;
    const ComPtr<IPersistMessage> kept(persist);
    ComPtr<IMAPIForm> form;
    HR_TRY_QUIET(kept.As(form));
    const auto listener = ComPtr<IMAPIViewAdviseSink>::Attach(new (std::nothrow) Listener(*this));
    if (!listener)
        return E_OUTOFMEMORY;
    m_pKnownForm = persist;
    m_pListener = static_cast<Listener*>(listener.Get());
    return form->Advise(listener.Get(), &m_ulConnection);
}

void CMyMAPIFormViewer::LetGoOfForm() noexcept
{
    HR_IGNORE(OnShutdown(), "a form that doesn't listen is let go of as well");
    m_pPersistMessage.Reset();
}

HRESULT CMyMAPIFormViewer::Form(ComPtr<IPersistMessage>& persist) const noexcept
{
    persist = m_pPersistMessage ? m_pPersistMessage : ComPtr<IPersistMessage>(m_pKnownForm);
    return persist ? S_OK : E_UNEXPECTED;
}

HRESULT CMyMAPIFormViewer::GetLastError(HRESULT, ULONG, LPMAPIERROR*)
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::GetSession(LPMAPISESSION* session)
{
    return m_pSession.CopyTo(session);
}

HRESULT CMyMAPIFormViewer::GetStore(LPMDB* store)
{
    return m_pStore.CopyTo(store);
}

HRESULT CMyMAPIFormViewer::GetFolder(LPMAPIFOLDER* folder)
{
    return m_pFolder.CopyTo(folder);
}

HRESULT CMyMAPIFormViewer::GetMessage(LPMESSAGE* message)
{
    if (!message)
        return E_POINTER;
    *message = nullptr;
    return m_pMessage ? m_pMessage.CopyTo(message) : S_FALSE;
}

HRESULT CMyMAPIFormViewer::GetFormManager(LPMAPIFORMMGR* manager)
{
    return mapi::MAPIOpenFormMgr(m_pSession.Get(), manager);
}

HRESULT CMyMAPIFormViewer::NewMessage(ULONG composeInFolder, LPMAPIFOLDER folderFocus,
                                      LPPERSISTMESSAGE persist, LPMESSAGE* message, LPMAPIMESSAGESITE* site,
                                      LPMAPIVIEWCONTEXT* context)
{
    if (!message || !site || !context)
        return E_POINTER;
    *message = nullptr;
    *site = nullptr;
    *context = nullptr;
    IMAPIFolder* const target = composeInFolder && folderFocus ? folderFocus : m_pFolder.Get();
    ComPtr<IMessage> made;
    HR_TRY_QUIET(m_pFolder->CreateMessage(nullptr, 0, made.Put()));
    HR_TRY_QUIET(made->SaveChanges(KEEP_OPEN_READWRITE));
    auto viewer = MakeComObject<CMyMAPIFormViewer>(m_pStore.Get(), m_pSession.Get(), target, made.Get());
    if (!viewer)
        return E_OUTOFMEMORY;
    HR_TRY_QUIET(viewer->SetPersistMessage(persist));
    HR_TRY_QUIET(viewer.As(context));
    *message = made.Detach();
    *site = viewer.Detach();
    return S_OK;
}

HRESULT CMyMAPIFormViewer::CopyMessage(LPMAPIFOLDER)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMyMAPIFormViewer::MoveMessage(LPMAPIFOLDER, LPMAPIVIEWCONTEXT, LPCRECT)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMyMAPIFormViewer::DeleteMessage(LPMAPIVIEWCONTEXT, LPCRECT)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CMyMAPIFormViewer::SaveMessage()
{
    ComPtr<IPersistMessage> persist;
    ComPtr<IMessage> message;
    HR_TRY_QUIET(WriteBack(persist, message));
    return message->SaveChanges(KEEP_OPEN_READWRITE);
}

HRESULT CMyMAPIFormViewer::SubmitMessage(ULONG)
{
    ComPtr<IPersistMessage> persist;
    ComPtr<IMessage> message;
    HR_TRY_QUIET(WriteBack(persist, message));
    HR_TRY_QUIET(persist->HandsOffMessage());
    HR_TRY_QUIET(message->SubmitMessage(0));
    m_pMessage.Reset();
    return S_OK;
}

HRESULT CMyMAPIFormViewer::WriteBack(ComPtr<IPersistMessage>& persist, ComPtr<IMessage>& message) noexcept
{
    HR_TRY_QUIET(Form(persist));
    message = m_pMessage;
    return message ? persist->Save(message.Get(), TRUE) : E_UNEXPECTED;
}

HRESULT CMyMAPIFormViewer::GetSiteStatus(ULONG* status)
{
    if (!status)
        return E_POINTER;
    *status = VCSTATUS_NEW_MESSAGE | VCSTATUS_SAVE | VCSTATUS_SUBMIT;
    return S_OK;
}

HRESULT CMyMAPIFormViewer::SetAdviseSink(LPMAPIFORMADVISESINK sink)
{
    m_pFormAdviseSink = sink;
    return S_OK;
}

HRESULT CMyMAPIFormViewer::ActivateNext(ULONG, LPCRECT)
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::GetPrintSetup(ULONG, LPFORMPRINTSETUP*)
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::GetSaveStream(ULONG*, ULONG*, LPSTREAM*)
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::GetViewStatus(ULONG* status)
{
    if (!status)
        return E_POINTER;
    *status = VCSTATUS_INTERACTIVE | VCSTATUS_NEXT | VCSTATUS_PREV;
    return S_OK;
}

HRESULT CMyMAPIFormViewer::OnShutdown()
{
    const ComPtr<CMyMAPIFormViewer> self(this);  // the form lets go of its listener
    ComPtr<IPersistMessage> persist;
    HR_TRY_QUIET(Form(persist));
    ComPtr<IMAPIForm> form;
    HR_TRY_QUIET(persist.As(form));
    return form->Unadvise(m_ulConnection);
}

HRESULT CMyMAPIFormViewer::OnNewMessage()
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::OnPrint(ULONG, HRESULT)
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::OnSubmitted()
{
    return S_OK;
}

HRESULT CMyMAPIFormViewer::OnSaved()
{
    return S_OK;
}

}  // namespace quorvane
