#include "host/commands/command_tables.h"

namespace quorvane::host {

namespace {

// Under CLI11 a group without a name is hidden.
bool IsShown(const std::string& group)
{
    return !group.empty();
}

Json JsonOf(const CLI::Option& option)
{
    Json names = Json::array();
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return {{"names", names},
            {"argument", option.get_positional() ? option.get_name(true) : std::string()},
            {"takesValue", TakesValue(option)},
            {"choices", ChoicesOf(option)},
            {"help", option.get_description()}};
}

Json JsonOf(const CLI::App& command)
{
    Json options = Json::array();
    for (const bool arguments : {true, false})
        for (const CLI::Option* const option : ShownOptions(command, arguments))
            options.push_back(JsonOf(*option));
    return {{"command", CommandName(command)},
            {"help", command.get_description()},
            {"needsCommand", command.get_require_subcommand_min() > 0},
            {"options", options},
            {"examples", ExamplesOf(CommandName(command))}};
}

void AddTo(Json& json, const CLI::App& parent)
{
    for (const CLI::App* const command : ShownCommands(parent)) {
        json.push_back(JsonOf(*command));
        AddTo(json, *command);
    }
}

}  // namespace

std::vector<const CLI::App*> ShownCommands(const CLI::App& parent)
{
    return parent.get_subcommands([](const CLI::App* command) { return IsShown(command->get_group()); });
}

std::string CommandName(const CLI::App& command)
{
    const CLI::App* const parent = command.get_parent();
    if (!parent)
        return {};
    const std::string before = CommandName(*parent);
    return (before.empty() ? "" : before + " ") + command.get_name();
}

std::vector<const CLI::Option*> ShownOptions(const CLI::App& command, bool arguments)
{
    return command.get_options([&](const CLI::Option* option) {
        return IsShown(option->get_group()) && option->get_positional() == arguments;
    });
}

bool TakesValue(const CLI::Option& option)
{
    return option.get_items_expected_max() > 0;
}

// CLI11 tells them in the type's name, as "TEXT:{eml,msg}".
std::vector<std::string> ChoicesOf(const CLI::Option& option)
{
    const std::string type = option.get_type_name();
    const std::size_t begin = type.find('{'), end = type.find('}');
    if (begin == std::string::npos || end == std::string::npos)
        return {};
    return CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
}

std::string ExamplesText(const std::vector<std::string>& examples)
{
    std::string text;
    for (const std::string& example : examples)
        text += (text.empty() ? "Examples:\n  " : "  ") + example + "\n";
    return text;
}

Json DescribeCommands(const CLI::App& program)
{
    Json json = Json::array();
    json.push_back(JsonOf(program));
    AddTo(json, program);
    return json;
}

}  // namespace quorvane::host
