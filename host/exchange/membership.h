// host/exchange/membership.h: who shares a folder, by what its members signed.
//
// Entries name those that their author had seen, back to the one that founded the folder, so that every
// device that has the same entries comes to the same members, in whatever order they reached it:
//
// - A member is who was added, by a member, and not removed by one who had seen that.
// - A removal counts when the founder or the member himself signed it.
// - What somebody signed who was removed counts only as far as the removal had seen it: who is out can't
//   bring another in by an entry that he dates back.
// - A device is a member's when it was his first one, or one of his devices linked it, which it agreed to;
//   until one of his devices unlinks it. Of two that unlink each other without having seen that, both are
//   out.
// - What a device signed that was unlinked counts only as far as that had seen it, but for unlinkings: who
//   has a stolen device brings nobody in by an entry that he dates back. Linked or added again by somebody
//   who had seen the end of it, it is in again.
// - Members share the items' flags, and the folder lies in another one, where the founder signed that, before
//   he left.
#ifndef QUORVANE_HOST_EXCHANGE_MEMBERSHIP_H_
#define QUORVANE_HOST_EXCHANGE_MEMBERSHIP_H_

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/exchange/membership_entry.h"

namespace quorvane::host::exchange {

struct FolderMember {
    std::string
        name;  // that he was brought in under, of several the first by letters; two members may have one name
    std::set<SigningKey> devices;
    bool operator==(const FolderMember&) const = default;
};

// By the signing key of the member's first device.
using FolderMembers = std::map<SigningKey, FolderMember>;

// One thread at a time.
class Membership {
public:
    static constexpr std::size_t kMostEntries = 4096;

    enum class Taken {
        kNew,
        kKnown,    // it is here already
        kWaiting,  // something that it has seen isn't here yet: offer it again then
    };

    // folder: the folder's id. founding: its first entry, by which this folder is known from any other that
    // somebody gives the same id. Throws an Error (kRefused) when it isn't one.
    Membership(std::string folder, const std::string& founding);

    // Takes an entry that came from anywhere. Throws an Error (kRefused) when it is none, of another folder,
    // a second founding, or one too many.
    Taken Take(const std::string& bytes);

    // All entries that are here, each after those that it has seen.
    const std::vector<std::string>& Entries() const noexcept { return bytes_; }
    // The same, read.
    std::vector<MembershipEntry> Changes() const;
    // Those that no other one has seen: what a new entry names.
    std::set<EntryId> Latest() const;

    // The members, by all entries.
    FolderMembers Members() const;
    // By those alone that somebody had seen who names these as the latest. Throws an Error (kRefused) when
    // one of them isn't here.
    FolderMembers MembersAt(const std::set<EntryId>& latest) const;
    // The entries that say that members share the items' flags, and count; none where they don't.
    std::vector<std::string> FlagEntries() const;
    // The founding of the folder that this one lies in, by its founder's last word; empty where he has said
    // none.
    std::optional<EntryId> Outer() const;

private:
    struct Known {
        MembershipEntry entry;
        std::vector<bool> before;  // which of the entries before it it has seen, directly or not
    };
    class Judge;

    bool HasSeen(std::size_t later, std::size_t earlier) const;
    void Append(const std::string& bytes, MembershipEntry entry);

    std::string folder_;
    std::vector<Known> known_;
    std::vector<std::string> bytes_;
    std::map<EntryId, std::size_t> places_;
};

// Whether a device is one of the folder's members.
bool IsDeviceOfMember(const FolderMembers& members, const SigningKey& device);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_MEMBERSHIP_H_
