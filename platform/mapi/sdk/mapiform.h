// platform/mapi/sdk/mapiform.h: MAPI's forms: who shows a message, and what surrounds it meanwhile. On both
// systems.
//
// The header of this name that mingw-w64 brings has window handles and connections of 32 bits, as MAPI had
// before 64-bit Windows: a form of today would write 8 bytes where 4 are. So this one stands in its place,
// under its guard, and only those of the published names are in it that are used. Slots stand in the SDK's
// order.
#ifndef MAPIFORM_H
#define MAPIFORM_H

#ifdef _WIN32
#include <mapix.h>
#else
#include "platform/mapi/sdk/mapi_interfaces.h"

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
using LPCRECT = const RECT*;
#endif

struct IMAPIForm;
struct IMAPIFormAdviseSink;
struct IMAPIFormContainer;
struct IMAPIFormInfo;
struct IMAPIFormMgr;
struct IMAPIMessageSite;
struct IMAPIViewAdviseSink;
struct IMAPIViewContext;
struct IPersistMessage;

using LPMAPIFORM = IMAPIForm*;
using LPMAPIFORMADVISESINK = IMAPIFormAdviseSink*;
using LPMAPIFORMCONTAINER = IMAPIFormContainer*;
using LPMAPIFORMINFO = IMAPIFormInfo*;
using LPMAPIFORMMGR = IMAPIFormMgr*;
using LPMAPIMESSAGESITE = IMAPIMessageSite*;
using LPMAPIVIEWADVISESINK = IMAPIViewAdviseSink*;
using LPMAPIVIEWCONTEXT = IMAPIViewContext*;
using LPPERSISTMESSAGE = IPersistMessage*;

using HFRMREG = ULONG;

// How a form is told to close.
enum SAVEOPTS { SAVEOPTS_SAVEIFDIRTY = 0, SAVEOPTS_NOSAVE = 1, SAVEOPTS_PROMPTSAVE = 2 };

// IMAPIFormMgr::LoadForm: no form of a class above will do.
#define MAPIFORM_EXACTMATCH 0x0020u

// The verb that opens a message.
#ifndef EXCHIVERB_OPEN
#define EXCHIVERB_OPEN 0
#endif

// What a view and a site allow: IMAPIViewContext::GetViewStatus, IMAPIMessageSite::GetSiteStatus.
#define VCSTATUS_NEXT 0x00000001u
#define VCSTATUS_PREV 0x00000002u
#define VCSTATUS_MODAL 0x00000004u
#define VCSTATUS_INTERACTIVE 0x00000008u
#define VCSTATUS_READONLY 0x00000010u
#define VCSTATUS_DELETE 0x00010000u
#define VCSTATUS_COPY 0x00020000u
#define VCSTATUS_MOVE 0x00040000u
#define VCSTATUS_SUBMIT 0x00080000u
#define VCSTATUS_DELETE_IS_MOVE 0x00100000u
#define VCSTATUS_SAVE 0x00200000u
#define VCSTATUS_NEW_MESSAGE 0x00400000u

struct FORMPRINTSETUP {
    ULONG ulFlags;
    HGLOBAL hDevMode;
    HGLOBAL hDevNames;
    ULONG ulFirstPageNumber;
    ULONG fPrintAttachments;
};
using LPFORMPRINTSETUP = FORMPRINTSETUP*;

struct SMessageClassArray {
    ULONG cValues;
    LPCSTR aMessageClass[MAPI_DIM];
};
using LPSMESSAGECLASSARRAY = SMessageClassArray*;

struct SMAPIFormInfoArray {
    ULONG cForms;
    LPMAPIFORMINFO aFormInfo[MAPI_DIM];
};
using LPSMAPIFORMINFOARRAY = SMAPIFormInfoArray*;

struct SMAPIFormPropArray;
using LPMAPIFORMPROPARRAY = SMAPIFormPropArray*;

static_assert(sizeof(FORMPRINTSETUP) == 32 && sizeof(SMessageClassArray) == 16 &&
              sizeof(SMAPIFormInfoArray) == 16);

// A form's side that has to do with its message.
struct IPersistMessage : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsDirty() = 0;
    virtual HRESULT STDMETHODCALLTYPE InitNew(LPMAPIMESSAGESITE site, LPMESSAGE message) = 0;
    virtual HRESULT STDMETHODCALLTYPE Load(LPMAPIMESSAGESITE site, LPMESSAGE message, ULONG messageStatus,
                                           ULONG messageFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Save(LPMESSAGE message, ULONG sameAsLoad) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveCompleted(LPMESSAGE message) = 0;
    virtual HRESULT STDMETHODCALLTYPE HandsOffMessage() = 0;
};

