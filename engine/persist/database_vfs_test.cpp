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
    sqlite3_file* Real() noexcept { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

OpenFile& Of(sqlite3_file* file) noexcept
{
    return *reinterpret_cast<OpenFile*>(file);
}

const sqlite3_io_methods& MethodsOf(sqlite3_file* file) noexcept
{
    return *Of(file).Real()->pMethods;
}

int Close(sqlite3_file* file)
{
    return MethodsOf(file).xClose(Of(file).Real());
}

int Read(sqlite3_file* file, void* buffer, int count, sqlite3_int64 offset)
{
    return MethodsOf(file).xRead(Of(file).Real(), buffer, count, offset);
}

int Write(sqlite3_file* file, const void* buffer, int count, sqlite3_int64 offset)
{
    if (!Suffers())
        return MethodsOf(file).xWrite(Of(file).Real(), buffer, count, offset);
    // A full disk takes a part.
    MethodsOf(file).xWrite(Of(file).Real(), buffer, count / 2, offset);
    return SQLITE_FULL;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size)
{
    return Suffers() ? SQLITE_IOERR_TRUNCATE : MethodsOf(file).xTruncate(Of(file).Real(), size);
}

int Size(sqlite3_file* file, sqlite3_int64* size)
{
    return MethodsOf(file).xFileSize(Of(file).Real(), size);
}

void Remember(sqlite3_file* file)
{
    sqlite3_int64 size = 0;
    Size(file, &size);
    std::string bytes(static_cast<size_t>(size), '\0');
    if (size == 0 || Read(file, bytes.data(), static_cast<int>(size), 0) == SQLITE_OK) {
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

int Lock(sqlite3_file* file, int level)
{
    return MethodsOf(file).xLock(Of(file).Real(), level);
}

int Unlock(sqlite3_file* file, int level)
{
    return MethodsOf(file).xUnlock(Of(file).Real(), level);
}

int CheckReservedLock(sqlite3_file* file, int* result)
{
    return MethodsOf(file).xCheckReservedLock(Of(file).Real(), result);
}

int FileControl(sqlite3_file* file, int operation, void* argument)
{
    return MethodsOf(file).xFileControl(Of(file).Real(), operation, argument);
}

int SectorSize(sqlite3_file* file)
{
    return MethodsOf(file).xSectorSize(Of(file).Real());
}

int DeviceCharacteristics(sqlite3_file* file)
{
    return MethodsOf(file).xDeviceCharacteristics(Of(file).Real());
}

int ShmMap(sqlite3_file* file, int page, int pageSize, int extend, void volatile** memory)
{
    return MethodsOf(file).xShmMap(Of(file).Real(), page, pageSize, extend, memory);
}

int ShmLock(sqlite3_file* file, int offset, int count, int flags)
{
    return MethodsOf(file).xShmLock(Of(file).Real(), offset, count, flags);
}

void ShmBarrier(sqlite3_file* file)
{
    MethodsOf(file).xShmBarrier(Of(file).Real());
}

int ShmUnmap(sqlite3_file* file, int deletes)
{
    return MethodsOf(file).xShmUnmap(Of(file).Real(), deletes);
}

constexpr sqlite3_io_methods MethodsOfVersion(int version) noexcept
{
    return {version,
            Close,
            Read,
            Write,
            Truncate,
            Sync,
            Size,
            Lock,
            Unlock,
            CheckReservedLock,
            FileControl,
            SectorSize,
            DeviceCharacteristics,
            ShmMap,
            ShmLock,
            ShmBarrier,
            ShmUnmap,
            nullptr,
            nullptr};
}

constexpr sqlite3_io_methods kWithoutSharedMemory = MethodsOfVersion(1);
constexpr sqlite3_io_methods kWithSharedMemory = MethodsOfVersion(2);

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    OpenFile& opened = Of(file);
    opened.base.pMethods = nullptr;
    opened.name = name;
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

int Access(sqlite3_vfs*, const char* name, int flags, int* result)
{
    return state.base->xAccess(state.base, name, flags, result);
}

int FullPathname(sqlite3_vfs*, const char* name, int size, char* path)
{
    return state.base->xFullPathname(state.base, name, size, path);
}

int Randomness(sqlite3_vfs*, int count, char* bytes)
{
    return state.base->xRandomness(state.base, count, bytes);
}

int Sleep(sqlite3_vfs*, int microseconds)
{
    state.waited += static_cast<unsigned>(microseconds) / 1000;
    if (state.whenWaiting)
        state.whenWaiting();
    return microseconds;
}

int CurrentTime(sqlite3_vfs*, sqlite3_int64* time)
{
    return state.base->xCurrentTimeInt64(state.base, time);
}

int GetLastError(sqlite3_vfs*, int size, char* text)
{
    return state.base->xGetLastError(state.base, size, text);
}

}  // namespace

DatabaseVfs::DatabaseVfs()
{
    state.base = sqlite3_vfs_find(nullptr);
    if (!state.base)
        std::abort();
    sqlite3_vfs& vfs = state.vfs;
    vfs = sqlite3_vfs{};
    vfs.iVersion = 2;
    vfs.szOsFile = static_cast<int>(sizeof(OpenFile)) + state.base->szOsFile;
    vfs.mxPathname = state.base->mxPathname;
    vfs.zName = "quorvane-test";
    vfs.xOpen = Open;
    vfs.xDelete = Delete;
    vfs.xAccess = Access;
    vfs.xFullPathname = FullPathname;
    vfs.xRandomness = Randomness;
    vfs.xSleep = Sleep;
    vfs.xGetLastError = GetLastError;
    vfs.xCurrentTimeInt64 = CurrentTime;
    Disarm();
    DenySharedMemory(false);
    state.opens = 0;
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
