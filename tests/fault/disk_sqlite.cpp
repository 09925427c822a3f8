// The disk as SQLite's default file system: the system's own, with the judge in front of it.
#include <sqlite3.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/sqlite/calls_behind.h"
#include "tests/fault/disk_state.h"

namespace quorvane::test {
namespace {

// What SQLite sees of a file; the system's own file lies right behind it.
struct JudgedFile {
    sqlite3_file base;
    const char* path;  // SQLite keeps it until the file is closed; null for a file without a name
};

sqlite3_vfs* systemFiles = nullptr;

sqlite3_file* Real(sqlite3_file* file)
{
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<JudgedFile*>(file) + 1);
}

const char* PathOf(sqlite3_file* file)
{
    return reinterpret_cast<JudgedFile*>(file)->path;
}

class SqliteScope {
public:
    SqliteScope() : before_(std::exchange(InsideSqlite(), true)) {}
    SqliteScope(const SqliteScope&) = delete;
    SqliteScope& operator=(const SqliteScope&) = delete;
    ~SqliteScope() { InsideSqlite() = before_; }

private:
    const bool before_;
};

using M = sqlite3_io_methods;
using System = FileCalls<Real, SqliteScope>;

sqlite3_int64 SizeOf(sqlite3_file* file)
{
    sqlite3_int64 size = 0;
    System::Call<&M::xFileSize>(file, &size);
    return size;
}

// Before `count` bytes are written or, if `bytes` is null, cut off.
void NoteWhatStands(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset,
                    sqlite3_int64 size)
{
    const sqlite3_int64 standing = std::max<sqlite3_int64>(0, std::min<sqlite3_int64>(count, size - offset));
    std::string before(static_cast<std::size_t>(standing), '\0');
    if (standing > 0)
        System::Call<&M::xRead>(file, before.data(), static_cast<int>(standing), offset);
    std::string after(static_cast<const char*>(bytes), bytes ? static_cast<std::size_t>(count) : 0);
    DiskState::Get().NoteWrite(PathOf(file), offset, std::move(before), size, std::move(after));
}

int WritePiece(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    DiskState& state = DiskState::Get();
    const sqlite3_int64 size = SizeOf(file);
    const Verdict verdict = state.Judge(PathOf(file), true, offset + count > size);
    const int part = verdict.IsDone() ? count : verdict.isHalfDone ? count / 2 : 0;
    if (part > 0 && state.NotesWrites(PathOf(file)))
        NoteWhatStands(file, bytes, part, offset, size);
    const int code = part > 0 ? System::Call<&M::xWrite>(file, bytes, part, offset) : SQLITE_OK;
    if (verdict.IsDone())
        return code;
    return verdict.answer == Verdict::Answer::kFull ? SQLITE_FULL : SQLITE_IOERR_WRITE;
}

// Of a large write a disk may have any part.
int Write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    constexpr int kPiece = 4096;
    for (int at = 0; at < count; at += kPiece) {
        const int piece = std::min(kPiece, count - at);
        const int code = WritePiece(file, static_cast<const char*>(bytes) + at, piece, offset + at);
        if (code != SQLITE_OK)
            return code;
    }
    return SQLITE_OK;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size)
{
    DiskState& state = DiskState::Get();
    if (!state.Judge(PathOf(file), false, false).IsDone())
        return SQLITE_IOERR_TRUNCATE;
    const sqlite3_int64 before = SizeOf(file);
    if (before > size && state.NotesWrites(PathOf(file)))
        NoteWhatStands(file, nullptr, static_cast<int>(before - size), size, before);
    return System::Call<&M::xTruncate>(file, size);
}

int Sync(sqlite3_file* file, int /*flags*/)
{
    if (!DiskState::Get().Judge(PathOf(file), false, false).IsDone())
        return SQLITE_IOERR_FSYNC;
    // Nothing here has to outlast this machine: the disk below isn't waited for.
    DiskState::Get().ForgetWrites(PathOf(file));
    return SQLITE_OK;
}

constexpr sqlite3_io_methods kJudgedMethods = [] {
    sqlite3_io_methods methods = System::Methods(3);
    methods.xWrite = Write;
    methods.xTruncate = Truncate;
    methods.xSync = Sync;
    return methods;
}();

int Open(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* given)
{
    const SqliteScope scope;
    auto* const judged = new (file) JudgedFile{{nullptr}, path};
    const int code = systemFiles->xOpen(systemFiles, path, Real(file), flags, given);
    // SQLite closes a file that has methods, also after a failure.
    if (Real(file)->pMethods)
        judged->base.pMethods = &kJudgedMethods;
    return code;
}

int Delete(sqlite3_vfs*, const char* path, int syncDirectory)
{
    if (!DiskState::Get().Judge(path, false, false).IsDone())
        return SQLITE_IOERR_DELETE;
    DiskState::Get().ForgetWrites(path);
    const SqliteScope scope;
    return systemFiles->xDelete(systemFiles, path, syncDirectory);
}

// Before main, and so before the first database is opened.
const bool installed = [] {
    if (sqlite3_initialize() != SQLITE_OK)
        throw std::runtime_error("no SQLite");
    systemFiles = sqlite3_vfs_find(nullptr);
    static sqlite3_vfs judged = *systemFiles;
    judged.zName = "judged";
    judged.szOsFile = static_cast<int>(sizeof(JudgedFile)) + systemFiles->szOsFile;
    judged.xOpen = Open;
    judged.xDelete = Delete;
    if (sqlite3_vfs_register(&judged, 1) != SQLITE_OK)
        throw std::runtime_error("SQLite takes no file system");
    return true;
}();

}  // namespace
}  // namespace quorvane::test
