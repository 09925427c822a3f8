// platform/file/temp_file.h: unique names for temporary files, and files that go with their owner.
#ifndef QUORVANE_PLATFORM_FILE_TEMP_FILE_H_
#define QUORVANE_PLATFORM_FILE_TEMP_FILE_H_

#include <string>
#include <string_view>
#include <utility>

#include "platform/com/com.h"

namespace quorvane {

// Makes an empty file with a name that nothing else has: the first three characters of `prefix`, four
// hexadecimal digits (on Windows one to four), ".tmp".
//
// directory  [in]   where; with or without a separator at its end.
// prefix     [in]   at most three characters count. ERROR_INVALID_PARAMETER: it isn't a plain file name.
// path       [out]  the whole path; untouched after a failure.
//
// ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED and others. ERROR_FILE_EXISTS: every name is taken.
[[nodiscard]] HRESULT MakeTempFileName(std::string_view directory, std::string_view prefix,
                                       std::string& path) noexcept;

// Removes a file when it goes, unless it was let go of.
class TempFile {
public:
    TempFile() noexcept = default;
    // Takes over the file at `path`, which need not be there yet.
    explicit TempFile(std::string path) noexcept : path_(std::move(path)) {}
    TempFile(TempFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    TempFile& operator=(TempFile&& other) noexcept
    {
        path_.swap(other.path_);
        return *this;
    }
    ~TempFile() { Remove(); }

    // A new file in the user's temporary directory, in place of what is owned.
    [[nodiscard]] HRESULT Create(std::string_view prefix) noexcept;
    const std::string& Path() const noexcept { return path_; }
    // The file stays.
    std::string LetGo() noexcept { return std::exchange(path_, {}); }
    // Removes the file now, if one is owned.
    void Remove() noexcept;

private:
    std::string path_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_TEMP_FILE_H_
