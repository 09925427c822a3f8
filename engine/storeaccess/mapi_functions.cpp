#include "engine/storeaccess/mapi_functions.h"

#include "engine/storeaccess/mapi_binding.h"

namespace quorvane::mapi {
namespace {

// The bound function, looked for anew while there is none.
void* Bound(MapiFunction function) noexcept
{
    if (void* const bound = BoundMapiFunction(function))
        return bound;
    BindMapiLibrary();
    return BoundMapiFunction(function);
}

// Calls a bound function, or gives `unbound`.
template <class Result, class... Parameters>
Result Forward(MapiFunction function, Result unbound, std::type_identity_t<Parameters>... arguments) noexcept
{
    using Function = Result(STDAPICALLTYPE*)(Parameters...);
    const auto bound = reinterpret_cast<Function>(Bound(function));
    return bound ? bound(arguments...) : unbound;
}

template <class... Parameters>
void ForwardVoid(MapiFunction function, std::type_identity_t<Parameters>... arguments) noexcept
{
    using Function = void(STDAPICALLTYPE*)(Parameters...);
    if (const auto bound = reinterpret_cast<Function>(Bound(function)))
        bound(arguments...);
}

}  // namespace

HRESULT STDMETHODCALLTYPE MAPIInitialize(LPVOID init) noexcept
{
    return Forward<HRESULT, LPVOID>(MapiFunction::MAPIInitialize, E_FAIL, init);
}

HRESULT STDMETHODCALLTYPE MAPILogonEx(ULONG_PTR uiParam, LPTSTR profile, LPTSTR password, ULONG flags,
                                      LPMAPISESSION* session) noexcept
{
    return Forward<HRESULT, ULONG_PTR, LPTSTR, LPTSTR, ULONG, LPMAPISESSION*>(
        MapiFunction::MAPILogonEx, E_FAIL, uiParam, profile, password, flags, session);
}

HRESULT STDMETHODCALLTYPE MAPIAdminProfiles(ULONG flags, LPPROFADMIN* admin) noexcept
{
    return Forward<HRESULT, ULONG, LPPROFADMIN*>(MapiFunction::MAPIAdminProfiles, E_FAIL, flags, admin);
}

HRESULT STDMETHODCALLTYPE MAPIOpenFormMgr(LPMAPISESSION session, IMAPIFormMgr** manager) noexcept
{
    return Forward<HRESULT, LPMAPISESSION, IMAPIFormMgr**>(MapiFunction::MAPIOpenFormMgr, E_FAIL, session,
                                                           manager);
}

HRESULT STDMETHODCALLTYPE MAPIOpenLocalFormContainer(IMAPIFormContainer** container) noexcept
{
    return Forward<HRESULT, IMAPIFormContainer**>(MapiFunction::MAPIOpenLocalFormContainer, E_FAIL,
                                                  container);
}

SCODE STDMETHODCALLTYPE MAPIAllocateBuffer(ULONG size, LPVOID* buffer) noexcept
{
    return Forward<SCODE, ULONG, LPVOID*>(MapiFunction::MAPIAllocateBuffer, E_FAIL, size, buffer);
}

SCODE STDMETHODCALLTYPE MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer) noexcept
{
    return Forward<SCODE, ULONG, LPVOID, LPVOID*>(MapiFunction::MAPIAllocateMore, E_FAIL, size, object,
                                                  buffer);
}

HRESULT STDMETHODCALLTYPE HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value) noexcept
{
    return Forward<HRESULT, LPMAPIPROP, ULONG, LPSPropValue*>(MapiFunction::HrGetOneProp, E_FAIL, object, tag,
                                                              value);
}

HRESULT STDMETHODCALLTYPE HrSetOneProp(LPMAPIPROP object, LPSPropValue value) noexcept
{
    return Forward<HRESULT, LPMAPIPROP, LPSPropValue>(MapiFunction::HrSetOneProp, E_FAIL, object, value);
}

SCODE STDMETHODCALLTYPE ScDupPropset(INT count, LPSPropValue values, LPALLOCATEBUFFER allocate,
                                     LPSPropValue* copy) noexcept
{
    return Forward<SCODE, INT, LPSPropValue, LPALLOCATEBUFFER, LPSPropValue*>(
        MapiFunction::ScDupPropset, E_FAIL, count, values, allocate, copy);
}

