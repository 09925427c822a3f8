#include "host/commands/command.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct EditOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string item;
    std::string subject;
    bool setSubject = false;
    bool read = false;
    bool unread = false;
};

ExitCode Edit(const EditOptions& options)
{
    if (!options.setSubject && !options.read && !options.unread)
        throw HostError("nothing to change: give --subject, --read or --unread", ExitCode::kUsage);
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const std::string entryId = FindItem(mailbox, *FindFolder(session, options.folder), options.item);
    const ComPtr<IMessage> message = OpenMessage(session, entryId, true);
    if (!message)
        Fail("open the item", options.item, "it is gone");
    if (options.setSubject)
        Check(SetText(*message, PR_SUBJECT_W, options.subject), "change the item", options.item);
    if (options.read || options.unread)
        Check(message->SetReadFlag(options.read ? 0 : CLEAR_READ_FLAG), "change the item", options.item);
    Check(message->SaveChanges(0), "save the item", options.item);
    Print(options.json, {{"changed", entryId}},
          "changed " + Printable(TextOf(*message, PR_SUBJECT_W)) + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddEditCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<EditOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "edit", "Change the subject or the read state of an item", options, Edit);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("ITEM", options->item, "Number in 'list', sharing ID or entry identifier")
        ->required();
    command->add_option_function<std::string>(
        "--subject",
        [options](const std::string& text) {
            options->subject = text;
            options->setSubject = true;
        },
        "New subject");
    CLI::Option* const read = command->add_flag("--read", options->read, "Mark as read");
    command->add_flag("--unread", options->unread, "Mark as unread")->excludes(read);
}

}  // namespace quorvane::host
