#include "host/sharing/settled_note.h"

#include <memory>
#include <system_error>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/base/sqlite.h"
#include "host/mailbox/records.h"

namespace quorvane::host {

namespace {

constexpr std::uintmax_t kLongestNote = 4096;
// How long somebody who reads or writes just now is waited for.
constexpr int kPatienceInMilliseconds = 100;

using Databases = std::vector<std::unique_ptr<Database>>;

std::int64_t NumberOf(Database& database, const char* question)
{
    Statement select(database, question);
    return select.Step() ? select.Number(0) : -1;
}

// Changes with each commit of somebody else.
std::vector<std::int64_t> VersionsOf(const Databases& databases)
{
    std::vector<std::int64_t> versions;
    for (const auto& database : databases)
        versions.push_back(NumberOf(*database, "PRAGMA data_version"));
    return versions;
}

}  // namespace

SettledNote::SettledNote(const Mailbox& mailbox)
    : path_(mailbox.Directory() / "settled"),
      databases_{mailbox.StorePath(), mailbox.SharingDatabasePath(), mailbox.HostDatabasePath()}
{
    try {
        const std::string look = Look();
        std::error_code error;
        holds_ =
            !look.empty() && std::filesystem::exists(path_, error) && ReadWhole(path_, kLongestNote) == look;
    } catch (const HostError&) {
        holds_ = false;  // a note that can't be read says nothing
    }
}

std::string SettledNote::Look() const
{
    std::string look = "records " + std::to_string(Records::kVersion) + "\n";
    for (const std::filesystem::path& database : databases_) {
        std::filesystem::path log = database;
        log += "-wal";
        std::error_code error;
        const auto size = std::filesystem::file_size(log, error);
        if (error ? error != std::errc::no_such_file_or_directory : size != 0)
            return {};
        look += LookOfFile(database);
    }
    return look;
}

void SettledNote::Write(const std::function<bool()>& isSettled) const
{
    try {
        Databases databases;
        for (const std::filesystem::path& path : databases_) {
            databases.push_back(std::make_unique<Database>(path.string(), Database::Mode::kOpen));
            databases.back()->SetPatience(kPatienceInMilliseconds);
        }
        const std::vector<std::int64_t> versions = VersionsOf(databases);
        if (!isSettled())
            return;
        // The databases are to look as they will when nobody has them open.
        for (const auto& database : databases)
            NumberOf(*database, "PRAGMA wal_checkpoint(TRUNCATE)");
        const std::string look = Look();
        if (look.empty() || VersionsOf(databases) != versions)
            return;
        std::error_code error;
        if (!std::filesystem::exists(path_, error) || ReadWhole(path_, kLongestNote) != look)
            WriteDurably(path_, look);
    } catch (const HostError&) {
        return;  // the next run compares then
    }
}

}  // namespace quorvane::host
