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

// ISession2 with the collections of the test; everything else answers E_NOTIMPL.
class TestSession::PublicFace final : public ComObject<PublicFace, DispatchImpl<ISession2>> {
public:
    explicit PublicFace(TestSession& session) noexcept : session_(session) {}

    HRESULT STDMETHODCALLTYPE get_Folders(IFolders** pVal) override { return session_.folders.CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE get_StorageFiles(IStorageFiles** pVal) override
    {
        return session_.storageFiles.CopyTo(pVal);
    }
    HRESULT STDMETHODCALLTYPE get_Options(IOptions** pVal) override { return session_.options.CopyTo(pVal); }
    HRESULT STDMETHODCALLTYPE get_DBPath(BSTR* pVal) override
    {
        return Bstr(Widen(session_.DatabasePath())).CopyTo(pVal);
    }
    HRESULT STDMETHODCALLTYPE ProcessStorageFile(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ResumeJobs(LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockItem(BSTR, BSTR, VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockItem(BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsItemLocked(BSTR entryId, BSTR storeId, VARIANT_BOOL* rVal) override
    {
        *rVal = session_.isLocked && session_.isLocked(entryId, storeId) ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE DropLock(BSTR entryId, BSTR storeId) override
    {
        if (session_.dropLock)
            session_.dropLock(entryId, storeId);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetItemFromID(VARIANT, VARIANT, VARIANT, IItem**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ImportItem(BSTR, BSTR, BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CancelResend(VARIANT) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DeleteItem(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Raw(IUnknown** pVal) override { return session_.mapiSession.As(pVal); }

private:
    TestSession& session_;
};

TestSession::TestSession()
{
    Execute(ReadFile(QUORVANE_SHARING_SCHEMA));
    OpenDatabase();
    if (FAILED(submitEvent_.Create(true)))
        throw std::bad_alloc();
    host.databasePath = DatabasePath();
    addin_ = ComPtr<IQuorvaneExt>::Attach(new ExtCallback(host));
    face_ = ComPtr<ISession2>::Attach(new PublicFace(*this));
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

HRESULT TestSession::GetSession(ComPtr<ISession2>& session) noexcept
{
    session = face_;
    return S_OK;
}

}  // namespace quorvane::testing
