#include <algorithm>
#include <set>
#include <system_error>

#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/commands/check_report.h"
#include "host/commands/command.h"
#include "host/commands/lax_files.h"
#include "host/commands/readings.h"
#include "host/exchange/error.h"
#include "host/mailbox/comparison_records.h"
#include "host/service/findings.h"
#include "host/service/service_unit.h"
#include "host/service/shell_text.h"
#include "host/sharing/pinning.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kTicksOfADay = std::uint64_t{24} * 3600 * 10'000'000;

struct DoctorOptions {
    bool json = false;
    std::string mailbox;
};

// Looks at a mailbox that opens. Each look notes what it found; what it can't do is a finding, too.
class Doctor {
public:
    Doctor(const Mailbox& mailbox, std::string shown, Findings& findings)
        : mailbox_(mailbox), shown_(std::move(shown)), findings_(findings)
    {}

    void LookAtAll()
    {
        Look("databases", "bring the mailbox back from a backup ('quorvane restore')", &Doctor::LookAtFiles);
        Look("keys", "bring the mailbox back from a backup ('quorvane restore')", &Doctor::LookAtKeys);
        Look("exchange", "let this user read it, and write what lies in this device's directory",
             &Doctor::LookAtExchange);
        Look("disk space", "let this user write to the mailbox's directory", &Doctor::LookAtDisk);
        Look("run", Say("status"), &Doctor::LookAtSharing);
        Look("service", Say("setup"), &Doctor::LookAtService);
        Look("log", "delete the file", &Doctor::LookAtLog);
    }

private:
    // A command line about this mailbox, as a shell reads it. It ends what is said, so that it can be copied.
    //
    // more: words behind it that are options, or stand for others.
    std::string Say(const std::string& command, const std::string& more = {}) const
    {
        return SayOf(command, {}, more);
    }
    // The same with `object`, whatever it holds, behind the mailbox.
    std::string SayOf(const std::string& command, const std::string& object,
                      const std::string& more = {}) const
    {
        return "quorvane " + command + " " + ShellWord(shown_) +
               (object.empty() ? "" : " " + ShellWord(object)) + (more.empty() ? "" : " " + more);
    }

    void Look(const char* area, const std::string& todo, void (Doctor::*look)())
    {
        try {
            (this->*look)();
        } catch (const HostError& error) {
            findings_.Act(area, error.what(), todo);
        } catch (const exchange::Error& error) {
            findings_.Act(area, error.what(), todo);
        }
    }

    void LookAtFiles()
    {
        CheckReport report;
        Mender mender(mailbox_, false);
        const CheckCounts counts = ExamineMailbox(mailbox_, report, mender);
        const std::string todo = "end the run, then: " + Say("check", "--repair");
        NoteEach("databases", report.databases, todo, [](const Json& fault) {
            return fault.at("file").get<std::string>() + ": " + fault.at("what").get<std::string>();
        });
        NoteEach("store", report.items,
                 "delete the item, or bring the mailbox back from a backup ('quorvane restore')",
                 [](const Json& item) {
                     return "'" + item.at("subject").get<std::string>() + "' in " +
                            item.at("folder").get<std::string>() + " is damaged";
                 });
        NoteEach("hash files", report.disagreements, todo, [](const Json& one) {
            return one.at("folder").get<std::string>() + ": " + one.at("item").get<std::string>() + " " +
                   one.at("what").get<std::string>();
        });
        if (report.databases.empty())
            findings_.Good("databases", "store.sqlite, sharing.db and host.db are sound");
        if (report.items.empty())
            findings_.Good("store", counts.items == 1 ? "its one item can be read"
                                                      : "all of its " + std::to_string(counts.items) +
                                                            " items can be read");
        if (counts.deletionsToTell.is_null() && report.databases.empty())
            findings_.Good("hash files", "a run is under way and keeps them; without one they are compared");
        else if (counts.deletionsToTell.is_null())
            findings_.Note("hash files", "they weren't compared, as a database is damaged");
        else if (report.disagreements.empty())
            findings_.Good("hash files", "they, rows and records tell the same");
    }

    // The first of many.
    template <class Words>
    void NoteEach(const char* area, const Json& list, const std::string& todo, Words words)
    {
        constexpr std::size_t kMost = 5;
        for (std::size_t i = 0; i < std::min(list.size(), kMost); ++i)
            findings_.Act(area, words(list[i]), todo);
        if (list.size() > kMost)
            findings_.Act(area, "and " + std::to_string(list.size() - kMost) + " more", Say("check"));
    }

    void LookAtKeys()
    {
        findings_.Good("keys", "those of the device " + ShownDevice(ReadDeviceKeys(mailbox_).Id()));
    }

