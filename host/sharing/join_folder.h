// host/sharing/join_folder.h: what a user answers to an invitation becomes a folder of his mailbox.
#ifndef QUORVANE_HOST_SHARING_JOIN_FOLDER_H_
#define QUORVANE_HOST_SHARING_JOIN_FOLDER_H_

#include <string>
#include <vector>

#include "host/mailbox/shared_folders.h"
#include "host/store/profile.h"

namespace quorvane::host {

// Where the folder is to be. Both empty: a new one of the path that it has at the one who invited, or in the
// folder here that its founder put it into, under its last name alone; where that is taken, "NAME (member)",
// "NAME (member 2)" and so on.
struct JoinPlace {
    std::string as;        // a new one at this path
    std::string into;      // the folder that is at this path: what it holds is shared, too
    bool follows = false;  // what its founder puts into it is accepted by itself from then on
};

// Accepts an invitation. A folder that exists is never joined unless the user says `into`. Stopped at any
// point and called again, it makes one folder.
//
// Throws a HostError, and changes nothing of the mailbox's folders, when `as` names one that exists, `into`
// one that doesn't or that is shared already, or the invited folder is shared here in another form.
Share JoinFolder(const KnownFolder& invitation, const JoinPlace& place, const MailSession& mail,
                 Records& records, SharedFolders& folders, const std::string& inviter);

// What was accepted of folders that lie in another, and what can't be, and why.
struct JoinedTree {
    struct Joined {
        KnownFolder invitation;
        Share share;
    };
    std::vector<Joined> joined;
    std::vector<std::string> failures;
};
// Accepts all invitations to folders that lie in one that is here, and has it and all that lies in it
// followed: what its founder puts into it is accepted by itself from then on. A run takes that up when the
// last one is accepted.
JoinedTree JoinTree(const KnownFolder& outermost, const MailSession& mail, Records& records,
                    SharedFolders& folders, Peers& peers);

// Whether a folder lies in one that is followed.
bool IsFollowed(const KnownFolder& invitation, SharedFolders& folders);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_JOIN_FOLDER_H_
