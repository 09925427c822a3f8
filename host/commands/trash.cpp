#include "host/mailbox/trash.h"
#include "host/commands/command.h"
#include "host/commands/readings.h"
#include "host/store/msg_file.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr std::int64_t kMostDays = 36'500;

struct TrashOptions {
    bool json = false;
    std::string mailbox;
    std::int64_t days = 0;
    bool setDays = false;
};

const char* WhyText(TrashEntry::Why why)
{
    switch (why) {
        case TrashEntry::Why::kDeleted:
            return "deleted";
        case TrashEntry::Why::kReplaced:
            return "replaced";
        case TrashEntry::Why::kBeaten:
            return "replaced, and kept beside it";
        case TrashEntry::Why::kMirrored:
            return "deleted in its Maildir";
    }
    return "";
}

}  // namespace

Json ReadTrash(const Mailbox& mailbox)
{
    Trash trash(mailbox);
    Json entries = Json::array();
    for (const TrashEntry& entry : trash.Entries())
        entries.push_back({{"id", entry.number},
                           {"since", TimeText(entry.since)},
                           {"folder", entry.folder},
                           {"item", entry.item},
                           {"subject", entry.subject},
                           {"why", WhyText(entry.why)},
                           {"member", entry.member},
                           {"file", trash.FileOf(entry).string()}});
    return {{"days", trash.Days()}, {"entries", entries}};
}

namespace {

ExitCode ShowTrash(const TrashOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    if (options.setDays)
        Trash(mailbox).SetDays(options.days);
    const Json json = ReadTrash(mailbox);
    Table table({"ID", "SINCE", {"FOLDER", Fit::kShortened}, {"SUBJECT", Fit::kShortened}, "WHY", "BY"});
    for (const Json& entry : json.at("entries"))
        table.Add({std::to_string(entry.at("id").get<std::int64_t>()), entry.at("since").get<std::string>(),
                   Printable(entry.at("folder").get<std::string>()),
                   Printable(entry.at("subject").get<std::string>()), entry.at("why").get<std::string>(),
                   entry.at("member").get<std::string>()});
    Print(options.json, json,
          table.Text() + "kept for " + std::to_string(json.at("days").get<std::int64_t>()) + " days\n");
    return ExitCode::kDone;
}

struct UndeleteOptions {
    bool json = false;
    std::string mailbox;
    std::vector<std::int64_t> entries;
};

// Its folder as it is called by now; where that is gone, one is made at its path.
std::string FolderFor(Records& records, const TrashEntry& entry)
{
    const auto share = records.FindShare(entry.folderId);
    return share ? share->name : entry.folder;
}

// As a new item of its folder: everybody gets it.
std::string PutBack(const MailSession& session, Trash& trash, const TrashEntry& entry,
                    const std::string& folder)
{
    MsgFile file;
    Check(file.Open(trash.FileOf(entry)), "undelete", entry.subject);
    ComPtr<IMessage> message;
    Check(EnsureFolder(session, folder)->CreateMessage(nullptr, 0, message.Put()), "undelete", entry.subject);
    Check(CopyMessage(file.Message(), *message, KEEP_OPEN_READWRITE), "undelete", entry.subject);
    const std::string entryId = HexOf(*message, PR_ENTRYID);
    trash.Remove(entry);
    return entryId;
}

ExitCode Undelete(const UndeleteOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    Trash trash(mailbox);
    Records records(mailbox.HostDatabasePath().string());
    std::vector<TrashEntry> wanted;
    for (const std::int64_t number : options.entries) {
        const auto entry = trash.Find(number);
        if (!entry)
            Fail("undelete", std::to_string(number),
                 "the trash has nothing of this ID ('quorvane trash' lists it)");
        wanted.push_back(*entry);
    }
    Json json = Json::array();
    std::string text;
    for (const TrashEntry& entry : wanted) {
        const std::string folder = FolderFor(records, entry);
        json.push_back({{"id", entry.number},
                        {"folder", folder},
                        {"subject", entry.subject},
                        {"entryId", PutBack(session, trash, entry, folder)}});
        text += "put back '" + Printable(entry.subject) + "' into " + Printable(folder) + "\n";
    }
    Print(options.json, json, text);
    return ExitCode::kDone;
}

}  // namespace

void AddTrashCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<TrashOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "trash",
        "List what other members' deletions and changes removed here, and what was in deleted folders",
        options, ShowTrash);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command
        ->add_option_function<std::int64_t>(
            "--days",
            [options](const std::int64_t& days) {
                options->days = days;
                options->setDays = true;
            },
            "Keep what is in the trash for so many days, from now on")
        ->check(CLI::Range(std::int64_t{0}, kMostDays));
}

void AddUndeleteCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<UndeleteOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "undelete", "Put items of the trash back into their folders, as new ones",
                   options, Undelete);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("ID", options->entries, "IDs in 'trash'")->required();
}

}  // namespace quorvane::host
