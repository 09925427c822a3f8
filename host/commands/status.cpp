#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "host/commands/command.h"
#include "host/commands/mirroring.h"
#include "host/commands/readings.h"
#include "host/mailbox/device.h"
#include "host/mailbox/peers.h"
#include "host/mailbox/records.h"
#include "host/mailbox/refusals.h"
#include "host/mailbox/shared_folders.h"
#include "host/sharing/item_state.h"

namespace quorvane::host {

namespace {

struct StatusOptions {
    bool json = false;
    bool watch = false;
    std::string mailbox;
};

std::int64_t CountOf(const Mailbox& mailbox, const char* sql)
{
    Database database = mailbox.OpenSharingDatabase();
    Statement select(database, sql);
    return select.Step() ? select.Number(0) : 0;
}

Table ShareTable()
{
    return Table({{"SHARED FOLDER", Fit::kShortened},
                  "ITEMS",
                  {"MEMBERS", Fit::kShortened},
                  "NOT ACCEPTED",
                  {"ID", Fit::kDropped}});
}

Json SharesOf(Records& records, SharedFolders& folders, Table& table)
{
    Json json = Json::array();
    for (const Share& share : records.Shares()) {
        const auto members = records.Members(share.folderId);
        const auto waiting = records.Members(share.folderId, false);
        const std::int64_t items = records.CountItems(share.folderId);
        const auto folder = folders.FindHere(share.folderId);
        json.push_back({{"folder", share.name},
                        {"id", share.folderId},
                        {"members", members},
                        {"notAccepted", waiting},
                        {"items", items},
                        {"flags", share.hasFlags},
                        {"tree", share.isTree},
                        {"follows", folder && folder->follows}});
        std::string names;
        for (const std::string& member : members)
            names += (names.empty() ? "" : ", ") + member;
        table.Add({Printable(share.name) + (share.isTree ? " (and below)" : ""), std::to_string(items),
                   Printable(names), std::to_string(waiting.size()), share.folderId});
    }
    return json;
}

const char* ScopeText(ResendScope scope)
{
    switch (scope) {
        case ResendScope::kChanged:
            return "changed";
        case ResendScope::kOwn:
            return "own";
        case ResendScope::kAgain:
            return "again";
        default:
            return "everything";
    }
}

// What members are yet to be sent, a line for each.
Json ResendsOf(Records& records, std::string& text)
{
    Json json = Json::array();
    for (const ResendRecord& resend : records.Resends()) {
        const auto share = records.FindShare(resend.folderId);
        const std::string folder = share ? share->name : resend.folderId;
        const std::int64_t left = resend.perSecond > 0 ? (resend.total - resend.done) / resend.perSecond : -1;
        json.push_back({{"folder", folder},
                        {"member", resend.member},
                        {"scope", ScopeText(resend.scope)},
                        {"since", TimeText(resend.since)},
                        {"cancelled", resend.cancelled},
                        {"done", resend.done},
                        {"total", resend.total},
                        {"given", records.CountGiven(resend.number)},
                        {"perSecond", resend.perSecond},
                        {"secondsLeft", left}});
        text += std::string(resend.cancelled ? "cancelled: " : "to send: ") + Printable(folder) + " to " +
                resend.member + ", " + std::to_string(resend.done) + " of " + std::to_string(resend.total) +
                " items";
        if (!resend.cancelled && left >= 0)
            text +=
                ", " + std::to_string(resend.perSecond) + " a second, " + std::to_string(left) + " s left";
        text += "\n";
    }
    return json;
}

Json UnsentOf(Records& records, std::string& text)
{
    Json json = Json::array();
    for (const UnsentItem& item : records.Unsent()) {
        const auto share = records.FindShare(item.folderId);
        const std::string folder = share ? share->name : item.folderId;
        json.push_back(
            {{"folder", folder}, {"id", item.id}, {"subject", item.subject}, {"reason", item.reason}});
        text += "unsent: " + item.id + " '" + Printable(item.subject) + "' of " + Printable(folder) + ": " +
                Printable(item.reason) + "\n";
    }
    return json;
}

const char* StateText(IncomingRecord::State state)
{
    switch (state) {
        case IncomingRecord::State::kHeld:
            return "held";
        case IncomingRecord::State::kRefused:
            return "refused";
        default:
            return "being applied";
    }
}

// How far packages to and from each known device are.
Json TransportOf(Peers& peers, std::string& text)
{
    const std::vector<Delivery> deliveries = peers.Deliveries();
    Json json = Json::array();
    for (const Peer& peer : peers.All()) {
        const auto unacknowledged =
            std::count_if(deliveries.begin(), deliveries.end(),
                          [&](const Delivery& delivery) { return delivery.device == peer.id; });
        Json entry = {{"member", peer.member},
                      {"device", exchange::TextOf(peer.id)},
                      {"heard", TimeText(peer.heard)},
                      {"silent", peer.isSilent},
                      {"unacknowledged", unacknowledged},
                      {"applied", peer.order.applied}};
        if (peer.isSilent)
            text += "silent: a device of " + peer.member +
                    " wasn't heard of for long, and nothing is kept for it\n";
        if (unacknowledged > 0)
            text += "unacknowledged by " + peer.member + ": " +
                    Counted(static_cast<std::uint64_t>(unacknowledged), "package") + "\n";
        if (peer.missing) {
            entry["missing"] = {peer.missing->first, peer.missing->last};
            entry["asked"] = peer.isAsked;
            text += "missing from " + peer.member + ": packages up to " + std::to_string(peer.missing->last) +
                    (peer.isAsked ? ", asked for\n" : "\n");
        }
        json.push_back(std::move(entry));
    }
    return json;
}

Json IncomingOf(Peers& peers, std::string& text)
{
    Json json = Json::array();
    for (const IncomingRecord& record : peers.Incoming()) {
        const auto peer = peers.Find(record.device);
        const std::string member = peer ? peer->member : exchange::TextOf(record.device);
        json.push_back({{"member", member},
                        {"device", exchange::TextOf(record.device)},
                        {"sequence", record.sequence},
                        {"state", StateText(record.state)},
                        {"reason", record.reason},
                        {"since", TimeText(record.since)}});
        text += std::string(StateText(record.state)) + ": package " + std::to_string(record.sequence) +
                " from " + member + " since " + TimeText(record.since) +
                (record.reason.empty() ? "" : ": " + Printable(record.reason)) + "\n";
    }
    return json;
}

const char* StateText(KnownFolder::State state)
{
    switch (state) {
        case KnownFolder::State::kInvited:
            return "invited";
        case KnownFolder::State::kDeclined:
            return "declined";
        case KnownFolder::State::kLeft:
            return "left";
        case KnownFolder::State::kRemoved:
            return "taken out";
        default:
            return "shared";
    }
}

// Folders of others that aren't shared here, or not any more.
Json KnownFoldersOf(SharedFolders& folders, Peers& peers, std::string& text)
{
    Json json = Json::array();
    const std::vector<KnownFolder> all = folders.All();
    std::map<std::string, int> inner;  // how many invitations lie in one, by its founding
    std::set<std::string> isInner;
    for (const KnownFolder& folder : all) {
        const std::string outermost = folders.OutermostInvitation(folder).founding;
        if (outermost == folder.founding)
            continue;
        ++inner[outermost];
        isInner.insert(folder.founding);
    }
    for (const KnownFolder& folder : all) {
        if (folder.state == KnownFolder::State::kHere)
            continue;
        const auto outer = folders.OuterOf(folder);
        const auto id = exchange::ParseDeviceId(folder.inviter);
        const auto peer = id ? peers.Find(*id) : std::nullopt;
        const std::string from = peer ? peer->member : folder.inviter;
        json.push_back({{"invitation", folder.Id()},
                        {"folder", folder.name},
                        {"id", folder.folderId},
                        {"state", StateText(folder.state)},
                        {"from", from},
                        {"since", TimeText(folder.since)},
                        {"in", outer ? outer->Id() : ""}});
        if (isInner.contains(folder.founding))
            continue;
        const int count = inner[folder.founding];
        text += std::string(StateText(folder.state)) + ": " + Printable(folder.name) +
                (count > 0 ? " and " + std::to_string(count) + " folders in it" : "") + " from " + from +
                " since " + TimeText(folder.since) +
                (folder.state == KnownFolder::State::kInvited
                     ? " ('quorvane accept MAILBOX " + folder.Id() + (count > 0 ? " --tree" : "") +
                           "', or decline)\n"
                     : "\n");
    }
    return json;
}

// Folders that an earlier version of the program shared, or that were left.
Json FormerOf(SharedFolders& folders, std::string& text)
{
    Json json = Json::array();
    for (const FormerShare& former : folders.Former().All()) {
        json.push_back({{"folder", former.name}, {"id", former.folderId}});
        if (!folders.IsKnown(former.folderId))
            text += "not shared any more: " + Printable(former.name) +
                    ", as nobody has signed who shares it: one member shares it again, the others 'accept "
                    "--into' "
                    "theirs\n";
    }
    return json;
}

Json RefusalsOf(Refusals& refusals, Peers& peers, std::string& text)
{
    Json json = Json::array();
    for (const RefusalRecord& refusal : refusals.All()) {
        const auto peer = peers.Find(refusal.device);
        const std::string member = peer ? peer->member : exchange::TextOf(refusal.device);
        json.push_back({{"member", member},
                        {"device", exchange::TextOf(refusal.device)},
                        {"packages", refusal.count},
                        {"reason", refusal.reason},
                        {"since", TimeText(refusal.since)}});
        text += "refused: " + Counted(static_cast<std::uint64_t>(refusal.count), "package") + " from " +
                member + " since " + TimeText(refusal.since) + ": " + Printable(refusal.reason) + "\n";
    }
    return json;
}

Json StrangersOf(Peers& peers, std::string& text)
{
    Json json = Json::array();
    for (const Stranger& stranger : peers.Strangers()) {
        json.push_back({{"name", stranger.name},
                        {"device", exchange::TextOf(stranger.device)},
                        {"packages", stranger.packages}});
        text += "not known: a device that calls itself '" + Printable(stranger.name) + "', with " +
                Counted(static_cast<std::uint64_t>(stranger.packages), "package") +
                " for this mailbox ('quorvane members')\n";
    }
    return json;
}

// Edits that are beaten by others, as long as nobody has deleted the copies of them.
std::size_t OpenConflicts(Records& records, std::string& text)
{
    std::size_t count = 0;
    for (const ItemRecord& item : records.ItemsInConflict())
        for (const exchange::Revision& beaten : item.heads.Beaten()) {
            const auto copy = records.FindItem(exchange::ConflictCopyId(item.id, beaten));
            count += copy && copy->deleted ? 0 : 1;
        }
    if (count > 0)
        text += "conflicts: " + std::to_string(count) + " ('quorvane conflicts')\n";
    return count;
}

Json AwaitedOf(Peers& peers, std::string& text)
{
    const auto awaited = peers.AwaitedMembers();
    for (const std::string& name : awaited)
        text += "awaited: " + name + ", who has no known device ('quorvane members add')\n";
    return awaited;
}

}  // namespace

StatusReport ReadStatus(const Mailbox& mailbox)
{
    Records records(mailbox.HostDatabasePath().string());
    ItemState state(mailbox, records);
    Table table = ShareTable();
    const exchange::DeviceKeys keys = ReadDeviceKeys(mailbox);
    SharedFolders folders(mailbox.HostDatabasePath().string(), keys);
    const Json shares = SharesOf(records, folders, table);
    const std::int64_t packing = CountOf(mailbox, "SELECT COUNT(*) FROM tblStorageFiles");
    const std::size_t outgoing = records.Outgoing().size();
    const std::size_t unfinished = state.UnfinishedPaths().size();
    std::string resendLines, unsentLines;
    const Json resends = ResendsOf(records, resendLines);
    const Json unsent = UnsentOf(records, unsentLines);
    Peers peers(mailbox.HostDatabasePath().string());
    std::string transportLines;
    const Json transport = TransportOf(peers, transportLines);
    const Json incoming = IncomingOf(peers, transportLines);
    const Json strangers = StrangersOf(peers, transportLines);
    const Json known = KnownFoldersOf(folders, peers, transportLines);
    const Json former = FormerOf(folders, transportLines);
    Refusals refused(mailbox.HostDatabasePath().string());
    const Json refusals = RefusalsOf(refused, peers, transportLines);
    const Json awaited = AwaitedOf(peers, transportLines);
    const std::size_t conflicts = OpenConflicts(records, transportLines);
    const Json mirrors = MirrorStates(mailbox, transportLines);
    std::error_code error;
    const bool isRunning = mailbox.IsInRun();
    const bool rejected = std::filesystem::exists(mailbox.Directory() / "rejected", error);
    return {{{"mailbox", mailbox.Directory().string()},
             {"name", mailbox.Name()},
             {"running", isRunning},
             {"shares", shares},
             {"resends", resends},
             {"unsent", unsent},
             {"members", transport},
             {"incoming", incoming},
             {"strangers", strangers},
             {"folders", known},
             {"formerShares", former},
             {"refusals", refusals},
             {"awaited", awaited},
             {"conflicts", conflicts},
             {"mirrors", mirrors},
             {"packagesFilling", packing},
             {"packagesToDeliver", outgoing},
             {"packagesToApply", unfinished},
             {"rejected", rejected}},
            mailbox.Name() + " at " + mailbox.Directory().string() +
                (isRunning ? "; a run is under way\n" : "; no run is under way\n") + table.Text() +
                "packages being filled: " + std::to_string(packing) +
                ", to deliver: " + std::to_string(outgoing) + ", to apply: " + std::to_string(unfinished) +
                "\n" + resendLines + unsentLines + transportLines +
                (rejected ? "packages that couldn't be used lie in " +
                                (mailbox.Directory() / "rejected").string() + "\n"
                          : std::string())};
}

namespace {

ExitCode Status(const StatusOptions& options)
{
    if (options.watch)
        return WatchStatus(options.mailbox, options.json);
    const StatusReport report = ReadStatus(Mailbox::Open(options.mailbox));
    PrintSentences(options.json, report.json, report.text);
    return ExitCode::kDone;
}

}  // namespace

void AddStatusCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<StatusOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "status", "Show what is shared, pending and unfinished", options, Status);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_flag(
        "--watch", options->watch,
        "Go on and show it whenever it has changed, until q or Ctrl-C; where standard output is no "
        "terminal, as lines that come and go; with --json a value each time");
}

}  // namespace quorvane::host
