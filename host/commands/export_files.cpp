#include "host/commands/export_files.h"

#include <algorithm>
#include <fstream>
#include <random>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/system_file.h"

namespace quorvane::host {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kComparedPiece = std::size_t{64} << 10;

bool SameBytes(const fs::path& a, const fs::path& b)
{
    std::error_code failure;
    if (!fs::is_regular_file(fs::symlink_status(b, failure)) ||
        fs::file_size(a, failure) != fs::file_size(b, failure))
        return false;
    std::ifstream one(a, std::ios::binary);
    std::ifstream other(b, std::ios::binary);
    std::string piece(kComparedPiece, '\0');
    std::string otherPiece(kComparedPiece, '\0');
    while (one && other) {
        one.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        other.read(otherPiece.data(), static_cast<std::streamsize>(otherPiece.size()));
        if (one.gcount() != other.gcount() ||
            !std::equal(piece.begin(), piece.begin() + one.gcount(), otherPiece.begin()))
            return false;
    }
    return one.eof() && other.eof();
}

}  // namespace

ExportFiles::ExportFiles(const fs::path& directory) : directory_(directory)
{
    MakeDirectory(directory);
    aside_ = directory / (".quorvane-" + std::to_string(std::random_device{}()));
    if (std::error_code failure; !fs::create_directory(aside_, failure))
        Fail("write to", directory.string(), failure ? failure.message() : "a name in it is taken");
    MakePrivateDirectory(aside_);
}

ExportFiles::~ExportFiles()
{
    std::error_code ignored;  // what is left has a hidden name
    fs::remove_all(aside_, ignored);
}

void ExportFiles::MakeFolder(const std::string& name) const
{
    std::error_code failure;
    const fs::path folder = directory_ / name;
    fs::create_directory(folder, failure);
    if (!fs::is_directory(fs::symlink_status(folder, failure)))
        Fail("make the directory", folder.string(), "the name is taken by a link or a file");
}

fs::path ExportFiles::Keep(const std::string& name) const
{
    fs::path path = directory_ / name;
    if (!RenameToNew(Aside(), path)) {
        if (!SameBytes(Aside(), path))
            Fail("write", path.string(), "there is something else of that name");
        std::error_code ignored;  // the next file replaces it
        fs::remove(Aside(), ignored);
    }
    return path;
}

}  // namespace quorvane::host
