#include "host/mailbox.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "host/errors.h"
#include "host/profile.h"
#include "host/records.h"
#include "host/sharing_schema.h"

namespace quorvane::host {

namespace {

constexpr int kRecordsVersion = 1;

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

std::string EscapedForReg(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\\' || c == '"')
            result += '\\';
        result += c;
    }
    return result;
}

void WriteSettings(const Mailbox& mailbox)
{
    const std::filesystem::path directory = mailbox.SettingsPath() / "quorvane3";
    MakeDirectory(directory);
    std::string product = ToUtf8(OleStringView(kProductCode));
    WriteDurably(directory / "registry.reg",
                 "Windows Registry Editor Version 5.00\r\n\r\n"
                 "[HKEY_CURRENT_USER\\Software\\Brindlemoor\\Quorvane\\1.0\\" +
                     product + "\\Settings]\r\n\"Logs\"=\"" + EscapedForReg(mailbox.LogPath().string()) +
                     "\"\r\n");
}

bool IsAbsentOrEmpty(const std::filesystem::path& directory)
{
    std::error_code error;
    if (!std::filesystem::exists(directory, error))
        return true;
    return std::filesystem::is_directory(directory, error) && std::filesystem::is_empty(directory, error) &&
           !error;
}

}  // namespace

bool IsMemberName(std::string_view name) noexcept
{
    constexpr std::size_t kLongest = 64;
    const auto allowed = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '-' || c == '_' || c == '@';
    };
    return !name.empty() && name.size() <= kLongest && name[0] != '.' &&
           std::all_of(name.begin(), name.end(), allowed);
}

Mailbox Mailbox::Create(const std::filesystem::path& directory, const std::string& name)
{
    std::error_code error;
    Mailbox mailbox(std::filesystem::absolute(directory, error).lexically_normal());
    const std::string shown = directory.string();
    if (!IsMemberName(name))
        throw HostError("cannot make the mailbox '" + shown + "': '" + name +
                            "' is no member name (letters, digits, '.', '-', '_' and '@', at most 64)",
                        ExitCode::kUsage);
    if (!IsAbsentOrEmpty(mailbox.directory_))
        Fail("make the mailbox", shown, "the directory exists and is not empty");
    for (const auto& part : {mailbox.PackagesPath(), mailbox.InboxPath(), mailbox.LogPath().parent_path()})
        MakeDirectory(part);
    WriteSettings(mailbox);

    Database(mailbox.SharingDatabasePath().string(), Database::Mode::kCreate).Execute(kSharingSchema);
    mailbox.UseInProcess();
    CreateProfile(mailbox.StorePath().string(), name);

    // Last: a directory with this file in it is a mailbox.
    Database records(mailbox.HostDatabasePath().string(), Database::Mode::kCreate);
    Transaction transaction(records);
    Records::CreateTables(records, name, NewInstance());
    records.Execute("PRAGMA user_version = " + std::to_string(kRecordsVersion));
    transaction.Commit();
    mailbox.name_ = name;
    return mailbox;
}

Mailbox Mailbox::Open(const std::filesystem::path& directory)
{
    std::error_code error;
    Mailbox mailbox(std::filesystem::absolute(directory, error).lexically_normal());
    const std::string shown = directory.string();
    if (!std::filesystem::is_directory(mailbox.directory_, error))
        Fail("open the mailbox", shown, "no such directory");
    if (!std::filesystem::exists(mailbox.HostDatabasePath(), error))
        Fail("open the mailbox", shown, "the directory is no mailbox (make one with 'quorvane init')");
    Database records(mailbox.HostDatabasePath().string(), Database::Mode::kOpen);
    Statement version(records, "PRAGMA user_version");
    if (!version.Step() || version.Number(0) != kRecordsVersion)
        Fail("open the mailbox", shown, "host.db is of a version that this program doesn't know");
    Statement own(records, "SELECT name, instance FROM mailbox");
    if (!own.Step())
        Fail("open the mailbox", shown, "host.db holds no name");
    mailbox.name_ = own.Text(0);
    mailbox.instance_ = own.Text(1);
    mailbox.CheckSharingDatabase();
    mailbox.UseInProcess();
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

void Mailbox::UseInProcess() const
{
    // The engine and MAPI take the per-user settings, the temporary folder and the local application data
    // from the environment at each use.
    setenv("XDG_CONFIG_HOME", SettingsPath().c_str(), 1);
    setenv("XDG_DATA_HOME", (directory_ / "logs").c_str(), 1);
    setenv("TMPDIR", PackagesPath().c_str(), 1);
}

Database Mailbox::OpenSharingDatabase() const
{
    return Database(SharingDatabasePath().string(), Database::Mode::kOpen);
}

std::unique_ptr<FileLock> Mailbox::LockForRun() const
{
    return std::make_unique<FileLock>(directory_ / "run.lock", "run the mailbox", directory_.string());
}

}  // namespace quorvane::host
