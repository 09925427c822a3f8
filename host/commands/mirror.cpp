#include <algorithm>
#include <set>
#include <system_error>

#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/commands/mirroring.h"
#include "host/mirror/mail_places.h"
#include "host/mirror/maildir_tree.h"
#include "host/mirror/mirrors.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

struct MirrorOptions {
    bool json = false;
    bool remove = false;
    bool confirm = false;
    bool below = false;
    std::string mailbox;
    std::string folder;
    std::string maildir;
    std::string tree;  // the layout; empty: the folder alone
};

Json JsonOf(MirrorRecords& records, const Mirror& mirror)
{
    return {{"folder", mirror.folder},
            {"maildir", mirror.directory},
            {"mails", records.CountMails(mirror.number)},
            {"leftAlone", mirror.leftAlone},
            {"waitingDeletions", mirror.held},
            {"problem", mirror.problem}};
}

std::string StateOf(const Mirror& mirror)
{
    std::string state = mirror.problem.empty() ? "" : "stopped: " + mirror.problem;
    if (mirror.held > 0)
        state += (state.empty() ? "" : "; ") + std::to_string(mirror.held) +
                 " deletions wait ('quorvane mirror MAILBOX FOLDER --confirm')";
    return state;
}

ExitCode ListMirrors(const MirrorOptions& options, MirrorRecords& records)
{
    Json json = Json::array();
    Table table({"FOLDER", "MAILDIR", "MAILS", "LEFT ALONE", "STATE"});
    for (const Mirror& mirror : records.All()) {
        json.push_back(JsonOf(records, mirror));
        table.Add({Printable(mirror.folder), Printable(mirror.directory),
                   std::to_string(records.CountMails(mirror.number)), std::to_string(mirror.leftAlone),
                   Printable(StateOf(mirror))});
    }
    Print(options.json, json, table.Text());
    return ExitCode::kDone;
}

// By its folder; one whose folder has another path by now is named by the one that it was tied under.
Mirror FindMirror(MirrorRecords& records, const std::string& folder)
{
    const std::vector<Mirror> mirrors = records.All();
    const auto found = std::find_if(mirrors.begin(), mirrors.end(),
                                    [&](const Mirror& mirror) { return mirror.folder == folder; });
    if (found == mirrors.end())
        Fail("find the mirror of", folder, "the folder is tied to no Maildir");
    return *found;
}

// A directory that holds something and no Maildir was hardly meant.
fs::path MaildirAt(const std::string& name, bool isTree)
{
    std::error_code error;
    const fs::path path = fs::weakly_canonical(fs::absolute(PathOf(name)), error);
    if (error)
        Fail("tie to", name, error.message());
    const bool isMaildir = fs::is_directory(path / "cur", error) || fs::is_directory(path / "new", error) ||
                           (isTree && !FoldersInTree(path, TreeLayout::kNested).empty());
    if (fs::exists(path, error) && !isMaildir &&
        !(fs::is_directory(path, error) && fs::is_empty(path, error)))
        Fail("tie to", name, "it is neither a Maildir nor an empty directory");
    return path;
}

std::string Tied(const Mirror& mirror)
{
    return "tied " + Printable(mirror.folder) + " to " + Printable(mirror.directory);
}

// Both sides are there once this returns.
void MakeSides(const MailSession& session, Mirror& mirror)
{
    Maildir::Make(mirror.directory);
    mirror.entryId = HexOf(*EnsureFolder(session, mirror.folder), PR_ENTRYID);
}

void Tie(const MailSession& session, MirrorRecords& records, Mirror& mirror)
{
    MakeSides(session, mirror);
    records.Add(mirror);
}

ExitCode AddMirror(const MirrorOptions& options, const Mailbox& mailbox, MirrorRecords& records)
{
    const MailSession session(options.mailbox);
    Mirror mirror;
    mirror.folder = options.folder;
    mirror.directory = MaildirAt(options.maildir, false).string();
    Tie(session, records, mirror);
    PrintSentences(options.json, {{"folder", mirror.folder}, {"maildir", mirror.directory}},
                   Tied(mirror) + (mailbox.IsInRun() ? "; the run keeps both in step\n"
                                                     : "; a run keeps both in step\n"));
    return ExitCode::kDone;
}

