#include "host/exchange/membership.h"

#include <algorithm>

#include "host/exchange/error.h"

namespace quorvane::host::exchange {

// Judges a set of entries that holds, with each of them, all that it has seen. Entries come after all that
// they have seen, so that whoever an author's rights come from is judged before him.
//
// First it finds what each author was allowed to by what he had seen himself. That decides on unlinkings and
// removals; from them follows which of the links and additions count.
class Membership::Judge {
public:
    Judge(const Membership& all, std::vector<bool> within) : all_(all), within_(std::move(within)) {}

    FolderMembers Members()
    {
        FindAllowed();
        FindRemovals();
        FindCounting();
        FolderMembers members;
        for (const std::size_t addition : counting_.additions) {
            const MembershipEntry& entry = At(addition);
            if (IsUndone(addition))
                continue;
            FolderMember& member = members[entry.member];
            if (member.name.empty() || entry.name < member.name)
                member.name = entry.name;
        }
        for (auto& [key, member] : members)
            member.devices = DevicesOf(key);
        std::erase_if(members, [](const auto& member) { return member.second.devices.empty(); });
        return members;
    }

    // By the founder, while he was a member.
    std::vector<std::size_t> FoundersChanges(MembershipChange kind)
    {
        FindAllowed();
        FindRemovals();
        FindCounting();
        Places changes;
        ForEach([&](std::size_t place, MembershipChange change) {
            if (change == kind && SpeaksFor(counting_, place, Founder()) && !IsUndoneFor(0, place))
                changes.push_back(place);
        });
        return changes;
    }

private:
    using Places = std::vector<std::size_t>;
    // What makes a device a member's.
    struct Origins {
        Places additions;
        Places links;
    };

    const MembershipEntry& At(std::size_t place) const { return all_.known_[place].entry; }
    const SigningKey& Founder() const { return At(0).member; }

    template <class Visit>
    void ForEach(Visit visit) const
    {
        for (std::size_t place = 0; place < within_.size(); ++place)
            if (within_[place])
                visit(place, At(place).change);
    }

    // Whether a device was unlinked, by one of the unlinkings that `ends` lets count, after it became a
    // member's by `origin`; null: by being his first.
    template <class Ends>
    bool IsUnlinked(const SigningKey& member, const SigningKey& device, const std::size_t* origin,
                    Ends ends) const
    {
        return std::any_of(unlinkings_.begin(), unlinkings_.end(), [&](std::size_t place) {
            return At(place).member == member && At(place).device == device &&
                   !(origin && all_.HasSeen(*origin, place)) && ends(place);
        });
    }

    // Whether a device is a member's by those origins that `sees` lets count.
    template <class Sees, class Ends>
    bool IsDevice(const Origins& origins, const SigningKey& member, const SigningKey& device, Sees sees,
                  Ends ends) const
    {
        const bool isFirst = device == member;
        if (isFirst && !IsUnlinked(member, device, nullptr, ends))
            return true;
        const auto brings = [&](std::size_t origin) {
            return At(origin).member == member && sees(origin) && !IsUnlinked(member, device, &origin, ends);
        };
        return std::any_of(origins.links.begin(), origins.links.end(),
                           [&](std::size_t link) { return At(link).device == device && brings(link); }) ||
               (isFirst && std::any_of(origins.additions.begin(), origins.additions.end(), brings));
    }

    // Whether the author of an entry spoke for a member, by what he had seen.
    bool SpokeFor(std::size_t place, const SigningKey& member) const
    {
        const auto seen = [&](std::size_t earlier) { return all_.HasSeen(place, earlier); };
        return IsDevice(allowed_, member, At(place).author, seen, seen);
    }

    // The same, where nobody unlinked the author's device without having seen the entry.
    bool SpeaksFor(const Origins& origins, std::size_t place, const SigningKey& member) const
    {
        return IsDevice(
            origins, member, At(place).author,
            [&](std::size_t origin) { return all_.HasSeen(place, origin); },
            [&](std::size_t unlinking) { return !all_.HasSeen(unlinking, place); });
    }

