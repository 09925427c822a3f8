// host/commands/command_tables.h: the program's commands and options as CLI11 knows them, for everything that
// is made of them: help, manual pages, completion.
#ifndef QUORVANE_HOST_COMMANDS_COMMAND_TABLES_H_
#define QUORVANE_HOST_COMMANDS_COMMAND_TABLES_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/base/output.h"

namespace quorvane::host {

// Commands that are shown: those of the program, or of a command, in their order.
std::vector<const CLI::App*> ShownCommands(const CLI::App& parent);
// A command's name with those of the commands that it belongs to: "folder make".
std::string CommandName(const CLI::App& command);

// The options of a command that are shown, or (`arguments`) its positional arguments, in their order.
std::vector<const CLI::Option*> ShownOptions(const CLI::App& command, bool arguments);
// Whether a value follows.
bool TakesValue(const CLI::Option& option);
// The values that there are, where they are a few words; else empty.
std::vector<std::string> ChoicesOf(const CLI::Option& option);

// Examples of a command's use, one command line each.
std::vector<std::string> ExamplesOf(const std::string& command);
// What `--help` tells of them; empty where there are none.
std::string ExamplesText(const std::vector<std::string>& examples);

// A manual page of the program or of one of its commands, in roff with the macros of man(7).
std::string ManualPage(const CLI::App& command);

// All commands, as one JSON value.
Json DescribeCommands(const CLI::App& program);

// What may stand in place of the last of `words`, each with what it is, as "word\tdescription"; or one line
// "<files>" or "<directories>" where the shell knows better.
//
// words: those of a command line after the program's name, as a shell has split it; not empty.
std::vector<std::string> CompletionsOf(const CLI::App& program, const std::vector<std::string>& words);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_COMMANDS_COMMAND_TABLES_H_
