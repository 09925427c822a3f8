// host/mailbox/backup.h: a copy of a mailbox that is kept, and a mailbox that is made of one.
//
// A backup is a directory with copies of the three databases as they stood at one moment, of the hash files,
// the trash and the device's keys. Its own list is named host.backup, so that no program takes it for a
// mailbox: one that ran beside the original would be a second device with the same keys. What was on its way
// at that moment isn't in it; a mailbox that is made of it begins a new epoch and compares itself with
// everybody.
#ifndef QUORVANE_HOST_MAILBOX_BACKUP_H_
#define QUORVANE_HOST_MAILBOX_BACKUP_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "host/mailbox/mailbox.h"

namespace quorvane::host {

// How far the copying of one file is, in bytes.
using BackupProgress =
    std::function<void(const std::string& file, unsigned long long done, unsigned long long total)>;

// Makes a backup in a directory that is absent or empty. A run, and other commands, may be at work meanwhile:
// they wait for a moment. A backup that was cut short isn't one. Throws a HostError.
void BackUp(const Mailbox& mailbox, const std::string& directory, const BackupProgress& report);

// Makes a mailbox of a backup, in a directory that is absent or empty; its name. The original must not run
// any more. Throws a HostError.
std::string RestoreBackup(const std::string& backup, const std::string& directory,
                          const BackupProgress& report);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_BACKUP_H_
