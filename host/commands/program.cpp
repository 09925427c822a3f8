#include "host/commands/program.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <numeric>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/progress.h"
#include "host/base/terminal.h"
#include "host/commands/command.h"
#include "host/commands/command_tables.h"
#include "host/mailbox/sharing_rows.h"
#include "host/sharing/since.h"

namespace quorvane::host {

namespace {

// Failures are one line on standard error: for people, or one JSON value for programs.
class ErrorLine {
public:
    ErrorLine(int argc, const char* const* argv)
        : asJson_(std::find(argv, argv + argc, std::string_view("--json")) != argv + argc)
    {}

    ExitCode Print(const std::string& line, ExitCode code) const
    {
        const Json value = {{"error", line}, {"exitCode", static_cast<int>(code)}};
        if (asJson_)
            std::fprintf(stderr, "%s\n", value.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
        else
            Tell("quorvane: " + line);
        return code;
    }

private:
    bool asJson_;
};

// How many letters must be put in, left out or replaced to make one word of another.
std::size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// What is wrong with a word that stands in a command's place; the nearest command, if one is near.
std::string UnknownCommand(const CLI::App& program, const std::string& word)
{
    std::string nearest;
    std::size_t least = word.size() / 2 + 1;
    for (const CLI::App* const command : ShownCommands(program)) {
        const std::size_t distance = Distance(word, command->get_name());
        if (distance >= least)
            continue;
        least = distance;
        nearest = command->get_name();
    }
    const std::string line = "there is no command '" + word + "'";
    return nearest.empty() ? line : line + "; did you mean '" + nearest + "'?";
}

// The line for a command line that CLI11 refused.
std::string UsageLine(const CLI::App& program, int argc, const char* const* argv,
                      const CLI::ParseError& error)
{
    const std::string first = argc > 1 ? argv[1] : "";
    const auto isFirst = [&](const CLI::App* command) { return command->get_name() == first; };
    const std::vector<const CLI::App*> commands = program.get_subcommands({});
    const bool isUnknown =
        !first.empty() && first.front() != '-' && std::none_of(commands.begin(), commands.end(), isFirst);
    const std::string line = isUnknown ? UnknownCommand(program, first) : std::string(error.what());
    return line + " (see 'quorvane --help')";
}

// Lines as wide as the terminal, or 80 columns; what tells of a command or an option stays behind its name.
// Examples are copied, and aren't parted.
class FoldedHelp final : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        constexpr std::size_t kElsewhere = 80;
        const std::size_t width = OutputWidth() > 0 ? OutputWidth() : kElsewhere;
        std::string help;
        std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
        for (std::string line; std::getline(lines, line);)
            help += (line.starts_with("  quorvane ") ? line : Folded(line, width, IndentOf(line))) + "\n";
        return help;
    }

private:
    // Where the text of its first line stands.
    std::size_t IndentOf(const std::string& line) const
    {
        const std::size_t column = get_column_width();
        const bool isBehindAName =
            line.size() > column && line[column - 1] == ' ' && line[column] != ' ' && line.starts_with("  ");
        return isBehindAName ? column : std::min(line.find_first_not_of(' '), line.size());
    }
};

using AddOneCommand = void (*)(CLI::App& program, Chosen& chosen);

struct CommandGroup {
    const char* name;
    std::vector<AddOneCommand> commands;
};

// As --help lists them.
const CommandGroup kGroups[] = {
    {"A mailbox",
     {AddSetupCommand, AddInitCommand, AddRunCommand, AddStatusCommand, AddDoctorCommand, AddCheckCommand,
      AddBackupCommand, AddRestoreCommand}},
    {"Its mail",
     {AddFolderCommand, AddImportCommand, AddExportCommand, AddListCommand, AddShowCommand, AddEditCommand,
      AddMoveCommand, AddDeleteCommand, AddTrashCommand, AddUndeleteCommand, AddMirrorCommand}},
    {"Sharing folders",
     {AddMembersCommand, AddShareCommand, AddInvitationsCommand, AddAcceptCommand, AddDeclineCommand,
      AddLeaveCommand, AddUnshareCommand, AddResendCommand, AddCancelCommand, AddConflictsCommand,
      AddVerifyCommand}},
    {"A closer look", {AddReportCommand, AddLogCommand, AddCompareCommand, AddInspectCommand}},
};

void AddCommands(CLI::App& program, Chosen& chosen)
{
    for (const CommandGroup& group : kGroups)
        for (const AddOneCommand add : group.commands) {
            add(program, chosen);
            program.get_subcommands({}).back()->group(group.name);
        }
}

Colours ColoursOf(const std::string& when)
{
    if (when == "always")
        return Colours::kAlways;
    return when == "never" ? Colours::kNever : Colours::kAuto;
}

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 it failed or differs, 2 wrong usage, 3 it isn't known yet.";
// "_complete -- WORDS...": for shells. The words are those of another command line, and none of this one.
constexpr std::string_view kComplete = "_complete";

int PrintCompletions(const CLI::App& program, int argc, const char* const* argv)
{
    std::vector<std::string> words(argv + std::min(argc, 3), argv + argc);
    if (words.empty())
        words.emplace_back();
    for (const std::string& line : CompletionsOf(program, words))
        std::printf("%s\n", line.c_str());
    return static_cast<int>(ExitCode::kDone);
}

constexpr char kOneCommand[] = "\n'quorvane COMMAND --help' tells of one command.\n";

// A command's examples stand in its help, above what all have.
void AddExamples(CLI::App& parent)
{
    for (CLI::App* const command : parent.get_subcommands({})) {
        const std::string examples = ExamplesText(ExamplesOf(CommandName(*command)));
        command->footer((examples.empty() ? "" : examples + "\n") + kExitCodes);
        AddExamples(*command);
    }
}

// Runs the chosen work; every failure becomes one line on standard error.
ExitCode Work(const Chosen& chosen, const ErrorLine& errors)
{
    try {
        return chosen();
    } catch (const HostError& error) {
        return errors.Print(error.what(), error.Code());
    } catch (const std::bad_alloc&) {
        return errors.Print("out of memory", ExitCode::kFailed);
    } catch (const std::exception& error) {
        return errors.Print(error.what(), ExitCode::kFailed);
    }
}

}  // namespace

