#include "engine/persist/database_backend.h"
#include "platform/file/path.h"

namespace quorvane {
namespace {

HRESULT Refuse(const char* description, HRESULT hr) noexcept
{
    AddErrorRecord(description);
    return hr;
}

}  // namespace

// The file isn't opened here: to close it again would take from SQLite the locks that other connections of
// this process hold on it.
HRESULT OpenDatabase(OleStringView connectionString, OleStringView path,
                     std::unique_ptr<DatabaseBackend>& backend) noexcept
{
    try {
        const std::string file = Narrow(path);
        PathStatus status{};
        if (FAILED(GetPathStatus(file, status)))
            return Refuse("There is no such database file.", STG_E_FILENOTFOUND);
        if (status.isDirectory)
            return Refuse("The database is a directory.", STG_E_ACCESSDENIED);
        // SQLite would take an empty file for a new database.
        if (status.size == 0)
            return Refuse("The file is empty, and no database.", STG_E_OLDFORMAT);
        const HRESULT hr = OpenAccessDatabase(connectionString, file, backend);
        return hr == S_FALSE ? OpenSqliteDatabase(path, backend) : hr;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
