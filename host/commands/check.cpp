#include <algorithm>

#include "host/base/progress.h"
#include "host/commands/check_agreement.h"
#include "host/commands/command.h"
#include "host/sharing/message_content.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct CheckOptions {
    bool json = false;
    bool repair = false;
    std::string mailbox;
};

// Counts what it has looked at.
class ItemCount {
public:
    explicit ItemCount(const std::vector<FolderInfo>& folders)
    {
        for (const FolderInfo& folder : folders)
            total_ += static_cast<std::size_t>(std::max<LONG>(folder.items, 0));
    }
    void Next(const std::string& folder) { progress_.Show(++count_, total_, folder); }
    std::size_t Count() const noexcept { return count_; }

private:
    std::size_t total_ = 0;
    std::size_t count_ = 0;
    Progress progress_{"checking"};
};

void CheckFolder(const MailSession& session, const FolderInfo& folder, CheckReport& report, ItemCount& count)
{
    ForEachItem(*OpenFolder(session, folder.entryId), [&](const ItemInfo& item) {
        count.Next(folder.path);
        try {
            if (const ComPtr<IMessage> message = OpenMessage(session, item.entryId, false))
                ReadContent(*message, item.subject);
        } catch (const HostError& error) {
            report.items.push_back({{"folder", folder.path},
                                    {"subject", item.subject},
                                    {"entryId", item.entryId},
                                    {"what", error.what()}});
            report.text += Printable(folder.path) + ": '" + Printable(item.subject) + "' " + item.entryId +
                           " is damaged\n";
            ++report.open;
        }
    });
}

// Gives how many items there are.
std::size_t CheckFolders(const MailSession& session, CheckReport& report)
{
    const std::vector<FolderInfo> folders = ListFolders(session);
    ItemCount count(folders);
    for (const FolderInfo& folder : folders)
        CheckFolder(session, folder, report, count);
    return count.Count();
}

// While a run is at work its files needn't agree at each moment. Where a database is damaged nothing follows
// from what it says.
Json CompareFiles(const Mailbox& mailbox, const MailSession& session, CheckReport& report, Mender& mender)
{
    if (!mender.IsAsked() && mailbox.IsInRun()) {
        report.text += "a run is under way: rows, records and hash files weren't compared\n";
        return nullptr;
    }
    if (report.open > report.items.size()) {
        report.text += "a database is damaged: rows, records and hash files weren't compared\n";
        return nullptr;
    }
    return CheckAgreement(mailbox, session, report, mender);
}

std::string Summary(const CheckReport& report, std::size_t count, const Mender& mender)
{
    std::string text = "checked " + Counted(count, "item") + ", " + std::to_string(report.items.size()) +
                       " of them damaged\n";
    if (!mender.Place().empty())
        text += "what was changed lies as it was in " + mender.Place() + "\n";
    if (mender.IsAsked() && report.open > 0)
        text += std::to_string(report.open) + " of what was found could not be mended\n";
    return text;
}

}  // namespace

CheckCounts ExamineMailbox(const Mailbox& mailbox, CheckReport& report, Mender& mender)
{
    for (const auto& path : {mailbox.StorePath(), mailbox.SharingDatabasePath(), mailbox.HostDatabasePath()})
        CheckDatabase(path, report, mender);
    const MailSession session(mailbox.Directory().string());
    const std::size_t items = CheckFolders(session, report);
    return {items, CompareFiles(mailbox, session, report, mender)};
}

namespace {

ExitCode CheckMailbox(const CheckOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const auto lock = options.repair ? mailbox.LockForRun() : nullptr;
    Mender mender(mailbox, options.repair);
    CheckReport report;
    const CheckCounts counts = ExamineMailbox(mailbox, report, mender);
    const bool isSound = report.open == 0;
    Print(options.json,
          {{"sound", isSound},
           {"checked", counts.items},
           {"databases", report.databases},
           {"items", report.items},
           {"disagreements", report.disagreements},
           {"mended", report.mended},
           {"kept", mender.Place()},
           {"deletionsToTell", counts.deletionsToTell}},
          report.text + Summary(report, counts.items, mender));
    return isSound ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void AddCheckCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<CheckOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "check",
                   "Read all of a mailbox: whether its databases are sound, each item can be read, and its "
                   "files tell the same of what is shared",
                   options, CheckMailbox);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_flag("--repair", options->repair,
                      "Mend what can be mended without losing anything; what is changed is kept as it was");
}

}  // namespace quorvane::host
