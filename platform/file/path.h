// platform/file/path.h: paths and the directory tree.
//
// Failures come as HRESULT_FROM_WIN32 of the Win32 code. Any thread may call.
#ifndef QUORVANE_PLATFORM_FILE_PATH_H_
#define QUORVANE_PLATFORM_FILE_PATH_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/com/com.h"

namespace quorvane {

// The separator of this platform. On Windows both kinds are understood.
char PathSeparator() noexcept;
bool IsPathSeparator(char c) noexcept;

// `directory`, one separator, `name`. An empty directory gives the name alone. Throws std::bad_alloc.
std::string JoinPath(std::string_view directory, std::string_view name);
// What stands before the last separator; "" without one; the root stays the root.
std::string_view DirectoryOf(std::string_view path) noexcept;
// What stands behind the last separator.
std::string_view FileNameOf(std::string_view path) noexcept;
// The file name without its last extension: "mail" of "/a/mail.qdb". A name that begins with its only dot
// has no extension.
std::string_view BaseNameOf(std::string_view path) noexcept;

// Whether `name` can be one element of a path and nothing else: not empty, no separator of any platform, no
// drive colon, no zero byte, not "." or "..", at most 255 bytes.
bool IsPlainFileName(std::string_view name) noexcept;

struct PathStatus {
    bool isDirectory;
    std::uint64_t size;  // 0 for a directory
    FILETIME modified;   // UTC
};

// ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND or another reason for which nothing can be told.
[[nodiscard]] HRESULT GetPathStatus(const std::string& path, PathStatus& status) noexcept;
// Whether there is a file or directory that may be seen.
bool PathExists(const std::string& path) noexcept;

// Makes the directory and those above it. S_FALSE: it is there already. ERROR_ALREADY_EXISTS: a file is in
// its place.
[[nodiscard]] HRESULT MakeDirectories(const std::string& path) noexcept;
// Removes a file. ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED and others.
[[nodiscard]] HRESULT RemoveFile(const std::string& path) noexcept;
// Removes an empty directory. ERROR_DIR_NOT_EMPTY and others.
[[nodiscard]] HRESULT RemoveEmptyDirectory(const std::string& path) noexcept;
// Renames a file within one file system in one step, in place of what has the new name.
[[nodiscard]] HRESULT RenameOver(const std::string& from, const std::string& to) noexcept;
// Returns when the entries of the directory are on the disk. Does nothing on Windows.
[[nodiscard]] HRESULT SyncDirectory(const std::string& path) noexcept;
// The names in a directory, without "." and "..", sorted. `names` is untouched after a failure.
[[nodiscard]] HRESULT ListDirectory(const std::string& path, std::vector<std::string>& names) noexcept;

// The directory for the user's temporary files, with a separator at its end: on Windows GetTempPath;
// elsewhere $TMPDIR, or /tmp.
[[nodiscard]] HRESULT TempDirectory(std::string& path) noexcept;
// The user's local application data, without a separator at its end: on Windows the shell's folder;
// elsewhere $XDG_DATA_HOME, or .local/share in the home directory. ERROR_PATH_NOT_FOUND: it can't be told. It
// is not made.
[[nodiscard]] HRESULT LocalAppDataDirectory(std::string& path) noexcept;
// The user's configuration files, likewise: on Windows the roaming application data; elsewhere
// $XDG_CONFIG_HOME, or .config in the home directory.
[[nodiscard]] HRESULT ConfigDirectory(std::string& path) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_PATH_H_
