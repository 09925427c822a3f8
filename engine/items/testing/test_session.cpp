#include "engine/items/testing/test_session.h"

#include <sqlite3.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "engine/persist/testing/database_kind.h"
#include "engine/session/context/operations.h"

namespace quorvane::testing {

namespace {

class SqliteFile {
public:
    explicit SqliteFile(const std::string& path)
    {
        if (sqlite3_open_v2(path.c_str(), &connection_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            databaseKind.vfs) != SQLITE_OK)
            throw std::runtime_error("can't open " + path);
        sqlite3_busy_timeout(connection_, 10000);
    }
    SqliteFile(const SqliteFile&) = delete;
    SqliteFile& operator=(const SqliteFile&) = delete;
    ~SqliteFile() { sqlite3_close(connection_); }

    // The first value of the last row.
    std::string Run(const std::string& sql)
    {
        std::string value;
        if (sqlite3_exec(connection_, sql.c_str(), &TakeValue, &value, nullptr) != SQLITE_OK)
            throw std::runtime_error(sql + ": " + sqlite3_errmsg(connection_));
        return value;
    }

private:
    static int TakeValue(void* value, int /*columns*/, char** texts, char** /*names*/)
    {
        *static_cast<std::string*>(value) = texts[0] ? texts[0] : "NULL";
        return 0;
    }

    sqlite3* connection_ = nullptr;
};

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace

TestSession::TestSession()
{
    Execute(ReadFile(QUORVANE_SHARING_SCHEMA));
    OpenDatabase();
    if (FAILED(submitEvent_.Create(true)))
        throw std::bad_alloc();
    host.databasePath = DatabasePath();
    addin_ = ComPtr<IQuorvaneExt>::Attach(new ExtCallback(host));
}

// A host's late answer still uses the host: it ends when nobody else holds the callback any more.
TestSession::~TestSession()
{
    IQuorvaneExt* const addin = addin_.Get();
    while (addin->AddRef() > 2) {
        addin->Release();
        std::this_thread::yield();
    }
    addin->Release();
}

void TestSession::OpenDatabase()
{
    if (FAILED(database_.Open(ConnectionStringFor(Widen(DatabasePath())))))
        throw std::runtime_error("can't open the sharing database");
}

void TestSession::Execute(const std::string& sql)
{
    SqliteFile(DatabasePath()).Run(sql);
}

std::string TestSession::Ask(const std::string& sql)
{
    return SqliteFile(DatabasePath()).Run(sql);
}

HRESULT TestSession::GetAddin(ComPtr<IQuorvaneExt>& addin) noexcept
{
    if (!hostIsThere)
        return E_FAIL;
    addin = addin_;
    return S_OK;
}

HRESULT TestSession::GetDatabasePath(Bstr& path) noexcept
{
    try {
        path = Bstr(Widen(DatabasePath()));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane::testing
