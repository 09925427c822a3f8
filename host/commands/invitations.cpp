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
    bool tree = false;
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
        const auto outer = answering.folders.OuterOf(invitation);
        json.push_back({{"id", invitation.Id()},
                        {"folder", invitation.name},
                        {"in", outer ? outer->Id() : ""},
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

// The folder that a user means who has accepted it before: by the path that it has here, or as an invitation.
std::optional<KnownFolder> FindAccepted(const std::string& named, const MailSession& session,
                                        Records& records, SharedFolders& folders)
{
    for (const FolderInfo& folder : ListFolders(session))
        if (const auto share =
                folder.path == named ? records.FindShareByEntryId(folder.entryId) : std::nullopt)
            return folders.FindHere(share->folderId);
    for (const KnownFolder& folder : folders.HereAndInvited())
        if (folder.state == KnownFolder::State::kHere && folder.Id() == named)
            return folder;
    return std::nullopt;
}

void PrintAccepted(const AnswerOptions& options, const KnownFolder& folder, const Share& share,
                   const JoinedTree& tree)
{
    Json below = Json::array();
    std::string lines;
    for (const JoinedTree::Joined& inner : tree.joined) {
        below.push_back({{"folder", inner.share.name},
                         {"id", inner.share.folderId},
                         {"invitation", inner.invitation.Id()}});
        lines += "accepted " + Printable(inner.invitation.name) + " as the folder " +
                 Printable(inner.share.name) + "\n";
    }
    for (const std::string& failure : tree.failures)
        lines += Printable(failure) + "\n";
    PrintSentences(options.json,
                   {{"folder", share.name},
                    {"id", share.folderId},
                    {"invitation", folder.Id()},
                    {"tree", options.tree},
                    {"below", below},
                    {"failures", tree.failures}},
                   lines + "accepted " + Printable(folder.name) + " as the folder " + Printable(share.name) +
                       (options.tree ? ", with all that its founder shares in it" : "") +
                       "; 'quorvane run' asks for what " + (below.empty() ? "it holds\n" : "they hold\n"));
}

ExitCode Accept(const AnswerOptions& options)
{
    if (!options.place.as.empty() && !options.place.into.empty())
        throw HostError("--as makes a new folder and --into joins one that is there: give one of them",
                        ExitCode::kUsage);
    Answering answering(options.mailbox);
    const MailSession session(options.mailbox);
    Records records(answering.mailbox.HostDatabasePath().string());
    std::optional<KnownFolder> folder;
    if (options.tree)
        folder = FindAccepted(options.id, session, records, answering.folders);
    if (!folder) {
        folder = answering.folders.FindInvitation(options.id);
        const auto peer = answering.InviterOf(*folder);
        JoinFolder(*folder, options.place, session, records, answering.folders,
                   peer ? peer->member : "shared");
    }
    const Share share = records.FindShare(folder->folderId).value();
    JoinedTree tree;
    if (options.tree)
        tree = JoinTree(*folder, session, records, answering.folders, answering.peers);
    PrintAccepted(options, *folder, share, tree);
    return tree.failures.empty() ? ExitCode::kDone : ExitCode::kFailed;
}

ExitCode Decline(const AnswerOptions& options)
{
    Answering answering(options.mailbox);
    const KnownFolder invitation = answering.folders.FindInvitation(options.id);
    answering.folders.Decline(invitation);
    PrintSentences(options.json, {{"folder", invitation.name}, {"invitation", invitation.Id()}},
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
    command->add_flag(
        "--tree", options->tree,
        "All folders that its founder shares in it are accepted, too, now and later; instead of "
        "ID, the path of a folder that was accepted before may be given");
}

void AddDeclineCommand(CLI::App& program, Chosen& chosen)
{
    AddAnswer(program, chosen, "decline", "Decline a folder that somebody shares",
              std::make_shared<AnswerOptions>(), Decline);
}

}  // namespace quorvane::host
