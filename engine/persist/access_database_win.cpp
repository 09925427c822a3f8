// Access's own files, through OLE DB.
#include "engine/persist/access_database_win.h"

#include <string_view>

#include "engine/persist/oledb_rows_win.h"
#include "engine/persist/oledb_win.h"
#include "engine/session/trace/trace.h"
#include "platform/file/file.h"

namespace quorvane {
namespace {

// Access begins each of its files so, the newer and the older ones.
constexpr std::string_view kAccessSignatures[] = {{"\0\1\0\0Standard ACE DB\0", 20},
                                                  {"\0\1\0\0Standard Jet DB\0", 20}};

bool IsAccessDatabase(const std::string& path) noexcept
{
    File file;
    char head[20] = {};
    size_t read = 0;
    if (FAILED(file.Open(path, FileAccess::Read, FileMode::OpenExisting, FileShare::All)) ||
        FAILED(file.Read(head, sizeof(head), read)))
        return false;
    for (const std::string_view signature : kAccessSignatures) {
        if (std::string_view(head, read) == signature)
            return true;
    }
    return false;
}

// Access opens a file that it can't write to, and fails at the first statement that does.
bool MayBeWritten(const std::string& path) noexcept
{
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY))
        return false;
    File file;
    return file.Open(path, FileAccess::ReadWrite, FileMode::OpenExisting, FileShare::All) !=
           HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
}

// Lets the provider ask for what the connection string lacks.
HRESULT AllowPrompt(IDBInitialize* source) noexcept
{
    ComPtr<IDBProperties> properties;
    HR_TRY_QUIET(CallOledb([&] { return QueryFor(source, properties); }, properties));
    DBPROP prompt{};
    prompt.dwPropertyID = DBPROP_INIT_PROMPT;
    prompt.dwOptions = DBPROPOPTIONS_REQUIRED;
    prompt.vValue.vt = VT_I2;
    prompt.vValue.iVal = DBPROMPT_COMPLETEREQUIRED;
    DBPROPSET set{};
    set.rgProperties = &prompt;
    set.cProperties = 1;
    set.guidPropertySet = kDbInitProperties;
    return CallOledb([&] { return properties->SetProperties(1, &set); });
}

// An OLE DB session.
class OledbConnection final : public DatabaseConnection {
public:
    explicit OledbConnection(ComPtr<IDBCreateCommand> session) noexcept : session_(std::move(session)) {}

    HRESULT Run(const char* statement, std::span<const ParameterValue> values,
                std::span<const Column> columns, std::unique_ptr<DatabaseCursor>& cursor) noexcept override
    {
        try {
            ComPtr<ICommandText> command;
            HR_TRY_QUIET(CallOledb(
                [&] { return session_->CreateCommand(nullptr, IID_ICommandText, command.PutUnknown()); },
                command));
            const OleString text = Widen(statement);
            HR_TRY_QUIET(CallOledb([&] { return command->SetCommandText(kDefaultDialect, text.c_str()); }));
            return RunOledbCommand(*command, values, columns, cursor);
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT StartTransaction() noexcept override
    {
        return WithTransaction([](ITransactionLocal& transaction) {
            return transaction.StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr);
        });
    }
    HRESULT Commit() noexcept override
    {
        return WithTransaction(
            [](ITransactionLocal& transaction) { return transaction.Commit(FALSE, XACTTC_SYNC, 0); });
    }
    HRESULT Abort() noexcept override
    {
        return WithTransaction(
            [](ITransactionLocal& transaction) { return transaction.Abort(nullptr, FALSE, FALSE); });
    }

private:
    template <class Call>
    HRESULT WithTransaction(const Call& call) noexcept
    {
        ComPtr<ITransactionLocal> transaction;
        HR_TRY_QUIET(CallOledb([&] { return session_.As(transaction); }, transaction));
        return CallOledb([&] { return call(*transaction); });
    }

    const ComPtr<IDBCreateCommand> session_;
};

class OledbBackend final : public DatabaseBackend {
public:
    explicit OledbBackend(IDBInitialize* source) noexcept : source_(source) {}
    OledbBackend(const OledbBackend&) = delete;
    OledbBackend& operator=(const OledbBackend&) = delete;
    ~OledbBackend() override { HR_IGNORE(source_->Uninitialize(), "it goes in any case"); }

    HRESULT Connect(std::unique_ptr<DatabaseConnection>& connection) noexcept override
    {
        try {
            ComPtr<IDBCreateSession> sessions;
            ComPtr<IDBCreateCommand> session;
            HR_TRY_QUIET(CallOledb([&] { return source_.As(sessions); }, sessions));
            HR_TRY_QUIET(CallOledb(
                [&] { return sessions->CreateSession(nullptr, IID_IDBCreateCommand, session.PutUnknown()); },
                session));
            connection = std::make_unique<OledbConnection>(std::move(session));
            return S_OK;
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }

    // A session belongs to the thread that made it.
    bool KeepsConnections() const noexcept override { return false; }

private:
    const ComPtr<IDBInitialize> source_;
};

}  // namespace

std::unique_ptr<DatabaseBackend> MakeOledbBackend(IDBInitialize* source)
{
    return std::make_unique<OledbBackend>(source);
}

HRESULT InitializeOledbSource(IDBInitialize* source) noexcept
{
    HR_TRY_QUIET(AllowPrompt(source));
    return CallOledb([&] { return source->Initialize(); });
}

HRESULT OpenAccessDatabase(OleStringView connectionString, const std::string& path,
                           std::unique_ptr<DatabaseBackend>& backend) noexcept
{
    if (!IsAccessDatabase(path))
        return S_FALSE;
    if (!MayBeWritten(path)) {
        AddErrorRecord("The database may not be written.");
        return STG_E_ACCESSDENIED;
    }
    try {
        ComPtr<IDataInitialize> service;
        ComPtr<IDBInitialize> source;
        HR_TRY_QUIET(CoCreateInstance(CLSID_MSDAINITIALIZE, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IDataInitialize, service.PutVoid()));
        const OleString text(connectionString);
        HR_TRY_QUIET(CallOledb(
            [&] {
                return service->GetDataSource(nullptr, CLSCTX_INPROC_SERVER, text.c_str(), IID_IDBInitialize,
                                              source.PutUnknown());
            },
            source));
        HR_TRY_QUIET(InitializeOledbSource(source.Get()));
        backend = MakeOledbBackend(source.Get());
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
