#include "platform/sqlite/log_writes.h"

#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

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

// Hands a call on to the file itself, of a log after what is held.
template <auto Member>
struct Pass;
template <class Result, class... Arguments,
          Result (*sqlite3_io_methods::*Member)(sqlite3_file*, Arguments...)>
struct Pass<Member> {
    static Result Call(sqlite3_file* file, Arguments... arguments)
    {
        sqlite3_file* const real = Of(file).real;
        return (real->pMethods->*Member)(real, arguments...);
    }
    static Result AfterWrites(sqlite3_file* file, Arguments... arguments)
    {
        if (LogWrites* const writes = Of(file).writes)
            if (const int code = writes->Flush(); code != SQLITE_OK)
                return code;
        return Call(file, arguments...);
    }
};

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
    const int code = Pass<&sqlite3_io_methods::xClose>::Call(file);
    Forget(Of(file));
    return code;
}

int Read(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset)
{
    LogWrites* const writes = Of(file).writes;
    return writes ? writes->Read(bytes, count, offset)
                  : Pass<&sqlite3_io_methods::xRead>::Call(file, bytes, count, offset);
}

int Write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    LogWrites* const writes = Of(file).writes;
    return writes ? writes->Write(bytes, count, offset)
                  : Pass<&sqlite3_io_methods::xWrite>::Call(file, bytes, count, offset);
}

// A writer that ends without a commit leaves its frames.
int ShmLock(sqlite3_file* file, int first, int count, int flags)
{
    constexpr int kGivesBack = SQLITE_SHM_UNLOCK | SQLITE_SHM_EXCLUSIVE;
    if (first == kWriteLock && flags == kGivesBack && Of(file).other)
        Of(file).other->writes->Drop();
    return Pass<&sqlite3_io_methods::xShmLock>::Call(file, first, count, flags);
}

constexpr sqlite3_io_methods MethodsOfVersion(int version) noexcept
{
    using M = sqlite3_io_methods;
    return {version,
            Close,
            Read,
            Write,
            Pass<&M::xTruncate>::AfterWrites,
            Pass<&M::xSync>::AfterWrites,
            Pass<&M::xFileSize>::AfterWrites,
            Pass<&M::xLock>::Call,
            Pass<&M::xUnlock>::Call,
            Pass<&M::xCheckReservedLock>::Call,
            Pass<&M::xFileControl>::Call,
            Pass<&M::xSectorSize>::Call,
            Pass<&M::xDeviceCharacteristics>::Call,
            Pass<&M::xShmMap>::Call,
            ShmLock,
            Pass<&M::xShmBarrier>::Call,
            Pass<&M::xShmUnmap>::Call,
            Pass<&M::xFetch>::Call,
            Pass<&M::xUnfetch>::Call};
}

// A file that can do less says so by its version.
constexpr sqlite3_io_methods kMethods[] = {MethodsOfVersion(1), MethodsOfVersion(2), MethodsOfVersion(3)};

sqlite3_vfs& Usual() noexcept
{
    return *sqlite3_vfs_find(nullptr);
}

int OpenBehind(GatheredFile& file, const char* name, int flags, int* given) noexcept
{
    sqlite3_vfs& usual = Usual();
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

int Delete(sqlite3_vfs*, const char* name, int syncs)
{
    return Usual().xDelete(&Usual(), name, syncs);
}

int Access(sqlite3_vfs*, const char* name, int flags, int* result)
{
    return Usual().xAccess(&Usual(), name, flags, result);
}

int FullPathname(sqlite3_vfs*, const char* name, int size, char* path)
{
    return Usual().xFullPathname(&Usual(), name, size, path);
}

int Randomness(sqlite3_vfs*, int count, char* bytes)
{
    return Usual().xRandomness(&Usual(), count, bytes);
}

int Sleep(sqlite3_vfs*, int microseconds)
{
    return Usual().xSleep(&Usual(), microseconds);
}

int CurrentTime(sqlite3_vfs*, sqlite3_int64* time)
{
    return Usual().xCurrentTimeInt64(&Usual(), time);
}

int GetLastError(sqlite3_vfs*, int size, char* text)
{
    return Usual().xGetLastError(&Usual(), size, text);
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
        files_.iVersion = 2;
        files_.szOsFile = sizeof(GatheredFile);
        files_.mxPathname = Usual().mxPathname;
        files_.zName = name_;
        files_.xOpen = Open;
        files_.xDelete = Delete;
        files_.xAccess = Access;
        files_.xFullPathname = FullPathname;
        files_.xRandomness = Randomness;
        files_.xSleep = Sleep;
        files_.xGetLastError = GetLastError;
        files_.xCurrentTimeInt64 = CurrentTime;
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
