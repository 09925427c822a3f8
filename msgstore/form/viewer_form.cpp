#include "msgstore/form/viewer_form.h"

#include <cstdio>

#include "msgstore/form/form_registry.h"
#include "msgstore/form/message_text.h"
#include "msgstore/form/shown_file.h"
#include "msgstore/util/guarded.h"
#include "platform/desktop/desktop.h"

namespace quorvane {

HRESULT CViewerForm::GetLastError(HRESULT, ULONG, LPMAPIERROR* error)
{
    if (!error)
        return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    return S_OK;
}

HRESULT CViewerForm::SetViewContext(LPMAPIVIEWCONTEXT context)
{
    m_context = context;
    return S_OK;
}

HRESULT CViewerForm::GetViewContext(LPMAPIVIEWCONTEXT* context)
{
    if (!context)
        return MAPI_E_INVALID_PARAMETER;
    *context = nullptr;
    return m_context ? m_context.CopyTo(context) : S_FALSE;
}

HRESULT CViewerForm::ShutdownForm(ULONG)
{
    Close();
    return S_OK;
}

HRESULT CViewerForm::DoVerb(LONG verb, LPMAPIVIEWCONTEXT, ULONG_PTR, LPCRECT)
{
    if (verb != EXCHIVERB_OPEN)
        return MAPI_E_NO_SUPPORT;
    if (!m_message)
        return E_UNEXPECTED;
    const ComPtr<CViewerForm> self(this);
    QV_RETURN_IF_FAILED(Guarded([&] { return Show(); }));
    Close();
    return S_OK;
}

HRESULT CViewerForm::Show()
{
    if (m_viewer == kTextViewer)
        return ShowAsText();
    const HRESULT hr = ShowWithProgram();
    return hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) && OutputIsTerminal() ? ShowAsText() : hr;
}

HRESULT CViewerForm::ShowWithProgram()
{
    std::string text;
    std::string path;
    QV_RETURN_IF_FAILED(MakeMimeText(*m_message.Get(), text));
    QV_RETURN_IF_FAILED(WriteShownFile(text, path));
    return OpenFileWith(m_viewer, path, m_wait ? ProgramWait::End : ProgramWait::None);
}

HRESULT CViewerForm::ShowAsText()
{
    std::string text;
    QV_RETURN_IF_FAILED(MakePlainText(*m_message.Get(), text));
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && written ? S_OK : MAPI_E_DISK_ERROR;
}

void CViewerForm::Close() noexcept
{
    const ComPtr<CViewerForm> self(this);
    // A sink that is told ends its connection.
    while (!m_sinks.empty()) {
        const auto first = m_sinks.begin();
        const ULONG_PTR connection = first->first;
        const ComPtr<IMAPIViewAdviseSink> sink = first->second;
        (void)sink->OnShutdown();  // whatever it says, the form closes
        m_sinks.erase(connection);
    }
    m_site.Reset();
    m_message.Reset();
    m_context.Reset();
}

HRESULT CViewerForm::Advise(LPMAPIVIEWADVISESINK sink, ULONG_PTR* connection)
{
    if (!sink || !connection)
        return MAPI_E_INVALID_PARAMETER;
    return Guarded([&] {
        m_sinks.emplace(m_lastConnection + 1, sink);
        *connection = ++m_lastConnection;
        return S_OK;
    });
}

HRESULT CViewerForm::Unadvise(ULONG_PTR connection)
{
    return m_sinks.erase(connection) == 1 ? S_OK : MAPI_E_INVALID_PARAMETER;
}

HRESULT CViewerForm::GetClassID(CLSID* clsid)
{
    if (!clsid)
        return MAPI_E_INVALID_PARAMETER;
    *clsid = {};  // nobody could make one by it
    return S_OK;
}

HRESULT CViewerForm::IsDirty()
{
    return S_FALSE;
}

HRESULT CViewerForm::InitNew(LPMAPIMESSAGESITE, LPMESSAGE)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CViewerForm::Load(LPMAPIMESSAGESITE site, LPMESSAGE message, ULONG, ULONG)
{
    if (!site || !message)
        return MAPI_E_INVALID_PARAMETER;
    m_site = site;
    m_message = message;
    return S_OK;
}

HRESULT CViewerForm::Save(LPMESSAGE, ULONG)
{
    return S_OK;
}

HRESULT CViewerForm::SaveCompleted(LPMESSAGE)
{
    return S_OK;
}

HRESULT CViewerForm::HandsOffMessage()
{
    m_message.Reset();
    return S_OK;
}

}  // namespace quorvane
