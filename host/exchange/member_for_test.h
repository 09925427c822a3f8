// host/exchange/member_for_test.h: a member's device as the program plays it, without the engine: it changes
// items, packs and lays what it owes, applies what comes, acknowledges, compares. It can be killed between
// any two changes of its records, and put back to a backup.
#ifndef QUORVANE_HOST_EXCHANGE_MEMBER_FOR_TEST_H_
#define QUORVANE_HOST_EXCHANGE_MEMBER_FOR_TEST_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "host/exchange/acks.h"
#include "host/exchange/content_for_test.h"
#include "host/exchange/exchange_for_test.h"
#include "host/exchange/intake.h"
#include "host/exchange/place.h"
#include "host/exchange/seal.h"

namespace quorvane::host::exchange {

namespace adversary {

namespace fs = std::filesystem;

// Of these two folders the first one is everybody's for good; the third member comes to the second one and
// goes.
inline const std::string kEverybodys = "{EVERYBODY}";
inline const std::string kSomes = "{SOME}";
constexpr std::size_t kMembers = 3;
constexpr std::uint64_t kRemakeAfter = 50;  // steps

using Random = std::mt19937_64;

inline bool Chance(Random& random, unsigned of)
{
    return random() % of == 0;
}

template <class Container>
const auto& AnyOf(const Container& from, Random& random)
{
    return *std::next(from.begin(), static_cast<std::ptrdiff_t>(random() % from.size()));
}

// How a device stands with another one.
struct Neighbour {
    std::uint64_t sent = 0;
    std::uint64_t acked = 0;
    std::uint64_t acksSerial = 0;
    std::uint64_t remade = 0;
    SenderState order;
    GapWatch gap;
    std::optional<SequenceRange> missing;
    bool isAsked = false;
    std::map<std::string, std::set<std::string>> owed;  // items by folder; the empty id: the folder itself
    std::map<std::string, FolderReport> reports;        // by folder, to be sent
};

// What is packed and doesn't lie in the exchange yet.
struct Outgoing {
    std::vector<Receiver> receivers;
    PackageKind kind = PackageKind::kItems;
    std::string content;
};

// All that a device keeps. Each change of it is whole or not at all.
struct Disk {
    Epoch epoch{};
    std::uint64_t sequence = 0;
    std::map<DeviceId, Neighbour> neighbours;
    std::map<std::uint64_t, Outgoing> outgoing;
    std::map<std::uint64_t, std::set<DeviceId>> deliveries;  // laid, or outgoing
    std::map<std::string, Folder> folders;
    std::map<std::string, std::set<std::string>> trash;  // texts by folder
};

// A change that somebody made, and what he had before his eyes.
struct Made {
    std::size_t by;
    std::string folder;
    std::string item;
    Revision revision;
    std::string text;
    std::set<std::string> seen;
};

// What happened in the whole world, for the judgement at the end.
struct Chronicle {
    std::vector<Made> made;
    std::set<std::string> excused;   // texts that went with a backup that came back, before anybody had them
    std::set<std::size_t> restored;  // members
    std::size_t refused = 0, kills = 0, applied = 0, copies = 0, restores = 0, reports = 0, epochs = 0;
};

struct Killed {};

class Member {
public:
    Member(std::size_t number, const std::string& seed, const fs::path& place, Random& random,
           Chronicle& chronicle)
        : keys(seed),
          number_(number),
          placePath_(place),
          place_(place, keys.Id()),
          random_(random),
          chronicle_(chronicle)
    {
        fs::create_directories(place);
        disk.epoch = DrawEpoch();
    }

    void Meet(const Member& other)
    {
        cards_.emplace(other.keys.Id(), &other);
        disk.neighbours[other.keys.Id()];
    }