    bool WasMember(std::size_t place, std::size_t addition) const
    {
        return all_.HasSeen(place, addition) &&
               std::none_of(allowedRemovals_.begin(), allowedRemovals_.end(), [&](std::size_t removal) {
                   return At(removal).member == At(addition).member && all_.HasSeen(place, removal) &&
                          !all_.HasSeen(addition, removal);
               });
    }

    void FindAllowed()
    {
        allowed_.additions.push_back(0);
        ForEach([&](std::size_t place, MembershipChange change) {
            const SigningKey& member = At(place).member;
            if (change == MembershipChange::kAdd &&
                std::any_of(allowed_.additions.begin(), allowed_.additions.end(), [&](std::size_t addition) {
                    return SpokeFor(place, At(addition).member) && WasMember(place, addition);
                }))
                allowed_.additions.push_back(place);
            if (change == MembershipChange::kLink && SpokeFor(place, member))
                allowed_.links.push_back(place);
            if (change == MembershipChange::kUnlink && SpokeFor(place, member))
                unlinkings_.push_back(place);
            if (change == MembershipChange::kRemove &&
                (SpokeFor(place, member) || SpokeFor(place, Founder())))
                allowedRemovals_.push_back(place);
        });
    }

    // A founder who has left removes nobody any more, as far as his leaving hadn't seen it.
    void FindRemovals()
    {
        Places founderLeft;
        for (const std::size_t place : allowedRemovals_) {
            if (!SpeaksFor(allowed_, place, At(place).member))
                continue;
            removals_.push_back(place);
            if (At(place).member == Founder())
                founderLeft.push_back(place);
        }
        for (const std::size_t place : allowedRemovals_) {
            const bool counts = std::all_of(founderLeft.begin(), founderLeft.end(),
                                            [&](std::size_t left) { return all_.HasSeen(left, place); });
            if (counts && SpeaksFor(allowed_, place, Founder()))
                removals_.push_back(place);
        }
    }

    void FindCounting()
    {
        counting_.additions.push_back(0);
        ForEach([&](std::size_t place, MembershipChange change) {
            if (change == MembershipChange::kLink && SpeaksFor(counting_, place, At(place).member))
                counting_.links.push_back(place);
            if (change == MembershipChange::kAdd && IsByMember(place))
                counting_.additions.push_back(place);
        });
    }

    bool IsByMember(std::size_t place) const
    {
        return std::any_of(counting_.additions.begin(), counting_.additions.end(), [&](std::size_t addition) {
            return all_.HasSeen(place, addition) && SpeaksFor(counting_, place, At(addition).member) &&
                   !IsUndoneFor(addition, place);
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

    std::set<SigningKey> DevicesOf(const SigningKey& member) const
    {
        std::set<SigningKey> devices{member};
        for (const std::size_t link : counting_.links)
            if (At(link).member == member)
                devices.insert(At(link).device);
        const auto any = [](std::size_t) { return true; };
        std::erase_if(devices, [&](const SigningKey& device) {
            return !IsDevice(counting_, member, device, any, any);
        });
        return devices;
    }

    const Membership& all_;
    std::vector<bool> within_;
    Origins allowed_, counting_;
    Places unlinkings_;
    Places allowedRemovals_, removals_;
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

std::vector<std::string> Membership::FlagEntries() const
{
    std::vector<std::string> entries;
    Judge judge(*this, std::vector<bool>(known_.size(), true));
    for (const std::size_t place : judge.FoundersChanges(MembershipChange::kFlags))
        entries.push_back(bytes_[place]);
    return entries;
}

std::optional<EntryId> Membership::Outer() const
{
    Judge judge(*this, std::vector<bool>(known_.size(), true));
    const auto places = judge.FoundersChanges(MembershipChange::kNest);
    return places.empty() ? std::nullopt : std::optional(known_[places.back()].entry.outer);
}

bool IsDeviceOfMember(const FolderMembers& members, const SigningKey& device)
{
    return std::any_of(members.begin(), members.end(),
                       [&](const auto& member) { return member.second.devices.contains(device); });
}

}  // namespace quorvane::host::exchange
