#include "host/commands/command.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct MoveOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string item;
    std::string target;
};

ExitCode Move(const MoveOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const ComPtr<IMAPIFolder> folder = FindFolder(session, options.folder);
    const ComPtr<IMAPIFolder> target = FindFolder(session, options.target);
    Bytes id = FromHex(FindItem(mailbox, *folder, options.item));
    SBinary binary{static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list{1, &binary};
    Check(folder->CopyMessages(&list, &IID_IMAPIFolder, target.Get(), 0, nullptr, MESSAGE_MOVE),
          "move the item", options.item);
    PrintSentences(options.json, {{"moved", Hex(id)}, {"to", options.target}},
                   "moved the item to " + Printable(options.target) + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddMoveCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<MoveOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "move", "Move an item to another folder", options, Move);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder that the item is in")->required();
    command->add_option("ITEM", options->item, "Number in 'list', sharing ID or entry identifier")
        ->required();
    command->add_option("TARGET", options->target, "Path of the folder to move it to")->required();
}

}  // namespace quorvane::host
