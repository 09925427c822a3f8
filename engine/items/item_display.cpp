#include "engine/items/form_viewer.h"
#include "engine/items/item.h"
#include "engine/session/trace/trace.h"
#include "engine/storeaccess/mapi_memory.h"
#include "platform/desktop/desktop.h"

namespace quorvane {

namespace {

// What a form is chosen by. A value that the message hasn't counts as 0, a missing class as that of mail.
class FormValues {
public:
    HRESULT Read(IMessage& message) noexcept
    {
        SizedSPropTagArray(kCount, tags) = {
            kCount, {kPrMessageStatus, PR_MESSAGE_FLAGS, PR_ACCESS, PR_MESSAGE_CLASS_A}};
        ULONG count = 0;
        HR_TRY_QUIET(message.GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, m_Values.Put()));
        return m_Values && count == kCount ? S_OK : E_FAIL;
    }

    ULONG Status() const noexcept { return Number(0, kPrMessageStatus); }
    ULONG Flags() const noexcept { return Number(1, PR_MESSAGE_FLAGS); }
    const char* Class() const noexcept
    {
        const SPropValue& value = m_Values.Get()[3];
        return value.ulPropTag == PR_MESSAGE_CLASS_A && value.Value.lpszA ? value.Value.lpszA : "IPM.Note";
    }

private:
    static constexpr ULONG kCount = 4;

    ULONG Number(size_t place, ULONG tag) const noexcept
    {
        const SPropValue& value = m_Values.Get()[place];
        return value.ulPropTag == tag ? static_cast<ULONG>(value.Value.l) : 0;
    }

    MapiBuffer<SPropValue> m_Values;
};

HRESULT OpenStoreOf(IMAPIFolder& folder, IMAPISession& session, ComPtr<IMsgStore>& store) noexcept
{
    PropValue id;
    HR_TRY_QUIET(mapi::HrGetOneProp(&folder, PR_STORE_ENTRYID, id.Put()));
    if (id->ulPropTag != PR_STORE_ENTRYID)
        return E_FAIL;
    return session.OpenMsgStore(0, id->Value.bin.cb, reinterpret_cast<LPENTRYID>(id->Value.bin.lpb), nullptr,
                                MDB_NO_DIALOG, store.Put());
}

HRESULT LoadForm(IMAPIFormMgr& manager, const FormValues& values, IMAPIFolder& folder, IMessage& message,
                 CMyMAPIFormViewer& viewer, ComPtr<IMAPIForm>& form) noexcept
{
    ComPtr<IMAPIMessageSite> site;
    ComPtr<IMAPIViewContext> context;
    HR_TRY_QUIET(viewer.QueryInterface(IID_IMAPIMessageSite, site.PutVoid()));
    HR_TRY_QUIET(viewer.QueryInterface(IID_IMAPIViewContext, context.PutVoid()));
    HR_TRY_QUIET(manager.LoadForm(ActiveWindow(), MAPI_DIALOG, values.Class(), values.Status(),
                                  values.Flags(), &folder, site.Get(), &message, context.Get(), IID_IMAPIForm,
                                  form.PutVoid()));
    return form ? S_OK : E_FAIL;
}

// A form that doesn't open is let go of, or it and the viewer would keep each other.
HRESULT OpenForm(CMyMAPIFormViewer& viewer, IMAPIForm& form) noexcept
{
    HRESULT hr = viewer.SetPersistFromForm(&form);
    if (SUCCEEDED(hr))
        hr = form.DoVerb(EXCHIVERB_OPEN, nullptr, 0, nullptr);
    if (FAILED(hr))
        viewer.LetGoOfForm();
    return hr;
}

}  // namespace

HRESULT CItem::FolderAndSession(ComPtr<IMAPIFolder>& folder, ComPtr<IMAPISession>& session) noexcept
{
    const SessionUse use(m_pSession);
    HR_TRY_QUIET(use.Result());
    ComPtr<IFolder> shared;
    HR_TRY_QUIET(get_Folder(shared.Put()));
    ComPtr<IUnknown> raw;
    HR_TRY_QUIET(shared->get_Raw(raw.Put()));
    HR_TRY_QUIET(raw.As(folder));
    session = ComPtr<IMAPISession>(m_pSession->MapiSession());
    return session ? S_OK : E_HANDLE;
}

HRESULT CItem::Display(VARIANT_BOOL /*Modal*/, LONG /*Parent*/)
{
    const Traced traced{"CItem::Display"};
    ComPtr<IMAPIFolder> folder;
    ComPtr<IMAPISession> session;
    HR_TRY(traced, FolderAndSession(folder, session));
    const ComPtr<IMessage> message = m_pMessage;
    FormValues values;
    HR_TRY(traced, message ? values.Read(*message) : E_POINTER);
    ComPtr<IMsgStore> store;
    HR_TRY(traced, OpenStoreOf(*folder, *session, store));
    ComPtr<IMAPIFormMgr> manager;
    HR_TRY(traced, mapi::MAPIOpenFormMgr(session.Get(), manager.Put()));
    const auto viewer =
        MakeComObject<CMyMAPIFormViewer>(store.Get(), session.Get(), folder.Get(), message.Get());
    ComPtr<IMAPIForm> form;
    HR_TRY(traced, viewer ? LoadForm(*manager, values, *folder, *message, *viewer, form) : E_OUTOFMEMORY);
    return traced(OpenForm(*viewer, *form));
}

}  // namespace quorvane
