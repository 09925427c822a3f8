// A MAPI library for tests that has every function the binding knows and does nothing in any: it notes the
// last call as a text, "HrGetOneProp(1,2,3)", and gives 0x5A back.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

#include "platform/mapi/mapi.h"
#include "platform/module/module_exports.h"

struct IPropData;
struct ITableData;

namespace {

constexpr std::uintptr_t kResult = 0x5A;

std::string lastCall;

template <class T>
T FromNumber(std::uintptr_t number)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(number);
    else
        return static_cast<T>(number);
}

template <class T>
std::string TextOf(T argument)
{
    char text[24];
    if constexpr (std::is_pointer_v<T>)
        std::snprintf(text, sizeof(text), "%zu", reinterpret_cast<std::uintptr_t>(argument));
    else
        std::snprintf(text, sizeof(text), "%lld", static_cast<long long>(argument));
    return text;
}

template <class Result = int, class... Arguments>
Result Note(const char* function, Arguments... arguments)
{
    std::string list;
    ((list += (list.empty() ? "" : ",") + TextOf(arguments)), ...);
    lastCall = std::string(function) + '(' + list + ')';
    return FromNumber<Result>(kResult);
}

}  // namespace

QUORVANE_MODULE_EXPORT const char* FakeLastCall()
{
    return lastCall.c_str();
}

STDAPI MAPIInitialize(LPVOID init)
{
    return Note<HRESULT>("MAPIInitialize", init);
}

STDAPI MAPILogonEx(ULONG_PTR uiParam, LPTSTR profile, LPTSTR password, ULONG flags, LPMAPISESSION* session)
{
    return Note<HRESULT>("MAPILogonEx", uiParam, profile, password, flags, session);
}

STDAPI MAPIAdminProfiles(ULONG flags, LPPROFADMIN* admin)
{
    return Note<HRESULT>("MAPIAdminProfiles", flags, admin);
}

STDAPI MAPIOpenFormMgr(LPMAPISESSION session, IMAPIFormMgr** manager)
{
    return Note<HRESULT>("MAPIOpenFormMgr", session, manager);
}

STDAPI MAPIOpenLocalFormContainer(IMAPIFormContainer** container)
{
    return Note<HRESULT>("MAPIOpenLocalFormContainer", container);
}

STDAPI_(SCODE) MAPIAllocateBuffer(ULONG size, LPVOID* buffer)
{
    return Note<SCODE>("MAPIAllocateBuffer", size, buffer);
}

STDAPI_(SCODE) MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer)
{
    return Note<SCODE>("MAPIAllocateMore", size, object, buffer);
}

STDAPI HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value)
{
    return Note<HRESULT>("HrGetOneProp", object, tag, value);
}

STDAPI HrSetOneProp(LPMAPIPROP object, LPSPropValue value)
{
    return Note<HRESULT>("HrSetOneProp", object, value);
}

STDAPI_(SCODE) ScDupPropset(INT count, LPSPropValue values, LPALLOCATEBUFFER allocate, LPSPropValue* copy)
{
    return Note<SCODE>("ScDupPropset", count, values, allocate, copy);
}

STDAPI_(SCODE) ScCountProps(INT count, LPSPropValue values, ULONG* size)
{
    return Note<SCODE>("ScCountProps", count, values, size);
}

STDAPI_(SCODE) ScCopyProps(INT count, LPSPropValue values, LPVOID target, ULONG* size)
{
    return Note<SCODE>("ScCopyProps", count, values, target, size);
}

STDAPI_(SCODE)
PropCopyMore(LPSPropValue target, LPSPropValue source, ALLOCATEMORE* allocateMore, LPVOID object)
{
    return Note<SCODE>("PropCopyMore", target, source, allocateMore, object);
}

STDAPI_(SCODE)
CreateIProp(LPCIID interfaceId, ALLOCATEBUFFER* allocate, ALLOCATEMORE* allocateMore, FREEBUFFER* free,
            LPVOID reserved, IPropData** data)
{
    return Note<SCODE>("CreateIProp", interfaceId, allocate, allocateMore, free, reserved, data);
}

STDAPI HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags, LPSRestriction restriction,
                      LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows)
{
    return Note<HRESULT>("HrQueryAllRows", table, tags, restriction, order, maxRows, rows);
}

STDAPI_(SCODE)
CreateTable(LPCIID interfaceId, ALLOCATEBUFFER* allocate, ALLOCATEMORE* allocateMore, FREEBUFFER* free,
            LPVOID reserved, ULONG type, ULONG indexColumn, LPSPropTagArray columns, ITableData** data)
{
    return Note<SCODE>("CreateTable", interfaceId, allocate, allocateMore, free, reserved, type, indexColumn,
                       columns, data);
}

