#include "host/commands/command.h"
#include "host/commands/mirroring.h"

namespace quorvane::host {

std::unique_ptr<RunPart> MirrorsOfRun(const Mailbox&, const MailSession&, const StopSignals&,
                                      std::function<void(const std::string&)>)
{
    return nullptr;
}

Json MirrorStates(const Mailbox&, std::string&)
{
    return Json::array();
}

void AddMirrorCommand(CLI::App&, Chosen&) {}

}  // namespace quorvane::host
