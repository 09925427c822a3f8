#include <algorithm>
#include <system_error>

#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/commands/mirroring.h"
#include "host/mirror/mirrors.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

struct MirrorOptions {
    bool json = false;
    bool remove = false;
    bool confirm = false;
    std::string mailbox;
    std::string folder;
    std::string maildir;
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

// A directory that holds something and is no Maildir was hardly meant.
fs::path MaildirAt(const std::string& name)
{
    std::error_code error;
    const fs::path path = fs::weakly_canonical(fs::absolute(PathOf(name)), error);
    if (error)
        Fail("tie to", name, error.message());
    const bool isMaildir = fs::is_directory(path / "cur", error) || fs::is_directory(path / "new", error);
    if (fs::exists(path, error) && !isMaildir &&
        !(fs::is_directory(path, error) && fs::is_empty(path, error)))
        Fail("tie to", name, "it is neither a Maildir nor an empty directory");
    Maildir::Make(path);
    return path;
}

ExitCode AddMirror(const MirrorOptions& options, const Mailbox& mailbox, MirrorRecords& records)
{
    const MailSession session(options.mailbox);
    Mirror mirror;
    mirror.folder = options.folder;
    mirror.directory = MaildirAt(options.maildir).string();
    mirror.entryId = HexOf(*EnsureFolder(session, options.folder), PR_ENTRYID);
    records.Add(mirror);
    Print(options.json, {{"folder", mirror.folder}, {"maildir", mirror.directory}},
          "tied " + Printable(mirror.folder) + " to " + Printable(mirror.directory) +
              (mailbox.IsInRun() ? "; the run keeps both in step\n" : "; a run keeps both in step\n"));
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
        return AddMirror(options, mailbox, records);
    }
    const Mirror mirror = FindMirror(records, options.folder);
    if (options.remove)
        records.Remove(mirror.number);
    else
        records.Confirm(mirror.number);
    Print(options.json,
          {{"folder", mirror.folder}, {"maildir", mirror.directory}, {"removed", options.remove}},
          options.remove
              ? "untied " + Printable(mirror.folder) + " from " + Printable(mirror.directory) +
                    "; both keep their mails\n"
              : std::to_string(mirror.held) + " mails of " + Printable(mirror.folder) + " may be deleted\n");
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
    CLI::Option* const confirm = command->add_flag(
        "--confirm", options->confirm, "Let the mails be deleted that were missing on one side all at once");
    remove->excludes(maildir)->excludes(confirm);
    confirm->excludes(maildir);
}

}  // namespace quorvane::host
