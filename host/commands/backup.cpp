#include "host/mailbox/backup.h"

#include "host/base/progress.h"
#include "host/commands/command.h"

namespace quorvane::host {

namespace {

struct BackupOptions {
    bool json = false;
    std::string from;
    std::string to;
};

BackupProgress ShownOn(Progress& progress)
{
    return [&progress](const std::string& file, unsigned long long done, unsigned long long total) {
        progress.Show(done, total, file);
    };
}

ExitCode MakeBackup(const BackupOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.from);
    Progress progress("backing up", Progress::Unit::kBytes);
    BackUp(mailbox, options.to, ShownOn(progress));
    PrintSentences(options.json, {{"mailbox", mailbox.Name()}, {"backup", options.to}},
                   "backed up '" + mailbox.Name() + "' to " + options.to + "\n");
    return ExitCode::kDone;
}

ExitCode Restore(const BackupOptions& options)
{
    Progress progress("restoring", Progress::Unit::kBytes);
    const std::string name = RestoreBackup(options.from, options.to, ShownOn(progress));
    PrintSentences(options.json, {{"mailbox", name}, {"directory", options.to}},
                   "made the mailbox of '" + name + "' in " + options.to +
                       "; the one that the backup was made of must not run any "
                       "more\n");
    return ExitCode::kDone;
}

}  // namespace

void AddBackupCommand(CLI::App& program, Chosen& chosen)
{
    const auto options = std::make_shared<BackupOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "backup", "Copy a mailbox as it stands, while a run may be under way",
                   options, MakeBackup);
    command->add_option("MAILBOX", options->from, "The mailbox's directory")->required();
    command->add_option("DIR", options->to, "Directory for the backup; absent or empty")->required();
}

void AddRestoreCommand(CLI::App& program, Chosen& chosen)
{
    const auto options = std::make_shared<BackupOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "restore", "Make a mailbox of a backup", options, Restore);
    command->add_option("BACKUP", options->from, "The backup's directory")->required();
    command->add_option("MAILBOX", options->to, "Directory for the mailbox; absent or empty")->required();
}

}  // namespace quorvane::host
