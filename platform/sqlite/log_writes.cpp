#include "platform/sqlite/log_writes.h"

#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "platform/sqlite/calls_behind.h"

namespace quorvane {

namespace {

// A frame of a log is a header and a page; a header that ends a commit says how large the database is then.
constexpr int kFrameHeader = 24;
constexpr int kSizeAt = 4;
constexpr int kSizeBytes = 4;
// So much goes out before its commit. With another page it is still less than 128 KB, beyond which SQLite's
// files take a write in pieces.
constexpr std::size_t kMostHeld = 60 * 1024;
constexpr std::size_t kLargestPage = 64 * 1024;
static_assert(kMostHeld + 2 * kFrameHeader + kLargestPage < 128 * 1024);
// The lock that a writer of the log holds.
constexpr int kWriteLock = 0;

// What is on its way into a log.
class LogWrites {
public:
    explicit LogWrites(sqlite3_file* file) noexcept : file_(file) {}

    int Write(const void* bytes, int count, sqlite3_int64 offset) noexcept
    {
        if (hasFailed_ && offset > at_)
            return SQLITE_IOERR_WRITE;
        const bool begins = count == kFrameHeader && offset != read_;
        const bool goesOn = !hasFailed_ && offset == at_ + static_cast<sqlite3_int64>(held_.size());
        hasFailed_ = false;
        read_ = -1;
        if (!begins && !(goesOn && awaitsPage_))
            return WriteAlone(bytes, count, offset);
        if (!goesOn)
            if (const int code = Flush(); code != SQLITE_OK)
                return code;
        if (held_.empty())
            at_ = offset;
        if (!Hold(bytes, count))
            return WriteAlone(bytes, count, offset);
        awaitsPage_ = begins;
        if (begins)
            endsCommit_ = SaysSize(bytes);
        return !begins && (endsCommit_ || held_.size() >= kMostHeld) ? Flush() : SQLITE_OK;
    }

    int Flush() noexcept
    {
        if (hasFailed_)
            return SQLITE_IOERR_WRITE;
        awaitsPage_ = false;
        if (held_.empty())
            return SQLITE_OK;
        const int code = file_->pMethods->xWrite(file_, held_.data(), static_cast<int>(held_.size()), at_);
        // SQLite believes those of a commit that isn't ended yet to be there.
        hasFailed_ = code != SQLITE_OK;
        held_.clear();
        return code;
    }

    // A frame that is read whole may be given another header.
    int Read(void* bytes, int count, sqlite3_int64 offset) noexcept
    {
        if (const int code = Flush(); code != SQLITE_OK)
            return code;
        read_ = offset;
        return file_->pMethods->xRead(file_, bytes, count, offset);
    }

    // Nobody will commit what is held: from now on others may write there.
    void Drop() noexcept
    {
        held_.clear();
        awaitsPage_ = false;
        hasFailed_ = false;
    }

private:
    int WriteAlone(const void* bytes, int count, sqlite3_int64 offset) noexcept
    {
        const int code = Flush();
        return code == SQLITE_OK ? file_->pMethods->xWrite(file_, bytes, count, offset) : code;
    }

