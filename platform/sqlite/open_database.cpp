#include "platform/sqlite/open_database.h"

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <new>
#include <string>
#include <system_error>

#include "platform/sqlite/log_writes.h"

namespace quorvane {

namespace {

// An index that couldn't be made is smaller.
constexpr std::uintmax_t kSmallestIndex = 32 * 1024;

bool HasBytes(const char* path, const char* suffix, std::uintmax_t count) noexcept
try {
    const std::string name = std::string(path) + suffix;
    std::error_code error;
    const auto size = std::filesystem::file_size(std::u8string(name.begin(), name.end()), error);
    return !error && size >= count;
} catch (const std::bad_alloc&) {
    return true;
}

// Whether what failed was to write, and nobody has the database open: its log has no index.
bool IsAtRest(const char* path, int code) noexcept
{
    const int kind = code & 0xFF;
    const bool isForWriting =
        kind == SQLITE_READONLY || kind == SQLITE_CANTOPEN || kind == SQLITE_FULL || kind == SQLITE_IOERR;
    return isForWriting && HasBytes(path, "", 1) && !HasBytes(path, "-shm", kSmallestIndex);
}

std::string UriOf(const char* path)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char* at = path; *at != '\0'; ++at) {
        const auto byte = static_cast<unsigned char>(*at);
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                             (byte >= '0' && byte <= '9') || byte == '/' || byte == '.' || byte == '-';
        if (isPlain)
            uri += *at;
        else
            uri.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
    return uri;
}

// Reads once: what keeps a database from being read shows at the first statement.
int TryReading(sqlite3* database) noexcept
{
    return sqlite3_exec(database, "PRAGMA schema_version", nullptr, nullptr, nullptr);
}

// The log is read into an index of this connection's own, which needs no lock where nobody writes.
int OpenWithLog(const char* path, sqlite3*& database)
{
    const sqlite3_vfs* const usual = sqlite3_vfs_find(nullptr);
    const std::string withoutLocks = std::string(usual->zName) + "-none";
    const int code =
        sqlite3_open_v2(path, &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, withoutLocks.c_str());
    if (code != SQLITE_OK)
        return code;
    return sqlite3_exec(database, "PRAGMA locking_mode=EXCLUSIVE", nullptr, nullptr, nullptr);
}

int OpenWithoutLog(const char* path, sqlite3*& database)
{
    const std::string uri = UriOf(path) + "?immutable=1";
    return sqlite3_open_v2(uri.c_str(), &database,
                           SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI, nullptr);
}

}  // namespace

int OpenDatabaseAtRest(const char* path, sqlite3*& database) noexcept
{
    database = nullptr;
    try {
        const int code =
            HasBytes(path, "-wal", 1) ? OpenWithLog(path, database) : OpenWithoutLog(path, database);
        return code == SQLITE_OK ? TryReading(database) : code;
    } catch (...) {
        return SQLITE_NOMEM;
    }
}

int OpenDatabase(const char* path, int flags, int patience, sqlite3*& database) noexcept
{
    database = nullptr;
    int code = sqlite3_open_v2(path, &database, flags, GatheringFiles());
    if (code == SQLITE_OK) {
        sqlite3_busy_timeout(database, patience);
        code = TryReading(database);
    }
    if (code == SQLITE_OK || !database || !IsAtRest(path, code))
        return code;
    sqlite3_close_v2(database);
    return OpenDatabaseAtRest(path, database);
}

}  // namespace quorvane
