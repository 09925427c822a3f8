#include <algorithm>

#include "host/commands/command.h"
#include "host/mailbox/records.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct ResendOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string member;
    bool all = false;
    std::string since;
};

struct CancelOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::string member;
};

ExitCode Resend(const ResendOptions& options)
{
    const std::uint64_t since = TimeNamed(options.since);
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    Records records(mailbox.HostDatabasePath().string());
    const Share share = FindSharedFolder(records, options.mailbox, options.folder);
    const auto members = records.Members(share.folderId);
    if (std::find(members.begin(), members.end(), options.member) == members.end())
        Fail("resend to", options.member, "no such member of " + options.folder + " (see 'quorvane share')");
    records.AddResend(share.folderId, options.member,
                      options.all ? ResendScope::kEverything : ResendScope::kChanged, since);
    PrintSentences(options.json,
                   {{"folder", options.folder}, {"id", share.folderId}, {"member", options.member}},
                   "noted; 'quorvane run' sends " + Printable(options.folder) + " to " + options.member +
                       ", also one that is under way\n");
    return ExitCode::kDone;
}

ExitCode Cancel(const CancelOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    Records records(mailbox.HostDatabasePath().string());
    std::string folderId;
    if (!options.folder.empty())
        folderId = FindSharedFolder(records, options.mailbox, options.folder).folderId;
    const int cancelled = records.CancelResends(folderId, options.member);
    PrintSentences(
        options.json, {{"cancelled", cancelled}},
        "cancelled " + std::to_string(cancelled) + "; 'quorvane resend' goes on with what is left\n");
    return ExitCode::kDone;
}

}  // namespace

void AddResendCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ResendOptions>();
    CLI::App* const command = AddCommand(program, chosen, "resend",
                                         "Send a member what it hasn't got of a folder: the rest of what was "
                                         "cancelled, and what changed since it was "
                                         "sent last; or with --all everything once more",
                                         options, Resend);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the shared folder")->required();
    command->add_option("--to", options->member, "Name of the member's mailbox")->required();
    command->add_flag("--all", options->all, "Every item, also those that it has");
    command->add_option(
        "--since", options->since,
        "Only items of this date or later: 2026-11-21, or 2026-11-21T06:16:47Z (when the mail was "
        "sent; of an item that never was, when it was changed)");
}

void AddCancelCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<CancelOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "cancel", "Stop sending folders to single members; changes go on being sent to all",
        options, Cancel);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the shared folder (default: all)");
    command->add_option("--to", options->member, "Name of the member's mailbox (default: all)");
}

}  // namespace quorvane::host
