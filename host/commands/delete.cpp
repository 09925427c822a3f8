#include "host/commands/command.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct DeleteOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> items;
};

ExitCode Delete(const DeleteOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, options.folder);
    // All are found before the first goes: the numbers are those of the list that the user saw.
    std::vector<Bytes> ids;
    for (const std::string& item : options.items)
        ids.push_back(FromHex(FindItem(mailbox, *folder, item)));
    std::vector<SBinary> binaries;
    Json json = Json::array();
    for (Bytes& id : ids) {
        binaries.push_back({static_cast<ULONG>(id.size()), id.data()});
        json.push_back(Hex(id));
    }
    ENTRYLIST list{static_cast<ULONG>(binaries.size()), binaries.data()};
    Check(folder->DeleteMessages(&list, 0, nullptr, 0), "delete items of", options.folder);
    PrintSentences(options.json, {{"deleted", json}},
                   "deleted " + std::to_string(ids.size()) + " of " + Printable(options.folder) + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddDeleteCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<DeleteOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "delete", "Delete items of a folder", options, Delete);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("ITEM", options->items, "Numbers in 'list', sharing IDs or entry identifiers")
        ->required();
}

}  // namespace quorvane::host
