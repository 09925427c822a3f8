// host/commands/command.h: what every command of the program shares.
#ifndef QUORVANE_HOST_COMMANDS_COMMAND_H_
#define QUORVANE_HOST_COMMANDS_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

#include "host/base/errors.h"
#include "host/base/output.h"
#include "host/mailbox/mailbox.h"
#include "host/mailbox/records.h"
#include "host/store/folders.h"
#include "host/store/profile.h"

namespace quorvane::host {

// The command that the command line chose, run after the whole line was understood.
using Chosen = std::function<ExitCode()>;

// Each adds its command to the program; when it is chosen, `chosen` gets its work.
void AddInitCommand(CLI::App& program, Chosen& chosen);
void AddSetupCommand(CLI::App& program, Chosen& chosen);
void AddListCommand(CLI::App& program, Chosen& chosen);
void AddFolderCommand(CLI::App& program, Chosen& chosen);
void AddImportCommand(CLI::App& program, Chosen& chosen);
void AddExportCommand(CLI::App& program, Chosen& chosen);
void AddEditCommand(CLI::App& program, Chosen& chosen);
void AddMoveCommand(CLI::App& program, Chosen& chosen);
void AddDeleteCommand(CLI::App& program, Chosen& chosen);
void AddShowCommand(CLI::App& program, Chosen& chosen);
void AddMembersCommand(CLI::App& program, Chosen& chosen);
void AddShareCommand(CLI::App& program, Chosen& chosen);
void AddInvitationsCommand(CLI::App& program, Chosen& chosen);
void AddAcceptCommand(CLI::App& program, Chosen& chosen);
void AddDeclineCommand(CLI::App& program, Chosen& chosen);
void AddLeaveCommand(CLI::App& program, Chosen& chosen);
void AddUnshareCommand(CLI::App& program, Chosen& chosen);
void AddResendCommand(CLI::App& program, Chosen& chosen);
void AddCancelCommand(CLI::App& program, Chosen& chosen);
void AddMirrorCommand(CLI::App& program, Chosen& chosen);
void AddRunCommand(CLI::App& program, Chosen& chosen);
void AddCompareCommand(CLI::App& program, Chosen& chosen);
void AddConflictsCommand(CLI::App& program, Chosen& chosen);
void AddTrashCommand(CLI::App& program, Chosen& chosen);
void AddUndeleteCommand(CLI::App& program, Chosen& chosen);
void AddCheckCommand(CLI::App& program, Chosen& chosen);
void AddDoctorCommand(CLI::App& program, Chosen& chosen);
void AddVerifyCommand(CLI::App& program, Chosen& chosen);
void AddBackupCommand(CLI::App& program, Chosen& chosen);
void AddRestoreCommand(CLI::App& program, Chosen& chosen);
void AddStatusCommand(CLI::App& program, Chosen& chosen);
void AddInspectCommand(CLI::App& program, Chosen& chosen);
void AddLogCommand(CLI::App& program, Chosen& chosen);
void AddReportCommand(CLI::App& program, Chosen& chosen);
// Those that packages and shells use: manual pages and completion.
void AddHiddenCommands(CLI::App& program, Chosen& chosen);

// The arguments of a command, shared between its parser and its work. Adds `--json` and makes `work(options)`
// the chosen work; the command's own arguments are added to the returned parser by the caller.
template <class Options>
CLI::App* AddCommand(CLI::App& program, Chosen& chosen, const char* name, const char* help,
                     std::shared_ptr<Options> options, ExitCode (*work)(const Options&))
{
    CLI::App* const command = program.add_subcommand(name, help);
    command->add_flag("--json", options->json, "Print one JSON value instead of text");
    command->fallthrough();  // to the options that all commands have
    command->callback([&chosen, options, work] { chosen = [options, work] { return work(*options); }; });
    return command;
}

// Lays the mailbox's card in an exchange, which is remembered: others find the device there from now on.
// Throws a HostError.
void ShowInExchange(const Mailbox& mailbox, const std::string& exchange, const std::string& exchangeMode);

// `--exchange-mode`, for ChooseExchangeMode (host/sharing/pinning.h).
CLI::Option* AddExchangeMode(CLI::App& command, std::string& mode);

// The share of a folder that is named by its path. Throws a HostError when it isn't shared.
Share FindSharedFolder(Records& records, const std::string& mailbox, const std::string& folder);

// The time that a user named, as "2026-11-21" or "2026-11-21T06:16:47Z", as a FILETIME; 0 for an empty text.
// Throws a HostError for any other text.
std::uint64_t TimeNamed(const std::string& text);

// The entry identifier of an item of `folder` that a user named: by its sharing ID, its entry identifier, or
// its number in `list`. Throws a HostError.
std::string FindItem(const Mailbox& mailbox, IMAPIFolder& folder, const std::string& name);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_COMMAND_H_
