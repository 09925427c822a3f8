// host/commands/mirroring.h: folders that are tied to Maildirs, in a build that has a library for MIME
// (mail_format.h) and a system on which a file's name may hold a colon. In others there are none.
#ifndef QUORVANE_HOST_COMMANDS_MIRRORING_H_
#define QUORVANE_HOST_COMMANDS_MIRRORING_H_

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/output.h"
#include "host/base/stop_signals.h"
#include "host/mailbox/mailbox.h"
#include "host/service/setup_plan.h"
#include "host/sharing/run_part.h"
#include "host/store/profile.h"

namespace quorvane::host {

// What keeps a mailbox's mirrors in step during a run; null where this build has none. `say` gets its lines.
std::unique_ptr<RunPart> MirrorsOfRun(const Mailbox& mailbox, const MailSession& session,
                                      const StopSignals& signals,
                                      std::function<void(const std::string&)> say);

// The mirrors and how they are, for `status`; lines are added to `text` for those that need a person.
Json MirrorStates(const Mailbox& mailbox, std::string& text);

// Whether this build has any.
bool HasMirrors();

// Maildirs of a place, with the folders that they are to be tied to.
struct FoundMail {
    std::string root;
    std::vector<MailTie> ties;
    std::size_t mails = 0;
};

// Where the user's mail lies by custom, `maildir` (which may be empty) first; and what lies in one directory.
std::vector<FoundMail> FindMail(const std::filesystem::path& home, const std::filesystem::path& maildir);
std::optional<FoundMail> MailIn(const std::filesystem::path& directory);

// What a mailbox has tied; and ties more, all of them or none. Throw a HostError.
std::vector<MailTie> TiesOf(const Mailbox& mailbox);
void TieFolders(const Mailbox& mailbox, const std::vector<MailTie>& ties);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_MIRRORING_H_