// The paths of the folders that lie below one, from there on.
std::vector<std::string> FoldersBelow(const MailSession& session, const std::string& folder)
{
    std::vector<std::string> paths;
    for (const FolderInfo& info : ListFolders(session))
        if (info.path.starts_with(folder + "/"))
            paths.push_back(info.path.substr(folder.size() + 1));
    return paths;
}

// A folder and all below it, on whichever side they are. What is tied so already stays; so what was made
// later comes along when it is said again.
ExitCode AddTree(const MirrorOptions& options, const Mailbox& mailbox, MirrorRecords& records)
{
    const MailSession session(options.mailbox);
    const TreeLayout layout = options.tree == "nested" ? TreeLayout::kNested : TreeLayout::kMaildirPlusPlus;
    const std::string folder = PlainPath(options.folder);
    const fs::path root = MaildirAt(options.maildir, layout == TreeLayout::kNested);
    std::vector<Mirror> tree(1);
    tree[0].folder = folder;
    tree[0].directory = root.string();
    std::set<std::string> below;
    for (const auto& paths : {FoldersBelow(session, folder), FoldersInTree(root, layout)})
        below.insert(paths.begin(), paths.end());
    for (const std::string& path : below) {  // each has its place, before the first is tied
        tree.emplace_back().folder = folder + "/" + path;
        tree.back().directory = PlaceInTree(root, path, layout).string();
    }
    const std::vector<Mirror> known = records.All();
    std::erase_if(tree, [&](const Mirror& mirror) {
        return std::any_of(known.begin(), known.end(), [&](const Mirror& other) {
            return other.folder == mirror.folder && other.directory == mirror.directory;
        });
    });
    Json ties = Json::array();
    std::string text;
    for (Mirror& mirror : tree) {
        Tie(session, records, mirror);
        ties.push_back({{"folder", mirror.folder}, {"maildir", mirror.directory}});
        text += Tied(mirror) + "\n";
    }
    if (tree.empty())
        text = "all of " + Printable(folder) + " is tied already\n";
    else
        text += mailbox.IsInRun() ? "the run keeps them in step\n" : "a run keeps them in step\n";
    PrintSentences(options.json, {{"folder", folder}, {"maildir", root.string()}, {"tied", ties}}, text);
    return ExitCode::kDone;
}

// Unties a folder and all below it, whichever of them are tied, by the paths that they were tied under.
ExitCode RemoveTree(const MirrorOptions& options, MirrorRecords& records)
{
    const std::string folder = PlainPath(options.folder);
    std::vector<Mirror> mirrors = records.All();
    std::erase_if(mirrors, [&](const Mirror& mirror) {
        return mirror.folder != folder && !mirror.folder.starts_with(folder + "/");
    });
    if (mirrors.empty())
        Fail("find mirrors of", folder, "neither the folder nor one below it is tied to a Maildir");
    Json untied = Json::array();
    std::string text;
    for (const Mirror& mirror : mirrors) {
        records.Remove(mirror.number);
        untied.push_back({{"folder", mirror.folder}, {"maildir", mirror.directory}});
        text += "untied " + Printable(mirror.folder) + " from " + Printable(mirror.directory) + "\n";
    }
    PrintSentences(
        options.json,
        {{"folder", folder}, {"maildir", mirrors[0].directory}, {"untied", untied}, {"removed", true}},
        text + "all of them keep their mails\n");
    return ExitCode::kDone;
}

ExitCode RunMirror(const MirrorOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    MirrorRecords records(mailbox.HostDatabasePath().string());
    if (options.folder.empty())
        return ListMirrors(options, records);
    if (!options.remove && !options.confirm) {
        if (options.maildir.empty())
            throw HostError("name the Maildir, or say --remove or --confirm", ExitCode::kUsage);
        return options.tree.empty() ? AddMirror(options, mailbox, records)
                                    : AddTree(options, mailbox, records);
    }
    if (options.below)
        return RemoveTree(options, records);
    const Mirror mirror = FindMirror(records, options.folder);
    if (options.remove)
        records.Remove(mirror.number);
    else
        records.Confirm(mirror.number);
    PrintSentences(options.json,
                   {{"folder", mirror.folder}, {"maildir", mirror.directory}, {"removed", options.remove}},
                   options.remove ? "untied " + Printable(mirror.folder) + " from " +
                                        Printable(mirror.directory) + "; both keep their mails\n"
                                  : Counted(static_cast<std::uint64_t>(mirror.held), "mail") + " of " +
                                        Printable(mirror.folder) + " may be deleted\n");
    return ExitCode::kDone;
}

}  // namespace