    void Found(const std::string& folder)
    {
        MembershipEntry entry = EntryFor(MembershipChange::kFound, folder, *this);
        disk.folders[folder].membership.emplace(folder, WriteMembershipEntry(keys, entry));
    }
    void Admit(const std::string& folder, const Member& whom)
    {
        AppendEntry(folder, EntryFor(MembershipChange::kAdd, folder, whom));
        OweAll(whom.keys.Id(), folder);
    }
    void Remove(const std::string& folder, const Member& whom)
    {
        AppendEntry(folder, EntryFor(MembershipChange::kRemove, folder, whom));
        if (&whom == this)
            disk.folders[folder].items.clear();
    }
    bool IsIn(const std::string& folder) const
    {
        const auto found = disk.folders.find(folder);
        return found != disk.folders.end() && found->second.Has(keys.Signing());
    }
    bool Holds(const std::string& folder, const Member& whom) const
    {
        const auto found = disk.folders.find(folder);
        return found != disk.folders.end() && found->second.Has(whom.keys.Signing());
    }

    // The empty text deletes.
    void Change(const std::string& folder, const std::string& id, const std::string& text)
    {
        HeldItem& item = disk.folders[folder].items[id];
        item.known.id = id;
        Made made{number_, folder, id, {}, text, TextsOfCopies(folder)};
        if (!item.text.empty())
            made.seen.insert(item.text);
        std::optional<ContentDigest> content;
        if (!text.empty())
            content = DigestOfText(text);
        made.revision =
            item.known.heads.Change(ChangerOf(keys.Id(), disk.epoch), keys.Id(), Now(), content,
                                    [&](const Revision& beaten) { return HasCopyOf(folder, id, beaten); });
        item.text = text;
        item.known.isWhole = item.known.heads.Shown()->isDeletion == text.empty();
        LookForText(folder, item);
        chronicle_.made.push_back(made);
        OweToMembers(folder, id);
    }

    void Send()
    {
        for (const auto& [name, folder] : disk.folders)
            Pack(name);
        Lay();
    }

    void Receive()
    {
        std::vector<DeviceId> senders;
        for (const auto& [id, neighbour] : disk.neighbours)
            senders.push_back(id);
        std::shuffle(senders.begin(), senders.end(), random_);
        for (const DeviceId& sender : senders)
            while (TakeNext(sender)) {
            }
    }

    // Acknowledges, hears what others acknowledge, and removes what all have.
    void Settle()
    {
        Hear();
        RemoveTaken();
        Tell();
    }

    void Ask(const std::string& folder)
    {
        for (auto& [id, neighbour] : disk.neighbours)
            Ask(id, folder);
    }

    // The mailbox is put back to what it was; a new epoch begins.
    void Restore(const Disk& backup)
    {
        std::uint64_t last = std::max(disk.sequence, backup.sequence);
        const std::map<DeviceId, Neighbour> present = disk.neighbours;
        disk = backup;
        disk.epoch = DrawEpoch();
        // It sees its traces, or the place hides them.
        disk.sequence = Chance(random_, 2) ? last : backup.sequence;
        disk.deliveries.clear();
        disk.outgoing.clear();
        for (auto& [id, neighbour] : disk.neighbours) {
            neighbour.sent = neighbour.acked = 0;
            neighbour.reports.clear();
            CompareAnew(id);
        }
        ++chronicle_.epochs;
    }

    // Whether it has nothing to send or to wait for.
    bool IsQuiet() const
    {
        return disk.outgoing.empty() && disk.deliveries.empty() &&
               std::all_of(disk.neighbours.begin(), disk.neighbours.end(), [](const auto& one) {
                   return one.second.reports.empty() &&
                          std::all_of(one.second.owed.begin(), one.second.owed.end(),
                                      [](const auto& owed) { return owed.second.empty(); });
               });
    }

    fs::path OwnDirectory() const { return placePath_ / TextOf(keys.Id()); }
    fs::path DirectoryOf(const Member& other) const { return placePath_ / TextOf(other.keys.Id()); }

