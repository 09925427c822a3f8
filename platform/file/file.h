// platform/file/file.h: one open file. Paths are text of the ANSI code page (UTF-8 off Windows).
//
// Failures come as HRESULT_FROM_WIN32 of the Win32 code; off Windows the system's error is mapped to it.
#ifndef QUORVANE_PLATFORM_FILE_FILE_H_
#define QUORVANE_PLATFORM_FILE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "platform/com/com.h"

namespace quorvane {

enum class FileAccess {
    Read,
    Write,  // off Windows a write-only file is opened for reading too where it may be
    ReadWrite,
    Append,  // every write goes to the end of the file, whatever other writers did
};

enum class FileMode {
    OpenExisting,      // ERROR_FILE_NOT_FOUND when there is none
    OpenAlways,        // makes an empty file when there is none
    CreateNew,         // ERROR_FILE_EXISTS when there is one
    CreateAlways,      // makes an empty file, or empties the one that is there
    TruncateExisting,  // empties the one that is there
};

// What other openers may do while the file is open here. Held against every opener that goes through
// this class, of this process and of others. Whether a file may be deleted or renamed while it is open
// is the system's affair: on Windows it may with Delete, off Windows always.
enum class FileShare : unsigned {
    None = 0,
    Read = 1,
    Write = 2,
    ReadWrite = 3,
    Delete = 4,
    All = 7,
};

enum class SeekFrom { Begin, Current, End };

struct FileStamp;

// One open file, or none. Positional reads and writes of one file may run on many threads at once; the
// rest is for one thread at a time. With no open file every operation gives ERROR_INVALID_HANDLE.
class File {
public:
    File() noexcept = default;
    File(File&& other) noexcept : handle_(std::exchange(other.handle_, kNoHandle)) {}
    File& operator=(File&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~File() { Close(); }

    // Opens in place of what is open. ERROR_SHARING_VIOLATION: another opener stands in the way; nothing of
    // the file was changed. ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_FILE_EXISTS,
    // ERROR_ACCESS_DENIED (also for a directory) and others: nothing is open.
    [[nodiscard]] HRESULT Open(const std::string& path, FileAccess access, FileMode mode,
                               FileShare share = FileShare::ReadWrite) noexcept;
    void Close() noexcept;
    bool IsOpen() const noexcept { return handle_ != kNoHandle; }

    // Reads at the file position, which moves on. S_OK with fewer bytes, or none, only at the end of the
    // file.
    [[nodiscard]] HRESULT Read(void* buffer, size_t count, size_t& read) noexcept;
    // Writes all at the file position, which moves on (at the end with FileAccess::Append). After a failure
    // a part may stand.
    [[nodiscard]] HRESULT Write(const void* buffer, size_t count) noexcept;
    // The same at an offset, not for FileAccess::Append; where the file position is afterwards is not told.
    // Writing past the end fills the gap with zeros.
    [[nodiscard]] HRESULT ReadAt(std::uint64_t offset, void* buffer, size_t count, size_t& read) noexcept;
    [[nodiscard]] HRESULT WriteAt(std::uint64_t offset, const void* buffer, size_t count) noexcept;

    // Moves the file position; past the end is allowed. ERROR_NEGATIVE_SEEK: before the beginning; it stays.
    [[nodiscard]] HRESULT Seek(std::int64_t offset, SeekFrom from,
                               std::uint64_t* position = nullptr) noexcept;
    [[nodiscard]] HRESULT GetSize(std::uint64_t& size) const noexcept;
    // Which file is open, and the state that its last write left it in (file_stamp.h).
    [[nodiscard]] HRESULT GetStamp(FileStamp& stamp) const noexcept;
    // Whether another opener that goes through this class, of this process or another, has the file open for
    // writing at this moment. False where the system doesn't tell (Windows, file systems without locks).
    bool IsWrittenByOthers() const noexcept;
    // Cuts, or extends with zeros. The file position stays.
    [[nodiscard]] HRESULT SetSize(std::uint64_t size) noexcept;
    // Returns when everything written is on the disk.
    [[nodiscard]] HRESULT Sync() noexcept;

private:
    static constexpr std::intptr_t kNoHandle = -1;
    std::intptr_t handle_ = kNoHandle;
};

// Reads a whole file. ERROR_FILE_TOO_LARGE: it has more than `limit` bytes. E_OUTOFMEMORY. `contents` is
// untouched after a failure.
[[nodiscard]] HRESULT ReadWholeFile(const std::string& path, std::uint64_t limit,
                                    std::string& contents) noexcept;

// Puts a whole file in place of what is there, if anything, so that at any moment (a power failure included)
// either the old or the new one is whole: writes a file beside it, syncs it, renames it, syncs the directory.
// Off Windows a new file is for the user alone, and a replaced one keeps its permissions.
[[nodiscard]] HRESULT ReplaceWholeFile(const std::string& path, std::string_view contents) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_FILE_H_