    // False: without memory.
    bool Hold(const void* bytes, int count) noexcept
    try {
        const auto* const from = static_cast<const unsigned char*>(bytes);
        held_.insert(held_.end(), from, from + count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }

    static bool SaysSize(const void* header) noexcept
    {
        constexpr unsigned char kNone[kSizeBytes] = {};
        return std::memcmp(static_cast<const unsigned char*>(header) + kSizeAt, kNone, kSizeBytes) != 0;
    }

    sqlite3_file* const file_;
    std::vector<unsigned char> held_;
    sqlite3_int64 at_ = 0;     // where they belong
    sqlite3_int64 read_ = -1;  // where was read last, if nothing was written since
    bool awaitsPage_ = false;
    bool endsCommit_ = false;
    bool hasFailed_ = false;  // what is held from at_ on is missing
};

// What SQLite sees of a file; the file behind it has memory of its own.
struct GatheredFile {
    sqlite3_file base;
    sqlite3_file* real;
    LogWrites* writes;    // of a log; else null
    GatheredFile* other;  // of a log its database, of a database its log; else null
};

GatheredFile& Of(sqlite3_file* file) noexcept
{
    return *reinterpret_cast<GatheredFile*>(file);
}

sqlite3_file* RealOf(sqlite3_file* file)
{
    return Of(file).real;
}

using M = sqlite3_io_methods;
using Real = FileCalls<RealOf>;

// Of a log, what is held goes out.
int FlushOf(sqlite3_file* file) noexcept
{
    LogWrites* const writes = Of(file).writes;
    return writes ? writes->Flush() : SQLITE_OK;
}

void Forget(GatheredFile& file) noexcept
{
    if (file.other)
        file.other->other = nullptr;
    delete file.writes;
    sqlite3_free(file.real);
    file = {};
}

int Close(sqlite3_file* file)
{
    // What is held now is no commit's.
    const int code = Real::Call<&M::xClose>(file);
    Forget(Of(file));
    return code;
}

int Read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset)
{
    LogWrites* const writes = Of(file).writes;
    return writes ? writes->Read(bytes, count, offset) : Real::Call<&M::xRead>(file, bytes, count, offset);
}

int Write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    LogWrites* const writes = Of(file).writes;
    return writes ? writes->Write(bytes, count, offset) : Real::Call<&M::xWrite>(file, bytes, count, offset);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size)
{
    const int code = FlushOf(file);
    return code == SQLITE_OK ? Real::Call<&M::xTruncate>(file, size) : code;
}

int Sync(sqlite3_file* file, int flags)
{
    const int code = FlushOf(file);
    return code == SQLITE_OK ? Real::Call<&M::xSync>(file, flags) : code;
}

int FileSize(sqlite3_file* file, sqlite3_int64* size)
{
    const int code = FlushOf(file);
    return code == SQLITE_OK ? Real::Call<&M::xFileSize>(file, size) : code;
}

// A writer that ends without a commit leaves its frames.
int ShmLock(sqlite3_file* file, int first, int count, int flags)
{
    constexpr int kGivesBack = SQLITE_SHM_UNLOCK | SQLITE_SHM_EXCLUSIVE;
    if (first == kWriteLock && flags == kGivesBack && Of(file).other)
        Of(file).other->writes->Drop();
    return Real::Call<&M::xShmLock>(file, first, count, flags);
}

constexpr sqlite3_io_methods MethodsOfVersion(int version) noexcept
{
    sqlite3_io_methods methods = Real::Methods(version);
    methods.xClose = Close;
    methods.xRead = Read;
    methods.xWrite = Write;
    methods.xTruncate = Truncate;
    methods.xSync = Sync;
    methods.xFileSize = FileSize;
    methods.xShmLock = ShmLock;
    return methods;
}

// A file that can do less says so by its version.
constexpr sqlite3_io_methods kMethods[] = {MethodsOfVersion(1), MethodsOfVersion(2), MethodsOfVersion(3)};

sqlite3_vfs* Usual()
{
    return sqlite3_vfs_find(nullptr);
}

int OpenBehind(GatheredFile& file, const char* name, int flags, int* given) noexcept
{
    sqlite3_vfs& usual = *Usual();
    file.real = static_cast<sqlite3_file*>(sqlite3_malloc(usual.szOsFile));
    if (!file.real)
        return SQLITE_NOMEM;
    std::memset(file.real, 0, static_cast<std::size_t>(usual.szOsFile));
    return usual.xOpen(&usual, name, file.real, flags, given);
}

int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* given)
{
    GatheredFile& opened = *new (file) GatheredFile{};
    const int code = OpenBehind(opened, name, flags, given);
    // SQLite closes a file that has methods, also after a failure.
    if (!opened.real || !opened.real->pMethods) {
        Forget(opened);
        return code;
    }
    const int version = opened.real->pMethods->iVersion;
    opened.base.pMethods = &kMethods[version < 1 ? 0 : version > 3 ? 2 : version - 1];
    if (code != SQLITE_OK || (flags & SQLITE_OPEN_WAL) == 0)
        return code;
    GatheredFile& database = Of(sqlite3_database_file_object(name));
    // Without memory it writes as SQLite says.
    opened.writes = new (std::nothrow) LogWrites(opened.real);
    if (opened.writes) {
        opened.other = &database;
        database.other = &opened;
    }
    return code;
}

// SQLite may be one for several modules, of which each takes its own away when it is unloaded.
class Registration {
public:
    Registration() noexcept
    {
        if (sqlite3_initialize() != SQLITE_OK || !sqlite3_vfs_find(nullptr))
            return;
        std::snprintf(name_, sizeof name_, "quorvane-gathering-%llx",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(this)));
        files_ = FileSystemCalls<Usual>::Methods(name_, sizeof(GatheredFile));
        files_.xOpen = Open;
        isThere_ = sqlite3_vfs_register(&files_, 0) == SQLITE_OK;
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    ~Registration()
    {
        if (isThere_)
            sqlite3_vfs_unregister(&files_);
    }
    const char* Name() const noexcept { return isThere_ ? name_ : nullptr; }

private:
    sqlite3_vfs files_{};
    char name_[40] = {};
    bool isThere_ = false;
};

}  // namespace

const char* GatheringFiles() noexcept
{
    static const Registration registration;
    return registration.Name();
}

}  // namespace quorvane