    void LookAtExchange()
    {
        const std::string directory = ChosenExchange(mailbox_, {});
        if (directory.empty())
            return findings_.Act("exchange", "none is known",
                                 "name it once: " + Say("run", "--exchange DIRECTORY"));
        const auto place = exchange::OutsideDirectory::Open(PathOf(directory));
        if (!place)
            return findings_.Act(
                "exchange", directory + " is gone",
                "mount it; or name one at another place once: " + Say("run", "--exchange DIRECTORY"));
        const std::string device = mailbox_.Device();
        const auto own = place->Sub(device);
        if (!own || !own->OpenFile("card"))
            return findings_.Note("exchange", "this device's card isn't in " + directory,
                                  "the next run lays it there");
        own->Replace(kProbe, exchange::TextSource("\n"), exchange::Readers::kNobody);
        std::error_code error;
        const auto written = fs::last_write_time(PathOf(directory) / PathOf(device) / kProbe, error);
        own->Remove(kProbe);
        findings_.Good("exchange", directory + " can be read and written");
        if (!error)
            LookAtClock(std::chrono::file_clock::to_sys(written));
        findings_.Add(JudgeRoom("the exchange", fs::space(PathOf(directory), error).available));
    }

    void LookAtClock(std::chrono::system_clock::time_point exchange)
    {
        std::uint64_t last = 0;
        for (const Peer& peer : Peers(mailbox_.HostDatabasePath().string()).All())
            last = std::max(last, peer.heard);
        const auto now = std::chrono::system_clock::now();
        const std::uint64_t here = FileTimeNow();
        const auto heard = last <= here ? now : now + std::chrono::seconds((last - here) / 10'000'000);
        findings_.Add(JudgeClock(now, exchange, heard));
    }

    void LookAtDisk()
    {
        const fs::path probe = mailbox_.PackagesPath() / kProbe;
        WriteDurably(probe, "\n");
        std::error_code error;
        fs::remove(probe, error);
        findings_.Add(JudgeRoom("the mailbox", fs::space(mailbox_.Directory(), error).available));
    }

    void LookAtSharing()
    {
        const Json status = ReadStatus(mailbox_).json;
        if (status.at("running") == true)
            findings_.Good("run", "one is under way");
        else
            findings_.Note("run", "none is under way: nothing is sent, taken or mirrored", Say("run"));
        findings_.Good("sharing", Counted(status.at("shares").size(), "folder") +
                                      (status.at("shares").size() == 1 ? " is" : " are") + " shared here");
        LookAtPeople(status);
        LookAtPackages(status);
        LookAtMirrors(status.at("mirrors"));
        for (const ComparisonRecord& pair :
             ComparisonRecords(mailbox_.HostDatabasePath().string()).All(FileTimeNow()))
            if (pair.differed > 0 && !pair.IsEqual())
                findings_.Note("sharing",
                               pair.folder + " differed from " + pair.member + "'s in " +
                                   Counted(static_cast<std::uint64_t>(pair.count), "item") +
                                   ", which a run mends",
                               Say("verify"));
    }

    // Those that lie in one that isn't answered either go with that.
    void LookAtInvitations(const Json& folders)
    {
        std::set<std::string> invited, holding;
        for (const Json& folder : folders)
            if (folder.at("state") == "invited")
                invited.insert(folder.at("invitation"));
        for (const Json& folder : folders)
            if (invited.contains(folder.at("in")))
                holding.insert(folder.at("in"));
        for (const Json& folder : folders) {
            const std::string id = folder.at("invitation");
            if (!invited.contains(id) || invited.contains(folder.at("in")))
                continue;
            findings_.Act("invitations",
                          folder.at("from").get<std::string>() + " shares " +
                              folder.at("folder").get<std::string>() +
                              (holding.contains(id) ? " and folders in it" : ""),
                          "decline it, or: " + SayOf("accept", id) + (holding.contains(id) ? " --tree" : ""));
        }
    }

    void LookAtPeople(const Json& status)
    {
        for (const Json& name : status.at("awaited"))
            findings_.Act("members",
                          name.get<std::string>() + " is to get folders, and no device of theirs is known",
                          SayOf("members add", name.get<std::string>()));
        LookAtInvitations(status.at("folders"));
        for (const Json& stranger : status.at("strangers"))
            findings_.Note("members",
                           "a device that calls itself " + stranger.at("name").get<std::string>() +
                               " has packages for this mailbox and isn't known",
                           Say("members"));
        for (const Json& member : status.at("members"))
            if (member.at("silent") == true)
                findings_.Note(
                    "members",
                    "a device of " + member.at("member").get<std::string>() +
                        " wasn't heard of for long, and nothing is kept for it",
                    "if it is lost: " + SayOf("members drop", member.at("device").get<std::string>()));
        if (const std::size_t count = status.at("conflicts").get<std::size_t>())
            findings_.Act("conflicts",
                          Counted(count, "edit") + (count == 1 ? " was" : " were") + " beaten by others",
                          Say("conflicts"));
    }

