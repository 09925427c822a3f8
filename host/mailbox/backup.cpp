#include "host/mailbox/backup.h"

#include <chrono>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/base/sqlite.h"
#include "host/base/system_file.h"
#include "host/mailbox/device.h"
#include "host/mailbox/peers.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

// By this name alone a directory is a backup.
constexpr char kRecords[] = "host.backup";
// How long is waited for the one moment, and for each lock: a writer that waits for another one of them goes
// on.
constexpr auto kLongestWait = std::chrono::seconds(60);
constexpr int kPatience = 100;  // milliseconds

// Directories of a mailbox whose files belong to its state: hash files, which change, and what is in the
// trash, which comes and goes.
constexpr char kHashes[] = "qvdata";
constexpr char kTrash[] = "trash";

void RefuseUnlessNew(const std::string& what, const std::string& directory)
{
    std::error_code error;
    const fs::path path = PathOf(directory);
    if (fs::exists(path, error) && !(fs::is_directory(path, error) && fs::is_empty(path, error)))
        Fail(what, directory, "the directory exists and is not empty");
}

void CopyUnlessGone(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    try {
        CopyDurably(from, to);
    } catch (const HostError&) {
        if (fs::exists(from, error))
            throw;
    }
}

// Plain files and directories alone: nothing else is a mailbox's. What goes meanwhile is left out.
void CopyDirectory(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    if (!fs::is_directory(from, error))
        return;
    MakePrivateDirectory(to);
    for (const auto& entry : fs::directory_iterator(from)) {
        if (entry.is_symlink())
            continue;
        if (entry.is_directory())
            CopyDirectory(entry.path(), to / entry.path().filename());
        else if (entry.is_regular_file())
            CopyUnlessGone(entry.path(), to / entry.path().filename());
    }
    SyncDirectory(to);
}

// Nobody writes to a mailbox's databases while it lives.
class Standstill {
public:
    explicit Standstill(const Mailbox& mailbox)
    {
        const auto end = std::chrono::steady_clock::now() + kLongestWait;
        while (!Lock(mailbox))
            if (std::chrono::steady_clock::now() >= end)
                Fail("back up the mailbox", mailbox.Directory().string(),
                     "others write to it without a pause (" + reason_ + ")");
    }

private:
    struct Held {
        explicit Held(const fs::path& path) : database(path.string(), Database::Mode::kOpen)
        {
            database.SetPatience(kPatience);
            transaction.emplace(database);
        }
        Database database;
        std::optional<Transaction> transaction;
    };

    // All of them or none: whoever has one and waits for another isn't waited for.
    bool Lock(const Mailbox& mailbox)
    {
        try {
            for (const fs::path& path :
                 {mailbox.HostDatabasePath(), mailbox.SharingDatabasePath(), mailbox.StorePath()})
                held_.push_back(std::make_unique<Held>(path));
            return true;
        } catch (const HostError& error) {
            reason_ = error.what();
            held_.clear();
            return false;
        }
    }

    std::vector<std::unique_ptr<Held>> held_;
    std::string reason_;
};

// A database as it stood at one moment.
struct Frozen {
    Frozen(const fs::path& path, const char* copyName)
        : database(path.string(), Database::Mode::kOpen), name(copyName)
    {
        database.FreezeReading();
    }
    Database database;
    std::string name;
};

void CopyDatabase(Database& database, const fs::path& to, const BackupProgress& report)
{
    constexpr unsigned long long kPage = 4096;  // bytes, in each of the mailbox's databases
    MakePrivateFile(to);
    database.CopyTo(to.string(), [&](int done, int total) {
        report(to.filename().string(), static_cast<unsigned long long>(done) * kPage,
               static_cast<unsigned long long>(total) * kPage);
    });
}

// A copy that lies there, as one file each, which can be read where nothing can be written. What was on its
// way lies in files that a backup doesn't have.
void Finish(const fs::path& copy, const char* forget)
{
    Database(copy.string(), Database::Mode::kOpen)
        .Execute(std::string(forget) + "PRAGMA journal_mode=DELETE");
}

}  // namespace

void BackUp(const Mailbox& mailbox, const std::string& directory, const BackupProgress& report)
{
    RefuseUnlessNew("back up the mailbox to", directory);
    const fs::path target = fs::absolute(PathOf(directory));
    MakePrivateDirectory(target);
    std::vector<std::unique_ptr<Frozen>> frozen;
    {
        const Standstill standstill(mailbox);
        frozen.push_back(std::make_unique<Frozen>(mailbox.StorePath(), "store.sqlite"));
        frozen.push_back(std::make_unique<Frozen>(mailbox.SharingDatabasePath(), "sharing.db"));
        frozen.push_back(std::make_unique<Frozen>(mailbox.HostDatabasePath(), "host.part"));
        CopyDirectory(mailbox.Directory() / kHashes, target / kHashes);
    }
    CopyDirectory(mailbox.Directory() / kTrash, target / kTrash);
    CopyDurably(mailbox.KeyPath(), target / mailbox.KeyPath().filename());
    for (const auto& one : frozen)
        CopyDatabase(one->database, target / one->name, report);
    Finish(target / "store.sqlite", "");
    Finish(target / "sharing.db",
           "DELETE FROM tblStorageFiles; DELETE FROM tblUnfinishedReceiveJob; DELETE FROM "
           "tblUnfinishedResendJob;");
    Finish(target / "host.part",
           "DELETE FROM outgoing; DELETE FROM incoming; DELETE FROM delivery; "
           "DELETE FROM mirror_mail; DELETE FROM mirror;");
    // Last: with this file the directory is a backup.
    RenameOver(target / "host.part", target / kRecords);
    SyncDirectory(target);
}

std::string RestoreBackup(const std::string& backup, const std::string& directory,
                          const BackupProgress& report)
{
    const fs::path source = fs::absolute(PathOf(backup));
    std::error_code error;
    if (!fs::exists(source / kRecords, error))
        Fail("restore the backup", backup, "the directory holds none (make one with 'quorvane backup')");
    RefuseUnlessNew("restore the backup to", directory);
    const fs::path target = fs::absolute(PathOf(directory));
    MakePrivateDirectory(target);
    for (const char* const part : {kHashes, kTrash})
        CopyDirectory(source / part, target / part);
    CopyDurably(source / "device.key", target / "device.key");
    for (const char* const part : {"packages", "inbox", "logs"})
        MakePrivateDirectory(target / part);
    for (const char* const name : {"store.sqlite", "sharing.db"}) {
        Database database((source / name).string(), Database::Mode::kReadOnly);
        CopyDatabase(database, target / name, report);
    }
    const fs::path part = target / "host.part";
    {
        Database database((source / kRecords).string(), Database::Mode::kReadOnly);
        CopyDatabase(database, part, report);
    }
    std::uint64_t last = 0;
    {
        Peers peers(part.string());
        last = peers.LastSequence();
        peers.BeginEpoch(NewEpoch(), last);
    }
    RenameOver(part, target / "host.db");
    SyncDirectory(target);
    return Mailbox::Open(directory).Name();
}

}  // namespace quorvane::host
