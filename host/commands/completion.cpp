#include <cstdlib>
#include <map>

#include "host/base/path_text.h"
#include "host/commands/command_tables.h"
#include "host/mailbox/mailbox.h"
#include "host/store/folders.h"
#include "host/store/profile.h"

namespace quorvane::host {

namespace {

constexpr char kFiles[] = "<files>";
constexpr char kDirectories[] = "<directories>";

// What a word stands for, by the name that the tables give it.
enum class Meaning { kOther, kFile, kDirectory, kFolder };

Meaning MeaningOf(const std::string& name)
{
    static const std::map<std::string, Meaning> kMeanings{{"MAILBOX", Meaning::kDirectory},
                                                          {"MAILBOX2", Meaning::kDirectory},
                                                          {"BACKUP", Meaning::kDirectory},
                                                          {"DIR", Meaning::kDirectory},
                                                          {"MAILDIR", Meaning::kDirectory},
                                                          {"--mailbox", Meaning::kDirectory},
                                                          {"--exchange", Meaning::kDirectory},
                                                          {"PATH", Meaning::kFile},
                                                          {"FILE", Meaning::kFile},
                                                          {"FOLDER", Meaning::kFolder},
                                                          {"TARGET", Meaning::kFolder},
                                                          {"PARENT", Meaning::kFolder},
                                                          {"--into", Meaning::kFolder}};
    const auto found = kMeanings.find(name);
    return found == kMeanings.end() ? Meaning::kOther : found->second;
}

// How far a command line has come.
class Position {
public:
    explicit Position(const CLI::App& program) : command_(&program) {}

    void Take(const std::string& word)
    {
        if (awaiting_) {
            awaiting_ = nullptr;
        } else if (word.starts_with('-') && word != "-") {
            const CLI::Option* const option = FindOption(word);
            awaiting_ = option && TakesValue(*option) ? option : nullptr;
        } else if (const CLI::App* const command = FindCommand(word)) {
            command_ = command;
        } else {
            arguments_.push_back(word);
        }
    }
    const CLI::App& Command() const noexcept { return *command_; }
    // The option whose value comes next; null for none.
    const CLI::Option* Awaiting() const noexcept { return awaiting_; }
    const std::vector<std::string>& Arguments() const noexcept { return arguments_; }
    // The positional argument that comes next; null when all were given.
    const CLI::Option* NextArgument() const
    {
        const auto arguments = ShownOptions(*command_, true);
        if (arguments_.size() < arguments.size())
            return arguments[arguments_.size()];
        const bool goesOn = !arguments.empty() && arguments.back()->get_items_expected_max() > 1;
        return goesOn ? arguments.back() : nullptr;
    }

private:
    const CLI::Option* FindOption(const std::string& word) const
    {
        for (const CLI::App* command = command_; command; command = command->get_parent())
            for (const CLI::Option* const option : ShownOptions(*command, false))
                if (option->check_name(word))
                    return option;
        return nullptr;
    }
    // A command stands before all arguments.
    const CLI::App* FindCommand(const std::string& word) const
    {
        if (arguments_.empty())
            for (const CLI::App* const command : ShownCommands(*command_))
                if (command->get_name() == word)
                    return command;
        return nullptr;
    }

    const CLI::App* command_;
    const CLI::Option* awaiting_ = nullptr;
    std::vector<std::string> arguments_;
};

class Candidates {
public:
    explicit Candidates(std::string begun) : begun_(std::move(begun)) {}

    void Add(const std::string& word, const std::string& help = {})
    {
        if (word.starts_with(begun_))
            lines_.push_back(Printable(word) + "\t" + Printable(help));
    }
    void AddOptions(const CLI::App& command)
    {
        for (const CLI::Option* const option : ShownOptions(command, false))
            for (const std::string& name : option->get_lnames())
                Add("--" + name, option->get_description());
        if (command.get_fallthrough() && command.get_parent())
            for (const CLI::Option* const option : ShownOptions(*command.get_parent(), false))
                for (const std::string& name : option->get_lnames())
                    if (name != "help")
                        Add("--" + name, option->get_description());
    }
    void AddCommands(const CLI::App& command)
    {
        for (const CLI::App* const part : ShownCommands(command))
            Add(part->get_name(), part->get_description());
    }
    void AddFolders(const std::string& mailbox)
    {
        try {
            const Mailbox opened = Mailbox::Open(mailbox);
            const MailSession session(mailbox);
            for (const FolderInfo& folder : ListFolders(session))
                Add(folder.path, Counted(folder.items, "item"));
        } catch (const HostError&) {
            return;  // it is no mailbox, which the command will say
        }
    }
    std::vector<std::string> Take() { return std::move(lines_); }

private:
    const std::string begun_;
    std::vector<std::string> lines_;
};

// A shell hands "~" over as it was typed.
std::string WithHome(const std::string& path)
{
    const char* const home = std::getenv("HOME");
    return home && (path == "~" || path.starts_with("~/")) ? home + path.substr(1) : path;
}

std::vector<std::string> ValuesOf(const CLI::Option& option, const std::string& name,
                                  const Position& position, const std::string& begun)
{
    Candidates candidates(begun);
    for (const std::string& choice : ChoicesOf(option))
        candidates.Add(choice);
    switch (MeaningOf(name)) {
        case Meaning::kFile:
            return {kFiles};
        case Meaning::kDirectory:
            return {kDirectories};
        case Meaning::kFolder:
            if (!position.Arguments().empty())
                candidates.AddFolders(WithHome(position.Arguments().front()));
            break;
        case Meaning::kOther:
            break;
    }
    return candidates.Take();
}

}  // namespace

std::vector<std::string> CompletionsOf(const CLI::App& program, const std::vector<std::string>& words)
{
    const std::string& begun = words.back();
    Position position(program);
    for (std::size_t i = 0; i + 1 < words.size(); ++i)
        position.Take(words[i]);
    if (const CLI::Option* const option = position.Awaiting())
        return ValuesOf(*option, option->get_name(), position, begun);
    Candidates candidates(begun);
    if (begun.starts_with('-')) {
        candidates.AddOptions(position.Command());
        return candidates.Take();
    }
    const CLI::Option* const argument = position.NextArgument();
    if (position.Arguments().empty())
        candidates.AddCommands(position.Command());
    std::vector<std::string> lines = candidates.Take();
    const bool isCommand = !ShownCommands(position.Command()).empty() && position.Arguments().empty();
    if (argument && (!isCommand || lines.empty()))
        return ValuesOf(*argument, argument->get_name(true), position, begun);
    return lines;
}

}  // namespace quorvane::host
