#include "host/sharing/receipts.h"

#include <algorithm>

#include "host/base/output.h"
#include "host/exchange/error.h"

namespace quorvane::host {

namespace {

constexpr auto kAcksInterval = std::chrono::milliseconds(250);
constexpr auto kCardsInterval = std::chrono::seconds(2);
constexpr auto kStrangersInterval = std::chrono::seconds(15);
constexpr auto kSilenceInterval = std::chrono::seconds(2);
// How often it is told that the device lives, at the least, and in how many parts of what counts as silence.
constexpr std::int64_t kLongestUntold = 86'400;
constexpr std::int64_t kPartsOfSilence = 4;
constexpr std::size_t kMostStrangers = 100;
constexpr std::size_t kMostReported = 1000;
// How many of a stranger's packages are looked at.
constexpr std::size_t kMostLookedAt = 16;
// Who claims to have taken packages of numbers that are so far away is lying.
constexpr std::uint64_t kFurthestAhead = std::uint64_t{1} << 32;
constexpr std::uint64_t kUnitsASecond = 10'000'000;  // of a FILETIME

// Whether a package lies there as this device has sealed it.
bool IsSealedHere(const Transport& transport, std::uint64_t sequence)
{
    try {
        const auto file = transport.place.Open(transport.keys.Id(), sequence);
        if (!file)
            return false;
        exchange::SealedPackage package(*file, "the package");
        package.Verify(transport.keys.Signing());
        return package.Label().sequence == sequence;
    } catch (const exchange::Error& error) {
        if (error.What() == exchange::Error::Kind::kPassing)
            throw;
        return false;
    }
}

}  // namespace

void Receipts::Report(const std::string& line)
{
    if (reported_.size() < kMostReported && reported_.insert(line).second)
        report_(line);
}

// Null when there are none to be used.
Receipts::Heard* Receipts::HearFrom(Transport& transport, const Peer& peer)
{
    try {
        const auto bytes =
            transport.place.Read(peer.id, exchange::Place::Note::kAcks, exchange::Acks::kLongest);
        if (!bytes || !peer.card)
            return nullptr;
        Heard& heard = heard_[peer.id];
        if (heard.bytes != *bytes) {
            heard.acks = exchange::ReadAcks(*bytes, peer.card->signing);
            heard.bytes = *bytes;
            heard.judged = {};
        }
        return &heard;
    } catch (const exchange::Error& error) {
        if (!transport.place.IsReachable())
            throw;
        Report("refused what '" + peer.member + "' acknowledges: " + error.what());
        heard_.erase(peer.id);
        return nullptr;
    }
}

// Its own packages, and what others say that they have of them, go further than its records. `sequence`
// becomes the furthest.
bool Receipts::IsBehind(Transport& transport, std::uint64_t& sequence)
{
    const std::uint64_t last = transport.peers.LastSequence();
    const exchange::DeviceId& own = transport.keys.Id();
    sequence = last;
    for (const std::uint64_t lying : transport.place.Packages(own, last + 1))
        if (IsSealedHere(transport, lying))
            sequence = lying;
    for (const Peer& peer : transport.peers.All())
        if (const Heard* const heard = HearFrom(transport, peer))
            sequence =
                std::max(sequence, exchange::AcknowledgedUpTo(heard->acks, own, transport.peers.OwnEpoch()));
    if (sequence > last)
        return true;
    try {
        const auto acks = transport.place.Read(own, exchange::Place::Note::kAcks, exchange::Acks::kLongest);
        return acks &&
               exchange::ReadAcks(*acks, transport.keys.Signing()).serial > transport.peers.LastAcksSerial();
    } catch (const exchange::Error&) {
        return false;  // what lies there isn't this device's
    }
}

void Receipts::Begin(Transport& transport)
{
    if (hasBegun_)
        return;
    PublishCard(transport, name_);
    std::uint64_t sequence = 0;
    if (IsBehind(transport, sequence)) {
        report_(
            "this mailbox is behind what it has sent and taken already, as after a backup was restored: it "
            "begins anew with every member");
        transport.peers.BeginEpoch(NewEpoch(), sequence);
    }
    hasBegun_ = true;
    nextAcks_ = nextCards_ = {};
}

void Receipts::Look(Transport& transport)
{
    const auto now = Clock::now();
    if (now >= nextCards_) {
        KeepOwnNotes(transport);
        LookForCards(transport);
        nextCards_ = now + kCardsInterval;
    }
    if (now >= nextStrangers_) {
        LookForStrangers(transport);
        nextStrangers_ = now + kStrangersInterval;
    }
    if (now < nextAcks_)
        return;
    for (const Peer& peer : transport.peers.All())
        if (Heard* const heard = HearFrom(transport, peer))
            Hear(transport, peer, *heard);
    if (now >= nextSilence_) {
        LookForSilence(transport);
        nextSilence_ = now + kSilenceInterval;
    }
    RemoveTaken(transport);
    nextAcks_ = Clock::now() + kAcksInterval;
}

// What somebody removed from the exchange is laid there again. Where later acknowledgements of this device
// lie than it has made, it came out of a backup; when more of them come, a copy of the mailbox is at work.
void Receipts::KeepOwnNotes(Transport& transport)
{
    PublishCard(transport, name_);
    std::uint64_t serial = 0;
    try {
        const auto bytes =
            transport.place.Read(transport.keys.Id(), exchange::Place::Note::kAcks, exchange::Acks::kLongest);
        serial = bytes ? exchange::ReadAcks(*bytes, transport.keys.Signing()).serial : 0;
    } catch (const exchange::Error&) {
        // Whatever lies there is replaced.
    }
    if (serial == 0)
        told_.clear();
    if (serial <= std::max(foreignSerial_, transport.peers.LastAcksSerial()))
        return;
    if (foreignSerial_ != 0)
        throw CopyAtWork();
    foreignSerial_ = serial;
    told_.clear();
    hasBegun_ = false;
}

// Of another device of this mailbox's own member, the one by which it agrees to be linked.
bool Receipts::IsCardAwaited(const Transport& transport, const Peer& peer) const
{
    if (!peer.card)
        return true;
    return peer.member == name_ && peer.IsPinnedByUser() &&
           !exchange::AgreementIn(*peer.card, transport.keys.Signing());
}

void Receipts::LookForCards(Transport& transport)
{
    for (const Peer& peer : transport.peers.All()) {
        if (!IsCardAwaited(transport, peer))
            continue;
        try {
            const auto bytes =
                transport.place.Read(peer.id, exchange::Place::Note::kCard, exchange::kLongestCard);
            if (!bytes)
                continue;
            const exchange::Card card = exchange::ReadCard(*bytes, peer.id);
            if (!peer.card || card.serial > peer.card->serial)
                transport.peers.NoteCard(card, *bytes);
        } catch (const exchange::Error& error) {
            Report("refused the card of a device of '" + peer.member + "': " + error.what());
        }
    }
    transport.folders.LinkOwnDevices();
}

// Empty when it has no card.
std::optional<Stranger> Receipts::StrangerAt(Transport& transport, const exchange::DeviceId& device)
{
    try {
        const auto bytes = transport.place.Read(device, exchange::Place::Note::kCard, exchange::kLongestCard);
        if (!bytes)
            return std::nullopt;
        Stranger stranger{device, exchange::ReadCard(*bytes, device).name, 0, FileTimeNow()};
        const auto lying = transport.place.Packages(device, 1);
        for (std::size_t i = 0; i < std::min(lying.size(), kMostLookedAt); ++i) {
            const auto file = transport.place.Open(device, lying[i]);
            if (file && exchange::SealedPackage(*file, "a package").PreviousFor(transport.keys.Id()))
                ++stranger.packages;
        }
        return stranger;
    } catch (const exchange::Error&) {
        return std::nullopt;  // nobody asked for anything of it
    }
}

void Receipts::LookForStrangers(Transport& transport)
{
    const auto known = transport.peers.Strangers();
    const auto awaited = transport.peers.AwaitedMembers();
    std::vector<Stranger> strangers;
    for (const exchange::DeviceId& device : transport.place.Devices()) {
        if (device == transport.keys.Id() || transport.peers.Find(device))
            continue;
        auto stranger = StrangerAt(transport, device);
        if (!stranger || (stranger->packages == 0 && !awaited.contains(stranger->name)))
            continue;
        Report("a device that isn't known here calls itself '" + stranger->name + "' (" +
               exchange::FingerprintOf(device) + ") and " +
               (stranger->packages > 0 ? "has packages for this mailbox"
                                       : "is perhaps the one that is awaited") +
               "; if it is theirs: 'quorvane members add MAILBOX " + stranger->name + " --device " +
               exchange::TextOf(device) + "'");
        const auto before = std::find_if(known.begin(), known.end(),
                                         [&](const Stranger& one) { return one.device == device; });
        if (before != known.end())
            stranger->since = before->since;
        strangers.push_back(*stranger);
        if (strangers.size() == kMostStrangers)
            break;
    }
    const auto same = [](const Stranger& a, const Stranger& b) {
        return a.device == b.device && a.packages == b.packages && a.name == b.name;
    };
    if (!std::equal(known.begin(), known.end(), strangers.begin(), strangers.end(), same))
        transport.peers.SetStrangers(strangers);
}

// After whatever they acknowledge was heard.
void Receipts::LookForSilence(Transport& transport)
{
    const std::uint64_t now = FileTimeNow(), time = static_cast<std::uint64_t>(silentAfter_) * kUnitsASecond;
    const std::vector<Peer> fallen = transport.peers.NoteSilence(now - std::min(now, time));
    for (const Peer& peer : fallen)
        Report("a device of '" + peer.member + "' (" + exchange::FingerprintOf(peer.id) +
               ") wasn't heard of for long: nothing is kept for it until it is back");
    // What it was asked for, another one is.
    if (!fallen.empty())
        transport.folders.Settle();
}

// A member is given what it lacks once in a while: a place that loses everything isn't to be filled for ever.
bool Receipts::MayRemake(const Peer& peer) const
{
    return FileTimeNow() >= peer.remade + static_cast<std::uint64_t>(askAfter_) * kUnitsASecond;
}

// Whether a member has taken more than this mailbox has sent, which then came out of a backup while the place
// hid that: it begins anew with the next step. One that has done so already counts on from where the member
// is, or what it sends would pass there for old.
bool Receipts::IsPastOwn(Transport& transport, const Peer& peer, const exchange::Acks& acks)
{
    const exchange::DeviceId& own = transport.keys.Id();
    const exchange::Epoch epoch = transport.peers.OwnEpoch();
    const std::uint64_t last = transport.peers.LastSequence();
    if (exchange::AcknowledgedUpTo(acks, own, epoch) > last) {
        hasBegun_ = false;
        return true;
    }
    const std::uint64_t passed = exchange::AppliedOfAnotherEpoch(acks, own, epoch);
    if (passed == 0 || passed > last + kFurthestAhead)
        return false;
    const auto deliveries = transport.peers.Deliveries();
    const bool isStuck = std::any_of(deliveries.begin(), deliveries.end(), [&](const Delivery& delivery) {
        return delivery.device == peer.id && delivery.sequence <= passed;
    });
    if (!isStuck)
        return false;
    transport.peers.CountOnFrom(passed);
    transport.peers.Remake(peer.id);
    return true;
}

// Of two acks the one with the greater number holds: the place may bring old ones back.
void Receipts::Hear(Transport& transport, const Peer& peer, Heard& heard)
{
    const exchange::Acks& acks = heard.acks;
    if (acks.serial < peer.acksSerial)
        return;
    if (IsPastOwn(transport, peer, acks))
        return;
    if (acks.serial > peer.acksSerial) {
        const std::uint64_t acked = std::min(
            peer.sent, exchange::AcknowledgedUpTo(acks, transport.keys.Id(), transport.peers.OwnEpoch()));
        transport.peers.NoteAcked(peer.id, acks.serial, acked);
        if (acked < peer.acked) {
            Report(
                "'" + peer.member +
                "' has lost what it took before: folders are compared with it, and it is sent what it lacks");
            transport.peers.Remake(peer.id);
            return;
        }
    }
    const auto now = Clock::now();
    if (heard.judged != Clock::time_point() &&
        now < heard.judged + std::chrono::seconds(std::max<std::int64_t>(askAfter_, 1)))
        return;
    heard.judged = now;
    if (MayRemake(peer) && IsLost(transport, peer, acks)) {
        Report("'" + peer.member +
               "' misses packages that aren't there any more: what it lacks is looked for");
        transport.peers.Remake(peer.id);
    }
}

// Whether what a member asks for doesn't lie here as it was sent. What does is only late.
bool Receipts::IsLost(Transport& transport, const Peer& peer, const exchange::Acks& acks)
{
    const auto own = acks.senders.find(transport.keys.Id());
    if (own == acks.senders.end() || own->second.asked.empty() || own->second.asked.front().first > peer.sent)
        return false;
    const exchange::SequenceRange& asked = own->second.asked.front();
    bool any = false;
    for (const Delivery& delivery : transport.peers.Deliveries()) {
        if (delivery.device != peer.id || delivery.sequence < asked.first || delivery.sequence > asked.last)
            continue;
        any = true;
        if (delivery.isLaid && !IsSealedHere(transport, delivery.sequence))
            return true;
    }
    return !any;
}

// Packages that everybody has acknowledged, or that are for nobody any more. Who lacks what somebody else
// removed is compared.
void Receipts::RemoveTaken(Transport& transport)
{
    const auto lying = transport.place.Packages(transport.keys.Id(), 1);
    const bool isAll = lying.size() < exchange::Place::kMostPackages;
    std::set<std::uint64_t> awaited;
    std::set<exchange::DeviceId> losers;
    for (const Delivery& delivery : transport.peers.Deliveries()) {
        awaited.insert(delivery.sequence);
        if (delivery.isLaid && (isAll || delivery.sequence < lying.back()) &&
            !std::binary_search(lying.begin(), lying.end(), delivery.sequence))
            losers.insert(delivery.device);
    }
    for (const std::uint64_t sequence : lying)
        if (!awaited.contains(sequence))
            transport.place.Remove(sequence);
    for (const exchange::DeviceId& device : losers) {
        const auto peer = transport.peers.Find(device);
        if (!peer || !MayRemake(*peer))
            continue;
        Report("packages for '" + peer->member +
               "' were removed from the exchange before it had them: they are made "
               "again");
        transport.peers.Remake(device);
    }
}

std::chrono::milliseconds Receipts::UntilTold() const
{
    return std::chrono::milliseconds(std::min(kLongestUntold * 1000, silentAfter_ * 1000 / kPartsOfSilence));
}

void Receipts::Tell(Transport& transport)
{
    exchange::Acks acks;
    for (const Peer& peer : transport.peers.All()) {
        if (!peer.card || (peer.order.applied == 0 && !peer.isAsked))
            continue;
        exchange::Acknowledged& own = acks.senders[peer.id];
        own.epoch = peer.order.epoch;
        own.applied = peer.order.applied;
        if (peer.isAsked && peer.missing)
            own.asked = {*peer.missing};
        if (acks.senders.size() == exchange::Acks::kMostSenders)
            break;
    }
    const auto now = Clock::now();
    if (acks.senders == told_ && now < nextTold_)
        return;
    acks.serial = transport.peers.NextAcksSerial();
    transport.place.Write(exchange::Place::Note::kAcks, exchange::WriteAcks(transport.keys, acks));
    told_ = acks.senders;
    nextTold_ = now + UntilTold();
}

}  // namespace quorvane::host
