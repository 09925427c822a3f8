// What members tell each other, behind seal and signature: flags, changes of a folder's membership, notes of
// folders, reports, what is known of items; and cards and acknowledgements, which lie in the open.
//
// The first byte says which reader gets the rest. What is signed is signed anew, as no fuzzer finds a
// signature: by one device, so that what it says of itself means something. What is read is written as it
// was.
#include <algorithm>

#include "fuzz/target.h"
#include "host/exchange/acks.h"
#include "host/exchange/card.h"
#include "host/exchange/comparison.h"
#include "host/exchange/device_link.h"
#include "host/exchange/error.h"
#include "host/exchange/folder_note.h"
#include "host/exchange/item_flags.h"
#include "host/exchange/membership.h"

namespace quorvane::fuzz {
namespace {

using namespace host::exchange;

enum class Reader : BYTE { kFlags, kEntry, kNote, kReport, kHeads, kCard, kAcks };
constexpr unsigned kReaders = 7;

constexpr std::size_t kKeySize = std::tuple_size_v<SigningKey>;
constexpr std::size_t kSignatureSize = std::tuple_size_v<Signature>;
constexpr std::size_t kCardKeyAt = 16;
constexpr char kFuzzedFolder[] = "{F}";

const DeviceKeys& Own()
{
    static const DeviceKeys keys(std::string(32, 'a'));
    return keys;
}
const DeviceKeys& Other()
{
    static const DeviceKeys keys(std::string(32, 'b'));
    return keys;
}

void PutKey(std::string& bytes, std::size_t at)
{
    if (at <= bytes.size() && bytes.size() - at >= kKeySize)
        std::copy_n(Own().Signing().begin(), kKeySize, bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

// With the signature that it ought to have in place of its last bytes.
std::string Signed(std::string bytes, std::string_view purpose)
{
    if (bytes.size() < kSignatureSize)
        return bytes;
    bytes.resize(bytes.size() - kSignatureSize);
    const Signature signature = Own().Sign(purpose, bytes);
    return bytes.append(signature.begin(), signature.end());
}

std::string SignedEntry(std::string bytes)
{
    if (bytes.size() < kKeySize + kSignatureSize)
        return bytes;
    PutKey(bytes, bytes.size() - kSignatureSize - kKeySize);
    return Signed(std::move(bytes), "quorvane3 membership");
}

std::string SignedCard(std::string bytes)
{
    PutKey(bytes, kCardKeyAt);
    return Signed(std::move(bytes), "quorvane3 card");
}

void RequireSame(const std::string& written, const std::string& read)
{
    Require(written == read, "what was read is written as something else");
}

void ReadEntry(const std::string& bytes)
{
    const std::string entry = SignedEntry(bytes);
    RequireSame(WriteMembershipEntry(Own(), ReadMembershipEntry(entry)), entry);
}

// Takes those that can be taken, the last ones first, until nothing new is among them.
void TakeFromBehind(const std::vector<std::string>& entries, Membership& members)
{
    for (bool isAnyNew = true; isAnyNew;) {
        isAnyNew = false;
        for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
            try {
                isAnyNew |= members.Take(*entry) == Membership::Taken::kNew;
            } catch (const Error&) {
                continue;  // it counts for nothing
            }
    }
}

// Whatever the entries of a note say, they give the same members in any order.
void ReadMembers(const FolderNote& note)
{
    constexpr std::size_t kMostTaken = 40;
    std::vector<std::string> entries;
    for (std::size_t i = 0; i < std::min(note.entries.size(), kMostTaken); ++i)
        entries.push_back(SignedEntry(note.entries[i]));
    if (entries.empty())
        return;
    Membership members(note.folder, entries.front());
    TakeFromBehind(entries, members);
    const FolderMembers now = members.Members();
    Require(members.MembersAt(members.Latest()) == now, "who saw everything sees other members");
    Membership again(note.folder, entries.front());
    for (std::size_t i = 1; i < members.Entries().size(); ++i)
        Require(again.Take(members.Entries()[i]) == Membership::Taken::kNew,
                "an entry waits for none of those before it");
    Require(again.Members() == now, "another order gives other members");
    Require(again.FlagEntries().empty() == members.FlagEntries().empty(), "another order gives flags");
}

void ReadNote(const std::string& bytes)
{
    const FolderNote note = ReadFolderNote(bytes);
    RequireSame(WriteFolderNote(note), bytes);
    ReadMembers(note);
}

void ReadHeads(const std::string& bytes)
{
    ItemHeads heads = ItemHeads::Read(bytes, "heads");
    RequireSame(heads.Write(), bytes);
    if (!heads.Shown())
        return;
    Require(heads.Take(ItemHeads::Read(bytes, "heads")) == ItemHeads::Taken::kKnown, "heads lack themselves");
    const Revision made = heads.Change(ChangerOf(Own().Id(), {}), Own().Id(), 1, ContentDigest{},
                                       [](const Revision&) { return true; });
    (void)made;
    RequireSame(ItemHeads::Read(heads.Write(), "heads").Write(), heads.Write());
}

void RunReader(Reader reader, const std::string& bytes)
{
    switch (reader) {
        case Reader::kFlags:
            RequireSame(FlagNote::Read(bytes, "flags").Write(), bytes);
            return;
        case Reader::kEntry:
            return ReadEntry(bytes);
        case Reader::kNote:
            return ReadNote(bytes);
        case Reader::kReport:
            RequireSame(FolderReport::Read(bytes, "a report").Write(), bytes);
            return;
        case Reader::kHeads:
            return ReadHeads(bytes);
        case Reader::kCard: {
            const Card card = ReadCard(SignedCard(bytes), Own().Id());
            Require(card.Id() == Own().Id(), "a card is somebody else's");
            return;
        }
        case Reader::kAcks: {
            const std::string acks = Signed(bytes, "quorvane3 acks");
            RequireSame(WriteAcks(Own(), ReadAcks(acks, Own().Signing())), acks);
            return;
        }
    }
}

void RunExchange(const BYTE* data, std::size_t size)
{
    if (size == 0)
        return;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        RunReader(static_cast<Reader>(data[0] % kReaders), bytes);
    } catch (const Error& error) {
        Require(error.What() == Error::Kind::kRefused, "bytes are refused for now, and not for good");
    }
}

Bytes ExchangeInput(Reader reader, const std::string& bytes)
{
    Bytes input{static_cast<BYTE>(reader)};
    input.insert(input.end(), bytes.begin(), bytes.end());
    return input;
}

FlagNote SomeFlags()
{
    FlagNote note;
    note.folder = kFuzzedFolder;
    for (const char* id : {"{I}", "{J}"}) {
        ItemFlags flags;
        flags.Show(3, 1000, Own().Id());
        flags.Show(1, 2000, Other().Id());
        note.items.push_back({id, flags});
    }
    return note;
}

MembershipEntry EntryOf(MembershipChange change, const Membership* after)
{
    MembershipEntry entry;
    entry.change = change;
    entry.folder = kFuzzedFolder;
    entry.member = Own().Signing();
    if (after)
        entry.seen = after->Latest();
    return entry;
}

// A founding, somebody who comes, is linked, unlinked and goes, flags, and where it lies.
std::vector<std::string> SomeEntries()
{
    MembershipEntry founding = EntryOf(MembershipChange::kFound, nullptr);
    founding.name = "alice";
    Membership members(kFuzzedFolder, WriteMembershipEntry(Own(), founding));
    const auto append = [&](MembershipEntry entry) { members.Take(WriteMembershipEntry(Own(), entry)); };
    MembershipEntry adds = EntryOf(MembershipChange::kAdd, &members);
    adds.member = Other().Signing();
    adds.name = "bob";
    append(adds);
    MembershipEntry links = EntryOf(MembershipChange::kLink, &members);
    links.device = Other().Signing();
    links.agreement = AgreeToLink(Other(), Own().Signing());
    append(links);
    MembershipEntry unlinks = EntryOf(MembershipChange::kUnlink, &members);
    unlinks.device = Other().Signing();
    append(unlinks);
    append(EntryOf(MembershipChange::kFlags, &members));
    MembershipEntry nests = EntryOf(MembershipChange::kNest, &members);
    nests.outer = IdOfEntry(members.Entries().front());
    append(nests);
    MembershipEntry removes = EntryOf(MembershipChange::kRemove, &members);
    removes.member = Other().Signing();
    append(removes);
    return members.Entries();
}

std::string SomeHeads()
{
    const auto never = [](const Revision&) { return false; };
    ItemHeads one;
    one.Change(ChangerOf(Own().Id(), {}), Own().Id(), 1000, ContentDigest{1}, never);
    ItemHeads another = one;
    one.Change(ChangerOf(Own().Id(), {}), Own().Id(), 2000, ContentDigest{2}, never);
    another.Change(ChangerOf(Other().Id(), {}), Other().Id(), 3000, std::nullopt, never);
    one.Take(another);
    return one.Write();
}

std::string SomeReport()
{
    FolderReport report;
    report.folder = kFuzzedFolder;
    report.withFlags = true;
    KnownItem item{"{I}", ItemHeads::Read(SomeHeads(), "heads"), true, SomeFlags().items[0].flags};
    report.buckets[BucketOf(item.id)] = {item};
    return report.Write();
}

std::vector<Bytes> MakeExchangeSeeds()
{
    std::vector<Bytes> seeds;
    const auto add = [&](Reader reader, const std::string& bytes) {
        seeds.push_back(ExchangeInput(reader, bytes));
    };
    add(Reader::kFlags, SomeFlags().Write());
    const std::vector<std::string> entries = SomeEntries();
    for (const std::string& entry : entries)
        add(Reader::kEntry, entry);
    add(Reader::kNote, WriteFolderNote({true, Other().Id(), kFuzzedFolder, "Shared", entries}));
    add(Reader::kReport, SomeReport());
    add(Reader::kHeads, SomeHeads());
    add(Reader::kCard,
        WriteCard(Own(), "alice", 1, {{Other().Signing(), AgreeToLink(Own(), Other().Signing())}}));
    Acks acks;
    acks.serial = 7;
    acks.senders[Other().Id()] = {Epoch{1}, 5, {{6, 7}, {9, 9}}};
    add(Reader::kAcks, WriteAcks(Own(), acks));
    return seeds;
}

}  // namespace

const Target kExchange{"exchange", RunExchange, MakeExchangeSeeds};

}  // namespace quorvane::fuzz
