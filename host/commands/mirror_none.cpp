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

bool HasMirrors()
{
    return false;
}

std::vector<FoundMail> FindMail(const std::filesystem::path&, const std::filesystem::path&)
{
    return {};
}

std::optional<FoundMail> MailIn(const std::filesystem::path&)
{
    return std::nullopt;
}

std::vector<MailTie> TiesOf(const Mailbox&)
{
    return {};
}

void TieFolders(const Mailbox&, const std::vector<MailTie>&) {}

void AddMirrorCommand(CLI::App&, Chosen&) {}

}  // namespace quorvane::host
