#include "host/sharing/folder_tree.h"

#include <algorithm>
#include <map>
#include <set>

#include "host/base/errors.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

std::string NewFolderId()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), "make an identifier for", "the folder");
    OLECHAR text[40] = {};
    StringFromGUID2(guid, text, 40);
    return ToUtf8(text);
}

}  // namespace

std::string IdToShare(SharedFolders& folders, const std::string& entryId)
{
    const auto former = folders.Former().Find(entryId);
    return former && !folders.IsKnown(former->folderId) ? former->folderId : NewFolderId();
}

// Goes through the mailbox's folders, outer ones first, and finds what lies in trees.
class FolderTrees::Walk {
public:
    explicit Walk(FolderTrees& trees) : trees_(trees), all_(ListFolders(trees.mail_))
    {
        for (Share& share : trees.records_.Shares())
            shares_.emplace(share.entryId, std::move(share));
        for (const FormerShare& former : trees.folders_.Former().All())
            former_.insert(former.entryId);
    }

    // root: the entry identifier of the one that is looked at, tree or not; empty: all trees. anew: as in
    // ShareWhatLiesIn.
    void Go(const std::string& root, const std::string& anew)
    {
        for (const FolderInfo& folder : all_) {
            const auto outer = inside_.find(folder.parentId);
            const auto share = shares_.find(folder.entryId);
            if (outer != inside_.end() && (share == shares_.end() ? Adds(folder, outer->second)
                                                                  : BelongsTo(share->second, outer->second)))
                continue;
            if (share != shares_.end() && (root.empty() ? share->second.isTree : root == folder.entryId))
                Enter(share->second, folder.entryId == anew);
        }
    }

    // Those of trees that are shared, and all that are to be, or may be lacking members.
    std::vector<Share> shared;
    std::vector<SharedFolders::Nested> nested;

private:
    struct Inside {
        std::string folderId;
        bool isAnew = false;
    };

    void Enter(const Share& share, bool isAnew)
    {
        inside_[share.entryId] = {share.folderId, isAnew};
        shared.push_back(share);
    }

    // A path that can't be told to others isn't shared.
    bool Adds(const FolderInfo& folder, const Inside& outer)
    {
        if ((former_.contains(folder.entryId) && !outer.isAnew) ||
            folder.path.size() > exchange::kLongestFolderPath)
            return false;
        const Share share{IdToShare(trees_.folders_, folder.entryId), folder.entryId, trees_.mail_.StoreId(),
                          folder.path};
        nested.push_back({share, outer.folderId});
        inside_[folder.entryId] = {share.folderId, outer.isAnew};
        return true;
    }

    bool BelongsTo(const Share& share, const Inside& outer)
    {
        if (trees_.folders_.IsFounder(share.folderId)) {
            nested.push_back({share, outer.folderId});
        } else {
            const auto inner = trees_.folders_.FindHere(share.folderId);
            const auto around = trees_.folders_.FindHere(outer.folderId);
            if (!inner || !around || inner->outer != around->founding)
                return false;
        }
        Enter(share, outer.isAnew);
        return true;
    }

    FolderTrees& trees_;
    const std::vector<FolderInfo> all_;
    std::map<std::string, Share> shares_;  // by entry identifiers
    std::set<std::string> former_;
    std::map<std::string, Inside> inside_;  // what lies in a tree, by entry identifiers
};

std::vector<Share> FolderTrees::ShareWhatLiesIn(const std::string& anew)
{
    const std::vector<Share> shares = records_.Shares();
    if (std::none_of(shares.begin(), shares.end(), [](const Share& share) { return share.isTree; }))
        return {};
    Walk walk(*this);
    walk.Go({}, anew);
    return walk.nested.empty() ? std::vector<Share>() : folders_.ShareNested(walk.nested);
}

std::vector<Share> FolderTrees::Of(const Share& root)
{
    Walk walk(*this);
    walk.Go(root.entryId, {});
    return walk.shared;
}

}  // namespace quorvane::host
