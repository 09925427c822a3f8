// host/mailbox/peers.h: the devices of other members that this mailbox knows, and how far packages to them
// and from them are; in host.db (docs/mailbox.md). What a device is pinned to is the user's word, or that of
// a member of a folder that both share; what its card says of itself counts for nothing else than its keys.
#ifndef QUORVANE_HOST_MAILBOX_PEERS_H_
#define QUORVANE_HOST_MAILBOX_PEERS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/exchange/acks.h"
#include "host/exchange/card.h"
#include "host/exchange/intake.h"
#include "host/exchange/outside.h"
#include "host/mailbox/traffic.h"

namespace quorvane::host {

// A known device.
struct Peer {
    exchange::DeviceId id;
    std::string member;
    std::optional<exchange::Card> card;  // none while it wasn't seen
    std::string introducer;              // the member who told of it; empty when the user did
    std::string how;                     // it came to be known
    std::uint64_t pinned = 0;            // FILETIMEs, as all times here
    std::uint64_t heard = 0;             // of its last package or acknowledgement; 0 for never
    // What it was sent.
    std::uint64_t sent = 0;   // the last number of a package for it
    std::uint64_t acked = 0;  // up to which it has acknowledged
    std::uint64_t acksSerial = 0;
    std::uint64_t remade = 0;  // when it was last given anew what was lost
    // What came from it.
    exchange::SenderState order;
    exchange::GapWatch gap;
    std::optional<exchange::SequenceRange> missing;  // before what lies there
    bool isAsked = false;                            // the missing ones are asked for
    bool isSilent = false;                           // it wasn't heard of for long (NoteSilence)

    bool IsPinnedByUser() const noexcept { return introducer.empty(); }
};

// A package of a known device's that isn't applied.
struct IncomingRecord {
    enum class State {
        kTaken = 0,    // its copy lies in inbox/, and it is the next to be handed to the engine
        kGiven = 1,    // it was handed over
        kHeld = 2,     // it waits for something else, and stays where it lies
        kRefused = 3,  // it isn't what it ought to be
    };
    exchange::DeviceId device;
    std::uint64_t sequence = 0;
    State state = State::kTaken;
    std::string reason;
    std::uint64_t since = 0;
};

// A device that nobody vouches for and that has packages for this one.
struct Stranger {
    exchange::DeviceId device;
    std::string name;  // by its card
    std::uint64_t packages = 0;
    std::uint64_t since = 0;
};

// A package that lies in the exchange, or will, for a device that hasn't acknowledged it.
struct Delivery {
    std::uint64_t sequence = 0;
    exchange::DeviceId device;
    bool isLaid = false;
};

// For one thread. Methods throw a HostError when the database fails; what they note is on the disk when they
// return.
class Peers {
public:
    explicit Peers(const std::string& path);

    // This mailbox's own.
    exchange::Epoch OwnEpoch();
    std::uint64_t LastSequence();
    std::string Exchange();
    void SetExchange(const std::string& directory);
    // Who else may read what this device lays there; its group, as long as nothing was said.
    exchange::Readers ExchangeReaders();
    void SetExchangeReaders(exchange::Readers readers);
    // A number that is greater than any that was given, in earlier lives of the mailbox too.
    std::uint64_t NextAcksSerial();
    std::uint64_t LastAcksSerial();
    // The mailbox is behind what it did itself, as far as its number `sequence`: another epoch begins, and
    // its folders are to be compared with those of all devices: what either lacks is sent, and no more.
    void BeginEpoch(const exchange::Epoch& epoch, std::uint64_t sequence);
    // The next package gets a greater number than this.
    void CountOnFrom(std::uint64_t sequence);

    std::vector<Peer> All();
    std::optional<Peer> Find(const exchange::DeviceId& id);
    std::vector<Peer> OfMember(const std::string& member);
    // Members of folders without a device that the user has pinned to them.
    std::set<std::string> AwaitedMembers();

    // The user says whose device this is. One more device of a member who has folders already is to be let
    // into all of them. Throws a HostError when there are too many.
    void Pin(const exchange::Card& card, const std::string& bytes, const std::string& member,
             const std::string& how);
    // The user says that it is another device of this mailbox's own member. Throws a HostError when there are
    // too many.
    void Link(const exchange::Card& card, const std::string& bytes);
    // Those whom this device agrees to be linked by, for its card.
    std::vector<exchange::CardLink> OwnLinks(const exchange::DeviceKeys& keys);
    // The number of this device's card, which rises when what is on it changes.
    std::uint64_t CardSerial();
    std::string OwnName();

    // Forgets a device, whatever members of folders say of it. A member without any waits for one, and is
    // then sent everything.
    void Drop(const exchange::DeviceId& id);
    // The card of a known device was found.
    void NoteCard(const exchange::Card& card, const std::string& bytes);

    // Packages to others.
    std::vector<exchange::Receiver> ReceiversOf(std::uint64_t sequence);
    std::vector<Delivery> Deliveries();
    void NoteAcked(const exchange::DeviceId& id, std::uint64_t serial, std::uint64_t acked);
    // Devices of which nothing was heard, and that didn't come to be known, since then are silent: what they
    // haven't acknowledged is kept for them no longer, and nothing more is for them. Whoever is heard of
    // again is told of his folders once more, and they are to be compared. Gives those who have fallen silent
    // now.
    std::vector<Peer> NoteSilence(std::uint64_t since);
    // What a device was sent and hasn't acknowledged is lost: it is told of its folders once more, and they
    // are to be compared.
    void Remake(const exchange::DeviceId& id);

    // Packages from others.
    // With what passed: `received`, and `made`, when those of its changes were made that weren't known here.
    void NoteApplied(const exchange::DeviceId& id, const exchange::ForUs& package,
                     const Traffic& received = {}, const std::vector<std::uint64_t>& made = {});
    void NoteGap(const Peer& peer);
    void PutIncoming(const IncomingRecord& record);
    void ForgetIncoming(const exchange::DeviceId& device, std::uint64_t sequence);
    std::vector<IncomingRecord> Incoming();
    // The one that is with the engine, or is the next to be.
    std::optional<IncomingRecord> Current();
    void SetStrangers(const std::vector<Stranger>& strangers);
    std::vector<Stranger> Strangers();

private:
    void Forget(const std::string& device);
    void OweAll(const std::string& member, bool announced);
    void WishAgain(const std::string& member);
    void TellAgain(const std::string& device);
    void NoteBack(const std::string& device);
    void CompareAnew(const std::string& device);
    std::vector<Peer> Read(const char* where, const std::string& key);
    std::optional<exchange::Card> CardIn(const std::string& hex, const exchange::DeviceId& id);

    Database database_;
    std::map<std::string, exchange::Card> cards_;  // by their bytes in hexadecimal
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_PEERS_H_
