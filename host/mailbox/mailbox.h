// host/mailbox/mailbox.h: a mailbox: a directory with a message store, a sharing database and its settings.
//
//     store.sqlite    the message store
//     sharing.db      the sharing database, which the engine works on
//     host.db         the program's own records: name, shares, members, transport
//     device.key      the seed of the device's keys
//     settings/       the per-user settings of the engine and the MAPI profile of this mailbox (on Windows in
//     the
//                     registry)
//     packages/       storage files that wait for delivery
//     inbox/          received storage files that the engine works off
//     logs/           the engine's trace log
//
// docs/mailbox.md tells the formats.
#ifndef QUORVANE_HOST_MAILBOX_MAILBOX_H_
#define QUORVANE_HOST_MAILBOX_MAILBOX_H_

#include <filesystem>
#include <memory>
#include <string>

#include "host/base/file_lock.h"
#include "host/base/sqlite.h"
#include "host/exchange/member_name.h"
#include "quorvane3/com.h"

namespace quorvane::host {

class Mailbox {
public:
    // Makes a new mailbox in a directory that is absent or empty, or in which making one was cut short.
    // Throws a HostError.
    static Mailbox Create(const std::string& directory, const std::string& name);

    // Opens an existing one and points the process's settings, temporary files and MAPI profile to it:
    // one mailbox at a time a process. Throws a HostError.
    static Mailbox Open(const std::string& directory);

    // Whether the directory is a mailbox: one was made there, to the end.
    static bool IsThere(const std::string& directory);
    bool IsThere() const;

    const std::filesystem::path& Directory() const noexcept { return directory_; }
    std::filesystem::path StorePath() const { return directory_ / "store.sqlite"; }
    std::filesystem::path SharingDatabasePath() const { return directory_ / "sharing.db"; }
    std::filesystem::path HostDatabasePath() const { return directory_ / "host.db"; }
    std::filesystem::path KeyPath() const { return directory_ / "device.key"; }
    std::filesystem::path SettingsPath() const { return directory_ / "settings"; }
    std::filesystem::path PackagesPath() const { return directory_ / "packages"; }
    std::filesystem::path InboxPath() const { return directory_ / "inbox"; }
    // The engine's hash file of a shared folder.
    std::filesystem::path HashFilePath(const std::string& folderId) const
    {
        return directory_ / "qvdata" / "sharing" / (folderId + ".dat");
    }
    std::filesystem::path LogPath() const { return directory_ / "logs" / "quorvane3.log"; }

    // The name under which other members know this mailbox.
    const std::string& Name() const noexcept { return name_; }
    // Tells it from an earlier or later mailbox of that name.
    const std::string& Instance() const noexcept { return instance_; }
    // The id of the device that it is in the exchange.
    const std::string& Device() const noexcept { return device_; }
    // A connection of the caller's to the sharing database. Throws a HostError.
    Database OpenSharingDatabase() const;

    // Keeps other runs of this mailbox out for as long as the result lives. Throws a HostError when one is
    // under way.
    std::unique_ptr<FileLock> LockForRun() const;
    // Whether a run of this mailbox is under way.
    bool IsInRun() const;

private:
    explicit Mailbox(const std::string& directory);
    std::unique_ptr<FileLock> LockAtOnce() const;
    void UseSettings(Database& records) const;
    void CheckSharingDatabase() const;

    std::filesystem::path directory_;
    std::string name_;
    std::string instance_;
    std::string device_;
};

// The product code under which the program keeps its engine settings apart from other hosts'.
inline constexpr OLECHAR kProductCode[] = OLESTR("quorvane-host");

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_MAILBOX_H_