STDAPI_(SCODE) OpenIMsgSession(LPMALLOC allocator, ULONG flags, LPMSGSESS* session)
{
    return Note<SCODE>("OpenIMsgSession", allocator, flags, session);
}

STDAPI_(SCODE)
OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocate, LPALLOCATEMORE allocateMore, LPFREEBUFFER free,
               LPMALLOC allocator, LPVOID support, LPSTORAGE storage, MSGCALLRELEASE* release,
               ULONG callerData, ULONG flags, LPMESSAGE* message)
{
    return Note<SCODE>("OpenIMsgOnIStg", session, allocate, allocateMore, free, allocator, support, storage,
                       release, callerData, flags, message);
}

STDAPI RTFSync(LPMESSAGE message, ULONG flags, BOOL* updated)
{
    return Note<HRESULT>("RTFSync", message, flags, updated);
}

STDAPI WrapCompressedRTFStream(LPSTREAM compressed, ULONG flags, LPSTREAM* plain)
{
    return Note<HRESULT>("WrapCompressedRTFStream", compressed, flags, plain);
}

STDAPI WrapStoreEntryID(ULONG flags, LPTSTR provider, ULONG size, LPENTRYID id, ULONG* wrappedSize,
                        LPENTRYID* wrapped)
{
    return Note<HRESULT>("WrapStoreEntryID", flags, provider, size, id, wrappedSize, wrapped);
}

STDAPI HrValidateIPMSubtree(LPMDB store, ULONG flags, ULONG* count, LPSPropValue* values, LPMAPIERROR* error)
{
    return Note<HRESULT>("HrValidateIPMSubtree", store, flags, count, values, error);
}

STDAPI HrDispatchNotifications(ULONG flags)
{
    return Note<HRESULT>("HrDispatchNotifications", flags);
}

STDAPI_(SCODE) ScCountNotifications(INT count, LPNOTIFICATION notifications, ULONG* size)
{
    return Note<SCODE>("ScCountNotifications", count, notifications, size);
}

STDAPI_(SCODE) ScCopyNotifications(INT count, LPNOTIFICATION notifications, LPVOID target, ULONG* size)
{
    return Note<SCODE>("ScCopyNotifications", count, notifications, target, size);
}

STDAPI_(BOOL) FBinFromHex(LPTSTR text, LPBYTE bytes)
{
    return Note<BOOL>("FBinFromHex", text, bytes);
}

STDAPI_(LPMALLOC) MAPIGetDefaultMalloc()
{
    return Note<LPMALLOC>("MAPIGetDefaultMalloc");
}

STDAPI_(LPSPropValue) PpropFindProp(LPSPropValue values, ULONG count, ULONG tag)
{
    return Note<LPSPropValue>("PpropFindProp", values, count, tag);
}

STDAPI HrThisThreadAdviseSink(LPMAPIADVISESINK sink, LPMAPIADVISESINK* wrapped)
{
    return Note<HRESULT>("HrThisThreadAdviseSink", sink, wrapped);
}

STDAPI_(ULONG) MAPIFreeBuffer(LPVOID buffer)
{
    return Note<ULONG>("MAPIFreeBuffer", buffer);
}

STDAPI_(void) MAPIUninitialize()
{
    Note("MAPIUninitialize");
}

STDAPI_(void) FreeProws(LPSRowSet rows)
{
    Note("FreeProws", rows);
}

STDAPI_(void) FreePadrlist(LPADRLIST list)
{
    Note("FreePadrlist", list);
}

STDAPI_(void) HexFromBin(LPBYTE bytes, INT count, LPTSTR text)
{
    Note("HexFromBin", bytes, count, text);
}

STDAPI_(void) CloseIMsgSession(LPMSGSESS session)
{
    Note("CloseIMsgSession", session);
}

// The three that are looked for under decorated names alone.
QUORVANE_MODULE_EXPORT void* QuorvaneModuleExport(const char* name)
{
    if (std::strcmp(name, "ScCountNotifications@12") == 0)
        return reinterpret_cast<void*>(&ScCountNotifications);
    if (std::strcmp(name, "ScCopyNotifications@16") == 0)
        return reinterpret_cast<void*>(&ScCopyNotifications);
    if (std::strcmp(name, "HrThisThreadAdviseSink@8") == 0)
        return reinterpret_cast<void*>(&HrThisThreadAdviseSink);
    return nullptr;
}