int RunProgram(int argc, const char* const* argv)
{
    CLI::App program{
        "Shares mail folders between mailboxes through a directory that every member can reach."};
    program.name("quorvane");
    program.formatter(std::make_shared<FoldedHelp>());
    program.require_subcommand(1);
    // An argument that begins with a slash is a path, on Windows too.
    program.allow_windows_style_options(false);
    program.set_version_flag("--version", "quorvane " QUORVANE_VERSION);
    program
        .add_option_function<std::string>(
            "--color", [](const std::string& when) { ChooseColours(ColoursOf(when)); },
            "Colours: on a terminal (auto), always or never; NO_COLOR is heeded")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    const ErrorLine errors(argc, argv);
    Chosen chosen;
    AddCommands(program, chosen);
    AddHiddenCommands(program, chosen);
    AddExamples(program);
    program.footer(ExamplesText(ExamplesOf({})) + kOneCommand + kExitCodes);
    if (argc > 1 && argv[1] == kComplete)
        return PrintCompletions(program, argc, argv);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return program.exit(success);
    } catch (const CLI::ParseError& error) {
        return static_cast<int>(errors.Print(UsageLine(program, argc, argv, error), ExitCode::kUsage));
    }
    return static_cast<int>(Work(chosen, errors));
}

std::uint64_t TimeNamed(const std::string& text)
{
    if (text.empty())
        return 0;
    const auto time = ParseTime(text);
    if (!time)
        throw HostError("cannot read '" + text + "' as a date: give 2026-11-21 or 2026-11-21T06:16:47Z",
                        ExitCode::kUsage);
    return *time;
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
