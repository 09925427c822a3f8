#include <map>

#include "host/commands/command.h"
#include "host/commands/readings.h"
#include "host/mailbox/records.h"
#include "host/mailbox/sharing_rows.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct ConflictsOptions {
    bool json = false;
    std::string mailbox;
};

// Entry identifiers by sharing ID.
using ItemRows = std::map<std::string, std::string>;

ItemRows EntriesById(const Mailbox& mailbox)
{
    ItemRows rows;
    for (const auto& [entryId, row] : ReadSharingRows(mailbox))
        rows.emplace(row.id, entryId);
    return rows;
}

std::string SubjectOfItem(const MailSession& session, const ItemRows& rows, const std::string& id)
{
    const auto row = rows.find(id);
    const ComPtr<IMessage> message = row == rows.end() ? nullptr : OpenMessage(session, row->second, false);
    return message ? TextOf(*message, PR_SUBJECT_W) : std::string();
}

}  // namespace

// What an item shows, and each edit beside it that it beats.
Json ReadConflicts(const Mailbox& mailbox)
{
    const MailSession session(mailbox.Directory().string());
    Records records(mailbox.HostDatabasePath().string());
    const ItemRows rows = EntriesById(mailbox);
    Json json = Json::array();
    for (const ItemRecord& item : records.ItemsInConflict()) {
        const auto share = records.FindShare(item.folderId);
        const std::string folder = share ? share->name : item.folderId;
        const std::string subject = SubjectOfItem(session, rows, item.id);
        for (const exchange::Revision& beaten : item.heads.Beaten()) {
            const std::string copy = exchange::ConflictCopyId(item.id, beaten);
            const auto kept = records.FindItem(copy);
            if (kept && kept->deleted)
                continue;  // resolved
            const std::string member = records.MemberOf(beaten.by);
            const std::string by = member.empty() ? exchange::TextOf(beaten.by) : member;
            json.push_back({{"folder", folder},
                            {"id", item.id},
                            {"subject", subject},
                            {"shown", item.version.member},
                            {"shownSince", TimeText(item.version.stamp)},
                            {"other", by},
                            {"otherSince", TimeText(beaten.stamp)},
                            {"copy", copy},
                            {"copySubject", kept ? SubjectOfItem(session, rows, copy) : std::string()},
                            {"isHere", kept.has_value()}});
        }
    }
    return json;
}

namespace {

ExitCode Conflicts(const ConflictsOptions& options)
{
    const Json json = ReadConflicts(Mailbox::Open(options.mailbox));
    Table table({{"FOLDER", Fit::kShortened},
                 {"SUBJECT", Fit::kShortened},
                 "SHOWN IS BY",
                 "ALSO BY",
                 {"SINCE", Fit::kDropped},
                 "KEPT AS"});
    for (const Json& one : json)
        table.Add({Printable(one.at("folder").get<std::string>()),
                   Printable(one.at("subject").get<std::string>()), one.at("shown").get<std::string>(),
                   one.at("other").get<std::string>(), one.at("otherSince").get<std::string>(),
                   one.at("isHere").get<bool>() ? one.at("copy").get<std::string>() : "not here yet"});
    Print(options.json, json,
          table.Text() + (json.empty()
                              ? "no conflicts\n"
                              : "Both are in the folder. To resolve one, delete the item or its copy.\n"));
    return ExitCode::kDone;
}

}  // namespace

void AddConflictsCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ConflictsOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "conflicts", "List items that were changed by several members at once",
                   options, Conflicts);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
}

}  // namespace quorvane::host
