#include "host/sharing/join_folder.h"

#include <algorithm>
#include <set>

#include "host/base/errors.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

class Joiner {
public:
    Joiner(const KnownFolder& invitation, const MailSession& mail, Records& records, SharedFolders& folders,
           bool follows)
        : invitation_(invitation),
          mail_(mail),
          records_(records),
          folders_(folders),
          follows_(follows),
          before_(ListFolders(mail))
    {}

    Share Into(const std::string& path)
    {
        const std::string entryId = HexOf(*FindFolder(mail_, path), PR_ENTRYID);
        if (records_.FindShareByEntryId(entryId))
            Fail("join the folder", path, "it is shared already");
        return Accept(entryId, path);
    }

    Share As(const std::string& path)
    {
        auto share = Make(path);
        if (!share)
            Fail("make the folder", path, "there is one already; --into joins it");
        return *share;
    }

    Share ByItsName(const std::string& inviter)
    {
        const std::string wanted = OwnPlace();
        for (int number = 0;; ++number) {
            const std::string path = number == 0 ? wanted
                                                 : wanted + " (" + inviter +
                                                       (number > 1 ? " " + std::to_string(number) : "") + ")";
            if (path.size() > exchange::kLongestFolderPath)
                Fail("accept", invitation_.name, "its path here would be too long; --as gives it another");
            if (auto share = Make(path))
                return *share;
        }
    }

private:
    // In the folder here that its founder put it into. Nothing but its last name counts there, so that it
    // lies in that one and in nothing else.
    std::string OwnPlace() const
    {
        const auto outer = folders_.OuterOf(invitation_);
        const auto share = outer && outer->state == KnownFolder::State::kHere
                               ? records_.FindShare(outer->folderId)
                               : std::nullopt;
        for (const FolderInfo& folder : before_)
            if (share && folder.entryId == share->entryId)
                return folder.path + "/" + NameIn(invitation_.name);
        return invitation_.name;
    }

    // Empty when there is a folder at the path, unless an attempt before has made it for this invitation and
    // nobody has used it since.
    std::optional<Share> Make(const std::string& path)
    {
        const auto there = std::find_if(before_.begin(), before_.end(),
                                        [&](const FolderInfo& folder) { return folder.path == path; });
        if (there != before_.end() && !(path == invitation_.target && IsUnused(*there)))
            return std::nullopt;
        folders_.NoteTarget(invitation_, path);
        const std::string entryId = HexOf(*EnsureFolder(mail_, path), PR_ENTRYID);
        // A store may take two names for one.
        const bool isNew = std::none_of(before_.begin(), before_.end(),
                                        [&](const FolderInfo& folder) { return folder.entryId == entryId; });
        if (there == before_.end() && !isNew)
            return std::nullopt;
        return Accept(entryId, path);
    }

    bool IsUnused(const FolderInfo& folder) const
    {
        return folder.items == 0 && !records_.FindShareByEntryId(folder.entryId);
    }

    Share Accept(const std::string& entryId, const std::string& path)
    {
        const Share share{invitation_.folderId, entryId, mail_.StoreId(), path};
        folders_.Accept(invitation_, share, follows_);
        return share;
    }

    const KnownFolder& invitation_;
    const MailSession& mail_;
    Records& records_;
    SharedFolders& folders_;
    const bool follows_;
    const std::vector<FolderInfo> before_;
};

}  // namespace

Share JoinFolder(const KnownFolder& invitation, const JoinPlace& place, const MailSession& mail,
                 Records& records, SharedFolders& folders, const std::string& inviter)
{
    if (records.FindShare(invitation.folderId))
        Fail("accept", invitation.name, "a folder of this id is shared here already; leave that one first");
    Joiner joiner(invitation, mail, records, folders, place.follows);
    if (!place.into.empty())
        return joiner.Into(place.into);
    return place.as.empty() ? joiner.ByItsName(inviter) : joiner.As(place.as);
}

bool IsFollowed(const KnownFolder& invitation, SharedFolders& folders)
{
    const auto outer = folders.OuterOf(invitation);
    return outer && outer->state == KnownFolder::State::kHere && outer->follows;
}

JoinedTree JoinTree(const KnownFolder& outermost, const MailSession& mail, Records& records,
                    SharedFolders& folders, Peers& peers)
{
    JoinedTree tree;
    std::set<std::string> followed{outermost.founding};
    for (const KnownFolder& folder : folders.HereAndInvited()) {
        const auto outer = folders.OuterOf(folder);
        if (!outer || !followed.contains(outer->founding))
            continue;
        try {
            if (folder.state == KnownFolder::State::kInvited) {
                const auto id = exchange::ParseDeviceId(folder.inviter);
                const auto peer = id ? peers.Find(*id) : std::nullopt;
                const std::string member = peer ? peer->member : "shared";
                tree.joined.push_back({folder, JoinFolder(folder, {}, mail, records, folders, member)});
            }
            followed.insert(folder.founding);
        } catch (const HostError& error) {
            tree.failures.emplace_back(error.what());
        }
    }
    folders.Follow(followed);
    return tree;
}

}  // namespace quorvane::host