SCODE STDMETHODCALLTYPE ScCountProps(INT count, LPSPropValue values, ULONG* size) noexcept
{
    return Forward<SCODE, INT, LPSPropValue, ULONG*>(MapiFunction::ScCountProps, E_FAIL, count, values, size);
}

SCODE STDMETHODCALLTYPE ScCopyProps(INT count, LPSPropValue values, LPVOID target, ULONG* size) noexcept
{
    return Forward<SCODE, INT, LPSPropValue, LPVOID, ULONG*>(MapiFunction::ScCopyProps, E_FAIL, count, values,
                                                             target, size);
}

SCODE STDMETHODCALLTYPE PropCopyMore(LPSPropValue target, LPSPropValue source, ALLOCATEMORE* allocateMore,
                                     LPVOID object) noexcept
{
    return Forward<SCODE, LPSPropValue, LPSPropValue, ALLOCATEMORE*, LPVOID>(
        MapiFunction::PropCopyMore, E_FAIL, target, source, allocateMore, object);
}

SCODE STDMETHODCALLTYPE CreateIProp(LPCIID interfaceId, ALLOCATEBUFFER* allocate, ALLOCATEMORE* allocateMore,
                                    FREEBUFFER* free, LPVOID reserved, IPropData** data) noexcept
{
    return Forward<SCODE, LPCIID, ALLOCATEBUFFER*, ALLOCATEMORE*, FREEBUFFER*, LPVOID, IPropData**>(
        MapiFunction::CreateIProp, E_FAIL, interfaceId, allocate, allocateMore, free, reserved, data);
}

HRESULT STDMETHODCALLTYPE HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags, LPSRestriction restriction,
                                         LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows) noexcept
{
    return Forward<HRESULT, LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG, LPSRowSet*>(
        MapiFunction::HrQueryAllRows, E_FAIL, table, tags, restriction, order, maxRows, rows);
}

SCODE STDMETHODCALLTYPE CreateTable(LPCIID interfaceId, ALLOCATEBUFFER* allocate, ALLOCATEMORE* allocateMore,
                                    FREEBUFFER* free, LPVOID reserved, ULONG type, ULONG indexColumn,
                                    LPSPropTagArray columns, ITableData** data) noexcept
{
    return Forward<SCODE, LPCIID, ALLOCATEBUFFER*, ALLOCATEMORE*, FREEBUFFER*, LPVOID, ULONG, ULONG,
                   LPSPropTagArray, ITableData**>(MapiFunction::CreateTable, E_FAIL, interfaceId, allocate,
                                                  allocateMore, free, reserved, type, indexColumn, columns,
                                                  data);
}

SCODE STDMETHODCALLTYPE OpenIMsgSession(LPMALLOC allocator, ULONG flags, LPMSGSESS* session) noexcept
{
    return Forward<SCODE, LPMALLOC, ULONG, LPMSGSESS*>(MapiFunction::OpenIMsgSession, E_FAIL, allocator,
                                                       flags, session);
}

SCODE STDMETHODCALLTYPE OpenIMsgOnIStg(LPMSGSESS session, LPALLOCATEBUFFER allocate,
                                       LPALLOCATEMORE allocateMore, LPFREEBUFFER free, LPMALLOC allocator,
                                       LPVOID support, LPSTORAGE storage, MSGCALLRELEASE* release,
                                       ULONG callerData, ULONG flags, LPMESSAGE* message) noexcept
{
    return Forward<SCODE, LPMSGSESS, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, LPMALLOC, LPVOID,
                   LPSTORAGE, MSGCALLRELEASE*, ULONG, ULONG, LPMESSAGE*>(
        MapiFunction::OpenIMsgOnIStg, E_FAIL, session, allocate, allocateMore, free, allocator, support,
        storage, release, callerData, flags, message);
}

HRESULT STDMETHODCALLTYPE RTFSync(LPMESSAGE message, ULONG flags, BOOL* updated) noexcept
{
    return Forward<HRESULT, LPMESSAGE, ULONG, BOOL*>(MapiFunction::RTFSync, E_FAIL, message, flags, updated);
}

HRESULT STDMETHODCALLTYPE WrapCompressedRTFStream(LPSTREAM compressed, ULONG flags, LPSTREAM* plain) noexcept
{
    return Forward<HRESULT, LPSTREAM, ULONG, LPSTREAM*>(MapiFunction::WrapCompressedRTFStream, E_FAIL,
                                                        compressed, flags, plain);
}

