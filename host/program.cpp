#include "host/program.h"

#include <cstdio>
#include <new>

#include "host/command.h"
#include "host/sharing_rows.h"

namespace quorvane::host {

namespace {

void PrintError(const std::string& line)
{
    std::fprintf(stderr, "quorvane: %s\n", Printable(line).c_str());
}

void AddCommands(CLI::App& program, Chosen& chosen)
{
    AddInitCommand(program, chosen);
    AddImportCommand(program, chosen);
    AddExportCommand(program, chosen);
    AddListCommand(program, chosen);
    AddShowCommand(program, chosen);
    AddShareCommand(program, chosen);
    AddResendCommand(program, chosen);
    AddCancelCommand(program, chosen);
    AddRunCommand(program, chosen);
    AddEditCommand(program, chosen);
    AddMoveCommand(program, chosen);
    AddDeleteCommand(program, chosen);
    AddCompareCommand(program, chosen);
    AddStatusCommand(program, chosen);
    AddInspectCommand(program, chosen);
}

// Runs the chosen work; every failure becomes one line on standard error.
ExitCode Work(const Chosen& chosen)
{
    try {
        return chosen();
    } catch (const HostError& error) {
        PrintError(error.what());
        return error.Code();
    } catch (const std::bad_alloc&) {
        PrintError("out of memory");
    } catch (const std::exception& error) {
        PrintError(error.what());
    }
    return ExitCode::kFailed;
}

}  // namespace

int RunProgram(int argc, const char* const* argv)
{
    CLI::App program{
        "Shares mail folders between mailboxes through a directory that every member can reach."};
    program.name("quorvane");
    program.require_subcommand(1);
    // An argument that begins with a slash is a path, on Windows too.
    program.allow_windows_style_options(false);
    program.footer("Exit codes: 0 done, 1 it failed or differs, 2 wrong usage.");
    Chosen chosen;
    AddCommands(program, chosen);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return program.exit(success);
    } catch (const CLI::ParseError& error) {
        PrintError(std::string(error.what()) + " (see 'quorvane --help')");
        return static_cast<int>(ExitCode::kUsage);
    }
    return static_cast<int>(Work(chosen));
}

std::string FindItem(const Mailbox& mailbox, IMAPIFolder& folder, const std::string& name)
{
    const bool isNumber =
        !name.empty() && name.size() < 10 && name.find_first_not_of("0123456789") == std::string::npos;
    const std::size_t wanted = isNumber ? std::stoul(name) : 0;
    const auto rows = ReadSharingRows(mailbox);
    std::string found;
    std::size_t number = 0;
    ForEachItem(folder, [&](const ItemInfo& item) {
        ++number;
        const auto row = rows.find(item.entryId);
        if (isNumber ? number == wanted
                     : item.entryId == name || (row != rows.end() && row->second.id == name))
            found = item.entryId;
    });
    if (found.empty())
        Fail("find the item", name, "the folder has no such item");
    return found;
}

}  // namespace quorvane::host