    void LookAtPackages(const Json& status)
    {
        NoteEach("unsent", status.at("unsent"), "mend or delete the item; the next run tries it again",
                 [](const Json& item) {
                     return "'" + item.at("subject").get<std::string>() + "' of " +
                            item.at("folder").get<std::string>() + ": " +
                            item.at("reason").get<std::string>();
                 });
        for (const Json& package : status.at("incoming"))
            if (package.at("state") != "being applied")
                findings_.Note("packages", "one from " + package.at("member").get<std::string>() + " is " +
                                               package.at("state").get<std::string>() + ": " +
                                               package.at("reason").get<std::string>());
        for (const Json& refusal : status.at("refusals"))
            findings_.Note("packages", "some from " + refusal.at("member").get<std::string>() +
                                           " were refused: " + refusal.at("reason").get<std::string>());
        if (status.at("rejected") == true)
            findings_.Note("packages", "some couldn't be used",
                           "look at them ('quorvane inspect'), then: rm -r " +
                               ShellWord((mailbox_.Directory() / "rejected").string()));
    }

    void LookAtMirrors(const Json& mirrors)
    {
        for (const Json& mirror : mirrors) {
            const std::string folder = mirror.at("folder").get<std::string>();
            const std::string both = folder + " and " + mirror.at("maildir").get<std::string>();
            const std::string problem = mirror.at("problem").get<std::string>();
            const auto held = mirror.at("waitingDeletions").get<std::int64_t>();
            if (!problem.empty())
                findings_.Act("mirrors", both + ": " + problem,
                              "put the Maildir back, or untie it: " + SayOf("mirror", folder, "--remove"));
            if (held > 0)
                findings_.Act("mirrors",
                              both + ": " + Counted(static_cast<std::uint64_t>(held), "deletion") +
                                  (held == 1 ? " waits" : " wait"),
                              "put the mails back, or let them go: " + SayOf("mirror", folder, "--confirm"));
            if (problem.empty() && held == 0)
                findings_.Good("mirrors", both + " are kept in step");
        }
    }

    // The unit of this mailbox in the user's systemd.
    void LookAtService()
    {
        const std::string unit = UnitNameOf(mailbox_.Directory());
        findings_.Add(JudgeUnit(unit, UserManager().Look(unit), Say("setup")));
    }

    void LookAtLog()
    {
        constexpr std::size_t kMost = 1000;  // more needn't be counted
        const LogEntries failures = ReadLog(mailbox_, {FileTimeNow() - kTicksOfADay, true}, kMost);
        if (failures.empty())
            return findings_.Good("log", "no failure was traced in the last day");
        const LogEntry& last = failures.back();
        findings_.Note("log",
                       Counted(failures.size(), "failure") + (failures.size() == kMost ? " or more" : "") +
                           (failures.size() == 1 ? " was" : " were") + " traced in the last day, at last " +
                           last.operation + ": " + last.Result(),
                       Say("log", "--failures"));
    }

    static constexpr char kProbe[] = "probe";

    const Mailbox& mailbox_;
    const std::string shown_;  // as the user named it
    Findings& findings_;
};

// Before it is opened, which closes a mailbox that is open to others.
void LookAtPermissions(const fs::path& mailbox, Findings& findings)
{
    const std::vector<fs::path> lax = LaxFiles(mailbox);
    for (const fs::path& path : lax)
        findings.Act("permissions", path.string() + " is open to other users",
                     "chmod go= " + ShellWord(path.string()));
    if (lax.empty())
        findings.Good("permissions", "the mailbox is its user's alone");
}

ExitCode Examine(const DoctorOptions& options)
{
    Findings findings;
    std::error_code error;
    if (!fs::is_directory(PathOf(options.mailbox), error))
        Fail("look at the mailbox", options.mailbox, "no such directory");
    LookAtPermissions(PathOf(options.mailbox), findings);
    try {
        const Mailbox mailbox = Mailbox::Open(options.mailbox);
        Doctor(mailbox, options.mailbox, findings).LookAtAll();
    } catch (const HostError& failure) {
        findings.Act("mailbox", failure.what(),
                     "bring it back from a backup ('quorvane restore'), or make one ('quorvane init')");
    }
    const bool isWell = !findings.NeedsAPerson();
    Print(options.json, {{"well", isWell}, {"findings", findings.ToJson()}},
          findings.Text() + (isWell ? "nothing needs you\n" : "what is marked ACT needs you\n"));
    return isWell ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void AddDoctorCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<DoctorOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "doctor",
        "Look at a mailbox and all that it needs, and say for each thing found what to do; exits with 1 "
        "where anything needs a person",
        options, Examine);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
}

}  // namespace quorvane::host
