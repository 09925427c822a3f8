#include "host/exchange/acks.h"

#include "host/exchange/error.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kAcksMagic("QV3ACKS\1", 8);
constexpr std::string_view kAcksPurpose = "quorvane3 acks";

// Nobody sends as many packages as to come to this number.
constexpr std::uint64_t kNever = std::uint64_t{1} << 62;

// Gaps lie behind what is applied, rise, and something lies between them that isn't missing.
bool AreGaps(const Acknowledged& of)
{
    std::uint64_t least = of.applied + 1;
    for (const SequenceRange& gap : of.asked) {
        if (gap.first < least || gap.last < gap.first || gap.last >= kNever)
            return false;
        least = gap.last + 2;
    }
    return of.applied < kNever && of.asked.size() <= Acks::kMostGaps;
}

void CheckSender(const DeviceId& sender, const Acknowledged& of)
{
    if (!AreGaps(of))
        Refuse("acks ask sender " + TextOf(sender) + " for what is no gap");
}

Acknowledged ReadSender(WireReader& reader)
{
    Acknowledged of;
    of.epoch = reader.GetBytes<sizeof(Epoch)>();
    of.applied = reader.Get<std::uint64_t>();
    const std::size_t gaps = reader.Get<std::uint8_t>();
    for (std::size_t index = 0; index < gaps; ++index) {
        const auto first = reader.Get<std::uint64_t>();
        of.asked.push_back({first, reader.Get<std::uint64_t>()});
    }
    return of;
}

}  // namespace

std::string WriteAcks(const DeviceKeys& keys, const Acks& acks)
{
    if (acks.senders.size() > Acks::kMostSenders)
        Refuse("acks for more senders than may be");
    WireWriter bytes;
    bytes.Put(kAcksMagic).Put(acks.serial).Put(static_cast<std::uint16_t>(acks.senders.size()));
    for (const auto& [sender, of] : acks.senders) {
        CheckSender(sender, of);
        bytes.Put(sender.bytes).Put(of.epoch).Put(of.applied).Put(static_cast<std::uint8_t>(of.asked.size()));
        for (const SequenceRange& gap : of.asked)
            bytes.Put(gap.first).Put(gap.last);
    }
    const Signature signature = keys.Sign(kAcksPurpose, bytes.Bytes());
    return bytes.Put(signature).Bytes();
}

Acks ReadAcks(std::string_view bytes, const SigningKey& by)
{
    const std::string what = "the acks of device " + TextOf(IdOf(by));
    if (bytes.size() > Acks::kLongest)
        Refuse(what + " are too long");
    WireReader reader(bytes, what);
    if (reader.Take(kAcksMagic.size()) != kAcksMagic)
        Refuse(what + " are none, or of a later format");
    Acks acks;
    acks.serial = reader.Get<std::uint64_t>();
    const std::size_t senders = reader.Get<std::uint16_t>();
    if (senders > Acks::kMostSenders)
        Refuse(what + " are for more senders than may be");
    for (std::size_t index = 0; index < senders; ++index) {
        DeviceId sender;
        sender.bytes = reader.GetBytes<sizeof(DeviceId::bytes)>();
        if (!acks.senders.empty() && !(acks.senders.rbegin()->first < sender))
            Refuse(what + " name senders out of order");
        const Acknowledged of = ReadSender(reader);
        CheckSender(sender, of);
        acks.senders.emplace_hint(acks.senders.end(), sender, of);
    }
    const std::string_view isSigned = bytes.substr(0, bytes.size() - reader.Left());
    const Signature signature = reader.GetBytes<64>();
    reader.End();
    if (!IsSignedBy(by, kAcksPurpose, isSigned, signature))
        Refuse(what + " aren't signed by it");
    return acks;
}

std::uint64_t AcknowledgedUpTo(const Acks& acks, const DeviceId& sender, const Epoch& epoch)
{
    const auto of = acks.senders.find(sender);
    return of == acks.senders.end() || of->second.epoch != epoch ? 0 : of->second.applied;
}

std::uint64_t AppliedOfAnotherEpoch(const Acks& acks, const DeviceId& sender, const Epoch& epoch)
{
    const auto of = acks.senders.find(sender);
    return of == acks.senders.end() || of->second.epoch == epoch ? 0 : of->second.applied;
}

}  // namespace quorvane::host::exchange
