#include "host/commands/command.h"
#include "host/mailbox/sharing_rows.h"
#include "host/store/item_marks.h"

namespace quorvane::host {

namespace {

struct ListOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
};

ExitCode ListAllFolders(const ListOptions& options, const MailSession& session)
{
    Json json = Json::array();
    Table table({"FOLDER", "ITEMS", "UNREAD"});
    for (const FolderInfo& folder : ListFolders(session)) {
        json.push_back({{"folder", folder.path},
                        {"items", folder.items},
                        {"unread", folder.unread},
                        {"entryId", folder.entryId}});
        table.Add({Printable(folder.path), std::to_string(folder.items), std::to_string(folder.unread)});
    }
    Print(options.json, json, table.Text());
    return ExitCode::kDone;
}

// Damaged, read, with attachments; flagged, answered, forwarded.
std::string FlagText(const ItemInfo& item, Marks marks, bool isDamaged)
{
    std::string text = isDamaged ? "D" : "";
    text += marks & kMarkRead ? 'R' : '-';
    text += item.flags & static_cast<LONG>(MSGFLAG_HASATTACH) ? 'A' : '-';
    text += marks & kMarkFlagged ? "!" : "";
    text += marks & kMarkAnswered ? "<" : "";
    text += marks & kMarkForwarded ? ">" : "";
    return text;
}

ExitCode List(const ListOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    if (options.folder.empty())
        return ListAllFolders(options, session);
    const auto rows = ReadSharingRows(mailbox);
    Json json = Json::array();
    Table table({"#", "DATE", "SENDER", "SUBJECT", "SIZE", "FLAGS", "ID"});
    std::size_t number = 0;
    ForEachItem(*FindFolder(session, options.folder), [&](const ItemInfo& item) {
        const auto row = rows.find(item.entryId);
        const std::string id = row == rows.end() ? std::string() : row->second.id;
        ++number;
        const Marks marks = MarksOf(item.flags, item.status);
        const bool isDamaged = !item.hasAddress && IsDamaged(session, item.entryId);
        if (options.json)
            json.push_back({{"number", number},
                            {"subject", item.subject},
                            {"sender", item.sender},
                            {"date", TimeText(item.sent)},
                            {"size", item.size},
                            {"flags", item.flags},
                            {"read", (marks & kMarkRead) != 0},
                            {"flagged", (marks & kMarkFlagged) != 0},
                            {"answered", (marks & kMarkAnswered) != 0},
                            {"forwarded", (marks & kMarkForwarded) != 0},
                            {"damaged", isDamaged},
                            {"id", id},
                            {"entryId", item.entryId}});
        else
            table.Add({std::to_string(number), TimeText(item.sent), Printable(item.sender),
                       Printable(item.subject), std::to_string(item.size), FlagText(item, marks, isDamaged),
                       id});
    });
    Print(options.json, json, options.json ? std::string() : table.Text());
    return ExitCode::kDone;
}

}  // namespace

void AddListCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ListOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "list", "List the folders of a mailbox, or the items of a folder", options, List);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of a folder, as in 'Projects/2026'");
}

}  // namespace quorvane::host