std::unique_ptr<RunPart> MirrorsOfRun(const Mailbox& mailbox, const MailSession& session,
                                      const StopSignals& signals, std::function<void(const std::string&)> say)
{
    return std::make_unique<Mirrors>(mailbox, session, signals, std::move(say));
}

Json MirrorStates(const Mailbox& mailbox, std::string& text)
{
    MirrorRecords records(mailbox.HostDatabasePath().string());
    Json json = Json::array();
    for (const Mirror& mirror : records.All()) {
        json.push_back(JsonOf(records, mirror));
        const std::string state = StateOf(mirror);
        text += "mirror: " + Printable(mirror.folder) + " and " + Printable(mirror.directory) +
                (state.empty() ? "" : ": " + Printable(state)) + "\n";
    }
    return json;
}

bool HasMirrors()
{
    return true;
}

namespace {

FoundMail FoundIn(const MailPlace& place)
{
    FoundMail found{place.root.string(), {}, place.mails};
    for (const auto& [folder, maildir] : place.maildirs)
        found.ties.push_back({folder, maildir.string()});
    return found;
}

}  // namespace

std::vector<FoundMail> FindMail(const fs::path& home, const fs::path& maildir)
{
    std::vector<FoundMail> found;
    for (const MailPlace& place : FindMailPlaces(home, maildir))
        found.push_back(FoundIn(place));
    return found;
}

std::optional<FoundMail> MailIn(const fs::path& directory)
{
    std::error_code error;
    const auto place = LookForMail(fs::weakly_canonical(fs::absolute(directory), error));
    return place && !error ? std::optional(FoundIn(*place)) : std::nullopt;
}

std::vector<MailTie> TiesOf(const Mailbox& mailbox)
{
    MirrorRecords records(mailbox.HostDatabasePath().string());
    std::vector<MailTie> ties;
    for (const Mirror& mirror : records.All())
        ties.push_back({mirror.folder, mirror.directory});
    return ties;
}

void TieFolders(const Mailbox& mailbox, const std::vector<MailTie>& ties)
{
    const MailSession session(mailbox.Directory().string());
    std::vector<Mirror> mirrors;
    for (const MailTie& tie : ties) {
        Mirror& mirror = mirrors.emplace_back();
        mirror.folder = tie.folder;
        mirror.directory = tie.maildir;
        MakeSides(session, mirror);
    }
    MirrorRecords(mailbox.HostDatabasePath().string()).Add(mirrors);
}

void AddMirrorCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<MirrorOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "mirror",
        "Tie a folder to a Maildir, so that a run keeps both in step; without FOLDER, list what is tied",
        options, RunMirror);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder, which is made if it's missing");
    CLI::Option* const maildir =
        command->add_option("MAILDIR", options->maildir,
                            "The Maildir, which is made if it's missing; other programs may work in it");
    CLI::Option* const remove =
        command->add_flag("--remove", options->remove, "Untie them; both keep their mails");
    command->add_flag("--below", options->below, "With --remove: all folders below it as well")
        ->needs(remove);
    CLI::Option* const confirm = command->add_flag(
        "--confirm", options->confirm, "Let the mails be deleted that were missing on one side all at once");
    command
        ->add_option("--tree", options->tree,
                     "Tie all folders below it as well, on whichever side they are: to Maildirs in Maildirs "
                     "(nested), or beside each other behind dots (maildir++)")
        ->check(CLI::IsMember({"nested", "maildir++"}))
        ->needs(maildir);
    remove->excludes(maildir)->excludes(confirm);
    confirm->excludes(maildir);
}

}  // namespace quorvane::host
