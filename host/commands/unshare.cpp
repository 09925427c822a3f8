#include <algorithm>

#include "host/commands/command.h"
#include "host/mailbox/device.h"
#include "host/mailbox/shared_folders.h"
#include "host/sharing/folder_tree.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct UnshareOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> members;
    bool tree = false;
};

// What a command ends the sharing of.
struct Ending {
    explicit Ending(const UnshareOptions& options)
        : mailbox(Mailbox::Open(options.mailbox)),
          keys(ReadDeviceKeys(mailbox)),
          folders(mailbox.HostDatabasePath().string(), keys),
          records(mailbox.HostDatabasePath().string()),
          share(FindSharedFolder(records, options.mailbox, options.folder)),
          shares{share}
    {
        if (!options.tree)
            return;
        const MailSession session(options.mailbox);
        shares = FolderTrees(session, records, folders).Of(share);
        // What else is shared by whom isn't his who shares this one.
        const bool isFounder = folders.IsFounder(share.folderId);
        std::erase_if(shares, [&](const Share& inner) {
            return inner.folderId != share.folderId && folders.IsFounder(inner.folderId) != isFounder;
        });
    }

    bool HasMember(const Share& in, const std::string& member)
    {
        const auto members = records.Members(in.folderId);
        return std::find(members.begin(), members.end(), member) != members.end();
    }
    Json Below() const
    {
        Json below = Json::array();
        for (const Share& inner : shares)
            if (inner.folderId != share.folderId)
                below.push_back({{"folder", inner.name}, {"id", inner.folderId}});
        return below;
    }
    std::string Text() const
    {
        return Printable(share.name) +
               (shares.size() > 1 ? " with " + std::to_string(shares.size() - 1) + " folders in it" : "");
    }

    const Mailbox mailbox;
    const exchange::DeviceKeys keys;
    SharedFolders folders;
    Records records;
    const Share share;          // the one that the user named
    std::vector<Share> shares;  // with it, those of the tree that he means
};

ExitCode LeaveFolder(const UnshareOptions& options)
{
    Ending ending(options);
    const Json below = ending.Below();
    const std::string text = ending.Text();
    const bool isLastOfFounder = ending.folders.IsFounder(ending.share.folderId) &&
                                 !ending.HasMember(ending.share, ending.mailbox.Name());
    for (auto share = ending.shares.rbegin(); share != ending.shares.rend(); ++share)
        ending.folders.Leave(share->folderId);
    PrintSentences(options.json,
                   {{"folder", ending.share.name}, {"id", ending.share.folderId}, {"below", below}},
                   "left " + text + ", which stays here as it is; 'quorvane run' tells its members" +
                       (isLastOfFounder ? ", whom nobody can take out any more\n" : "\n"));
    return ExitCode::kDone;
}

// From a tree, nobody is taken out by halves.
void CheckWhole(const UnshareOptions& options, const Share& share)
{
    if (share.isTree && !options.tree)
        Fail("end the sharing of", share.name, "it is shared with all that lies in it: say --tree");
}

ExitCode Unshare(const UnshareOptions& options)
{
    Ending ending(options);
    CheckWhole(options, ending.share);
    for (const std::string& member : options.members)
        if (std::none_of(ending.shares.begin(), ending.shares.end(),
                         [&](const Share& share) { return ending.HasMember(share, member); }))
            Fail("take '" + member + "' out of", ending.share.name, "no such member");
    // Inner ones first: what is stopped halfway is found again from the outermost.
    for (auto share = ending.shares.rbegin(); share != ending.shares.rend(); ++share) {
        for (const std::string& member : options.members)
            ending.folders.Remove(share->folderId, member);
        if (options.members.empty())
            ending.folders.Dissolve(share->folderId);
    }
    PrintSentences(options.json,
                   {{"folder", ending.share.name},
                    {"id", ending.share.folderId},
                    {"members", options.members.empty() ? std::vector<std::string>()
                                                        : ending.records.Members(ending.share.folderId)},
                    {"below", ending.Below()}},
                   (options.members.empty() ? ending.Text() + " isn't shared any more"
                                            : "taken out of " + ending.Text()) +
                       "; what members have they keep; 'quorvane run' tells them\n");
    return ExitCode::kDone;
}

}  // namespace

Share FindSharedFolder(Records& records, const std::string& mailbox, const std::string& folder)
{
    const MailSession session(mailbox);
    const auto share = records.FindShareByEntryId(HexOf(*FindFolder(session, folder), PR_ENTRYID));
    if (!share)
        Fail("find the shared folder", folder, "the folder isn't shared");
    return *share;
}

void AddLeaveCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<UnshareOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "leave",
                   "Take part in a shared folder no more: it stays as it is, here and at its members",
                   options, LeaveFolder);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_flag("--tree", options->tree, "And in all folders in it that the same founder shares");
}

void AddUnshareCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<UnshareOptions>();
    CLI::App* const command = AddCommand(program, chosen, "unshare",
                                         "Take members out of a folder that this mailbox founded, or end its "
                                         "sharing; what they have they keep",
                                         options, Unshare);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("--with", options->members, "Names of members; without it everybody is taken out");
    command->add_flag(
        "--tree", options->tree,
        "The same of all folders in it that this mailbox founded; needed for one that is shared "
        "with all that lies in it");
}

}  // namespace quorvane::host
