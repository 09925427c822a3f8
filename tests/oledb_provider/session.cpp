#include "tests/oledb_provider/session.h"

#include "tests/oledb_provider/command.h"

namespace quorvane::test {

HRESULT Session::CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command)
{
    if (!command)
        return E_INVALIDARG;
    *command = nullptr;
    if (outer)
        return DB_E_NOAGGREGATION;
    const auto made = MakeComObject<Command>(connection_);
    return made ? made->QueryInterface(riid, reinterpret_cast<void**>(command)) : E_OUTOFMEMORY;
}

HRESULT Session::StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions*, ULONG* depth)
{
    const bool isKnown = level == ISOLATIONLEVEL_READUNCOMMITTED || level == ISOLATIONLEVEL_READCOMMITTED;
    if (!isKnown || flags != 0)
        return Fail(XACT_E_ISOLATIONLEVEL, {"There is no such isolation."});
    const HRESULT hr = connection_->Begin();
    if (SUCCEEDED(hr) && depth)
        *depth = 1;
    return hr;
}

HRESULT Session::Commit(WINBOOL retaining, DWORD when, DWORD)
{
    if (retaining || when != XACTTC_SYNC)
        return Fail(XACT_E_NOTSUPPORTED, {"A commit is synchronous and ends its transaction."});
    return connection_->End(true);
}

HRESULT Session::Abort(BOID*, WINBOOL retaining, WINBOOL asynchronous)
{
    if (retaining || asynchronous)
        return Fail(XACT_E_NOTSUPPORTED, {"An abort is synchronous and ends its transaction."});
    return connection_->End(false);
}

}  // namespace quorvane::test
