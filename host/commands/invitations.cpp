#include "host/commands/command.h"
#include "host/mailbox/device.h"
#include "host/sharing/join_folder.h"

namespace quorvane::host {

namespace {

struct InvitationsOptions {
    bool json = false;
    std::string mailbox;
};

struct AnswerOptions {
    bool json = false;
    std::string mailbox;
    std::string id;
    JoinPlace place;
};

// The records that an answer to an invitation is about.
struct Answering {
    explicit Answering(const std::string& directory)
        : mailbox(Mailbox::Open(directory)),
          keys(ReadDeviceKeys(mailbox)),
          folders(mailbox.HostDatabasePath().string(), keys),
          peers(mailbox.HostDatabasePath().string())
    {}

    std::optional<Peer> InviterOf(const KnownFolder& invitation)
    {
        const auto id = exchange::ParseDeviceId(invitation.inviter);
        return id ? peers.Find(*id) : std::nullopt;
    }

    const Mailbox mailbox;
    const exchange::DeviceKeys keys;
    SharedFolders folders;
    Peers peers;
};

ExitCode Invitations(const InvitationsOptions& options)
{
    Answering answering(options.mailbox);
    Table table({"ID",
                 {"FOLDER", Fit::kShortened},
                 "FROM",
                 "FINGERPRINT",
                 {"KNOWN BY", Fit::kDropped},
                 {"SINCE", Fit::kDropped}});
    Json json = Json::array();
    for (const KnownFolder& invitation : answering.folders.Invitations()) {
        const auto peer = answering.InviterOf(invitation);
        const std::string member = peer ? peer->member : "", how = peer ? peer->how : "";
        const std::string words = peer ? exchange::FingerprintOf(peer->id) : "";
        json.push_back({{"id", invitation.Id()},
                        {"folder", invitation.name},
                        {"from", member},
                        {"device", invitation.inviter},
                        {"fingerprint", words},
                        {"how", how},
                        {"since", TimeText(invitation.since)}});
        table.Add(
            {invitation.Id(), Printable(invitation.name), member, words, how, TimeText(invitation.since)});
    }
    Print(options.json, json, table.Text());
    return ExitCode::kDone;
}

ExitCode Accept(const AnswerOptions& options)
{
    if (!options.place.as.empty() && !options.place.into.empty())
        throw HostError("--as makes a new folder and --into joins one that is there: give one of them",
                        ExitCode::kUsage);
    Answering answering(options.mailbox);
    const KnownFolder invitation = answering.folders.FindInvitation(options.id);
    const auto peer = answering.InviterOf(invitation);
    const MailSession session(options.mailbox);
    Records records(answering.mailbox.HostDatabasePath().string());
    const Share share = JoinFolder(invitation, options.place, session, records, answering.folders,
                                   peer ? peer->member : "shared");
    Print(options.json, {{"folder", share.name}, {"id", share.folderId}, {"invitation", invitation.Id()}},
          "accepted " + Printable(invitation.name) + " as the folder " + Printable(share.name) +
              "; 'quorvane run' asks for what it holds\n");
    return ExitCode::kDone;
}

ExitCode Decline(const AnswerOptions& options)
{
    Answering answering(options.mailbox);
    const KnownFolder invitation = answering.folders.FindInvitation(options.id);
    answering.folders.Decline(invitation);
    Print(options.json, {{"folder", invitation.name}, {"invitation", invitation.Id()}},
          "declined " + Printable(invitation.name) + "; 'quorvane run' tells who shares it\n");
    return ExitCode::kDone;
}

CLI::App* AddAnswer(CLI::App& program, Chosen& chosen, const char* name, const char* help,
                    const std::shared_ptr<AnswerOptions>& options, ExitCode (*work)(const AnswerOptions&))
{
    CLI::App* const command = AddCommand(program, chosen, name, help, options, work);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("ID", options->id, "The invitation's id, or its beginning ('quorvane invitations')")
        ->required();
    return command;
}

}  // namespace

void AddInvitationsCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<InvitationsOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "invitations",
                   "Show the folders that others would share with this mailbox", options, Invitations);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
}

void AddAcceptCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<AnswerOptions>();
    CLI::App* const command = AddAnswer(
        program, chosen, "accept",
        "Accept a folder that somebody shares: it becomes a new folder, and 'run' asks for what it holds",
        options, Accept);
    command->add_option("--as", options->place.as, "Path of the new folder, where its own name isn't wanted");
    command->add_option("--into", options->place.into,
                        "Path of a folder that is there: it becomes the shared one, with all that it holds");
}

void AddDeclineCommand(CLI::App& program, Chosen& chosen)
{
    AddAnswer(program, chosen, "decline", "Decline a folder that somebody shares",
              std::make_shared<AnswerOptions>(), Decline);
}

}  // namespace quorvane::host
