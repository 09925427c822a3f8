// platform/mapi/sdk/mapi_functions.h: MAPI's exported functions, off Windows. A MAPI implementation
// (the project's message store) defines them; a host links it or finds them at run time.
#ifndef QUORVANE_PLATFORM_MAPI_SDK_MAPI_FUNCTIONS_H_
#define QUORVANE_PLATFORM_MAPI_SDK_MAPI_FUNCTIONS_H_

#include "platform/mapi/sdk/mapi_interfaces.h"

STDAPI MAPIInitialize(LPVOID init);
STDAPI_(void) MAPIUninitialize();
STDAPI MAPILogonEx(ULONG_PTR uiParam, LPTSTR profile, LPTSTR password, ULONG flags, LPMAPISESSION* session);
STDAPI MAPIAdminProfiles(ULONG flags, LPPROFADMIN* admin);

STDAPI_(SCODE) MAPIAllocateBuffer(ULONG size, LPVOID* buffer);
STDAPI_(SCODE) MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer);
STDAPI_(ULONG) MAPIFreeBuffer(LPVOID buffer);
STDAPI_(LPMALLOC) MAPIGetDefaultMalloc();

STDAPI HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value);
STDAPI HrSetOneProp(LPMAPIPROP object, LPSPropValue value);
STDAPI_(LPSPropValue) PpropFindProp(LPSPropValue values, ULONG count, ULONG tag);
STDAPI_(SCODE) ScDupPropset(INT count, LPSPropValue values, LPALLOCATEBUFFER allocate, LPSPropValue* copy);
STDAPI_(SCODE) ScCountProps(INT count, LPSPropValue values, ULONG* size);
STDAPI_(SCODE) ScCopyProps(INT count, LPSPropValue values, LPVOID target, ULONG* size);
STDAPI_(SCODE)
PropCopyMore(LPSPropValue target, LPSPropValue source, ALLOCATEMORE* allocateMore, LPVOID object);
STDAPI_(void) FreePadrlist(LPADRLIST list);
STDAPI_(void) FreeProws(LPSRowSet rows);
STDAPI HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags, LPSRestriction restriction,
                      LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows);
STDAPI_(BOOL) FBinFromHex(LPTSTR text, LPBYTE bytes);
STDAPI_(void) HexFromBin(LPBYTE bytes, INT count, LPTSTR text);
STDAPI_(SCODE) ScCountNotifications(INT count, LPNOTIFICATION notifications, ULONG* size);
STDAPI_(SCODE) ScCopyNotifications(INT count, LPNOTIFICATION notifications, LPVOID target, ULONG* size);
STDAPI HrThisThreadAdviseSink(LPMAPIADVISESINK sink, LPMAPIADVISESINK* wrapped);
STDAPI HrDispatchNotifications(ULONG flags);

struct _MSGSESS;
using LPMSGSESS = _MSGSESS*;
using MSGCALLRELEASE = void(ULONG callerData, LPMESSAGE message);

STDAPI_(SCODE) OpenIMsgSession(LPMALLOC allocator, ULONG flags, LPMSGSESS* session);
STDAPI_(void) CloseIMsgSession(LPMSGSESS session);
STDAPI_(SCODE)
OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocate, LPALLOCATEMORE allocateMore, LPFREEBUFFER free,
               LPMALLOC allocator, LPVOID support, LPSTORAGE storage, MSGCALLRELEASE* release,
               ULONG callerData, ULONG flags, LPMESSAGE* message);

#endif  // QUORVANE_PLATFORM_MAPI_SDK_MAPI_FUNCTIONS_H_
