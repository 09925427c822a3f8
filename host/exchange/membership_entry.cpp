#include "host/exchange/membership_entry.h"

#include <algorithm>

#include "host/exchange/device_link.h"
#include "host/exchange/error.h"
#include "host/exchange/member_name.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kEntryMagic("QV3MEMB\1", 8);
constexpr std::string_view kEntryPurpose = "quorvane3 membership";
constexpr std::string_view kEntryName = "a change of a folder's members";
constexpr std::size_t kLongestFolderId = 256;
constexpr std::size_t kMostSeen = 200;

// Every field is there where it means something, and nowhere else: one change has one form.
void CheckForm(const MembershipEntry& entry)
{
    const bool brings = entry.change == MembershipChange::kFound || entry.change == MembershipChange::kAdd;
    const bool named = brings ? IsMemberName(entry.name) : entry.name.empty();
    const bool links = entry.change == MembershipChange::kLink;
    const bool isOfDevice = links || entry.change == MembershipChange::kUnlink;
    const bool hasDevice = entry.device != SigningKey{};
    const bool founds = entry.change == MembershipChange::kFound;
    const bool nests = entry.change == MembershipChange::kNest;
    if (entry.folder.empty() || entry.folder.size() > kLongestFolderId || !named || hasDevice != isOfDevice ||
        nests == (entry.outer == EntryId{}) || links == (entry.agreement == Signature{}) ||
        entry.seen.empty() != founds || entry.seen.size() > kMostSeen ||
        (founds && entry.member != entry.author))
        Refuse(std::string(kEntryName) + " has no proper form");
    if (links && !AgreesToLink(entry.device, entry.author, entry.agreement))
        Refuse(std::string(kEntryName) + " links a device that doesn't agree to it");
}

std::string WriteUnsigned(const MembershipEntry& entry)
{
    WireWriter bytes;
    bytes.Put(kEntryMagic).Put(static_cast<std::uint8_t>(entry.change));
    bytes.Put(static_cast<std::uint16_t>(entry.folder.size())).Put(entry.folder);
    bytes.Put(entry.member)
        .Put(static_cast<std::uint8_t>(entry.name.size()))
        .Put(entry.name)
        .Put(entry.change == MembershipChange::kNest ? entry.outer : entry.device);
    if (entry.change == MembershipChange::kLink)
        bytes.Put(entry.agreement);
    bytes.Put(static_cast<std::uint8_t>(entry.seen.size()));
    for (const EntryId& id : entry.seen)
        bytes.Put(id);
    return bytes.Put(entry.author).Bytes();
}

MembershipEntry ReadFields(WireReader& reader)
{
    if (reader.Take(kEntryMagic.size()) != kEntryMagic)
        Refuse(std::string(kEntryName) + " is none, or of a later format");
    MembershipEntry entry;
    const auto change = reader.Get<std::uint8_t>();
    if (change < static_cast<std::uint8_t>(MembershipChange::kFound) ||
        change > static_cast<std::uint8_t>(MembershipChange::kNest))
        Refuse(std::string(kEntryName) + " is of an unknown kind");
    entry.change = static_cast<MembershipChange>(change);
    entry.folder = reader.Take(reader.Get<std::uint16_t>());
    entry.member = reader.GetBytes<32>();
    entry.name = reader.Take(reader.Get<std::uint8_t>());
    (entry.change == MembershipChange::kNest ? entry.outer : entry.device) = reader.GetBytes<32>();
    if (entry.change == MembershipChange::kLink)
        entry.agreement = reader.GetBytes<64>();
    const std::size_t seen = reader.Get<std::uint8_t>();
    for (std::size_t index = 0; index < seen; ++index) {
        const EntryId id = reader.GetBytes<32>();
        if (!entry.seen.empty() && *entry.seen.rbegin() >= id)
            Refuse(std::string(kEntryName) + " names what it has seen out of order");
        entry.seen.insert(entry.seen.end(), id);
    }
    entry.author = reader.GetBytes<32>();
    return entry;
}

}  // namespace

EntryId IdOfEntry(std::string_view bytes)
{
    return BeginningOfDigest<std::tuple_size_v<EntryId>>(bytes);
}

std::string WriteMembershipEntry(const DeviceKeys& keys, MembershipEntry entry)
{
    entry.author = keys.Signing();
    CheckForm(entry);
    const std::string bytes = WriteUnsigned(entry);
    const Signature signature = keys.Sign(kEntryPurpose, bytes);
    return WireWriter().Put(bytes).Put(signature).Bytes();
}

MembershipEntry ReadMembershipEntry(std::string_view bytes)
{
    if (bytes.size() > kLongestEntry)
        Refuse(std::string(kEntryName) + " is too long");
    WireReader reader(bytes, kEntryName);
    MembershipEntry entry = ReadFields(reader);
    const std::string_view isSigned = bytes.substr(0, bytes.size() - reader.Left());
    const Signature signature = reader.GetBytes<64>();
    reader.End();
    CheckForm(entry);
    if (!IsSignedBy(entry.author, kEntryPurpose, isSigned, signature))
        Refuse(std::string(kEntryName) + " isn't signed by its author");
    return entry;
}

}  // namespace quorvane::host::exchange
