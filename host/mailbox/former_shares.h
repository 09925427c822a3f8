// host/mailbox/former_shares.h: folders of the mailbox that were shared once; in host.db (docs/mailbox.md).
#ifndef QUORVANE_HOST_MAILBOX_FORMER_SHARES_H_
#define QUORVANE_HOST_MAILBOX_FORMER_SHARES_H_

#include <optional>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/mailbox/records.h"

namespace quorvane::host {

// A folder of the mailbox that was shared once. What is known of its items is kept.
struct FormerShare {
    std::string folderId;
    std::string entryId;
    std::string name;
};

// For the thread of its connection, in whose transaction it takes part. Methods throw a HostError when the
// database fails.
class FormerShares {
public:
    // database: host.db; outlives the object.
    explicit FormerShares(Database& database) : database_(database) {}

    // By their names.
    std::vector<FormerShare> All();
    std::optional<FormerShare> Find(const std::string& entryId);

    // Notes a folder that is shared, and is about to be no more. Nothing is noted of one that isn't.
    void Keep(const std::string& folderId);
    // Forgets what was shared in this folder of the mailbox, or under this folder's ID: it is shared again.
    void Forget(const Share& share);

private:
    Database& database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_FORMER_SHARES_H_
