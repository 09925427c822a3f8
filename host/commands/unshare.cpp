#include <algorithm>

#include "host/commands/command.h"
#include "host/mailbox/device.h"
#include "host/mailbox/shared_folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct UnshareOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> members;
};

ExitCode LeaveFolder(const UnshareOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    SharedFolders folders(mailbox.HostDatabasePath().string(), keys);
    Records records(mailbox.HostDatabasePath().string());
    const Share share = FindSharedFolder(records, options.mailbox, options.folder);
    const auto members = records.Members(share.folderId);
    const bool isLastOfFounder = folders.IsFounder(share.folderId) &&
                                 std::find(members.begin(), members.end(), mailbox.Name()) == members.end();
    folders.Leave(share.folderId);
    Print(options.json, {{"folder", share.name}, {"id", share.folderId}},
          "left " + Printable(share.name) + ", which stays here as it is; 'quorvane run' tells its members" +
              (isLastOfFounder ? ", whom nobody can take out any more\n" : "\n"));
    return ExitCode::kDone;
}

ExitCode Unshare(const UnshareOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    SharedFolders folders(mailbox.HostDatabasePath().string(), keys);
    Records records(mailbox.HostDatabasePath().string());
    const Share share = FindSharedFolder(records, options.mailbox, options.folder);
    const auto members = records.Members(share.folderId);
    for (const std::string& member : options.members)
        if (std::find(members.begin(), members.end(), member) == members.end())
            Fail("take '" + member + "' out of", share.name, "no such member");
    for (const std::string& member : options.members)
        folders.Remove(share.folderId, member);
    if (options.members.empty())
        folders.Dissolve(share.folderId);
    Print(
        options.json,
        {{"folder", share.name},
         {"id", share.folderId},
         {"members", options.members.empty() ? std::vector<std::string>() : records.Members(share.folderId)}},
        (options.members.empty() ? Printable(share.name) + " isn't shared any more"
                                 : "taken out of " + Printable(share.name)) +
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
}

}  // namespace quorvane::host
