#include "host/base/files.h"

#include <system_error>
#include <vector>

#include "host/base/errors.h"
#include "host/base/system_file.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kBlockRead = 1 << 20;

}  // namespace

void MakeDirectory(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        Fail("make the directory", directory.string(), error.message());
}

void MakePrivateDirectory(const std::filesystem::path& directory)
{
    MakeDirectory(directory);
    std::error_code error;
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all, error);
    if (error)
        Fail("protect the directory", directory.string(), error.message());
}

void MakePrivateFile(const std::filesystem::path& path)
{
    const SystemFile file(path, SystemFile::Use::kWrite);
}

void SyncFile(const std::filesystem::path& path)
{
    SystemFile(path, SystemFile::Use::kSync).Sync();
    SyncDirectory(path.parent_path());
}

void WriteDurably(const std::filesystem::path& target, std::string_view content)
{
    std::filesystem::path aside = target;
    aside += ".new";
    {
        const SystemFile file(aside, SystemFile::Use::kWrite);
        file.Write(content.data(), content.size());
        file.Sync();
    }
    RenameOver(aside, target);
    SyncDirectory(target.parent_path());
}

void CopyDurably(const std::filesystem::path& from, const std::filesystem::path& to)
{
    const SystemFile source(from, SystemFile::Use::kRead);
    const SystemFile target(to, SystemFile::Use::kWrite);
    std::vector<char> block(kBlockRead);
    while (const std::size_t size = source.Read(block.data(), block.size()))
        target.Write(block.data(), size);
    target.Sync();
}

std::string ReadWhole(const std::filesystem::path& path, std::uintmax_t limit)
{
    const SystemFile file(path, SystemFile::Use::kRead);
    std::string content;
    std::vector<char> block(kBlockRead);
    while (const std::size_t count = file.Read(block.data(), block.size())) {
        content.append(block.data(), count);
        if (content.size() > limit)
            Fail("read", path.string(), "the file is larger than " + std::to_string(limit) + " bytes");
    }
    return content;
}

std::string LookOfFile(const std::filesystem::path& path)
{
    std::error_code error;  // one that isn't there looks like that
    const auto size = std::filesystem::file_size(path, error);
    const auto time = std::filesystem::last_write_time(path, error).time_since_epoch().count();
    return std::to_string(size) + " " + std::to_string(time) + "\n";
}

}  // namespace quorvane::host
