#include "host/mailbox/peers.h"

#include <algorithm>

#include "host/base/errors.h"
#include "host/base/output.h"
#include "host/exchange/device_link.h"
#include "host/exchange/error.h"
#include "host/mailbox/comparison_records.h"
#include "host/mailbox/device.h"
#include "host/mailbox/records.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr char kSelectPeer[] =
    "SELECT id, member, card, how, pinned, heard, sent, acked, acks_serial, remade, epoch, applied, over, "
    "gap_first, gap_last, gap_since, asked, introducer, silent FROM device ";

std::uint64_t Count(const Statement& row, int column)
{
    return static_cast<std::uint64_t>(row.Number(column));
}

std::int64_t Signed(std::uint64_t number) noexcept
{
    return static_cast<std::int64_t>(number);
}

exchange::DeviceId IdIn(const std::string& text)
{
    return exchange::ParseDeviceId(text).value_or(exchange::DeviceId{});
}

std::string HexOfCard(const std::string& bytes)
{
    return Hex(Bytes(bytes.begin(), bytes.end()));
}

// Epochs one behind the other, each of 32 digits.
std::set<exchange::Epoch> EpochsIn(const std::string& text)
{
    constexpr std::size_t kDigits = 32;
    std::set<exchange::Epoch> epochs;
    for (std::size_t at = 0; at + kDigits <= text.size(); at += kDigits)
        epochs.insert(ParseEpoch(text.substr(at, kDigits)));
    return epochs;
}

std::string TextOfEpochs(const std::set<exchange::Epoch>& epochs)
{
    std::string text;
    for (const exchange::Epoch& epoch : epochs)
        text += TextOfEpoch(epoch);
    return text;
}

// But for its card.
Peer ReadPeer(const Statement& row)
{
    Peer peer;
    peer.id = IdIn(row.Text(0));
    peer.member = row.Text(1);
    peer.how = row.Text(3);
    peer.pinned = Count(row, 4);
    peer.heard = Count(row, 5);
    peer.sent = Count(row, 6);
    peer.acked = Count(row, 7);
    peer.acksSerial = Count(row, 8);
    peer.remade = Count(row, 9);
    peer.order = {ParseEpoch(row.Text(10)), Count(row, 11), EpochsIn(row.Text(12))};
    peer.gap = {Count(row, 13), row.Number(15)};
    if (peer.gap.first != 0)
        peer.missing = exchange::SequenceRange{Count(row, 13), Count(row, 14)};
    peer.isAsked = row.Number(16) != 0;
    peer.introducer = row.Text(17);
    peer.isSilent = row.Number(18) != 0;
    return peer;
}

IncomingRecord ReadIncoming(const Statement& row)
{
    return {IdIn(row.Text(0)), Count(row, 1), static_cast<IncomingRecord::State>(row.Number(2)), row.Text(3),
            Count(row, 4)};
}

constexpr char kSelectIncoming[] = "SELECT device, sequence, state, reason, since FROM incoming ";

std::int64_t OwnNumber(Database& database, const char* sql)
{
    Statement select(database, sql);
    return select.Step() ? select.Number(0) : 0;
}

std::string OwnText(Database& database, const char* sql)
{
    Statement select(database, sql);
    return select.Step() ? select.Text(0) : std::string();
}

}  // namespace

Peers::Peers(const std::string& path) : database_(path, Database::Mode::kOpen)
{
    database_.Execute("PRAGMA synchronous=FULL");
}

exchange::Epoch Peers::OwnEpoch()
{
    return ParseEpoch(OwnText(database_, "SELECT epoch FROM mailbox"));
}

std::uint64_t Peers::LastSequence()
{
    return static_cast<std::uint64_t>(OwnNumber(database_, "SELECT sequence FROM mailbox"));
}

std::string Peers::Exchange()
{
    return OwnText(database_, "SELECT exchange FROM mailbox");
}

void Peers::SetExchange(const std::string& directory)
{
    Statement(database_, "UPDATE mailbox SET exchange = ?").Bind(1, directory).Run();
}

exchange::Readers Peers::ExchangeReaders()
{
    switch (OwnNumber(database_, "SELECT readers FROM mailbox")) {
        case 0:
            return exchange::Readers::kNobody;
        case 2:
            return exchange::Readers::kEverybody;
        default:
            return exchange::Readers::kGroup;
    }
}

