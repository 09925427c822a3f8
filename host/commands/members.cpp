#include <algorithm>

#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/exchange/error.h"
#include "host/mailbox/shared_folders.h"
#include "host/sharing/pinning.h"

namespace quorvane::host {

namespace {

struct MembersOptions {
    bool json = false;
    std::string mailbox;
    std::string exchange;
    std::string added;
    std::string device;
    std::string dropped;
    std::string removed;
    std::string linked;
    std::string unlinked;
};

std::string ExchangeOf(const Mailbox& mailbox, const MembersOptions& options)
{
    const std::string exchange = ChosenExchange(mailbox, options.exchange);
    if (exchange.empty())
        throw HostError("no exchange is known yet: name it by --exchange", ExitCode::kUsage);
    return exchange;
}

exchange::DeviceId DeviceIn(const std::string& text)
{
    const auto id = exchange::ParseDeviceId(text);
    if (!id)
        throw HostError("'" + text + "' is no device: 32 digits 0 to 9 and a to f", ExitCode::kUsage);
    return *id;
}

FoundCard ChooseCard(Transport& transport, const MembersOptions& options)
{
    if (!options.device.empty())
        return FindCard(transport, DeviceIn(options.device), options.added);
    std::vector<FoundCard> cards = FindCards(transport, options.added);
    RefuseAmbiguity(options.added, cards);
    if (cards.empty())
        Fail("pin a device of", options.added,
             "the exchange has no card of that name that isn't pinned already");
    return std::move(cards.front());
}

ExitCode Add(const MembersOptions& options, const Mailbox& mailbox)
{
    if (!IsMemberName(options.added) || options.added == mailbox.Name())
        throw HostError("'" + options.added + "' is no name of another member", ExitCode::kUsage);
    Transport transport(mailbox, PathOf(ExchangeOf(mailbox, options)));
    const FoundCard found = ChooseCard(transport, options);
    const exchange::DeviceId id = found.card.Id();
    if (const auto peer = transport.peers.Find(id);
        peer && peer->IsPinnedByUser() && peer->member != options.added)
        Fail("pin the device", exchange::TextOf(id), "it is pinned to '" + peer->member + "' already");
    transport.peers.Pin(found.card, found.bytes, options.added, options.device.empty() ? "name" : "device");
    transport.folders.Settle();
    PrintSentences(
        options.json,
        {{"member", options.added},
         {"device", exchange::TextOf(id)},
         {"fingerprint", exchange::FingerprintOf(id)}},
        "pinned " + options.added + " to device " + ShownDevice(id) + "; compare the words with theirs\n");
    return ExitCode::kDone;
}

ExitCode Drop(const MembersOptions& options, const Mailbox& mailbox)
{
    Peers peers(mailbox.HostDatabasePath().string());
    const auto id = exchange::ParseDeviceId(options.dropped);
    const auto peer = id ? peers.Find(*id) : std::nullopt;
    if (!peer)
        Fail("forget the device", options.dropped, "no device of that id is known");
    peers.Drop(*id);
    PrintSentences(options.json, {{"member", peer->member}, {"dropped", options.dropped}},
                   "forgot the device " + options.dropped + " of " + peer->member + "\n");
    return ExitCode::kDone;
}

// Out of all that was shared by this mailbox, and with no device known.
ExitCode Remove(const MembersOptions& options, const Mailbox& mailbox)
{
    if (options.removed == mailbox.Name())
        throw HostError("'" + options.removed +
                            "' is this mailbox's own member: 'quorvane leave' ends its part in a folder, "
                            "'quorvane members unlink' that of another device",
                        ExitCode::kUsage);
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    Peers peers(mailbox.HostDatabasePath().string());
    SharedFolders folders(mailbox.HostDatabasePath().string(), keys);
    Records records(mailbox.HostDatabasePath().string());
    const auto devices = peers.OfMember(options.removed);
    Json out = Json::array(), in = Json::array();
    std::string lines;
    for (const Share& share : records.Shares()) {
        const auto members = records.Members(share.folderId);
        if (std::find(members.begin(), members.end(), options.removed) == members.end())
            continue;
        const bool mayRemove = folders.IsFounder(share.folderId);
        if (mayRemove)
            folders.Remove(share.folderId, options.removed);
        (mayRemove ? out : in).push_back(share.name);
        lines += (mayRemove ? "taken out of " : "still shares, by its founder's word, ") +
                 Printable(share.name) + "\n";
    }
    if (devices.empty() && out.empty() && in.empty())
        Fail("remove the member", options.removed, "nobody of that name is known");
    for (const Peer& peer : devices)
        peers.Drop(peer.id);
    folders.Settle();
    PrintSentences(
        options.json,
        {{"member", options.removed}, {"devices", devices.size()}, {"takenOutOf", out}, {"stillIn", in}},
        lines + "removed " + options.removed +
            ": nothing more is sealed to them or taken from them; what they have "
            "they keep\n");
    return ExitCode::kDone;
}

// Both devices say it, in whatever order: the other one agrees by its card.
ExitCode Link(const MembersOptions& options, const Mailbox& mailbox)
{
    const exchange::DeviceId id = DeviceIn(options.linked);
    if (options.linked == mailbox.Device())
        throw HostError("'" + options.linked + "' is this device itself", ExitCode::kUsage);
    Transport transport(mailbox, PathOf(ExchangeOf(mailbox, options)));
    if (const auto peer = transport.peers.Find(id); peer && peer->member != mailbox.Name())
        Fail("link the device", options.linked,
             "it is known as one of '" + peer->member + "'; 'quorvane members drop' forgets that");
    const FoundCard found = FindCard(transport, id, mailbox.Name());
    transport.peers.Link(found.card, found.bytes);
    PublishCard(transport, mailbox.Name());
    const std::size_t folders = transport.folders.LinkOwnDevices(id);
    transport.folders.Settle();
    const bool agrees = AgreementIn(found.card, transport.keys.Signing()).has_value();
    PrintSentences(options.json,
                   {{"device", options.linked},
                    {"fingerprint", exchange::FingerprintOf(id)},
                    {"agrees", agrees},
                    {"folders", folders}},
                   "linked the device " + ShownDevice(id) + "; compare the words with those that it shows\n" +
                       (agrees ? "it gets all that is shared here: " + Counted(folders, "more folder") + "\n"
                               : "it gets what is shared here once 'quorvane members link MAILBOX " +
                                     mailbox.Device() + "' was said there\n"));
    return ExitCode::kDone;
}

// A device of this mailbox's own member, as one that was lost.
ExitCode Unlink(const MembersOptions& options, const Mailbox& mailbox)
{
    const exchange::DeviceId id = DeviceIn(options.unlinked);
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    Peers peers(mailbox.HostDatabasePath().string());
    const auto peer = peers.Find(id);
    if (!peer || peer->member != mailbox.Name())
        Fail("unlink the device", options.unlinked, "it is no other device of '" + mailbox.Name() + "'");
    SharedFolders folders(mailbox.HostDatabasePath().string(), keys);
    const SharedFolders::Unlinked done = folders.UnlinkDevice(id);
    peers.Drop(id);
    folders.Settle();
    std::string lines;
    for (const std::string& folder : done.stillIn)
        lines += "still shares, as somebody has added it by itself, " + Printable(folder) + "\n";
    PrintSentences(options.json,
                   {{"device", options.unlinked}, {"takenOutOf", done.folders}, {"stillIn", done.stillIn}},
                   lines + "unlinked the device " + ShownDevice(id) + ", out of " +
                       Counted(done.folders.size(), "folder") +
                       ": nothing more is sealed to it or taken from it; what it has it keeps\n");
    return ExitCode::kDone;
}

ExitCode List(const MembersOptions& options, const Mailbox& mailbox)
{
    Peers peers(mailbox.HostDatabasePath().string());
    Table table({"MEMBER",
                 "DEVICE",
                 {"FINGERPRINT", Fit::kFolded},
                 {"KNOWN BY", Fit::kDropped},
                 {"SINCE", Fit::kDropped},
                 {"LAST HEARD", Fit::kDropped}});
    const auto own = exchange::ParseDeviceId(mailbox.Device()).value_or(exchange::DeviceId{});
    table.Add({mailbox.Name(), mailbox.Device(), exchange::FingerprintOf(own), "this mailbox", "", ""});
    Json known = Json::array(), strangers = Json::array();
    for (const Peer& peer : peers.All()) {
        const std::string id = exchange::TextOf(peer.id), words = exchange::FingerprintOf(peer.id);
        known.push_back({{"member", peer.member},
                         {"device", id},
                         {"fingerprint", words},
                         {"how", peer.how},
                         {"pinned", TimeText(peer.pinned)},
                         {"heard", TimeText(peer.heard)},
                         {"hasCard", peer.card.has_value()}});
        table.Add({peer.member, id, words, peer.how, TimeText(peer.pinned), TimeText(peer.heard)});
    }
    std::string lines;
    for (const std::string& name : peers.AwaitedMembers())
        lines += "awaited: " + name + ", who has no known device\n";
    for (const Stranger& stranger : peers.Strangers()) {
        strangers.push_back({{"name", stranger.name},
                             {"device", exchange::TextOf(stranger.device)},
                             {"fingerprint", exchange::FingerprintOf(stranger.device)},
                             {"packages", stranger.packages}});
        lines += "not known: " + ShownDevice(stranger.device) + ", which calls itself '" +
                 Printable(stranger.name) + "' and has " + std::to_string(stranger.packages) +
                 " packages for this mailbox\n";
    }
    PrintSentences(options.json,
                   {{"name", mailbox.Name()},
                    {"device", mailbox.Device()},
                    {"fingerprint", exchange::FingerprintOf(own)},
                    {"members", known},
                    {"awaited", peers.AwaitedMembers()},
                    {"strangers", strangers}},
                   table.Text() + lines);
    return ExitCode::kDone;
}

ExitCode Members(const MembersOptions& options)
{
    if (options.mailbox.empty())
        throw HostError("MAILBOX is required (see 'quorvane members --help')", ExitCode::kUsage);
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    try {
        if (!options.added.empty())
            return Add(options, mailbox);
        if (!options.removed.empty())
            return Remove(options, mailbox);
        if (!options.linked.empty())
            return Link(options, mailbox);
        if (!options.unlinked.empty())
            return Unlink(options, mailbox);
        return options.dropped.empty() ? List(options, mailbox) : Drop(options, mailbox);
    } catch (const exchange::Error& error) {
        throw HostError(error.what());
    }
}

}  // namespace

void AddMembersCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<MembersOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "members", "Show whose devices are known, and say whose one is", options, Members);
    command->require_subcommand(0, 1);  // a member may be called as a command is
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox");
    CLI::App* const add =
        command->add_subcommand("add",
                                "Pin a device to a member: what it sends is taken, and what is "
                                "shared with that member is sealed to it");
    add->fallthrough();
    add->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    add->add_option("NAME", options->added, "The member's name")->required();
    add->add_option("--device", options->device, "Its id, where several devices have that name");
    add->add_option("--exchange", options->exchange, "Directory of the exchange, where none is remembered");
    CLI::App* const drop =
        command->add_subcommand("drop", "Forget a device: nothing more is sealed to it or taken from it");
    drop->fallthrough();
    drop->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    drop->add_option("DEVICE", options->dropped, "Its id")->required();
    CLI::App* const remove = command->add_subcommand(
        "remove",
        "Take a member out of all that this mailbox founded, and forget his devices; what he has he keeps");
    remove->fallthrough();
    remove->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    remove->add_option("NAME", options->removed, "The member's name")->required();
    CLI::App* const link = command->add_subcommand("link",
                                                   "Say that a device is another one of this mailbox's "
                                                   "member; said on both, it gets all that is shared");
    link->fallthrough();
    link->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    link->add_option("DEVICE", options->linked, "The other device's id, as 'members' shows it there")
        ->required();
    link->add_option("--exchange", options->exchange, "Directory of the exchange, where none is remembered");
    CLI::App* const unlink = command->add_subcommand("unlink",
                                                     "Take another device of this mailbox's member out of "
                                                     "all folders, as one that was lost, and forget it");
    unlink->fallthrough();
    unlink->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    unlink->add_option("DEVICE", options->unlinked, "Its id")->required();
}

}  // namespace quorvane::host
