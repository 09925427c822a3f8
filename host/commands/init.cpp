#include "host/command.h"
#include "host/path_text.h"

namespace quorvane::host {

namespace {

struct InitOptions {
    bool json = false;
    std::string mailbox;
    std::string name;
};

ExitCode Init(const InitOptions& options)
{
    const std::string name =
        options.name.empty() ? PathOf(options.mailbox).lexically_normal().filename().string() : options.name;
    const Mailbox mailbox = Mailbox::Create(options.mailbox, name);
    Print(options.json, {{"mailbox", mailbox.Directory().string()}, {"name", mailbox.Name()}},
          "made the mailbox " + mailbox.Directory().string() + " of " + mailbox.Name() + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddInitCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<InitOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "init", "Make a mailbox: message store, sharing database, settings", options, Init);
    command->add_option("MAILBOX", options->mailbox, "Directory to make")->required();
    command->add_option("--name", options->name,
                        "Name under which other members know the mailbox (default: the directory's name)");
}

}  // namespace quorvane::host
