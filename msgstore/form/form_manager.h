// msgstore/form/form_manager.h: IMAPIFormMgr, which finds and loads the form of a message.
#ifndef QUORVANE_MSGSTORE_FORM_FORM_MANAGER_H_
#define QUORVANE_MSGSTORE_FORM_FORM_MANAGER_H_

#include "platform/com/com_object.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

// Loads forms by what the registry says of a message's class (form_registry.h). It keeps no list of forms
// that others could ask for or choose from: all calls that deal in IMAPIFormInfo give MAPI_E_NO_SUPPORT. Any
// thread may call; a form belongs to the thread that loads it.
class CFormManager final : public ComObject<CFormManager, IMAPIFormMgr> {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) override;

    // Makes the form of a class, and gives it site, message and view.
    //
    // flags    [in]   MAPI_DIALOG, which says nothing here, and MAPIFORM_EXACTMATCH.
    // context  [in]   may be null. Site, message and class may not.
    // form     [out]  null after a failure.
    //
    // MAPI_E_INVALID_PARAMETER, MAPI_E_UNKNOWN_FLAGS. MAPI_E_NOT_FOUND: no form for this very class. Others:
    // ERROR_MOD_NOT_FOUND, a library that isn't there; what the library and the form answer.
    HRESULT STDMETHODCALLTYPE LoadForm(ULONG_PTR uiParam, ULONG flags, LPCSTR messageClass,
                                       ULONG messageStatus, ULONG messageFlags, LPMAPIFOLDER folderFocus,
                                       LPMAPIMESSAGESITE site, LPMESSAGE message, LPMAPIVIEWCONTEXT context,
                                       REFIID riid, LPVOID* form) override;
    HRESULT STDMETHODCALLTYPE ResolveMessageClass(LPCSTR messageClass, ULONG flags, LPMAPIFOLDER folderFocus,
                                                  LPMAPIFORMINFO* info) override;
    HRESULT STDMETHODCALLTYPE ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY classes, ULONG flags,
                                                            LPMAPIFOLDER folderFocus,
                                                            LPSMAPIFORMINFOARRAY* infos) override;
    HRESULT STDMETHODCALLTYPE CalcFormPropSet(LPSMAPIFORMINFOARRAY infos, ULONG flags,
                                              LPMAPIFORMPROPARRAY* properties) override;
    HRESULT STDMETHODCALLTYPE CreateForm(ULONG_PTR uiParam, ULONG flags, LPMAPIFORMINFO info, REFIID riid,
                                         LPVOID* form) override;
    HRESULT STDMETHODCALLTYPE SelectForm(ULONG_PTR uiParam, ULONG flags, LPCTSTR title, LPMAPIFOLDER folder,
                                         LPMAPIFORMINFO* info) override;
    HRESULT STDMETHODCALLTYPE SelectMultipleForms(ULONG_PTR uiParam, ULONG flags, LPCTSTR title,
                                                  LPMAPIFOLDER folder, LPSMAPIFORMINFOARRAY selected,
                                                  LPSMAPIFORMINFOARRAY* infos) override;
    HRESULT STDMETHODCALLTYPE SelectFormContainer(ULONG_PTR uiParam, ULONG flags,
                                                  LPMAPIFORMCONTAINER* container) override;
    HRESULT STDMETHODCALLTYPE OpenFormContainer(HFRMREG registry, LPUNKNOWN object,
                                                LPMAPIFORMCONTAINER* container) override;
    HRESULT STDMETHODCALLTYPE PrepareForm(ULONG_PTR uiParam, ULONG flags, LPMAPIFORMINFO info) override;
    // S_FALSE: no form settles conflicts itself.
    HRESULT STDMETHODCALLTYPE IsInConflict(ULONG messageFlags, ULONG messageStatus, LPCSTR messageClass,
                                           LPMAPIFOLDER folderFocus) override;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_FORM_FORM_MANAGER_H_
