#include "host/mail/mail_files.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "host/mail/ascii.h"

namespace quorvane {
namespace fs = std::filesystem;
namespace {

constexpr auto kIndexFiles = std::to_array<std::string_view>(
    {"thumbs.db", "desktop.ini", "maildirfolder", "maildirsize", "subscriptions", "mbox.index"});
constexpr auto kIndexPrefixes = std::to_array<std::string_view>({"readme", "dovecot", "courierimap"});
constexpr auto kIndexSuffixes = std::to_array<std::string_view>({".msf", ".idx", ".ibex.index", ".cmeta"});

bool IsMaildirPart(const fs::path& folder)
{
    const fs::path name = folder.filename();
    return name == "cur" || name == "new" || name == "tmp";
}

bool IsMaildir(const fs::path& folder)
{
    std::error_code ignored;  // what can't be looked at isn't there
    return fs::is_directory(folder / "cur", ignored) || fs::is_directory(folder / "new", ignored);
}

class Walk {
public:
    std::vector<MailFile> TakeFiles() { return std::move(files_); }

    void Add(const fs::path& path)
    {
        std::error_code failure;
        const fs::file_status status = fs::status(path, failure);
        if (!fs::exists(status))
            AddProblem(path, "there is no such file");
        else if (fs::is_directory(status))
            AddFolder(path);
        else if (fs::is_regular_file(status))
            AddFile(path);
        else
            AddProblem(path, "it is neither a file nor a folder");
    }

private:
    void AddProblem(const fs::path& path, std::string problem)
    {
        files_.push_back({.name = path.native(),
                          .size = 0,
                          .inMaildir = false,
                          .read = {},
                          .problem = std::move(problem)});
    }

    void AddFile(const fs::path& path)
    {
        std::error_code failure;
        const std::uint64_t size = fs::file_size(path, failure);
        if (failure)
            return AddProblem(path, "it can't be read: " + failure.message());
        const bool inMaildir = IsMaildirPart(path.parent_path());
        files_.push_back({.name = path.native(),
                          .size = size,
                          .inMaildir = inMaildir,
                          .read = inMaildir ? MaildirReadState(path) : std::nullopt,
                          .problem = {}});
    }

    void AddFolder(const fs::path& folder)
    {
        std::error_code failure;
        const fs::path real = fs::canonical(folder, failure);
        if (!failure && !visited_.insert(real.native()).second)
            return;
        std::vector<fs::path::string_type> names;
        fs::directory_iterator entry(folder, failure);
        while (!failure && entry != fs::directory_iterator()) {
            names.push_back(entry->path().filename().native());
            entry.increment(failure);
        }
        if (failure)
            AddProblem(folder, "it can't be read: " + failure.message());
        std::sort(names.begin(), names.end());
        for (const fs::path::string_type& name : names)
            AddEntry(folder / name);
    }

    void AddEntry(const fs::path& path)
    {
        std::error_code ignored;  // Add names what is wrong
        const bool isFolder = fs::is_directory(path, ignored);
        const std::string name = path.filename().string();
        if (isFolder) {
            const bool hidden = name.starts_with('.') && !IsMaildir(path);
            const bool unfinished = name == "tmp" && IsMaildir(path.parent_path());
            if (!hidden && !unfinished)
                Add(path);
        } else if (!IsHousekeeping(name)) {
            Add(path);
        }
    }

    std::vector<MailFile> files_;
    std::set<fs::path::string_type> visited_;
};

}  // namespace

std::optional<bool> MaildirReadState(const fs::path& path)
{
    if (path.parent_path().filename() == "new")
        return false;
    const std::string name = path.filename().string();
    const std::size_t flags = name.rfind("2,");
    if (flags == std::string::npos || flags == 0 ||
        std::string_view(":!;").find(name[flags - 1]) == std::string::npos)
        return false;
    return name.find('S', flags) != std::string::npos;
}

bool IsHousekeeping(const std::string& name)
{
    const std::string lower = LowerAscii(name);
    const auto is = [&](std::string_view known) { return lower == known; };
    const auto begins = [&](std::string_view known) { return lower.starts_with(known); };
    const auto ends = [&](std::string_view known) { return lower.ends_with(known); };
    return lower.starts_with('.') || std::any_of(kIndexFiles.begin(), kIndexFiles.end(), is) ||
           std::any_of(kIndexPrefixes.begin(), kIndexPrefixes.end(), begins) ||
           std::any_of(kIndexSuffixes.begin(), kIndexSuffixes.end(), ends);
}

std::vector<MailFile> FindMailFiles(const std::vector<fs::path>& paths)
{
    Walk walk;
    for (const fs::path& path : paths)
        walk.Add(path);
    return walk.TakeFiles();
}

}  // namespace quorvane
