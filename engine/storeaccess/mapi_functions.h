// storeaccess/mapi_functions.h: MAPI's functions, found at run time.
//
// The engine links no MAPI library. The functions in namespace quorvane::mapi have the published names and
// signatures and forward to the MAPI implementation of the default mail client. A function that isn't bound
// yet binds the library first; one that the library lacks answers with the value named at its declaration
// and looks for the library again at its next call. Once bound, a call costs one test.
//
// Any thread may call any of them at any time.
#ifndef QUORVANE_ENGINE_STOREACCESS_MAPI_FUNCTIONS_H_
#define QUORVANE_ENGINE_STOREACCESS_MAPI_FUNCTIONS_H_

#include "platform/mapi/mapi.h"

struct IPropData;
struct ITableData;

namespace quorvane::mapi {

// The following give E_FAIL when there is no such function.

HRESULT STDMETHODCALLTYPE MAPIInitialize(LPVOID init) noexcept;
HRESULT STDMETHODCALLTYPE MAPILogonEx(ULONG_PTR uiParam, LPTSTR profile, LPTSTR password, ULONG flags,
                                      LPMAPISESSION* session) noexcept;
HRESULT STDMETHODCALLTYPE MAPIAdminProfiles(ULONG flags, LPPROFADMIN* admin) noexcept;
HRESULT STDMETHODCALLTYPE MAPIOpenFormMgr(LPMAPISESSION session, IMAPIFormMgr** manager) noexcept;
HRESULT STDMETHODCALLTYPE MAPIOpenLocalFormContainer(IMAPIFormContainer** container) noexcept;

SCODE STDMETHODCALLTYPE MAPIAllocateBuffer(ULONG size, LPVOID* buffer) noexcept;
SCODE STDMETHODCALLTYPE MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer) noexcept;

HRESULT STDMETHODCALLTYPE HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value) noexcept;
HRESULT STDMETHODCALLTYPE HrSetOneProp(LPMAPIPROP object, LPSPropValue value) noexcept;
SCODE STDMETHODCALLTYPE ScDupPropset(INT count, LPSPropValue values, LPALLOCATEBUFFER allocate,
                                     LPSPropValue* copy) noexcept;
SCODE STDMETHODCALLTYPE ScCountProps(INT count, LPSPropValue values, ULONG* size) noexcept;
SCODE STDMETHODCALLTYPE ScCopyProps(INT count, LPSPropValue values, LPVOID target, ULONG* size) noexcept;
SCODE STDMETHODCALLTYPE PropCopyMore(LPSPropValue target, LPSPropValue source, ALLOCATEMORE* allocateMore,
                                     LPVOID object) noexcept;
SCODE STDMETHODCALLTYPE CreateIProp(LPCIID interfaceId, ALLOCATEBUFFER* allocate, ALLOCATEMORE* allocateMore,
                                    FREEBUFFER* free, LPVOID reserved, IPropData** data) noexcept;

HRESULT STDMETHODCALLTYPE HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags, LPSRestriction restriction,
                                         LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows) noexcept;
SCODE STDMETHODCALLTYPE CreateTable(LPCIID interfaceId, ALLOCATEBUFFER* allocate, ALLOCATEMORE* allocateMore,
                                    FREEBUFFER* free, LPVOID reserved, ULONG type, ULONG indexColumn,
                                    LPSPropTagArray columns, ITableData** data) noexcept;

SCODE STDMETHODCALLTYPE OpenIMsgSession(LPMALLOC allocator, ULONG flags, LPMSGSESS* session) noexcept;
SCODE STDMETHODCALLTYPE OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocate,
                                       LPALLOCATEMORE allocateMore, LPFREEBUFFER free, LPMALLOC allocator,
                                       LPVOID support, LPSTORAGE storage, MSGCALLRELEASE* release,
                                       ULONG callerData, ULONG flags, LPMESSAGE* message) noexcept;
HRESULT STDMETHODCALLTYPE RTFSync(LPMESSAGE message, ULONG flags, BOOL* updated) noexcept;
HRESULT STDMETHODCALLTYPE WrapCompressedRTFStream(LPSTREAM compressed, ULONG flags, LPSTREAM* plain) noexcept;
HRESULT STDMETHODCALLTYPE WrapStoreEntryID(ULONG flags, LPTSTR provider, ULONG size, LPENTRYID id,
                                           ULONG* wrappedSize, LPENTRYID* wrapped) noexcept;
HRESULT STDMETHODCALLTYPE HrValidateIPMSubtree(LPMDB store, ULONG flags, ULONG* count, LPSPropValue* values,
                                               LPMAPIERROR* error) noexcept;

HRESULT STDMETHODCALLTYPE HrDispatchNotifications(ULONG flags) noexcept;
SCODE STDMETHODCALLTYPE ScCountNotifications(INT count, LPNOTIFICATION notifications, ULONG* size) noexcept;
SCODE STDMETHODCALLTYPE ScCopyNotifications(INT count, LPNOTIFICATION notifications, LPVOID target,
                                            ULONG* size) noexcept;

// FALSE when there is no such function.
BOOL STDMETHODCALLTYPE FBinFromHex(LPTSTR text, LPBYTE bytes) noexcept;

// Null when there is no such function.
LPMALLOC STDMETHODCALLTYPE MAPIGetDefaultMalloc() noexcept;
LPSPropValue STDMETHODCALLTYPE PpropFindProp(LPSPropValue values, ULONG count, ULONG tag) noexcept;

// S_OK, with `wrapped` untouched, when there is no such function.
HRESULT STDMETHODCALLTYPE HrThisThreadAdviseSink(LPMAPIADVISESINK sink, LPMAPIADVISESINK* wrapped) noexcept;

// 0 when there is no such function; for null always 0, and nothing is bound.
ULONG STDMETHODCALLTYPE MAPIFreeBuffer(LPVOID buffer) noexcept;

// Nothing happens when there is no such function.
void STDMETHODCALLTYPE MAPIUninitialize() noexcept;
void STDMETHODCALLTYPE FreeProws(LPSRowSet rows) noexcept;
void STDMETHODCALLTYPE FreePadrlist(LPADRLIST list) noexcept;
void STDMETHODCALLTYPE HexFromBin(LPBYTE bytes, INT count, LPTSTR text) noexcept;
void STDMETHODCALLTYPE CloseIMsgSession(LPMSGSESS session) noexcept;

}  // namespace quorvane::mapi

#endif  // QUORVANE_ENGINE_STOREACCESS_MAPI_FUNCTIONS_H_
