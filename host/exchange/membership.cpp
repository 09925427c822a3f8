#include "host/exchange/membership.h"

#include <algorithm>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

// Judges a set of entries that holds, with each of them, all that it has seen.
class Membership::Judge {
public:
    Judge(const Membership& all, std::vector<bool> within) : all_(all), within_(std::move(within)) {}

    FolderMembers Members()
    {
        FindDevices();
        FindRemovals();
        FindAdditions();
        FolderMembers members;
        for (const std::size_t addition : additions_) {
            const MembershipEntry& entry = At(addition);
            if (IsUndone(addition))
                continue;
            FolderMember& member = members[entry.member];
            if (member.name.empty() || entry.name < member.name)
                member.name = entry.name;
            member.devices.insert(entry.member);
        }
        for (const std::size_t device : devices_)
            if (const auto member = members.find(At(device).member); member != members.end())
                member->second.devices.insert(At(device).device);
        return members;
    }

private:
    const MembershipEntry& At(std::size_t place) const { return all_.known_[place].entry; }
    const SigningKey& Founder() const { return At(0).member; }

    template <class Visit>
    void ForEach(MembershipChange change, Visit visit) const
    {
        for (std::size_t place = 0; place < within_.size(); ++place)
            if (within_[place] && At(place).change == change)
                visit(place);
    }

    // Whether the author of an entry spoke for a member, as far as he had seen the member's devices.
    bool SpeaksFor(std::size_t place, const SigningKey& member) const
    {
        return At(place).author == member ||
               std::any_of(devices_.begin(), devices_.end(), [&](std::size_t device) {
                   return all_.HasSeen(place, device) && At(device).member == member &&
                          At(device).device == At(place).author;
               });
    }

    void FindDevices()
    {
        ForEach(MembershipChange::kDevice, [&](std::size_t place) {
            if (SpeaksFor(place, At(place).member))
                devices_.push_back(place);
        });
    }

    // A founder who has left removes nobody any more, as far as his leaving hadn't seen it.
    void FindRemovals()
    {
        std::vector<std::size_t> founderLeft;
        ForEach(MembershipChange::kRemove, [&](std::size_t place) {
            if (!SpeaksFor(place, At(place).member))
                return;
            removals_.push_back(place);
            if (At(place).member == Founder())
                founderLeft.push_back(place);
        });
        ForEach(MembershipChange::kRemove, [&](std::size_t place) {
            const bool counts = std::all_of(founderLeft.begin(), founderLeft.end(),
                                            [&](std::size_t left) { return all_.HasSeen(left, place); });
            if (SpeaksFor(place, Founder()) && counts)
                removals_.push_back(place);
        });
    }

    // Entries come after all that they have seen, so that who adds is judged before whom he adds.
    void FindAdditions()
    {
        additions_.push_back(0);
        ForEach(MembershipChange::kAdd, [&](std::size_t place) {
            const bool byMember =
                std::any_of(additions_.begin(), additions_.end(), [&](std::size_t addition) {
                    return all_.HasSeen(place, addition) && SpeaksFor(place, At(addition).member) &&
                           !IsUndoneFor(addition, place);
                });
            if (byMember)
                additions_.push_back(place);
        });
    }

    // Whether a removal ended what an addition began.
    bool IsUndone(std::size_t addition) const
    {
        return std::any_of(removals_.begin(), removals_.end(), [&](std::size_t removal) {
            return At(removal).member == At(addition).member && !all_.HasSeen(addition, removal);
        });
    }

    // The same for an entry that the member signed: it counts where the removal had seen it.
    bool IsUndoneFor(std::size_t addition, std::size_t place) const
    {
        return std::any_of(removals_.begin(), removals_.end(), [&](std::size_t removal) {
            return At(removal).member == At(addition).member && !all_.HasSeen(addition, removal) &&
                   !all_.HasSeen(removal, place);
        });
    }

    const Membership& all_;
    std::vector<bool> within_;
    std::vector<std::size_t> devices_;
    std::vector<std::size_t> removals_;
    std::vector<std::size_t> additions_;
};

Membership::Membership(std::string folder, const std::string& founding) : folder_(std::move(folder))
{
    MembershipEntry entry = ReadMembershipEntry(founding);
    if (entry.change != MembershipChange::kFound || entry.folder != folder_)
        Refuse("what is to found a folder doesn't found this one");
    Append(founding, std::move(entry));
}

Membership::Taken Membership::Take(const std::string& bytes)
{
    if (places_.contains(IdOfEntry(bytes)))
        return Taken::kKnown;
    MembershipEntry entry = ReadMembershipEntry(bytes);
    if (entry.folder != folder_)
        Refuse("a change of another folder's members");
    if (entry.change == MembershipChange::kFound)
        Refuse("a folder that is founded a second time");
    if (known_.size() >= kMostEntries)
        Refuse("more changes of a folder's members than may be");
    for (const EntryId& seen : entry.seen)
        if (!places_.contains(seen))
            return Taken::kWaiting;
    Append(bytes, std::move(entry));
    return Taken::kNew;
}

void Membership::Append(const std::string& bytes, MembershipEntry entry)
{
    std::vector<bool> before(known_.size());
    for (const EntryId& seen : entry.seen) {
        const std::size_t place = places_.at(seen);
        before[place] = true;
        for (std::size_t earlier = 0; earlier < place; ++earlier)
            if (known_[place].before[earlier])
                before[earlier] = true;
    }
    places_.emplace(IdOfEntry(bytes), known_.size());
    known_.push_back({std::move(entry), std::move(before)});
    bytes_.push_back(bytes);
}

bool Membership::HasSeen(std::size_t later, std::size_t earlier) const
{
    return earlier < later && known_[later].before[earlier];
}

std::vector<MembershipEntry> Membership::Changes() const
{
    std::vector<MembershipEntry> changes;
    for (const Known& known : known_)
        changes.push_back(known.entry);
    return changes;
}

std::set<EntryId> Membership::Latest() const
{
    std::set<EntryId> latest;
    for (const auto& [id, place] : places_)
        latest.insert(id);
    for (const Known& known : known_)
        for (const EntryId& seen : known.entry.seen)
            latest.erase(seen);
    return latest;
}

FolderMembers Membership::Members() const
{
    return Judge(*this, std::vector<bool>(known_.size(), true)).Members();
}

FolderMembers Membership::MembersAt(const std::set<EntryId>& latest) const
{
    std::vector<bool> within(known_.size());
    for (const EntryId& id : latest) {
        const auto place = places_.find(id);
        if (place == places_.end())
            Refuse("a point of a folder's membership that isn't known here");
        within[place->second] = true;
        for (std::size_t earlier = 0; earlier < place->second; ++earlier)
            if (HasSeen(place->second, earlier))
                within[earlier] = true;
    }
    within[0] = true;
    return Judge(*this, std::move(within)).Members();
}

bool IsDeviceOfMember(const FolderMembers& members, const SigningKey& device)
{
    return std::any_of(members.begin(), members.end(),
                       [&](const auto& member) { return member.second.devices.contains(device); });
}

}  // namespace quorvane::host::exchange
