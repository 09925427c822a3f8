// What is made of the program's own tables, for packages and shells; hidden from its help.
#include <fstream>

#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/commands/command_tables.h"

namespace quorvane::host {

namespace {

void WritePage(const std::filesystem::path& directory, const CLI::App& command)
{
    const std::string name = command.get_parent() ? "quorvane-" + command.get_name() : "quorvane";
    const std::filesystem::path path = directory / PathOf(name + ".1");
    std::ofstream file(path, std::ios::binary);
    file << ManualPage(command);
    file.close();
    if (!file)
        Fail("write the manual page", path.string(), "its directory isn't there, or there is no room");
}

ExitCode WriteManual(const CLI::App& program, const std::string& directory)
{
    WritePage(PathOf(directory), program);
    for (const CLI::App* const command : ShownCommands(program))
        WritePage(PathOf(directory), *command);
    return ExitCode::kDone;
}

}  // namespace

void AddHiddenCommands(CLI::App& program, Chosen& chosen)
{
    const auto directory = std::make_shared<std::string>();
    CLI::App* const manual = program.add_subcommand("_manual", "Write the manual pages");
    manual->group("");
    manual->add_option("DIR", *directory)->required();
    manual->callback([&program, &chosen, directory] {
        chosen = [&program, directory] { return WriteManual(program, *directory); };
    });

    CLI::App* const commands = program.add_subcommand("_commands", "Describe all commands as JSON");
    commands->group("");
    commands->callback([&program, &chosen] {
        chosen = [&program] {
            Print(true, DescribeCommands(program), {});
            return ExitCode::kDone;
        };
    });
}

}  // namespace quorvane::host
