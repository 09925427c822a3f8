#include "host/mailbox/mailbox.h"

#include <chrono>
#include <cstdio>
#include <system_error>
#include <thread>

#include "host/base/errors.h"
#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/mailbox/device.h"
#include "host/mailbox/records.h"
#include "host/mailbox/sharing_schema.h"
#include "host/mailbox/user_settings.h"
#include "host/store/profile.h"

namespace quorvane::host {

namespace {

// Tells this mailbox from a later one of the same name: 16 hexadecimal digits.
std::string NewInstance()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), "make an identifier for", "the mailbox");
    char text[17];
    std::snprintf(text, sizeof text, "%08x%04x%04x", static_cast<unsigned>(guid.Data1), guid.Data2,
                  guid.Data3);
    return text;
}

std::int64_t VersionOf(Database& records)
{
    Statement version(records, "PRAGMA user_version");
    return version.Step() ? version.Number(0) : 0;
}

std::string MailboxText(Database& records, const char* sql)
{
    Statement select(records, sql);
    return select.Step() ? select.Text(0) : std::string();
}

// Records of an earlier version get the tables of this one; by one process, if several come at once.
void UpgradeRecords(Database& records, const std::string& directory, const std::filesystem::path& keyFile)
{
    if (VersionOf(records) == Records::kVersion)
        return;
    Transaction transaction(records);
    const std::int64_t version = VersionOf(records);
    if (version < 1 || version > Records::kVersion)
        Fail("open the mailbox", directory, "host.db is of a version that this program doesn't know");
    Records::Upgrade(records, version);
    if (MailboxText(records, "SELECT device FROM mailbox").empty())
        DrawDeviceKeys(keyFile, records);
    transaction.Commit();
}

bool IsAbsentOrEmpty(const std::filesystem::path& directory)
{
    std::error_code error;
    if (!std::filesystem::exists(directory, error))
        return true;
    return std::filesystem::is_directory(directory, error) && std::filesystem::is_empty(directory, error) &&
           !error;
}

// Lies in a directory as long as a mailbox is being made of it; what a kill has left beside it was never one.
std::filesystem::path MarkIn(const std::filesystem::path& directory)
{
    return directory / "being-made";
}

bool HoldsRecords(const std::filesystem::path& path)
{
    std::error_code error;
    if (std::filesystem::file_size(path, error) == 0 || error)
        return false;
    Database records(path.string(), Database::Mode::kOpen);
    return VersionOf(records) > 0;
}

// Takes away what a making that was cut short has left in a directory, but for the mark.
void ClearRemains(const std::filesystem::path& directory)
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error))
        if (entry.path() != MarkIn(directory)) {
            std::filesystem::remove_all(entry.path(), error);
            if (error)
                Fail("remove", entry.path().string(), error.message());
        }
}

// Keeps others from making the same for as long as it is held.
std::unique_ptr<FileLock> BeginMaking(const Mailbox& mailbox, const std::string& shown)
{
    const std::filesystem::path& directory = mailbox.Directory();
    std::error_code error;
    const bool isHalfMade = std::filesystem::exists(MarkIn(directory), error) && !mailbox.IsThere();
    if (!isHalfMade && !IsAbsentOrEmpty(directory))
        Fail("make the mailbox", shown, "the directory exists and is not empty");
    MakePrivateDirectory(directory);
    auto lock = FileLock::Take(MarkIn(directory), "make the mailbox", shown);
    if (!lock)
        Fail("make the mailbox", shown, "another process is making it");
    ClearRemains(directory);
    return lock;
}

}  // namespace

Mailbox::Mailbox(const std::string& directory)
{
    std::error_code error;
    directory_ = std::filesystem::absolute(PathOf(directory), error).lexically_normal();
}

