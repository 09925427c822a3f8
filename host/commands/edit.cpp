#include "host/commands/command.h"
#include "host/store/item_marks.h"
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
    Marks set = 0;
    Marks cleared = 0;
};

struct MarkOption {
    Marks mark;
    const char* set;
    const char* clear;
    const char* name;
};

constexpr MarkOption kMarkOptions[] = {
    {kMarkRead, "--read", "--unread", "read"},
    {kMarkFlagged, "--flag", "--unflag", "flagged"},
    {kMarkAnswered, "--answered", "--unanswered", "answered"},
    {kMarkForwarded, "--forwarded", "--unforwarded", "forwarded"},
    {kMarkDraft, "--draft", "--no-draft", "draft"},
    {kMarkForDeletion, "--for-deletion", "--not-for-deletion", "forDeletion"},
};

void ChangeSubject(IMessage& message, const EditOptions& options)
{
    Check(SetText(message, PR_SUBJECT_W, options.subject), "change the item", options.item);
    Check(message.SaveChanges(KEEP_OPEN_READWRITE), "save the item", options.item);
}

Json JsonOf(const std::string& entryId, Marks marks)
{
    Json json{{"changed", entryId}};
    for (const MarkOption& option : kMarkOptions)
        json[option.name] = (marks & option.mark) != 0;
    return json;
}

// Marks are set beside the item: it is written only where its subject changes.
ExitCode Edit(const EditOptions& options)
{
    const auto marks = static_cast<Marks>(options.set | options.cleared);
    if (!options.setSubject && marks == 0)
        throw HostError(
            "nothing to change: give --subject, --read, --flag, --answered, --forwarded, --draft, --for-deletion "
            "or an opposite",
            ExitCode::kUsage);
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    const std::string entryId = FindItem(mailbox, *FindFolder(session, options.folder), options.item);
    const ComPtr<IMessage> message = OpenMessage(session, entryId, true);
    if (!message)
        Fail("open the item", options.item, "it is gone");
    if (options.setSubject)
        ChangeSubject(*message, options);
    if (marks != 0 && !SetMarks(session, entryId, options.set, marks))
        Fail("mark the item", options.item, "it is gone");
    const ComPtr<IMessage> changed = OpenMessage(session, entryId, false);
    if (!changed)
        Fail("open the item", options.item, "it is gone");
    PrintSentences(options.json, JsonOf(entryId, MarksOf(*changed)),
                   "changed " + Printable(TextOf(*changed, PR_SUBJECT_W)) + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddEditCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<EditOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "edit",
        "Change an item's subject, or mark it as read, flagged, answered or forwarded", options, Edit);
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
    for (const MarkOption& mark : kMarkOptions) {
        const auto note = [options, bit = mark.mark](Marks EditOptions::*set) {
            return [options, bit, set] { (*options).*set = static_cast<Marks>((*options).*set | bit); };
        };
        CLI::Option* const set = command->add_flag_callback(mark.set, note(&EditOptions::set),
                                                            std::string("Mark as ") + mark.name);
        command
            ->add_flag_callback(mark.clear, note(&EditOptions::cleared),
                                std::string("Mark as not ") + mark.name)
            ->excludes(set);
    }
}

}  // namespace quorvane::host