struct IMAPIForm : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetViewContext(LPMAPIVIEWCONTEXT context) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetViewContext(LPMAPIVIEWCONTEXT* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE ShutdownForm(ULONG saveOptions) = 0;
    virtual HRESULT STDMETHODCALLTYPE DoVerb(LONG verb, LPMAPIVIEWCONTEXT context, ULONG_PTR parent,
                                             LPCRECT position) = 0;
    virtual HRESULT STDMETHODCALLTYPE Advise(LPMAPIVIEWADVISESINK sink, ULONG_PTR* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(ULONG_PTR connection) = 0;
};

struct IMAPIMessageSite : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSession(LPMAPISESSION* session) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStore(LPMDB* store) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFolder(LPMAPIFOLDER* folder) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMessage(LPMESSAGE* message) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetFormManager(LPMAPIFORMMGR* manager) = 0;
    virtual HRESULT STDMETHODCALLTYPE NewMessage(ULONG composeInFolder, LPMAPIFOLDER folderFocus,
                                                 LPPERSISTMESSAGE persist, LPMESSAGE* message,
                                                 LPMAPIMESSAGESITE* site, LPMAPIVIEWCONTEXT* context) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyMessage(LPMAPIFOLDER destination) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveMessage(LPMAPIFOLDER destination, LPMAPIVIEWCONTEXT context,
                                                  LPCRECT position) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeleteMessage(LPMAPIVIEWCONTEXT context, LPCRECT position) = 0;
    virtual HRESULT STDMETHODCALLTYPE SaveMessage() = 0;
    virtual HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSiteStatus(ULONG* status) = 0;
};

struct IMAPIViewContext : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetAdviseSink(LPMAPIFORMADVISESINK sink) = 0;
    virtual HRESULT STDMETHODCALLTYPE ActivateNext(ULONG direction, LPCRECT position) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPrintSetup(ULONG flags, LPFORMPRINTSETUP* setup) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSaveStream(ULONG* flags, ULONG* format, LPSTREAM* stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetViewStatus(ULONG* status) = 0;
};

// A form tells its viewer.
struct IMAPIViewAdviseSink : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnShutdown() = 0;
    virtual HRESULT STDMETHODCALLTYPE OnNewMessage() = 0;
    virtual HRESULT STDMETHODCALLTYPE OnPrint(ULONG pageNumber, HRESULT status) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnSubmitted() = 0;
    virtual HRESULT STDMETHODCALLTYPE OnSaved() = 0;
};

// A viewer tells its form.
struct IMAPIFormAdviseSink : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnChange(ULONG direction) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnActivateNext(LPCSTR messageClass, ULONG messageStatus,
                                                     ULONG messageFlags, LPPERSISTMESSAGE* persist) = 0;
};

struct IMAPIFormMgr : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLastError(HRESULT result, ULONG flags, LPMAPIERROR* error) = 0;
    virtual HRESULT STDMETHODCALLTYPE LoadForm(ULONG_PTR uiParam, ULONG flags, LPCSTR messageClass,
                                               ULONG messageStatus, ULONG messageFlags,
                                               LPMAPIFOLDER folderFocus, LPMAPIMESSAGESITE site,
                                               LPMESSAGE message, LPMAPIVIEWCONTEXT context, REFIID riid,
                                               LPVOID* form) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResolveMessageClass(LPCSTR messageClass, ULONG flags,
                                                          LPMAPIFOLDER folderFocus, LPMAPIFORMINFO* info) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResolveMultipleMessageClasses(LPSMESSAGECLASSARRAY classes, ULONG flags,
                                                                    LPMAPIFOLDER folderFocus,
                                                                    LPSMAPIFORMINFOARRAY* infos) = 0;
    virtual HRESULT STDMETHODCALLTYPE CalcFormPropSet(LPSMAPIFORMINFOARRAY infos, ULONG flags,
                                                      LPMAPIFORMPROPARRAY* properties) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateForm(ULONG_PTR uiParam, ULONG flags, LPMAPIFORMINFO info,
                                                 REFIID riid, LPVOID* form) = 0;
    virtual HRESULT STDMETHODCALLTYPE SelectForm(ULONG_PTR uiParam, ULONG flags, LPCTSTR title,
                                                 LPMAPIFOLDER folder, LPMAPIFORMINFO* info) = 0;
    virtual HRESULT STDMETHODCALLTYPE SelectMultipleForms(ULONG_PTR uiParam, ULONG flags, LPCTSTR title,
                                                          LPMAPIFOLDER folder, LPSMAPIFORMINFOARRAY selected,
                                                          LPSMAPIFORMINFOARRAY* infos) = 0;
    virtual HRESULT STDMETHODCALLTYPE SelectFormContainer(ULONG_PTR uiParam, ULONG flags,
                                                          LPMAPIFORMCONTAINER* container) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenFormContainer(HFRMREG registry, LPUNKNOWN object,
                                                        LPMAPIFORMCONTAINER* container) = 0;
    virtual HRESULT STDMETHODCALLTYPE PrepareForm(ULONG_PTR uiParam, ULONG flags, LPMAPIFORMINFO info) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsInConflict(ULONG messageFlags, ULONG messageStatus,
                                                   LPCSTR messageClass, LPMAPIFOLDER folderFocus) = 0;
};

STDAPI MAPIOpenFormMgr(LPMAPISESSION session, LPMAPIFORMMGR* manager);

#endif  // MAPIFORM_H
