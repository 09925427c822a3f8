// host/commands/readings.h: what one command tells of a mailbox, for others that tell it too.
#ifndef QUORVANE_HOST_COMMANDS_READINGS_H_
#define QUORVANE_HOST_COMMANDS_READINGS_H_

#include <cstdint>
#include <string>

#include "host/base/errors.h"
#include "host/base/output.h"
#include "host/mailbox/engine_log_file.h"
#include "host/mailbox/mailbox.h"

namespace quorvane::host {

// What `status` prints.
struct StatusReport {
    Json json;
    std::string text;
};

// Throws a HostError where a database can't be read.
StatusReport ReadStatus(const Mailbox& mailbox);

// Shows it, and again whenever it has changed, until it is asked to end.
ExitCode WatchStatus(const std::string& mailbox, bool asJson);

// The latest `most` of them, or all (0), in the order of their times. Throws a HostError where a file can't
// be read.
LogEntries ReadLog(const Mailbox& mailbox, const LogWish& wish, std::size_t most);

// The same as `log` prints them.
Json LogJson(const Mailbox& mailbox, const LogEntries& entries);

// What `conflicts` prints, and `trash`. They throw a HostError where a database can't be read.
Json ReadConflicts(const Mailbox& mailbox);
Json ReadTrash(const Mailbox& mailbox);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_READINGS_H_