HRESULT STDMETHODCALLTYPE WrapStoreEntryID(ULONG flags, LPTSTR provider, ULONG size, LPENTRYID id,
                                           ULONG* wrappedSize, LPENTRYID* wrapped) noexcept
{
    return Forward<HRESULT, ULONG, LPTSTR, ULONG, LPENTRYID, ULONG*, LPENTRYID*>(
        MapiFunction::WrapStoreEntryID, E_FAIL, flags, provider, size, id, wrappedSize, wrapped);
}

HRESULT STDMETHODCALLTYPE HrValidateIPMSubtree(LPMDB store, ULONG flags, ULONG* count, LPSPropValue* values,
                                               LPMAPIERROR* error) noexcept
{
    return Forward<HRESULT, LPMDB, ULONG, ULONG*, LPSPropValue*, LPMAPIERROR*>(
        MapiFunction::HrValidateIPMSubtree, E_FAIL, store, flags, count, values, error);
}

HRESULT STDMETHODCALLTYPE HrDispatchNotifications(ULONG flags) noexcept
{
    return Forward<HRESULT, ULONG>(MapiFunction::HrDispatchNotifications, E_FAIL, flags);
}

SCODE STDMETHODCALLTYPE ScCountNotifications(INT count, LPNOTIFICATION notifications, ULONG* size) noexcept
{
    return Forward<SCODE, INT, LPNOTIFICATION, ULONG*>(MapiFunction::ScCountNotifications, E_FAIL, count,
                                                       notifications, size);
}

SCODE STDMETHODCALLTYPE ScCopyNotifications(INT count, LPNOTIFICATION notifications, LPVOID target,
                                            ULONG* size) noexcept
{
    return Forward<SCODE, INT, LPNOTIFICATION, LPVOID, ULONG*>(MapiFunction::ScCopyNotifications, E_FAIL,
                                                               count, notifications, target, size);
}

BOOL STDMETHODCALLTYPE FBinFromHex(LPTSTR text, LPBYTE bytes) noexcept
{
    return Forward<BOOL, LPTSTR, LPBYTE>(MapiFunction::FBinFromHex, FALSE, text, bytes);
}

LPMALLOC STDMETHODCALLTYPE MAPIGetDefaultMalloc() noexcept
{
    return Forward<LPMALLOC>(MapiFunction::MAPIGetDefaultMalloc, nullptr);
}

LPSPropValue STDMETHODCALLTYPE PpropFindProp(LPSPropValue values, ULONG count, ULONG tag) noexcept
{
    return Forward<LPSPropValue, LPSPropValue, ULONG, ULONG>(MapiFunction::PpropFindProp, nullptr, values,
                                                             count, tag);
}

HRESULT STDMETHODCALLTYPE HrThisThreadAdviseSink(LPMAPIADVISESINK sink, LPMAPIADVISESINK* wrapped) noexcept
{
    return Forward<HRESULT, LPMAPIADVISESINK, LPMAPIADVISESINK*>(MapiFunction::HrThisThreadAdviseSink, S_OK,
                                                                 sink, wrapped);
}

ULONG STDMETHODCALLTYPE MAPIFreeBuffer(LPVOID buffer) noexcept
{
    return buffer ? Forward<ULONG, LPVOID>(MapiFunction::MAPIFreeBuffer, 0, buffer) : 0;
}

void STDMETHODCALLTYPE MAPIUninitialize() noexcept
{
    ForwardVoid<>(MapiFunction::MAPIUninitialize);
}

void STDMETHODCALLTYPE FreeProws(LPSRowSet rows) noexcept
{
    ForwardVoid<LPSRowSet>(MapiFunction::FreeProws, rows);
}

void STDMETHODCALLTYPE FreePadrlist(LPADRLIST list) noexcept
{
    ForwardVoid<LPADRLIST>(MapiFunction::FreePadrlist, list);
}

void STDMETHODCALLTYPE HexFromBin(LPBYTE bytes, INT count, LPTSTR text) noexcept
{
    ForwardVoid<LPBYTE, INT, LPTSTR>(MapiFunction::HexFromBin, bytes, count, text);
}

void STDMETHODCALLTYPE CloseIMsgSession(LPMSGSESS session) noexcept
{
    ForwardVoid<LPMSGSESS>(MapiFunction::CloseIMsgSession, session);
}

}  // namespace quorvane::mapi
