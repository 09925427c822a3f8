// host/base/system_file.h: a file as the system has it, for what streams can't do: flush, and renames that
// keep a promise.
#ifndef QUORVANE_HOST_BASE_SYSTEM_FILE_H_
#define QUORVANE_HOST_BASE_SYSTEM_FILE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace quorvane::host {

// An open file. Everything that fails throws a HostError that names the path and the system's reason.
class SystemFile {
public:
    enum class Use {
        kRead,   // of a file that exists; others may read, write and rename it meanwhile
        kWrite,  // a new file, for the user alone, or an older one's content is dropped
        kSync,   // of a file that exists, to flush what was written to it
    };

    SystemFile(const std::filesystem::path& path, Use use);
    SystemFile(const SystemFile&) = delete;
    SystemFile& operator=(const SystemFile&) = delete;
    ~SystemFile();

    // The number of bytes read; 0 at the end.
    std::size_t Read(char* buffer, std::size_t size) const;
    // Has it read on from there.
    void Seek(std::uint64_t position) const;
    void Write(const char* data, std::size_t size) const;
    // Returns when everything is on the disk.
    void Sync() const;

private:
    std::string path_;
    std::intptr_t handle_;
};

// Renames within one file system, in one step in place of what has the new name.
void RenameOver(const std::filesystem::path& from, const std::filesystem::path& to);

// The same where nothing has the new name, not even a link; false where something has, and nothing is
// changed.
[[nodiscard]] bool RenameToNew(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_SYSTEM_FILE_H_
