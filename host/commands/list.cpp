#include <unordered_map>

#include "host/commands/command.h"
#include "host/mailbox/sharing_rows.h"
#include "host/store/item_marks.h"
#include "host/store/item_search.h"

namespace quorvane::host {

namespace {

struct ListOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> words;
    std::string sort;
    bool isReversed = false;
};

ExitCode ListAllFolders(const ListOptions& options, const MailSession& session)
{
    Json json = Json::array();
    Table table({{"FOLDER", Fit::kShortened}, "ITEMS", "UNREAD"});
    for (const FolderInfo& folder : ListFolders(session)) {
        json.push_back({{"folder", folder.path},
                        {"items", folder.items},
                        {"unread", folder.unread},
                        {"entryId", folder.entryId}});
        table.Add({Printable(folder.path), std::to_string(folder.items), std::to_string(folder.unread)},
                  folder.unread > 0 ? Table::Row::kStrong : Table::Row::kPlain);
    }
    Print(options.json, json, table.Text());
    return ExitCode::kDone;
}

// Damaged, read, with attachments; flagged, answered, forwarded, a draft, for deletion.
std::string FlagText(const ItemInfo& item, Marks marks, bool isDamaged)
{
    std::string text = isDamaged ? "D" : "";
    text += marks & kMarkRead ? 'R' : '-';
    text += item.flags & static_cast<LONG>(MSGFLAG_HASATTACH) ? 'A' : '-';
    text += marks & kMarkFlagged ? "!" : "";
    text += marks & kMarkAnswered ? "<" : "";
    text += marks & kMarkForwarded ? ">" : "";
    text += marks & kMarkDraft ? "d" : "";
    text += marks & kMarkForDeletion ? "x" : "";
    return text;
}

constexpr std::pair<const char*, ItemOrder> kOrders[] = {{"date", ItemOrder::kDate},
                                                         {"sender", ItemOrder::kSender},
                                                         {"subject", ItemOrder::kSubject},
                                                         {"size", ItemOrder::kSize}};

ItemOrder OrderOf(const ListOptions& options)
{
    for (const auto& [name, order] : kOrders)
        if (options.sort == name)
            return order;
    return ItemOrder::kFolder;
}

// An item and its number in its folder.
struct NumberedItem {
    std::size_t number = 0;
    ItemInfo item;
};

// Lists items as a table, or as JSON.
class ItemList {
public:
    ItemList(const Mailbox& mailbox, const MailSession& session, bool asJson)
        : session_(session), rows_(ReadSharingRows(mailbox)), asJson_(asJson)
    {}

    void Add(std::size_t number, const ItemInfo& item)
    {
        const auto row = rows_.find(item.entryId);
        const std::string id = row == rows_.end() ? std::string() : row->second.id;
        const Marks marks = MarksOf(item.flags, item.status);
        const bool isDamaged = !item.hasAddress && IsDamaged(session_, item.entryId);
        if (asJson_)
            json_.push_back(JsonOf(number, item, marks, isDamaged, id));
        else
            table_.Add(
                {std::to_string(number), TimeText(item.sent), Printable(item.sender), Printable(item.subject),
                 std::to_string(item.size), FlagText(item, marks, isDamaged), id},
                isDamaged                  ? Table::Row::kAlarm
                : (marks & kMarkRead) == 0 ? Table::Row::kStrong
                                           : Table::Row::kPlain);
    }
    void Print() const { host::Print(asJson_, json_, asJson_ ? std::string() : table_.Text()); }

private:
    static Json JsonOf(std::size_t number, const ItemInfo& item, Marks marks, bool isDamaged,
                       const std::string& id)
    {
        return {{"number", number},
                {"subject", item.subject},
                {"sender", item.sender},
                {"date", TimeText(item.sent)},
                {"size", item.size},
                {"flags", item.flags},
                {"read", (marks & kMarkRead) != 0},
                {"flagged", (marks & kMarkFlagged) != 0},
                {"answered", (marks & kMarkAnswered) != 0},
                {"forwarded", (marks & kMarkForwarded) != 0},
                {"draft", (marks & kMarkDraft) != 0},
                {"forDeletion", (marks & kMarkForDeletion) != 0},
                {"damaged", isDamaged},
                {"id", id},
                {"entryId", item.entryId}};
    }

    const MailSession& session_;
    const std::unordered_map<std::string, SharingRow> rows_;
    const bool asJson_;
    Json json_ = Json::array();
    Table table_{{"#",
                  "DATE",
                  {"SENDER", Fit::kShortened},
                  {"SUBJECT", Fit::kShortened},
                  "SIZE",
                  "FLAGS",
                  {"ID", Fit::kDropped}}};
};

// In the order asked for. Numbers are those that items have in the folder, by which other commands know them.
std::vector<NumberedItem> FoundItems(IMAPIFolder& folder, const ListOptions& options)
{
    ItemSearch search(options.words);
    const std::vector<std::string> found = FindItems(folder, search, OrderOf(options), options.isReversed);
    std::unordered_map<std::string_view, std::size_t> places;
    for (const std::string& entryId : found)
        places.emplace(entryId, places.size());
    std::vector<NumberedItem> items(found.size());
    std::size_t number = 0;
    ForEachItem(folder, [&](const ItemInfo& item) {
        ++number;
        if (const auto place = places.find(item.entryId); place != places.end())
            items[place->second] = {number, item};
    });
    // Those that went between the two looks.
    std::erase_if(items, [](const NumberedItem& item) { return item.number == 0; });
    return items;
}

ExitCode List(const ListOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    if (options.folder.empty())
        return ListAllFolders(options, session);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, options.folder);
    ItemList list(mailbox, session, options.json);
    if (options.words.empty() && options.sort.empty() && !options.isReversed) {
        std::size_t number = 0;
        ForEachItem(*folder, [&](const ItemInfo& item) { list.Add(++number, item); });
    } else {
        for (const NumberedItem& found : FoundItems(*folder, options))
            list.Add(found.number, found.item);
    }
    list.Print();
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
    command->add_option(
        "WORDS", options->words,
        "Items that hold all of them: TEXT (subject or sender), from:TEXT, to:TEXT, subject:TEXT, "
        "body:TEXT, date:2026-11, date:2026-11-01..2026-11-15, is:read, is:unread, is:flagged, "
        "is:answered, is:forwarded, has:attachment");
    std::vector<std::string> names;
    for (const auto& [name, order] : kOrders)
        names.emplace_back(name);
    command->add_option("--sort", options->sort, "Order them by this")->check(CLI::IsMember(names));
    command->add_flag("--reverse", options->isReversed, "The last one first");
}

}  // namespace quorvane::host