    const DeviceKeys keys;
    Disk disk;
    bool isMortal = true;
    std::uint64_t clock = 0;
    unsigned slow = 0;  // how far its clock is behind

private:
    void MayDie()
    {
        if (isMortal && Chance(random_, 150)) {
            ++chronicle_.kills;
            throw Killed();
        }
    }
    std::uint64_t Now() const { return 1000 + clock - std::min<std::uint64_t>(clock, slow); }
    Epoch DrawEpoch()
    {
        Epoch epoch;
        for (unsigned char& byte : epoch)
            byte = static_cast<unsigned char>(random_());
        return epoch;
    }

    MembershipEntry EntryFor(MembershipChange change, const std::string& folder, const Member& whom)
    {
        MembershipEntry entry;
        entry.change = change;
        entry.folder = folder;
        entry.member = whom.keys.Signing();
        if (change != MembershipChange::kRemove)
            entry.name = "member" + std::to_string(whom.number_);
        if (change != MembershipChange::kFound)
            entry.seen = disk.folders[folder].membership->Latest();
        return entry;
    }
    void AppendEntry(const std::string& folder, const MembershipEntry& entry)
    {
        disk.folders[folder].membership->Take(WriteMembershipEntry(keys, entry));
        OweToMembers(folder, "");
    }

    void OweToMembers(const std::string& folder, const std::string& id)
    {
        for (auto& [device, neighbour] : disk.neighbours)
            if (disk.folders[folder].Has(cards_.at(device)->keys.Signing()))
                neighbour.owed[folder].insert(id);
    }
    void OweAll(const DeviceId& device, const std::string& folder)
    {
        auto& owed = disk.neighbours[device].owed[folder];
        owed.insert("");
        for (const auto& [id, item] : disk.folders[folder].items)
            owed.insert(id);
    }
    void Ask(const DeviceId& device, const std::string& folder)
    {
        if (IsIn(folder) && disk.folders[folder].Has(cards_.at(device)->keys.Signing()))
            disk.neighbours[device].reports.try_emplace(folder, ReportOf(folder, disk.folders[folder]));
    }
    // What was lost on the way is found by it.
    void CompareAnew(const DeviceId& device)
    {
        for (const auto& [name, folder] : disk.folders) {
            disk.neighbours[device].owed[name].insert("");
            Ask(device, name);
        }
    }
    void Remake(const DeviceId& device)
    {
        for (auto& [sequence, receivers] : disk.deliveries)
            receivers.erase(device);
        for (auto& [sequence, package] : disk.outgoing)
            std::erase_if(package.receivers, [&](const Receiver& one) { return one.id == device; });
        Neighbour& neighbour = disk.neighbours[device];
        neighbour.sent = neighbour.acked;
        neighbour.remade = clock;
        CompareAnew(device);
    }

    // ----- sending

    void Pack(const std::string& name)
    {
        Folder& folder = disk.folders[name];
        Content content{name, folder.membership->Entries(), {}, {}};
        std::set<std::string> ids;
        std::vector<DeviceId> receivers;
        for (auto& [id, neighbour] : disk.neighbours) {
            if (!folder.Has(cards_.at(id)->keys.Signing()))
                neighbour.owed.erase(name);
            if (!folder.Has(keys.Signing()) || !folder.Has(cards_.at(id)->keys.Signing()))
                neighbour.reports.erase(name);
            if (const auto report = neighbour.reports.find(name); report != neighbour.reports.end())
                PackReport(id, content, report->second);
            if (neighbour.owed[name].empty())
                continue;
            ids.insert(neighbour.owed[name].begin(), neighbour.owed[name].end());
            receivers.push_back(id);
        }
        if (receivers.empty())
            return;
        // Who has left tells that alone.
        for (const std::string& id : ids)
            if (const auto item = folder.items.find(id);
                item != folder.items.end() && folder.Has(keys.Signing()))
                content.items.push_back({item->second.known, item->second.text});
        Number(receivers, PackageKind::kItems, content);
        for (const DeviceId& id : receivers)
            disk.neighbours[id].owed.erase(name);
        MayDie();
    }
    void PackReport(const DeviceId& to, Content content, const FolderReport& report)
    {
        content.report = report;
        Number({to}, PackageKind::kDigest, content);
        disk.neighbours[to].reports.erase(report.folder);
        ++chronicle_.reports;
    }
    void Number(const std::vector<DeviceId>& to, PackageKind kind, const Content& content)
    {
        const std::uint64_t sequence = ++disk.sequence;
        Outgoing package{{}, kind, content.Write()};
        for (const DeviceId& id : to) {
            Neighbour& neighbour = disk.neighbours[id];
            package.receivers.push_back({id, cards_.at(id)->keys.Sealing(), neighbour.sent});
            neighbour.sent = sequence;
            disk.deliveries[sequence].insert(id);
        }
        disk.outgoing.emplace(sequence, package);
    }
    void Lay()
    {
        while (!disk.outgoing.empty()) {
            const auto& [sequence, package] = *disk.outgoing.begin();
            if (!package.receivers.empty()) {
                std::string sealed;
                Seal(keys, {keys.Id(), disk.epoch, sequence, package.kind}, package.receivers,
                     MemorySource(package.content), [&](std::string_view bytes) { sealed += bytes; });
                MayDie();
                place_.Put(sequence, MemorySource(sealed));
                MayDie();
            }
            disk.outgoing.erase(disk.outgoing.begin());
        }
    }

