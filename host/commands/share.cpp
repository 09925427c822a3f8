#include "host/announcement.h"
#include "host/command.h"
#include "host/properties.h"
#include "host/records.h"

namespace quorvane::host {

namespace {

struct ShareOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> members;
};

std::string NewFolderId()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), "make an identifier for", "the folder");
    OLECHAR text[40] = {};
    StringFromGUID2(guid, text, 40);
    return ToUtf8(text);
}

void CheckMembers(const ShareOptions& options, const Mailbox& mailbox)
{
    for (const std::string& member : options.members) {
        if (!IsMemberName(member))
            throw HostError("cannot share with '" + member + "': that is no member name", ExitCode::kUsage);
        if (member == mailbox.Name())
            throw HostError("cannot share with '" + member + "': that is this mailbox itself",
                            ExitCode::kUsage);
    }
}

ExitCode ShareFolder(const ShareOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    CheckMembers(options, mailbox);
    const MailSession session(options.mailbox);
    const std::string entryId = HexOf(*FindFolder(session, options.folder), PR_ENTRYID);
    Records records(mailbox.HostDatabasePath().string());
    auto share = records.FindShareByEntryId(entryId);
    if (!share) {
        share = Share{NewFolderId(), entryId, session.StoreId(), options.folder};
        records.AddShare(*share);
    }
    for (const std::string& member : options.members)
        records.AddMember(share->folderId, member);
    Print(
        options.json,
        {{"folder", options.folder}, {"id", share->folderId}, {"members", records.Members(share->folderId)}},
        "shared " + Printable(options.folder) + " as " + share->folderId + " with " +
            std::to_string(records.Members(share->folderId).size()) + " members; 'quorvane run' sends it\n");
    return ExitCode::kDone;
}

}  // namespace

void AddShareCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ShareOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "share",
                   "Share a folder with named members: 'run' announces it to those who are new, and sends them alone all "
                   "its items",
                   options, ShareFolder);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("--with", options->members, "Names of the members' mailboxes")->required();
}

}  // namespace quorvane::host