Mailbox Mailbox::Create(const std::string& directory, const std::string& name)
{
    Mailbox mailbox(directory);
    if (!IsMemberName(name))
        throw HostError("cannot make the mailbox '" + directory + "': '" + name +
                            "' is no member name (letters, digits, '.', '-', '_' and '@', at most 64)",
                        ExitCode::kUsage);
    auto making = BeginMaking(mailbox, directory);
    for (const auto& part : {mailbox.PackagesPath(), mailbox.InboxPath(), mailbox.LogPath().parent_path()})
        MakePrivateDirectory(part);
    // SQLite's own files beside a database may be read by whoever may read that.
    MakePrivateFile(mailbox.SharingDatabasePath());
    mailbox.name_ = name;
    mailbox.instance_ = NewInstance();

    Database(mailbox.SharingDatabasePath().string(), Database::Mode::kCreate).Execute(kSharingSchema);
    SelectSettings(mailbox);
    MakeSettings(mailbox);
    MakeProfile(mailbox.StorePath(), name);

    // Last: a directory with this file in it is a mailbox.
    MakePrivateFile(mailbox.HostDatabasePath());
    Database records(mailbox.HostDatabasePath().string(), Database::Mode::kCreate);
    Transaction transaction(records);
    Records::CreateTables(records, name, mailbox.instance_);
    DrawDeviceKeys(mailbox.KeyPath(), records);
    mailbox.device_ = MailboxText(records, "SELECT device FROM mailbox");
    transaction.Commit();
    making.reset();
    std::error_code error;
    std::filesystem::remove(MarkIn(mailbox.directory_), error);  // it tells nothing beside whole records
    return mailbox;
}

bool Mailbox::IsThere(const std::string& directory)
{
    return Mailbox(directory).IsThere();
}

bool Mailbox::IsThere() const
{
    std::error_code error;
    return std::filesystem::exists(HostDatabasePath(), error) &&
           (!std::filesystem::exists(MarkIn(directory_), error) || HoldsRecords(HostDatabasePath()));
}

Mailbox Mailbox::Open(const std::string& directory)
{
    std::error_code error;
    Mailbox mailbox(directory);
    if (!std::filesystem::is_directory(mailbox.directory_, error))
        Fail("open the mailbox", directory, "no such directory");
    if (!mailbox.IsThere())
        Fail("open the mailbox", directory, "the directory is no mailbox (make one with 'quorvane init')");
    if (!std::filesystem::exists(mailbox.StorePath(), error))
        Fail("open the mailbox", directory, "its message store is missing");
    // Mailboxes of earlier versions could be read by others.
    std::filesystem::permissions(mailbox.directory_, std::filesystem::perms::owner_all, error);
    Database records(mailbox.HostDatabasePath().string(), Database::Mode::kOpen);
    UpgradeRecords(records, directory, mailbox.KeyPath());
    Statement own(records, "SELECT name, instance, device FROM mailbox");
    if (!own.Step())
        Fail("open the mailbox", directory, "host.db holds no name");
    mailbox.name_ = own.Text(0);
    mailbox.instance_ = own.Text(1);
    mailbox.device_ = own.Text(2);
    own.Reset();
    mailbox.CheckSharingDatabase();
    mailbox.UseSettings(records);
    return mailbox;
}

void Mailbox::CheckSharingDatabase() const
{
    Database database(SharingDatabasePath().string(), Database::Mode::kOpen);
    for (const char* table :
         {"tblItem", "tblStorageFiles", "tblUnfinishedReceiveJob", "tblUnfinishedResendJob"}) {
        Statement find(database, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?");
        if (!find.Bind(1, table).Step())
            Fail("open the sharing database", SharingDatabasePath().string(),
                 std::string("it has no table ") + table);
    }
}

// A mailbox that was moved, or comes from another system, gets its settings here; one process at a time makes
// them.
void Mailbox::UseSettings(Database& records) const
{
    SelectSettings(*this);
    if (AreSettingsMade(*this) && HasProfile(StorePath()))
        return;
    Transaction transaction(records);
    if (!AreSettingsMade(*this))
        MakeSettings(*this);
    if (!HasProfile(StorePath()))
        MakeProfile(StorePath(), name_);
    transaction.Commit();
}

Database Mailbox::OpenSharingDatabase() const
{
    return Database(SharingDatabasePath().string(), Database::Mode::kOpen);
}

std::unique_ptr<FileLock> Mailbox::LockForRun() const
{
    // For longer than another process looks for a run, which takes the lock for an instant.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    for (;;) {
        if (auto lock = LockAtOnce())
            return lock;
        if (std::chrono::steady_clock::now() >= deadline)
            Fail("run the mailbox", directory_.string(), "another run of this mailbox is under way");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool Mailbox::IsInRun() const
{
    try {
        return LockAtOnce() == nullptr;
    } catch (const HostError&) {
        return false;  // where nothing can be written no run can be
    }
}

std::unique_ptr<FileLock> Mailbox::LockAtOnce() const
{
    return FileLock::Take(directory_ / "run.lock", "run the mailbox", directory_.string());
}

}  // namespace quorvane::host
