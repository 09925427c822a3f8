#include "host/mirror/mail_places.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <system_error>

#include "host/base/errors.h"
#include "host/mirror/maildir_tree.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

constexpr char kInbox[] = "Inbox";

bool HasParts(const fs::path& directory)
{
    std::error_code error;
    return fs::is_directory(directory / "cur", error) && fs::is_directory(directory / "new", error);
}

std::size_t CountMails(const fs::path& maildir)
{
    std::size_t count = 0;
    std::error_code error;
    for (const char* const part : {"cur", "new"})
        for (fs::directory_iterator entry(maildir / part, error), end; !error && entry != end;
             entry.increment(error))
            ++count;
    return count;
}

bool IsInbox(const std::string& name)
{
    return std::equal(name.begin(), name.end(), std::begin(kInbox), std::end(kInbox) - 1, [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
}

// The folder for each path: the first that is called like the Inbox is it.
class Names {
public:
    explicit Names(const std::vector<std::string>& paths) : taken_(paths.begin(), paths.end()) {}

    std::string For(const std::string& path)
    {
        const std::string first = path.substr(0, path.find('/'));
        if (!IsInbox(first) || (inbox_.empty() && first != kInbox && taken_.count(kInbox) != 0))
            return path;
        if (inbox_.empty())
            inbox_ = first;
        return first == inbox_ ? kInbox + path.substr(first.size()) : path;
    }
    bool HasInbox() const { return !inbox_.empty(); }

private:
    std::set<std::string> taken_;
    std::string inbox_;  // what it is called there
};

void TakeMaildir(MailPlace& place, const std::string& folder, const fs::path& maildir)
{
    place.maildirs.emplace_back(folder, maildir);
    place.mails += CountMails(maildir);
}

}  // namespace

std::optional<MailPlace> LookForMail(const fs::path& directory)
try {
    MailPlace place;
    place.root = directory;
    const bool isMaildir = HasParts(directory);
    TreeLayout layout = TreeLayout::kMaildirPlusPlus;
    std::vector<std::string> paths;
    if (isMaildir)
        paths = FoldersInTree(directory, layout);
    if (paths.empty())
        paths = FoldersInTree(directory, layout = TreeLayout::kNested);
    Names names(paths);
    for (const std::string& path : paths)
        if (const fs::path maildir = PlaceInTree(directory, path, layout); HasParts(maildir))
            TakeMaildir(place, names.For(path), maildir);
    if (isMaildir)
        TakeMaildir(place, names.HasInbox() ? directory.filename().string() : kInbox, directory);
    std::sort(place.maildirs.begin(), place.maildirs.end());
    return place.maildirs.empty() ? std::nullopt : std::optional(std::move(place));
} catch (const HostError&) {
    return std::nullopt;
}

std::vector<MailPlace> FindMailPlaces(const fs::path& home, const fs::path& maildir)
{
    std::vector<fs::path> candidates;
    if (!maildir.empty())
        candidates.push_back(maildir);
    for (const char* const name : {"Maildir", "Mail", "mail", ".mail"})
        candidates.push_back(home / name);
    std::vector<MailPlace> places;
    std::set<fs::path> seen;
    for (const fs::path& candidate : candidates) {
        std::error_code error;
        const fs::path directory = fs::weakly_canonical(fs::absolute(candidate), error);
        if (error || !seen.insert(directory).second)
            continue;
        if (auto place = LookForMail(directory))
            places.push_back(*std::move(place));
    }
    return places;
}

}  // namespace quorvane::host
