// SQLite's view of the files, for tests.
#include <sqlite3.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "engine/persist/testing/database_vfs.h"
#include "platform/sqlite/calls_behind.h"

namespace quorvane::testing {
namespace {

struct State {
    sqlite3_vfs* base = nullptr;
    sqlite3_vfs vfs{};
    std::atomic<DiskFault> fault{DiskFault::None};
    std::atomic<unsigned> at{0};
    std::atomic<unsigned> changes{0};
    std::atomic<bool> struck{false};
    std::atomic<bool> noSharedMemory{false};
    std::atomic<unsigned> opens{0};
    std::atomic<unsigned> logWrites{0};
    std::atomic<unsigned> waited{0};
    std::function<void()> whenWaiting;
    std::atomic<bool> remembers{false};
    std::mutex mutex;
    std::map<std::string, std::string> synced;  // under `mutex`
};

State state;

// True if the present change is to fail.
bool Suffers() noexcept
{
    const DiskFault fault = state.fault;
    if (fault == DiskFault::None)
        return false;
    const unsigned change = ++state.changes;
    if (change < state.at || (fault != DiskFault::Stays && change > state.at))
        return false;
    state.struck = true;
    if (fault == DiskFault::Kill)
        std::_Exit(9);
    return true;
}

// An open file: SQLite's own part, the name, and the real file behind.
struct OpenFile {
    sqlite3_file base;
    const char* name;  // SQLite keeps it while the file is open; null for a temporary file
    bool isLog;
    sqlite3_file* Real() noexcept { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

OpenFile& Of(sqlite3_file* file) noexcept
{
    return *reinterpret_cast<OpenFile*>(file);
}

sqlite3_file* RealOf(sqlite3_file* file)
{
    return Of(file).Real();
}

sqlite3_vfs* Base()
{
    return state.base;
}

using M = sqlite3_io_methods;
using Real = FileCalls<RealOf>;

int Write(sqlite3_file* file, const void* buffer, int count, sqlite3_int64 offset)
{
    if (Of(file).isLog)
        ++state.logWrites;
    if (!Suffers())
        return Real::Call<&M::xWrite>(file, buffer, count, offset);
    // A full disk takes a part.
    Real::Call<&M::xWrite>(file, buffer, count / 2, offset);
    return SQLITE_FULL;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size)
{
    return Suffers() ? SQLITE_IOERR_TRUNCATE : Real::Call<&M::xTruncate>(file, size);
}

void Remember(sqlite3_file* file)
{
    sqlite3_int64 size = 0;
    Real::Call<&M::xFileSize>(file, &size);
    std::string bytes(static_cast<size_t>(size), '\0');
    if (size == 0 || Real::Call<&M::xRead>(file, bytes.data(), static_cast<int>(size), 0) == SQLITE_OK) {
        const std::lock_guard lock(state.mutex);
        state.synced[Of(file).name] = std::move(bytes);
    }
}

int Sync(sqlite3_file* file, int)
{
    if (Suffers())
        return SQLITE_IOERR_FSYNC;
    if (state.remembers && Of(file).name)
        Remember(file);
    // No test pulls the plug: the disk itself needn't be waited for.
    return SQLITE_OK;
}

constexpr sqlite3_io_methods MethodsOfVersion(int version) noexcept
{
    sqlite3_io_methods methods = Real::Methods(version);
    methods.xWrite = Write;
    methods.xTruncate = Truncate;
    methods.xSync = Sync;
    return methods;
}

constexpr sqlite3_io_methods kWithoutSharedMemory = MethodsOfVersion(1);
constexpr sqlite3_io_methods kWithSharedMemory = MethodsOfVersion(2);

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    OpenFile& opened = Of(file);
    opened.base.pMethods = nullptr;
    opened.name = name;
    opened.isLog = (flags & SQLITE_OPEN_WAL) != 0;
    if (flags & SQLITE_OPEN_MAIN_DB)
        ++state.opens;
    const int code = state.base->xOpen(state.base, name, opened.Real(), flags, outFlags);
    if (opened.Real()->pMethods)
        opened.base.pMethods = state.noSharedMemory ? &kWithoutSharedMemory : &kWithSharedMemory;
    return code;
}

int Delete(sqlite3_vfs*, const char* name, int syncs)
{
    if (Suffers())
        return SQLITE_IOERR_DELETE;
    {
        const std::lock_guard lock(state.mutex);
        state.synced.erase(name);
    }
    return state.base->xDelete(state.base, name, syncs);
}

int Sleep(sqlite3_vfs*, int microseconds)
{
    state.waited += static_cast<unsigned>(microseconds) / 1000;
    if (state.whenWaiting)
        state.whenWaiting();
    return microseconds;
}

}  // namespace

DatabaseVfs::DatabaseVfs()
{
    state.base = sqlite3_vfs_find(nullptr);
    if (!state.base)
        std::abort();
    sqlite3_vfs& vfs = state.vfs;
    vfs = FileSystemCalls<Base>::Methods("quorvane-test",
                                         static_cast<int>(sizeof(OpenFile)) + state.base->szOsFile);
    vfs.xOpen = Open;
    vfs.xDelete = Delete;
    vfs.xSleep = Sleep;
    Disarm();
    DenySharedMemory(false);
    state.opens = 0;
    state.logWrites = 0;
    state.waited = 0;
    state.whenWaiting = nullptr;
    state.remembers = false;
    state.synced.clear();
    sqlite3_vfs_register(&vfs, 1);
}

DatabaseVfs::~DatabaseVfs()
{
    sqlite3_vfs_unregister(&state.vfs);
    sqlite3_vfs_register(state.base, 1);
}

void DatabaseVfs::Arm(DiskFault fault, unsigned at) noexcept
{
    state.changes = 0;
    state.struck = false;
    state.at = at;
    state.fault = fault;
}

bool DatabaseVfs::Disarm() noexcept
{
    state.fault = DiskFault::None;
    return state.struck.exchange(false);
}

void DatabaseVfs::DenySharedMemory(bool denied) noexcept
{
    state.noSharedMemory = denied;
}

unsigned DatabaseVfs::Opens() const noexcept
{
    return state.opens;
}

unsigned DatabaseVfs::LogWrites() const noexcept
{
    return state.logWrites;
}

unsigned DatabaseVfs::WaitedMilliseconds() const noexcept
{
    return state.waited;
}

void DatabaseVfs::WhenWaiting(std::function<void()> call)
{
    state.whenWaiting = std::move(call);
}

void DatabaseVfs::RememberSyncs()
{
    state.remembers = true;
}

void DatabaseVfs::PutSynced(const std::filesystem::path& directory) const
{
    const std::lock_guard lock(state.mutex);
    std::filesystem::create_directories(directory);
    for (const auto& [name, bytes] : state.synced)
        std::ofstream(directory / std::filesystem::path(name).filename(), std::ios::binary) << bytes;
}

}  // namespace quorvane::testing
