#include "host/sharing/settled_note.h"

#include <chrono>
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
// Some disks tell times in steps of two seconds: a change that comes sooner behind another may leave no
// trace.
constexpr auto kCoarsestTime = std::chrono::seconds(2);
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
    const std::string look = Look();
    holds_ = !look.empty() && Says(look);
}

// Whether this is what was noted, and when the databases had been at rest for so long that no change can have
// escaped it.
bool SettledNote::Says(const std::string& look) const
{
    try {
        std::error_code error;
        const auto noted = std::filesystem::last_write_time(path_, error);
        if (error)
            return false;
        for (const std::filesystem::path& database : databases_) {
            const auto changed = std::filesystem::last_write_time(database, error);
            if (error || noted - changed <= kCoarsestTime)
                return false;
        }
        return ReadWhole(path_, kLongestNote) == look;
    } catch (const HostError&) {
        return false;  // a note that can't be read says nothing
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
        if (!Says(look))
            WriteDurably(path_, look);
    } catch (const HostError&) {
        return;  // the next run compares then
    }
}

}  // namespace quorvane::host
