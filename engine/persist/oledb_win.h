// persist/oledb_win.h: OLE DB's interfaces as ComPtr takes them, and what its failures say.
#ifndef QUORVANE_ENGINE_PERSIST_OLEDB_WIN_H_
#define QUORVANE_ENGINE_PERSIST_OLEDB_WIN_H_

#include "platform/com/com.h"
// The order matters.
#include <msdasc.h>
#include <oledb.h>
#include <oledberr.h>
#include <transact.h>

#include "platform/com/com_ptr.h"
#include "platform/com/error_text.h"

QUORVANE_IID(IDBInitialize, IID_IDBInitialize);
QUORVANE_IID(IDBProperties, IID_IDBProperties);
QUORVANE_IID(IDBCreateSession, IID_IDBCreateSession);
QUORVANE_IID(IDBCreateCommand, IID_IDBCreateCommand);
QUORVANE_IID(IDataInitialize, IID_IDataInitialize);
QUORVANE_IID(ICommandText, IID_ICommandText);
QUORVANE_IID(IAccessor, IID_IAccessor);
QUORVANE_IID(IRowset, IID_IRowset);
QUORVANE_IID(IColumnsInfo, IID_IColumnsInfo);
QUORVANE_IID(ITransactionLocal, IID_ITransactionLocal);
QUORVANE_IID(IErrorRecords, IID_IErrorRecords);

namespace quorvane {

// DBGUID_DEFAULT and DBPROPSET_DBINIT, which no library holds.
inline constexpr GUID kDefaultDialect = {
    0xC8B521FB, 0x5CF3, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
inline constexpr GUID kDbInitProperties = {
    0xC8B522BC, 0x5CF3, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};

// Passes a result on; a failure is described with the records that the provider left on the thread.
HRESULT DescribedOledb(HRESULT hr) noexcept;

// E_UNEXPECTED, described: the provider doesn't keep to the rules of OLE DB.
HRESULT RefuseOledb(const char* description) noexcept;

// Calls a provider and passes its result on. A failure is described with the records that this call left on
// the thread, as far as they can be read; without any there is no description.
template <class Call>
HRESULT CallOledb(const Call& call) noexcept
{
    ClearErrorInfo();
    return DescribedOledb(call());
}

// The same of a call that gives an object. E_UNEXPECTED, described: it succeeded without one.
template <class Call, class Interface>
HRESULT CallOledb(const Call& call, const ComPtr<Interface>& given) noexcept
{
    const HRESULT hr = CallOledb(call);
    return SUCCEEDED(hr) && !given ? RefuseOledb("The provider succeeded and gave nothing.") : hr;
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_PERSIST_OLEDB_WIN_H_
