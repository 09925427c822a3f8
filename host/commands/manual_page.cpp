#include <map>

#include "host/commands/command_tables.h"

namespace quorvane::host {

namespace {

// Text as roff takes it: nothing in it is a request or an escape, and hyphens can be pasted.
std::string Roff(const std::string& text)
{
    static const std::map<char, std::string> kEscapes{{'\\', "\\e"},  {'-', "\\-"},   {'\'', "\\(aq"},
                                                      {'~', "\\(ti"}, {'^', "\\(ha"}, {'`', "\\(ga"}};
    std::string roff = text.starts_with('.') ? "\\&" : "";
    for (const char c : text) {
        const auto escape = kEscapes.find(c);
        roff += escape == kEscapes.end() ? std::string(1, c) : escape->second;
    }
    return roff;
}

std::string Bold(const std::string& text)
{
    return "\\fB" + Roff(text) + "\\fR";
}

std::string Italic(const std::string& text)
{
    return "\\fI" + Roff(text) + "\\fR";
}

// What stands for an option's value.
std::string ValueOf(const CLI::Option& option)
{
    const std::vector<std::string> choices = ChoicesOf(option);
    if (choices.empty())
        return Italic(option.get_type_name().starts_with("TEXT") ? "TEXT" : "NUMBER");
    std::string text;
    for (const std::string& choice : choices)
        text += (text.empty() ? "" : "|") + Bold(choice);
    return text;
}

std::string NamesOf(const CLI::Option& option)
{
    std::string names;
    for (const std::string& name : option.get_snames())
        names += (names.empty() ? "" : ", ") + Bold("-" + name);
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "" : ", ") + Bold("--" + name);
    return TakesValue(option) ? names + " " + ValueOf(option) : names;
}

// A positional argument, as a usage line has it.
std::string ArgumentText(const CLI::Option& option)
{
    const std::string name = Italic(option.get_name(true));
    const std::string text = option.get_items_expected_max() > 1 ? name + " ..." : name;
    return option.get_required() ? text : "[" + text + "]";
}

std::string Synopsis(const CLI::App& command)
{
    std::string line = Bold("quorvane" + (command.get_parent() ? " " + CommandName(command) : ""));
    if (!command.get_parent() || command.get_require_subcommand_min() > 0)
        line += " " + Italic("COMMAND");
    for (const CLI::Option* const option : ShownOptions(command, true))
        line += " " + ArgumentText(*option);
    return line + " [" + Italic("OPTION") + " ...]\n";
}

std::string Sentence(const std::string& text)
{
    return text.empty() || text.ends_with('.') ? text : text + ".";
}

std::string Entry(const std::string& head, const std::string& text)
{
    return ".TP\n" + head + "\n" + Roff(Sentence(text)) + "\n";
}

std::string OptionEntries(const CLI::App& command, bool arguments)
{
    std::string entries;
    for (const CLI::Option* const option : ShownOptions(command, arguments)) {
        std::string text = Sentence(option->get_description());
        if (!option->get_default_str().empty())
            text += " Without it: " + option->get_default_str() + ".";
        entries += Entry(arguments ? Italic(option->get_name(true)) : NamesOf(*option), text);
    }
    return entries;
}

std::string Section(const std::string& name, const std::string& body)
{
    return body.empty() ? std::string() : ".SH " + name + "\n" + body;
}

std::string Examples(const CLI::App& command)
{
    std::string body;
    for (const std::string& example : ExamplesOf(CommandName(command)))
        body += (body.empty() ? ".nf\n" : "") + Roff(example) + "\n";
    return body.empty() ? body : body + ".fi\n";
}

// The commands of a command, each with all that it takes: they have no pages of their own.
std::string PartSections(const CLI::App& command)
{
    std::string body;
    for (const CLI::App* const part : ShownCommands(command)) {
        body += ".SS \"quorvane " + Roff(CommandName(*part)) + "\"\n" + Synopsis(*part) + ".PP\n" +
                Roff(Sentence(part->get_description())) + "\n" + OptionEntries(*part, true) +
                OptionEntries(*part, false);
        if (const std::string examples = Examples(*part); !examples.empty())
            body += ".PP\nExamples:\n.PP\n" + examples;
    }
    return body;
}

// The program's commands, each with its page.
std::string CommandList(const CLI::App& program)
{
    std::string body, group;
    for (const CLI::App* const command : ShownCommands(program)) {
        if (group != command->get_group())
            body += ".SS \"" + Roff(group = command->get_group()) + "\"\n";
        body += Entry(Bold("quorvane-" + command->get_name()) + "(1)", command->get_description());
    }
    return body;
}

std::string SeeAlso(const CLI::App& command)
{
    return command.get_parent() ? Bold("quorvane") + "(1)\n" : std::string();
}

constexpr char kExitStatus[] =
    ".TP\n0\nDone.\n.TP\n1\nIt failed, or what was compared differs.\n.TP\n2\nWrong usage.\n.TP\n3\nThe answer "
    "isn\\(aqt known yet.\n";

}  // namespace

std::string ManualPage(const CLI::App& command)
{
    const bool isProgram = command.get_parent() == nullptr;
    const std::string name = isProgram ? "quorvane" : "quorvane-" + command.get_name();
    const std::string parts = isProgram ? CommandList(command) : PartSections(command);
    return ".TH \"" + Roff(CLI::detail::to_lower(name)) +
           "\" 1 \"\" \"quorvane " QUORVANE_VERSION "\" \"User Commands\"\n" +
           Section("NAME", Roff(name) + " \\- " + Roff(command.get_description()) + "\n") +
           Section("SYNOPSIS", Synopsis(command)) +
           Section("DESCRIPTION", Roff(Sentence(command.get_description())) + "\n") +
           Section("ARGUMENTS", OptionEntries(command, true)) +
           Section("OPTIONS", OptionEntries(command, false)) + Section("COMMANDS", parts) +
           Section("EXAMPLES", Examples(command)) + Section("EXIT STATUS", kExitStatus) +
           Section("SEE ALSO", SeeAlso(command));
}

}  // namespace quorvane::host