    // ----- receiving

    struct Opened {
        ForUs header;
        PackageKind kind;
        std::string content;
    };

    // The next one of a sender's, if it is there.
    bool TakeNext(const DeviceId& sender)
    {
        Neighbour& neighbour = disk.neighbours[sender];
        std::optional<SequenceRange> gap;
        for (const std::uint64_t sequence : Lying(sender)) {
            const auto opened = Open(sender, sequence, neighbour.order, gap);
            if (!opened)
                continue;
            neighbour.missing.reset();
            if (opened->kind == PackageKind::kItems || opened->kind == PackageKind::kDigest)
                Apply(sender, Content::Read(opened->content));
            MayDie();
            NoteApplied(neighbour.order, opened->header);
            ++chronicle_.applied;
            return true;
        }
        neighbour.isAsked = neighbour.gap.IsDue(gap, static_cast<std::int64_t>(clock), kRemakeAfter);
        neighbour.missing = gap;
        return false;
    }
    std::vector<std::uint64_t> Lying(const DeviceId& sender)
    {
        try {
            return place_.Packages(sender, 1);
        } catch (const Error&) {
            return {};
        }
    }
    std::optional<Opened> Open(const DeviceId& sender, std::uint64_t sequence, const SenderState& order,
                               std::optional<SequenceRange>& gap)
    {
        try {
            const auto file = place_.Open(sender, sequence);
            if (!file)
                return std::nullopt;
            SealedPackage package(*file, "a package");
            const auto previous = package.PreviousFor(keys.Id());
            if (package.Label().sender != sender || package.Label().sequence != sequence || !previous)
                return std::nullopt;
            const ForUs header{package.Label().epoch, sequence, *previous};
            const Intake intake = JudgeOrder(order, header);
            if (intake == Intake::kApplied || intake == Intake::kOver)
                return std::nullopt;
            package.Verify(cards_.at(sender)->keys.Signing());
            if (intake == Intake::kTooEarly) {
                if (!gap)
                    gap = GapBefore(order, header);
                return std::nullopt;
            }
            Opened opened{header, package.Label().kind, {}};
            package.Unseal(keys, [&](std::string_view bytes) { opened.content += bytes; });
            return opened;
        } catch (const Error&) {
            ++chronicle_.refused;
            return std::nullopt;
        }
    }

