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

struct IMAPIFormMgr;

namespace quorvane::mapi {

// E_FAIL when there is no such function.
HRESULT STDMETHODCALLTYPE MAPIInitialize(LPVOID init) noexcept;
HRESULT STDMETHODCALLTYPE MAPILogonEx(ULONG_PTR uiParam, LPTSTR profile, LPTSTR password, ULONG flags,
                                      LPMAPISESSION* session) noexcept;
HRESULT STDMETHODCALLTYPE MAPIOpenFormMgr(LPMAPISESSION session, IMAPIFormMgr** manager) noexcept;
SCODE STDMETHODCALLTYPE MAPIAllocateBuffer(ULONG size, LPVOID* buffer) noexcept;
SCODE STDMETHODCALLTYPE MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer) noexcept;
HRESULT STDMETHODCALLTYPE HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value) noexcept;
HRESULT STDMETHODCALLTYPE HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags, LPSRestriction restriction,
                                         LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows) noexcept;
SCODE STDMETHODCALLTYPE OpenIMsgSession(LPMALLOC allocator, ULONG flags, LPMSGSESS* session) noexcept;
SCODE STDMETHODCALLTYPE OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocate,
                                       LPALLOCATEMORE allocateMore, LPFREEBUFFER free, LPMALLOC allocator,
                                       LPVOID support, LPSTORAGE storage, MSGCALLRELEASE* release,
                                       ULONG callerData, ULONG flags, LPMESSAGE* message) noexcept;
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

// Nothing when there is no such function.
void STDMETHODCALLTYPE MAPIUninitialize() noexcept;
void STDMETHODCALLTYPE FreeProws(LPSRowSet rows) noexcept;
void STDMETHODCALLTYPE HexFromBin(LPBYTE bytes, INT count, LPTSTR text) noexcept;
void STDMETHODCALLTYPE CloseIMsgSession(LPMSGSESS session) noexcept;

}  // namespace quorvane::mapi

#endif  // QUORVANE_ENGINE_STOREACCESS_MAPI_FUNCTIONS_H_
