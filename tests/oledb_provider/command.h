// tests/oledb_provider/command.h: a command of a session.
#ifndef QUORVANE_TESTS_OLEDB_PROVIDER_COMMAND_H_
#define QUORVANE_TESTS_OLEDB_PROVIDER_COMMAND_H_

#include <memory>
#include <optional>

#include "tests/oledb_provider/accessors.h"
#include "tests/oledb_provider/connection.h"

namespace quorvane::test {

// Runs its text, with one set of parameters or none. One thread at a time.
class Command final : public ObjectWithAccessors<Command, Answers<ICommandText, ICommand>> {
public:
    explicit Command(std::shared_ptr<Connection> connection) noexcept : connection_(std::move(connection)) {}

    // DB_E_DIALECTNOTSUPPORTED for any but the default one.
    HRESULT STDMETHODCALLTYPE SetCommandText(REFGUID dialect, LPCOLESTR text) override;
    HRESULT STDMETHODCALLTYPE GetCommandText(GUID* dialect, LPOLESTR* text) override;

    // IID_NULL asks for no rows. DB_E_NOCOMMAND; Connection::Run's.
    HRESULT STDMETHODCALLTYPE Execute(IUnknown* outer, REFIID riid, DBPARAMS* parameters, DBROWCOUNT* changed,
                                      IUnknown** rowset) override;
    HRESULT STDMETHODCALLTYPE Cancel() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetDBSession(REFIID, IUnknown** session) override;

private:
    HRESULT FindParameters(const DBPARAMS* given, Connection::Parameters& parameters) const noexcept;

    const std::shared_ptr<Connection> connection_;
    std::optional<OleString> text_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_OLEDB_PROVIDER_COMMAND_H_
