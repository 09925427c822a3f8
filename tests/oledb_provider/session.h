// tests/oledb_provider/session.h: a session, and its commands.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_SESSION_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_SESSION_H_

#include <memory>

#include "tests/oledb_provider/connection.h"
#include "tests/oledb_provider/failures.h"

namespace quorvane::test {

// One connection to the data source's file. Commands keep what they need of it; a transaction that is open
// when all of that goes is aborted.
class Session final
    : public DescribedObject<Session, IDBCreateCommand, Answers<ITransactionLocal, ITransaction>> {
public:
    explicit Session(std::shared_ptr<Connection> connection) noexcept : connection_(std::move(connection)) {}

    // The command is an ICommandText with an IAccessor.
    HRESULT STDMETHODCALLTYPE CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) override;

    // Read-committed and below are given as serialisable. XACT_E_ISOLATIONLEVEL, XACT_E_XTIONEXISTS.
    HRESULT STDMETHODCALLTYPE StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions*,
                                               ULONG* depth) override;
    HRESULT STDMETHODCALLTYPE Commit(WINBOOL retaining, DWORD when, DWORD) override;
    HRESULT STDMETHODCALLTYPE Abort(BOID*, WINBOOL retaining, WINBOOL asynchronous) override;
    HRESULT STDMETHODCALLTYPE GetTransactionInfo(XACTTRANSINFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetOptionsObject(ITransactionOptions**) override { return E_NOTIMPL; }

private:
    const std::shared_ptr<Connection> connection_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_SESSION_H_
