#include "msgstore/form/form_manager.h"

#include "msgstore/form/form_registry.h"
#include "msgstore/form/viewer_form.h"
#include "msgstore/util/guarded.h"
#include "platform/module/module.h"

namespace quorvane {
namespace {

HRESULT MakeFromLibrary(const FormChoice& choice, ComPtr<IPersistMessage>& form)
{
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    Module library;
    QV_RETURN_IF_FAILED(library.Load(choice.library));
    const auto getClassObject = library.Find<GetClassObject>("DllGetClassObject");
    if (!getClassObject)
        return CLASS_E_CLASSNOTAVAILABLE;
    ComPtr<IClassFactory> factory;
    QV_RETURN_IF_FAILED(getClassObject(choice.classId, IID_IClassFactory, factory.PutVoid()));
    return factory->CreateInstance(nullptr, IID_IPersistMessage, form.PutVoid());
}

HRESULT MakeForm(std::string_view messageClass, bool exact, ComPtr<IPersistMessage>& form)
{
    FormChoice choice;
    QV_RETURN_IF_FAILED(FindForm(messageClass, exact, choice));
    if (!choice.library.empty())
        return MakeFromLibrary(choice, form);
    const auto viewer = MakeComObject<CViewerForm>(std::move(choice.viewer), choice.wait);
    return viewer ? viewer.As(form) : E_OUTOFMEMORY;
}

template <class Result>
HRESULT NotOffered(Result** result) noexcept
{
    if (!result)
        return MAPI_E_INVALID_PARAMETER;
    *result = nullptr;
    return MAPI_E_NO_SUPPORT;
}

}  // namespace

HRESULT CFormManager::GetLastError(HRESULT, ULONG, LPMAPIERROR* error)
{
    if (!error)
        return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    return S_OK;
}

HRESULT CFormManager::LoadForm(ULONG_PTR, ULONG flags, LPCSTR messageClass, ULONG messageStatus,
                               ULONG messageFlags, LPMAPIFOLDER, LPMAPIMESSAGESITE site, LPMESSAGE message,
                               LPMAPIVIEWCONTEXT context, REFIID riid, LPVOID* form)
{
    if (!form)
        return MAPI_E_INVALID_PARAMETER;
    *form = nullptr;
    if (!messageClass || !site || !message)
        return MAPI_E_INVALID_PARAMETER;
    if ((flags & ~ULONG{MAPI_DIALOG | MAPIFORM_EXACTMATCH}) != 0)
        return MAPI_E_UNKNOWN_FLAGS;
    return Guarded([&] {
        ComPtr<IPersistMessage> persist;
        QV_RETURN_IF_FAILED(MakeForm(messageClass, (flags & MAPIFORM_EXACTMATCH) != 0, persist));
        ComPtr<IMAPIForm> made;
        QV_RETURN_IF_FAILED(persist.As(made));
        HRESULT hr = persist->Load(site, message, messageStatus, messageFlags);
        if (SUCCEEDED(hr) && context)
            hr = made->SetViewContext(context);
        if (SUCCEEDED(hr))
            hr = made->QueryInterface(riid, form);
        // What it was given it would keep, and its giver it.
        if (FAILED(hr))
            (void)made->ShutdownForm(SAVEOPTS_NOSAVE);
        return hr;
    });
}

HRESULT CFormManager::ResolveMessageClass(LPCSTR, ULONG, LPMAPIFOLDER, LPMAPIFORMINFO* info)
{
    return NotOffered(info);
}

HRESULT CFormManager::ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY, ULONG, LPMAPIFOLDER,
                                                    LPSMAPIFORMINFOARRAY* infos)
{
    return NotOffered(infos);
}

HRESULT CFormManager::CalcFormPropSet(LPSMAPIFORMINFOARRAY, ULONG, LPMAPIFORMPROPARRAY* properties)
{
    return NotOffered(properties);
}

HRESULT CFormManager::CreateForm(ULONG_PTR, ULONG, LPMAPIFORMINFO, REFIID, LPVOID* form)
{
    return NotOffered(form);
}

HRESULT CFormManager::SelectForm(ULONG_PTR, ULONG, LPCTSTR, LPMAPIFOLDER, LPMAPIFORMINFO* info)
{
    return NotOffered(info);
}

HRESULT CFormManager::SelectMultipleForms(ULONG_PTR, ULONG, LPCTSTR, LPMAPIFOLDER, LPSMAPIFORMINFOARRAY,
                                          LPSMAPIFORMINFOARRAY* infos)
{
    return NotOffered(infos);
}

HRESULT CFormManager::SelectFormContainer(ULONG_PTR, ULONG, LPMAPIFORMCONTAINER* container)
{
    return NotOffered(container);
}

HRESULT CFormManager::OpenFormContainer(HFRMREG, LPUNKNOWN, LPMAPIFORMCONTAINER* container)
{
    return NotOffered(container);
}

HRESULT CFormManager::PrepareForm(ULONG_PTR, ULONG, LPMAPIFORMINFO)
{
    return MAPI_E_NO_SUPPORT;
}

HRESULT CFormManager::IsInConflict(ULONG, ULONG, LPCSTR, LPMAPIFOLDER)
{
    return S_FALSE;
}

}  // namespace quorvane

STDAPI MAPIOpenFormMgr(LPMAPISESSION session, LPMAPIFORMMGR* manager)
{
    if (!manager)
        return MAPI_E_INVALID_PARAMETER;
    *manager = session ? quorvane::MakeComObject<quorvane::CFormManager>().Detach() : nullptr;
    if (!session)
        return MAPI_E_INVALID_PARAMETER;
    return *manager ? S_OK : E_OUTOFMEMORY;
}