    void Apply(const DeviceId& sender, const Content& content)
    {
        TakeEntries(content);
        Folder& folder = disk.folders[content.folder];
        const SigningKey& signing = cards_.at(sender)->keys.Signing();
        if (!folder.Has(keys.Signing())) {
            folder.items.clear();  // this member is out
            return;
        }
        if (!folder.Has(signing))
            return;
        for (const SentItem& item : content.items) {
            MayDie();
            ApplyItem(content.folder, item);
        }
        LookForTexts(content.folder);
        if (!content.report)
            return;
        const Comparison comparison =
            Compare(folder, ReportOf(content.folder, folder, content.report->withFlags), *content.report);
        Neighbour& neighbour = disk.neighbours[sender];
        neighbour.owed[content.folder].insert(comparison.lacking.begin(), comparison.lacking.end());
        if (comparison.answer)
            neighbour.reports.insert_or_assign(content.folder, *comparison.answer);
    }
    void TakeEntries(const Content& content)
    {
        ASSERT_FALSE(content.entries.empty());
        std::optional<Membership>& membership = disk.folders[content.folder].membership;
        if (!membership)
            membership.emplace(content.folder, content.entries.front());
        bool isNew = false;
        for (const std::string& entry : content.entries)
            isNew |= membership->Take(entry) == Membership::Taken::kNew;
        if (isNew)
            OweToMembers(content.folder, "");
    }

    void ApplyItem(const std::string& folder, const SentItem& sent)
    {
        HeldItem& item = disk.folders[folder].items[sent.known.id];
        item.known.id = sent.known.id;
        const std::string before = item.text;
        switch (TakeItem(item.known, sent.known)) {
            case ItemTaken::kApply:
                item.text = item.known.heads.Shown()->isDeletion ? std::string() : sent.text;
                break;
            case ItemTaken::kMissing:
                item.text.clear();
                break;
            default:
                break;
        }
        if (!before.empty() && before != item.text)
            disk.trash[folder].insert(before);
        KeepBeaten(folder, item, before);
        if (!sent.text.empty())
            KeepBeaten(folder, item, sent.text);
    }
    // An own edit that another one beat becomes an item of its own.
    void KeepBeaten(const std::string& folder, const HeldItem& item, const std::string& text)
    {
        const std::string id = item.known.id;
        for (const Revision& beaten : item.known.heads.Beaten()) {
            if (DigestOfText(text) != beaten.content)
                continue;
            disk.trash[folder].insert(text);
            if (beaten.by != keys.Id() || HasCopyOf(folder, id, beaten))
                continue;
            ++chronicle_.copies;
            Change(folder, ConflictCopyId(id, beaten), text);
        }
    }
    bool HasCopyOf(const std::string& folder, const std::string& id, const Revision& beaten)
    {
        return disk.folders[folder].items.contains(ConflictCopyId(id, beaten));
    }
    // The text of a beaten edit that is shown again stands in its copy, or whoever changed or deleted that
    // had seen it: then the item goes. Else the trash may have it.
    void LookForText(const std::string& folder, HeldItem& item)
    {
        const Revision& shown = *item.known.heads.Shown();
        if (item.known.isWhole || shown.isDeletion)
            return;
        const auto& items = disk.folders[folder].items;
        const auto copy = items.find(ConflictCopyId(item.known.id, shown));
        if (copy != items.end() && copy->second.known.isWhole) {
            Change(folder, item.known.id, "");
            return;
        }
        for (const std::string& text : disk.trash[folder])
            if (DigestOfText(text) == shown.content) {
                item.text = text;
                item.known.isWhole = true;
                return;
            }
    }
    void LookForTexts(const std::string& folder)
    {
        for (auto& [id, item] : disk.folders[folder].items)
            LookForText(folder, item);
    }
    std::set<std::string> TextsOfCopies(const std::string& folder)
    {
        std::set<std::string> texts;
        for (const auto& [id, item] : disk.folders[folder].items)
            texts.insert(item.text);
        return texts;
    }

    // ----- acknowledging

