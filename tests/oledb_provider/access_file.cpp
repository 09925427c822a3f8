#include "tests/oledb_provider/access_file.h"

#include <sqlite3.h>

#include <array>
#include <cstring>
#include <string_view>

namespace quorvane::test {
namespace {

constexpr std::string_view kSignature{"\0\1\0\0Standard ACE DB\0", 20};

// A database as SQLite sees it. The system's own file lies behind it, in the same piece of memory.
struct AccessFile {
    sqlite3_file shown;
    sqlite3_file* whole;
};

sqlite3_vfs* System(sqlite3_vfs* vfs) noexcept
{
    return static_cast<sqlite3_vfs*>(vfs->pAppData);
}

sqlite3_file* Whole(sqlite3_file* file) noexcept
{
    return reinterpret_cast<AccessFile*>(file)->whole;
}

int Close(sqlite3_file* file) noexcept
{
    return Whole(file)->pMethods->xClose(Whole(file));
}

int Read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) noexcept
{
    return Whole(file)->pMethods->xRead(Whole(file), to, size, at + kAccessHeaderSize);
}

int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) noexcept
{
    return Whole(file)->pMethods->xWrite(Whole(file), from, size, at + kAccessHeaderSize);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) noexcept
{
    return Whole(file)->pMethods->xTruncate(Whole(file), size + kAccessHeaderSize);
}

int Sync(sqlite3_file* file, int flags) noexcept
{
    return Whole(file)->pMethods->xSync(Whole(file), flags);
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) noexcept
{
    const int code = Whole(file)->pMethods->xFileSize(Whole(file), size);
    if (code == SQLITE_OK)
        *size -= kAccessHeaderSize;
    return code;
}

int Lock(sqlite3_file* file, int level) noexcept
{
    return Whole(file)->pMethods->xLock(Whole(file), level);
}

int Unlock(sqlite3_file* file, int level) noexcept
{
    return Whole(file)->pMethods->xUnlock(Whole(file), level);
}

int CheckReservedLock(sqlite3_file* file, int* held) noexcept
{
    return Whole(file)->pMethods->xCheckReservedLock(Whole(file), held);
}

int FileControl(sqlite3_file* file, int operation, void* argument) noexcept
{
    return Whole(file)->pMethods->xFileControl(Whole(file), operation, argument);
}

int SectorSize(sqlite3_file* file) noexcept
{
    return Whole(file)->pMethods->xSectorSize(Whole(file));
}

int DeviceCharacteristics(sqlite3_file* file) noexcept
{
    return Whole(file)->pMethods->xDeviceCharacteristics(Whole(file));
}

// Version 1: no shared memory, and so no write-ahead log.
constexpr sqlite3_io_methods kMethods{.iVersion = 1,
                                      .xClose = Close,
                                      .xRead = Read,
                                      .xWrite = Write,
                                      .xTruncate = Truncate,
                                      .xSync = Sync,
                                      .xFileSize = FileSize,
                                      .xLock = Lock,
                                      .xUnlock = Unlock,
                                      .xCheckReservedLock = CheckReservedLock,
                                      .xFileControl = FileControl,
                                      .xSectorSize = SectorSize,
                                      .xDeviceCharacteristics = DeviceCharacteristics,
                                      .xShmMap = nullptr,
                                      .xShmLock = nullptr,
                                      .xShmBarrier = nullptr,
                                      .xShmUnmap = nullptr,
                                      .xFetch = nullptr,
                                      .xUnfetch = nullptr};

// Writes the head of a new file, or looks at that of another.
int PrepareHead(sqlite3_file* whole) noexcept
{
    sqlite3_int64 size = 0;
    if (const int code = whole->pMethods->xFileSize(whole, &size); code != SQLITE_OK)
        return code;
    std::array<char, kAccessHeaderSize> head{};
    if (size == 0) {
        std::memcpy(head.data(), kSignature.data(), kSignature.size());
        return whole->pMethods->xWrite(whole, head.data(), static_cast<int>(head.size()), 0);
    }
    if (size < kAccessHeaderSize)
        return SQLITE_NOTADB;
    const int code = whole->pMethods->xRead(whole, head.data(), static_cast<int>(head.size()), 0);
    if (code != SQLITE_OK)
        return code;
    return std::string_view(head.data(), kSignature.size()) == kSignature ? SQLITE_OK : SQLITE_NOTADB;
}

int Open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* openedWith) noexcept
{
    sqlite3_vfs* const system = System(vfs);
    if (!(flags & SQLITE_OPEN_MAIN_DB))
        return system->xOpen(system, name, file, flags, openedWith);
    auto* const made = reinterpret_cast<AccessFile*>(file);
    made->shown.pMethods = nullptr;
    made->whole = reinterpret_cast<sqlite3_file*>(made + 1);
    made->whole->pMethods = nullptr;
    int code = system->xOpen(system, name, made->whole, flags, openedWith);
    if (code == SQLITE_OK)
        code = PrepareHead(made->whole);
    if (code == SQLITE_OK)
        made->shown.pMethods = &kMethods;
    else if (made->whole->pMethods)
        made->whole->pMethods->xClose(made->whole);
    return code;
}

sqlite3_vfs MakeVfs() noexcept
{
    sqlite3_vfs* const system = sqlite3_vfs_find(nullptr);
    sqlite3_vfs vfs = *system;
    vfs.pNext = nullptr;
    vfs.zName = kAccessFileVfs;
    vfs.szOsFile = static_cast<int>(sizeof(AccessFile)) + system->szOsFile;
    vfs.xOpen = Open;
    vfs.pAppData = system;
    return vfs;
}

}  // namespace

int RegisterAccessFileVfs() noexcept
{
    static const int result = [] {
        if (const int code = sqlite3_initialize(); code != SQLITE_OK)
            return code;
        static sqlite3_vfs vfs = MakeVfs();
        return sqlite3_vfs_register(&vfs, 0);
    }();
    return result;
}

}  // namespace quorvane::test
