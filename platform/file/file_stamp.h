// platform/file/file_stamp.h: tells one state of a file from another.
#ifndef QUORVANE_PLATFORM_FILE_FILE_STAMP_H_
#define QUORVANE_PLATFORM_FILE_FILE_STAMP_H_

#include <cstdint>
#include <string>

#include "platform/com/com.h"

namespace quorvane {

// Which file it is, and the state that the last write left it in. Two writes of one size within one tick of
// the file system's clock (some milliseconds) leave the same stamp.
struct FileStamp {
    std::uint64_t volume = 0;
    std::uint64_t file = 0;  // on the volume
    std::uint64_t size = 0;
    std::uint64_t written = 0;  // time of the last write, in the system's finest unit

    bool IsSameFile(const FileStamp& other) const noexcept
    {
        return volume == other.volume && file == other.file;
    }
    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

// The stamp of the file that a path leads to now; File::GetStamp gives that of an open one.
// ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED and others; `stamp` is untouched then.
[[nodiscard]] HRESULT GetPathStamp(const std::string& path, FileStamp& stamp) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_FILE_STAMP_H_
