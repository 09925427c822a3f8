// host/sharing/folder_tree.h: folders that are shared with all that lies in them.
#ifndef QUORVANE_HOST_SHARING_FOLDER_TREE_H_
#define QUORVANE_HOST_SHARING_FOLDER_TREE_H_

#include <string>
#include <vector>

#include "host/mailbox/shared_folders.h"
#include "host/store/profile.h"

namespace quorvane::host {

// The ID for a folder that is to be shared: a new one, or where it was shared before anybody signed who
// shares it, the former one: whoever has that knows the items again.
std::string IdToShare(SharedFolders& folders, const std::string& entryId);

// A tree is a shared folder (Share::isTree) with all that lies in it: each folder in it is a shared one of
// its own, with the members of the one that it lies in. Left out, with all that is in them, are folders that
// were shared once and aren't any more, and those that another member has founded, unless he says of his
// folder that it belongs where it lies.
//
// For one thread. Methods throw a HostError.
class FolderTrees {
public:
    // All outlive the object.
    FolderTrees(const MailSession& mail, Records& records, SharedFolders& folders)
        : mail_(mail), records_(records), folders_(folders)
    {}

    // Shares what came to lie in trees, and lets in who came to be a member of what it lies in; all or
    // nothing. Gives what wasn't shared before, outer ones first.
    //
    // anew: the entry identifier of a tree in which folders that were shared once are shared again; empty for
    // none.
    std::vector<Share> ShareWhatLiesIn(const std::string& anew = {});

    // A shared folder, and those that are shared in it as a tree; outer ones first.
    std::vector<Share> Of(const Share& root);

private:
    class Walk;

    const MailSession& mail_;
    Records& records_;
    SharedFolders& folders_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_FOLDER_TREE_H_