void Peers::SetExchangeReaders(exchange::Readers readers)
{
    Statement(database_, "UPDATE mailbox SET readers = ?").Bind(1, static_cast<int>(readers)).Run();
}

std::uint64_t Peers::LastAcksSerial()
{
    return static_cast<std::uint64_t>(OwnNumber(database_, "SELECT acks_serial FROM mailbox"));
}

// The time goes on while a mailbox lies in a backup.
std::uint64_t Peers::NextAcksSerial()
{
    const std::uint64_t serial = std::max(LastAcksSerial() + 1, FileTimeNow());
    Statement(database_, "UPDATE mailbox SET acks_serial = ?").Bind(1, Signed(serial)).Run();
    return serial;
}

void Peers::BeginEpoch(const exchange::Epoch& epoch, std::uint64_t sequence)
{
    Transaction transaction(database_);
    Statement(database_, "UPDATE mailbox SET epoch = ?, sequence = max(sequence, ?)")
        .Bind(1, TextOfEpoch(epoch))
        .Bind(2, Signed(sequence))
        .Run();
    database_.Execute(
        "DELETE FROM delivery;"
        "DELETE FROM outgoing WHERE kind <> 1;"
        "UPDATE folder_device SET due = 1 WHERE told = 1;"
        "UPDATE device SET sent = 0, acked = 0;"
        "UPDATE outgoing SET planned = 0, sequence = 0 WHERE laid = 0;");
    CompareAnew({});
    transaction.Commit();
}

void Peers::CountOnFrom(std::uint64_t sequence)
{
    Statement(database_, "UPDATE mailbox SET sequence = max(sequence, ?)").Bind(1, Signed(sequence)).Run();
}

std::vector<Peer> Peers::Read(const char* where, const std::string& key)
{
    Statement select(database_, (std::string(kSelectPeer) + where).c_str());
    select.Bind(1, key);
    std::vector<Peer> peers;
    while (select.Step()) {
        peers.push_back(ReadPeer(select));
        peers.back().card = CardIn(select.Text(2), peers.back().id);
    }
    return peers;
}

