// host/commands/mirroring.h: folders that are tied to Maildirs, in a build that has a library for MIME
// (mail_format.h) and a system on which a file's name may hold a colon. In others there are none.
#ifndef QUORVANE_HOST_COMMANDS_MIRRORING_H_
#define QUORVANE_HOST_COMMANDS_MIRRORING_H_

#include <functional>
#include <memory>
#include <string>

#include "host/base/output.h"
#include "host/base/stop_signals.h"
#include "host/mailbox/mailbox.h"
#include "host/sharing/run_part.h"
#include "host/store/profile.h"

namespace quorvane::host {

// What keeps a mailbox's mirrors in step during a run; null where this build has none. `say` gets its lines.
std::unique_ptr<RunPart> MirrorsOfRun(const Mailbox& mailbox, const MailSession& session,
                                      const StopSignals& signals,
                                      std::function<void(const std::string&)> say);

// The mirrors and how they are, for `status`; lines are added to `text` for those that need a person.
Json MirrorStates(const Mailbox& mailbox, std::string& text);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_MIRRORING_H_
