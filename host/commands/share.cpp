#include <algorithm>

#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/exchange/error.h"
#include "host/mailbox/shared_folders.h"
#include "host/sharing/folder_tree.h"
#include "host/sharing/pinning.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

struct ShareOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    std::vector<std::string> members;
    std::string exchange;
    bool flags = false;
    bool tree = false;
};

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

// Whose device becomes known by this, and who is awaited.
struct Introductions {
    std::vector<std::pair<std::string, FoundCard>> pinned;
    std::vector<std::string> awaited;
};

// Somebody whom the user has pinned is who he is. Else the one device of that name in the exchange is his.
Introductions MeetMembers(const ShareOptions& options, Transport* transport, Peers& peers)
{
    Introductions met;
    for (const std::string& member : options.members) {
        const auto known = peers.OfMember(member);
        if (std::any_of(known.begin(), known.end(), [](const Peer& peer) { return peer.IsPinnedByUser(); }))
            continue;
        std::vector<FoundCard> cards;
        if (transport && transport->place.IsReachable())
            cards = FindCards(*transport, member);
        RefuseAmbiguity(member, cards);
        if (cards.empty())
            met.awaited.push_back(member);
        else
            met.pinned.emplace_back(member, std::move(cards.front()));
    }
    return met;
}

Introductions Introduce(const ShareOptions& options, const Mailbox& mailbox)
{
    Peers peers(mailbox.HostDatabasePath().string());
    const std::string exchange = ChosenExchange(mailbox, options.exchange);
    std::unique_ptr<Transport> transport;
    if (!exchange.empty())
        transport = std::make_unique<Transport>(mailbox, PathOf(exchange));
    try {
        Introductions met = MeetMembers(options, transport.get(), peers);
        for (const auto& [member, found] : met.pinned)
            peers.Pin(found.card, found.bytes, member, "name");
        return met;
    } catch (const exchange::Error& error) {
        throw HostError(error.what());
    }
}

Json JsonOf(const Introductions& met)
{
    Json pinned = Json::array();
    for (const auto& [member, found] : met.pinned)
        pinned.push_back({{"member", member},
                          {"device", exchange::TextOf(found.card.Id())},
                          {"fingerprint", exchange::FingerprintOf(found.card.Id())}});
    return pinned;
}

std::string LinesOf(const Introductions& met)
{
    std::string lines;
    for (const auto& [member, found] : met.pinned)
        lines += "pinned " + member + " to device " + ShownDevice(found.card.Id()) +
                 "; compare the words with theirs\n";
    for (const std::string& member : met.awaited)
        lines += member +
                 " has no device in the exchange yet: once it is there, 'quorvane members add' sends it "
                 "what is shared\n";
    return lines;
}

// The folder as it is shared from now on, for the first time or already.
Share SharedNow(const ShareOptions& options, const MailSession& session, Records& records,
                SharedFolders& folders)
{
    const std::string entryId = HexOf(*FindFolder(session, options.folder), PR_ENTRYID);
    if (const auto share = records.FindShareByEntryId(entryId))
        return *share;
    if (options.members.empty())
        Fail(options.tree ? "share what lies in" : "share the flags of", options.folder,
             "it isn't shared yet: give --with");
    const Share share{IdToShare(folders, entryId), entryId, session.StoreId(), options.folder};
    folders.Found(share);
    return share;
}

// The folder, and of a tree all that lies in it and is to be shared with it.
std::vector<Share> AllToShare(const ShareOptions& options, const Share& share, const MailSession& session,
                              Records& records, SharedFolders& folders)
{
    if (!options.tree && !share.isTree)
        return {share};
    folders.ShareAsTree(share.folderId);
    FolderTrees trees(session, records, folders);
    trees.ShareWhatLiesIn(share.isTree ? std::string() : share.entryId);
    return trees.Of(share);
}

void LetIn(const ShareOptions& options, const std::vector<Share>& shares, SharedFolders& folders)
{
    std::vector<std::string> ids;
    for (const Share& share : shares) {
        ids.push_back(share.folderId);
        if (options.flags && (&share == &shares.front() || folders.IsFounder(share.folderId)))
            folders.ShareFlags(share.folderId);
    }
    for (const std::string& member : options.members)
        folders.Invite(ids, member);
}

ExitCode ShareFolder(const ShareOptions& options)
{
    if (options.members.empty() && !options.flags && !options.tree)
        throw HostError(
            "nobody to share with: give --with, or --flags or --tree for a folder that is shared already",
            ExitCode::kUsage);
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    CheckMembers(options, mailbox);
    const MailSession session(options.mailbox);
    FindFolder(session, options.folder);
    const Introductions met = Introduce(options, mailbox);
    Records records(mailbox.HostDatabasePath().string());
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    SharedFolders folders(mailbox.HostDatabasePath().string(), keys);
    const Share share = SharedNow(options, session, records, folders);
    const std::vector<Share> shares = AllToShare(options, share, session, records, folders);
    LetIn(options, shares, folders);
    const Share now = *records.FindShare(share.folderId);
    Json below = Json::array();
    for (const Share& inner : shares)
        if (inner.folderId != share.folderId)
            below.push_back({{"folder", inner.name}, {"id", inner.folderId}});
    PrintSentences(
        options.json,
        {{"folder", options.folder},
         {"id", share.folderId},
         {"members", records.Members(share.folderId)},
         {"pinned", JsonOf(met)},
         {"awaited", met.awaited},
         {"flags", now.hasFlags},
         {"tree", now.isTree},
         {"below", below}},
        LinesOf(met) + "shared " + Printable(options.folder) + " as " + share.folderId + " with " +
            Counted(records.Members(share.folderId).size(), "member") +
            (now.hasFlags ? ", flags included" : "") +
            (now.isTree ? ", and " + Counted(below.size(), "folder") + " in it, and those made later" : "") +
            "; 'quorvane run' invites them\n");
    return ExitCode::kDone;
}

}  // namespace

void AddShareCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ShareOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "share",
        "Share a folder with named members: 'run' invites those who are new, and sends all its items to them "
        "alone, once they accept",
        options, ShareFolder);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of the folder")->required();
    command->add_option("--with", options->members, "Names of the members' mailboxes");
    command->add_flag(
        "--flags", options->flags,
        "Members share what they make of items, too: whether they are read, flagged, answered or "
        "forwarded. Who founded the folder decides it, for good");
    command->add_flag("--tree", options->tree,
                      "All folders in it are shared with its members, too, those that are made there later "
                      "by 'run'; also of a folder that is shared already");
    command->add_option("--exchange", options->exchange,
                        "Directory of the exchange, where none is remembered");
}

}  // namespace quorvane::host
