// host/base/files.h: files that must survive a kill.
#ifndef QUORVANE_HOST_BASE_FILES_H_
#define QUORVANE_HOST_BASE_FILES_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace quorvane::host {

// Makes a directory and those above it. Throws a HostError.
void MakeDirectory(const std::filesystem::path& directory);

// The same; nobody but the user may look into it, whatever the umask, nor into one that was there already.
void MakePrivateDirectory(const std::filesystem::path& directory);

// Makes an empty file for the user alone, whatever the umask. For a file that isn't there. Throws a
// HostError.
void MakePrivateFile(const std::filesystem::path& path);

// Flushes a directory's entries to the disk: a rename in it survives power loss. On Windows, where a rename
// does so by itself, nothing is done. Throws a HostError.
void SyncDirectory(const std::filesystem::path& directory);

// Flushes a file that is there, and its name, to the disk. Throws a HostError.
void SyncFile(const std::filesystem::path& path);

// Writes a small file for the user alone, flushed: first beside it, then by a rename that replaces an older
// one at once. Throws a HostError.
void WriteDurably(const std::filesystem::path& target, std::string_view content);

// Copies a file for the user alone, in the place of one that has the name; when this returns, its bytes are
// on the disk. Throws a HostError.
void CopyDurably(const std::filesystem::path& from, const std::filesystem::path& to);

// The whole content. Throws a HostError when the file can't be read or is larger than `limit` bytes.
std::string ReadWhole(const std::filesystem::path& path, std::uintmax_t limit);

// What a file looks like from outside, to be compared: whoever writes to it changes that, but for a change
// that keeps its size and follows another at once. One that isn't there looks like no other. Throws nothing
// but std::bad_alloc.
std::string LookOfFile(const std::filesystem::path& path);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_FILES_H_