// A signature is checked once as long as the card stays the same.
std::optional<exchange::Card> Peers::CardIn(const std::string& hex, const exchange::DeviceId& id)
{
    if (hex.empty())
        return std::nullopt;
    const auto known = cards_.find(hex);
    if (known != cards_.end())
        return known->second;
    const Bytes bytes = FromHex(hex);
    try {
        return cards_
            .emplace(hex, exchange::ReadCard({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, id))
            .first->second;
    } catch (const exchange::Error& error) {
        Fail("use the card of device", exchange::TextOf(id), error.what());
    }
}

std::vector<Peer> Peers::All()
{
    return Read("WHERE ?1 = '' ORDER BY member, id", {});
}

std::optional<Peer> Peers::Find(const exchange::DeviceId& id)
{
    const auto found = Read("WHERE id = ?1", exchange::TextOf(id));
    return found.empty() ? std::nullopt : std::optional(found.front());
}

std::vector<Peer> Peers::OfMember(const std::string& member)
{
    return Read("WHERE member = ?1 ORDER BY id", member);
}

std::set<std::string> Peers::AwaitedMembers()
{
    Statement select(
        database_,
        "SELECT DISTINCT name FROM wish WHERE name NOT IN (SELECT member FROM device WHERE introducer = '')");
    std::set<std::string> names;
    while (select.Step())
        names.insert(select.Text(0));
    return names;
}

// Of the folders that a member shares: those that were announced to him, or all.
void Peers::OweAll(const std::string& member, bool announced)
{
    Statement(database_, "DELETE FROM given WHERE resend IN (SELECT number FROM resend WHERE member = ?)")
        .Bind(1, member)
        .Run();
    Statement(
        database_,
        "INSERT OR REPLACE INTO resend (folder_id, member, scope, since) SELECT folder_id, name, ?, 0 FROM "
        "member WHERE name = ? AND announced >= ?")
        .Bind(1, std::int64_t{static_cast<int>(ResendScope::kAgain)})
        .Bind(2, member)
        .Bind(3, std::int64_t{announced})
        .Run();
}

void Peers::Pin(const exchange::Card& card, const std::string& bytes, const std::string& member,
                const std::string& how)
{
    const std::string id = exchange::TextOf(card.Id());
    Transaction transaction(database_);
    if (OwnNumber(database_, "SELECT count(*) FROM device") >= kMostKnownDevices)
        Fail("pin the device", id, "so many are known already");
    const std::vector<Peer> others = OfMember(member);
    const bool isOneMore = std::any_of(others.begin(), others.end(), [&](const Peer& peer) {
        return peer.id != card.Id() && peer.IsPinnedByUser();
    });
    // Where members of folders said otherwise, they were wrong, and what went to that device didn't reach
    // him.
    bool wasElsewhere = false;
    for (const Peer& peer : others)
        if (peer.id != card.Id() && !peer.IsPinnedByUser()) {
            Forget(exchange::TextOf(peer.id));
            wasElsewhere = true;
        }
    Statement(
        database_,
        "INSERT INTO device (id, member, card, how, pinned) VALUES (?1, ?2, ?3, ?4, ?5) ON CONFLICT(id) DO "
        "UPDATE SET member = ?2, card = ?3, introducer = '', how = ?4, pinned = ?5")
        .Bind(1, id)
        .Bind(2, member)
        .Bind(3, HexOfCard(bytes))
        .Bind(4, how)
        .Bind(5, Signed(FileTimeNow()))
        .Run();
    Statement(database_, "DELETE FROM stranger WHERE device = ?").Bind(1, id).Run();
    if ((isOneMore || wasElsewhere) && member != OwnName()) {
        OweAll(member, true);
        WishAgain(member);
    }
    Statement(database_, "DELETE FROM dropped WHERE device = ?").Bind(1, id).Run();
    TellAgain(id);
    transaction.Commit();
}

void Peers::Link(const exchange::Card& card, const std::string& bytes)
{
    const std::vector<Peer> own = OfMember(OwnName());
    const auto others = std::count_if(own.begin(), own.end(), [&](const Peer& peer) {
        return peer.IsPinnedByUser() && peer.id != card.Id();
    });
    if (static_cast<std::size_t>(others) >= exchange::kMostLinks)
        Fail("link the device", exchange::TextOf(card.Id()), "so many are linked already");
    Pin(card, bytes, OwnName(), "linked");
    database_.Execute("UPDATE mailbox SET card_serial = card_serial + 1");
}

std::vector<exchange::CardLink> Peers::OwnLinks(const exchange::DeviceKeys& keys)
{
    std::vector<exchange::CardLink> links;
    for (const Peer& peer : OfMember(OwnName()))
        if (peer.IsPinnedByUser() && peer.card)
            links.push_back({peer.card->signing, AgreeToLink(keys, peer.card->signing)});
    return links;
}

std::uint64_t Peers::CardSerial()
{
    return static_cast<std::uint64_t>(OwnNumber(database_, "SELECT card_serial FROM mailbox"));
}

std::string Peers::OwnName()
{
    return OwnText(database_, "SELECT name FROM mailbox");
}

// Devices of his that aren't members' of his folders yet are to be.
void Peers::WishAgain(const std::string& member)
{
    Statement(
        database_,
        "INSERT OR IGNORE INTO wish (folder_id, name) SELECT folder_id, name FROM member WHERE name = ?")
        .Bind(1, member)
        .Run();
}

// What a device was told of folders didn't reach it.
void Peers::TellAgain(const std::string& device)
{
    Statement(database_, "UPDATE folder_device SET due = 1, told = 0 WHERE device = ? AND told = 1")
        .Bind(1, device)
        .Run();
}

std::vector<Peer> Peers::NoteSilence(std::uint64_t since)
{
    // Nothing is written while nothing is new.
    std::vector<Peer> fallen;
    for (Peer& peer : Read("WHERE silent = 0 AND ?1 = ''", {}))
        if (std::max(peer.heard, peer.pinned) < since)
            fallen.push_back(std::move(peer));
    if (fallen.empty())
        return fallen;
    Transaction transaction(database_);
    for (const Peer& peer : fallen) {
        const std::string id = exchange::TextOf(peer.id);
        Statement(database_, "DELETE FROM delivery WHERE device = ?").Bind(1, id).Run();
        Statement(database_, "UPDATE device SET silent = 1, sent = acked WHERE id = ?").Bind(1, id).Run();
    }
    transaction.Commit();
    return fallen;
}

void Peers::NoteBack(const std::string& device)
{
    Statement(database_, "UPDATE device SET silent = 0 WHERE id = ? AND silent = 1").Bind(1, device).Run();
    if (database_.Changes() == 0)
        return;
    TellAgain(device);
    WantComparisons(database_, {}, device, FileTimeNow());
}

// Packages were lost, reports that a comparison waits for among them perhaps. What a device lacks by it, and
// what this mailbox does, comparisons tell.
void Peers::CompareAnew(const std::string& device)
{
    WantComparisons(database_, {}, device, FileTimeNow());
    Statement(database_, "UPDATE comparison SET opened = 0 WHERE ?1 = '' OR device = ?1")
        .Bind(1, device)
        .Run();
}

void Peers::Forget(const std::string& device)
{
    for (const char* sql : {"DELETE FROM device WHERE id = ?", "DELETE FROM delivery WHERE device = ?",
                            "DELETE FROM incoming WHERE device = ?"})
        Statement(database_, sql).Bind(1, device).Run();
}

void Peers::Drop(const exchange::DeviceId& id)
{
    const auto peer = Find(id);
    if (!peer)
        return;
    Transaction transaction(database_);
    Forget(exchange::TextOf(id));
    Statement(database_, "INSERT OR IGNORE INTO dropped (device) VALUES (?)")
        .Bind(1, exchange::TextOf(id))
        .Run();
    if (peer->member == OwnName()) {
        database_.Execute("UPDATE mailbox SET card_serial = card_serial + 1");
    } else if (OfMember(peer->member).empty()) {
        OweAll(peer->member, false);
        WishAgain(peer->member);
        Statement(database_, "UPDATE member SET announced = 0 WHERE name = ?").Bind(1, peer->member).Run();
    }
    transaction.Commit();
}

void Peers::NoteCard(const exchange::Card& card, const std::string& bytes)
{
    Statement(database_, "UPDATE device SET card = ? WHERE id = ?")
        .Bind(1, HexOfCard(bytes))
        .Bind(2, exchange::TextOf(card.Id()))
        .Run();
}

std::vector<exchange::Receiver> Peers::ReceiversOf(std::uint64_t sequence)
{
    Statement select(
        database_,
        "SELECT device, previous, card FROM delivery JOIN device ON id = device WHERE sequence = ? ORDER BY "
        "device");
    select.Bind(1, Signed(sequence));
    std::vector<exchange::Receiver> receivers;
    while (select.Step()) {
        const exchange::DeviceId id = IdIn(select.Text(0));
        if (const auto card = CardIn(select.Text(2), id))
            receivers.push_back({id, card->sealing, Count(select, 1)});
    }
    return receivers;
}

std::vector<Delivery> Peers::Deliveries()
{
    Statement select(database_,
                     "SELECT sequence, device, NOT EXISTS (SELECT 1 FROM outgoing WHERE outgoing.sequence = "
                     "delivery.sequence AND laid = 0) FROM delivery ORDER BY sequence, device");
    std::vector<Delivery> deliveries;
    while (select.Step())
        deliveries.push_back({Count(select, 0), IdIn(select.Text(1)), select.Number(2) != 0});
    return deliveries;
}

void Peers::NoteAcked(const exchange::DeviceId& id, std::uint64_t serial, std::uint64_t acked)
{
    const std::string text = exchange::TextOf(id);
    Transaction transaction(database_);
    Statement(database_, "UPDATE device SET acked = ?, acks_serial = ?, heard = ? WHERE id = ?")
        .Bind(1, Signed(acked))
        .Bind(2, Signed(serial))
        .Bind(3, Signed(FileTimeNow()))
        .Bind(4, text)
        .Run();
    Statement(database_, "DELETE FROM delivery WHERE device = ? AND sequence <= ?")
        .Bind(1, text)
        .Bind(2, Signed(acked))
        .Run();
    NoteBack(text);
    // What it was asked for is in its hands.
    Statement(database_, "UPDATE folder SET asked = '' WHERE asked = ? AND asked_in BETWEEN 1 AND ?")
        .Bind(1, text)
        .Bind(2, Signed(acked))
        .Run();
    transaction.Commit();
}

// Whatever follows comes right behind what it has acknowledged.
void Peers::Remake(const exchange::DeviceId& id)
{
    const auto peer = Find(id);
    if (!peer)
        return;
    const std::string text = exchange::TextOf(id);
    Transaction transaction(database_);
    Statement(database_, "DELETE FROM delivery WHERE device = ?").Bind(1, text).Run();
    Statement(database_, "UPDATE device SET sent = acked, remade = ? WHERE id = ?")
        .Bind(1, Signed(FileTimeNow()))
        .Bind(2, text)
        .Run();
    TellAgain(text);
    CompareAnew(text);
    transaction.Commit();
}

void Peers::NoteApplied(const exchange::DeviceId& id, const exchange::ForUs& package, const Traffic& received,
                        const std::vector<std::uint64_t>& made)
{
    auto peer = Find(id);
    if (!peer)
        return;  // the user has dropped it meanwhile
    const bool hasBegunAnew = peer->order.applied > 0 && package.epoch != peer->order.epoch;
    exchange::NoteApplied(peer->order, package);
    const std::string text = exchange::TextOf(id);
    Transaction transaction(database_);
    if (hasBegunAnew)
        WantComparisons(database_, {}, text, FileTimeNow());
    Statement(database_, "UPDATE device SET epoch = ?, applied = ?, over = ?, heard = ? WHERE id = ?")
        .Bind(1, TextOfEpoch(peer->order.epoch))
        .Bind(2, Signed(peer->order.applied))
        .Bind(3, TextOfEpochs(peer->order.overEpochs))
        .Bind(4, Signed(FileTimeNow()))
        .Bind(5, text)
        .Run();
    Statement(database_, "DELETE FROM incoming WHERE device = ? AND sequence <= ?")
        .Bind(1, text)
        .Bind(2, Signed(package.sequence))
        .Run();
    NoteBack(text);
    if (received.packages > 0)
        NoteReceivedTraffic(database_, received, made, FileTimeNow());
    transaction.Commit();
}

void Peers::NoteGap(const Peer& peer)
{
    Statement(database_,
              "UPDATE device SET gap_first = ?, gap_last = ?, gap_since = ?, asked = ? WHERE id = ?")
        .Bind(1, Signed(peer.missing ? peer.missing->first : 0))
        .Bind(2, Signed(peer.missing ? peer.missing->last : 0))
        .Bind(3, peer.gap.since)
        .Bind(4, std::int64_t{peer.isAsked})
        .Bind(5, exchange::TextOf(peer.id))
        .Run();
}

void Peers::PutIncoming(const IncomingRecord& record)
{
    Statement(database_,
              "INSERT INTO incoming (device, sequence, state, reason, since) VALUES (?1, ?2, ?3, ?4, ?5) ON "
              "CONFLICT(device, sequence) DO UPDATE SET state = ?3, reason = ?4")
        .Bind(1, exchange::TextOf(record.device))
        .Bind(2, Signed(record.sequence))
        .Bind(3, std::int64_t{static_cast<int>(record.state)})
        .Bind(4, record.reason)
        .Bind(5, Signed(FileTimeNow()))
        .Run();
}

void Peers::ForgetIncoming(const exchange::DeviceId& device, std::uint64_t sequence)
{
    Statement(database_, "DELETE FROM incoming WHERE device = ? AND sequence = ?")
        .Bind(1, exchange::TextOf(device))
        .Bind(2, Signed(sequence))
        .Run();
}

std::vector<IncomingRecord> Peers::Incoming()
{
    Statement select(database_, (std::string(kSelectIncoming) + "ORDER BY device, sequence").c_str());
    std::vector<IncomingRecord> records;
    while (select.Step())
        records.push_back(ReadIncoming(select));
    return records;
}

std::optional<IncomingRecord> Peers::Current()
{
    Statement select(database_, (std::string(kSelectIncoming) + "WHERE state <= 1").c_str());
    return select.Step() ? std::optional(ReadIncoming(select)) : std::nullopt;
}

void Peers::SetStrangers(const std::vector<Stranger>& strangers)
{
    Transaction transaction(database_);
    database_.Execute("DELETE FROM stranger");
    Statement insert(database_, "INSERT INTO stranger (device, name, packages, since) VALUES (?, ?, ?, ?)");
    for (const Stranger& stranger : strangers)
        insert.Bind(1, exchange::TextOf(stranger.device))
            .Bind(2, stranger.name)
            .Bind(3, Signed(stranger.packages))
            .Bind(4, Signed(stranger.since))
            .Run();
    transaction.Commit();
}

std::vector<Stranger> Peers::Strangers()
{
    Statement select(database_, "SELECT device, name, packages, since FROM stranger ORDER BY device");
    std::vector<Stranger> strangers;
    while (select.Step())
        strangers.push_back({IdIn(select.Text(0)), select.Text(1), Count(select, 2), Count(select, 3)});
    return strangers;
}

}  // namespace quorvane::host