    void Hear()
    {
        for (auto& [id, neighbour] : disk.neighbours)
            try {
                const auto bytes = place_.Read(id, Place::Note::kAcks, Acks::kLongest);
                if (bytes)
                    HearFrom(id, neighbour, ReadAcks(*bytes, cards_.at(id)->keys.Signing()));
            } catch (const Error&) {
                ++chronicle_.refused;
            }
    }
    void HearFrom(const DeviceId& id, Neighbour& neighbour, const Acks& acks)
    {
        if (acks.serial < neighbour.acksSerial)
            return;
        const std::uint64_t acked = std::min(neighbour.sent, AcknowledgedUpTo(acks, keys.Id(), disk.epoch));
        const bool isLess = acks.serial > neighbour.acksSerial && acked < neighbour.acked;
        neighbour.acksSerial = acks.serial;
        neighbour.acked = acked;
        for (auto& [sequence, receivers] : disk.deliveries)
            if (sequence <= acked)
                receivers.erase(id);
        MayDie();
        if (const std::uint64_t passed = AppliedOfAnotherEpoch(acks, keys.Id(), disk.epoch);
            passed >= LeastAwaited(id)) {
            disk.sequence = std::max(disk.sequence, passed);
            Remake(id);
        } else if (isLess || (MayRemake(neighbour) && IsLost(id, acks))) {
            Remake(id);
        }
    }
    std::uint64_t LeastAwaited(const DeviceId& id) const
    {
        for (const auto& [sequence, receivers] : disk.deliveries)
            if (receivers.contains(id))
                return sequence;
        return ~std::uint64_t{0};
    }
    bool MayRemake(const Neighbour& neighbour) const { return clock >= neighbour.remade + kRemakeAfter; }
    bool IsLost(const DeviceId& id, const Acks& acks) const
    {
        const auto own = acks.senders.find(keys.Id());
        if (own == acks.senders.end() || own->second.asked.empty())
            return false;
        const SequenceRange& asked = own->second.asked.front();
        if (asked.first > disk.neighbours.at(id).sent)
            return false;
        bool any = false;
        for (const auto& [sequence, receivers] : disk.deliveries)
            if (sequence >= asked.first && sequence <= asked.last && receivers.contains(id)) {
                any = true;
                if (!disk.outgoing.contains(sequence) && !IsSealedHere(sequence))
                    return true;
            }
        return !any;
    }
    bool IsSealedHere(std::uint64_t sequence) const
    {
        try {
            const auto file = place_.Open(keys.Id(), sequence);
            if (!file)
                return false;
            SealedPackage package(*file, "the package");
            package.Verify(keys.Signing());
            return package.Label().sequence == sequence;
        } catch (const Error&) {
            return false;
        }
    }
    void RemoveTaken()
    {
        std::erase_if(disk.deliveries, [](const auto& delivery) { return delivery.second.empty(); });
        const auto lying = Lying(keys.Id());
        for (const std::uint64_t sequence : lying)
            if (!disk.deliveries.contains(sequence))
                place_.Remove(sequence);
        std::set<DeviceId> losers;
        for (const auto& [sequence, receivers] : disk.deliveries)
            if (!disk.outgoing.contains(sequence) &&
                !std::binary_search(lying.begin(), lying.end(), sequence))
                losers.insert(receivers.begin(), receivers.end());
        for (const DeviceId& id : losers)
            if (MayRemake(disk.neighbours[id]))
                Remake(id);
    }
    void Tell()
    {
        Acks acks;
        for (const auto& [id, neighbour] : disk.neighbours) {
            if (neighbour.order.applied == 0 && !neighbour.isAsked)
                continue;
            Acknowledged& own = acks.senders[id];
            own = {neighbour.order.epoch, neighbour.order.applied, {}};
            if (neighbour.isAsked && neighbour.missing)
                own.asked = {*neighbour.missing};
        }
        if (acks.senders == told_)
            return;
        told_ = acks.senders;
        acks.serial = ++serial_;
        place_.Write(Place::Note::kAcks, WriteAcks(keys, acks));
    }

    const std::size_t number_;
    const fs::path placePath_;
    const Place place_;
    Random& random_;
    Chronicle& chronicle_;
    std::map<DeviceId, const Member*> cards_;
    std::map<DeviceId, Acknowledged> told_;
    std::uint64_t serial_ = 0;  // as a clock gives it: it doesn't go back with a backup
};

}  // namespace adversary

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_MEMBER_FOR_TEST_H_
