#include <algorithm>

#include "host/base/sqlite.h"
#include "host/commands/command.h"
#include "host/mailbox/sharing_rows.h"
#include "host/sharing/message_content.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct CheckOptions {
    bool json = false;
    std::string mailbox;
};

// What is wrong with a mailbox, one line each.
struct CheckReport {
    Json databases = Json::array();
    Json items = Json::array();
    std::string text;

    bool IsSound() const { return databases.empty() && items.empty(); }
};

void CheckDatabase(const std::filesystem::path& path, CheckReport& report)
{
    const std::string file = path.filename().string();
    const auto add = [&](const std::string& what) {
        report.databases.push_back({{"file", file}, {"what", what}});
        report.text += file + ": " + Printable(what) + "\n";
    };
    try {
        Database database(path.string(), Database::Mode::kReadOnly);
        Statement integrity(database, "PRAGMA integrity_check");
        while (integrity.Step())
            if (integrity.Text(0) != "ok")
                add(integrity.Text(0));
        Statement foreign(database, "PRAGMA foreign_key_check");
        while (foreign.Step())
            add("a row of '" + foreign.Text(0) + "' refers to one that '" + foreign.Text(2) + "' hasn't");
    } catch (const HostError& error) {
        add(error.what());
    }
}

void CheckFolder(const MailSession& session, const FolderInfo& folder, CheckReport& report,
                 std::size_t& count)
{
    ForEachItem(*OpenFolder(session, folder.entryId), [&](const ItemInfo& item) {
        ++count;
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
        }
    });
}

// Rows of items whose message is gone: the next run tells the other members, so this is no damage.
std::size_t RowsWithoutMessage(const Mailbox& mailbox, const MailSession& session)
{
    const auto rows = ReadSharingRows(mailbox);
    return static_cast<std::size_t>(std::count_if(rows.begin(), rows.end(), [&](const auto& row) {
        return !OpenMessage(session, row.first, false) && !IsDamaged(session, row.first);
    }));
}

ExitCode CheckMailbox(const CheckOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    CheckReport report;
    for (const auto& path : {mailbox.StorePath(), mailbox.SharingDatabasePath(), mailbox.HostDatabasePath()})
        CheckDatabase(path, report);
    const MailSession session(options.mailbox);
    std::size_t count = 0;
    for (const FolderInfo& folder : ListFolders(session))
        CheckFolder(session, folder, report, count);
    const std::size_t gone = RowsWithoutMessage(mailbox, session);
    Print(options.json,
          {{"sound", report.IsSound()},
           {"checked", count},
           {"databases", report.databases},
           {"items", report.items},
           {"deletionsToTell", gone}},
          report.text + "checked " + std::to_string(count) + " items, " +
              std::to_string(report.items.size()) + " of them damaged\n");
    return report.IsSound() ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void AddCheckCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<CheckOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "check",
                   "Read all of a mailbox: whether its databases are sound and each item can be read",
                   options, CheckMailbox);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
}

}  // namespace quorvane::host
