#include "host/mailbox/former_shares.h"

#include <utility>

namespace quorvane::host {

std::vector<FormerShare> FormerShares::All()
{
    Statement select(database_, "SELECT folder_id, entry_id, name FROM former ORDER BY name");
    std::vector<FormerShare> shares;
    while (select.Step())
        shares.push_back({select.Text(0), select.Text(1), select.Text(2)});
    return shares;
}

std::optional<FormerShare> FormerShares::Find(const std::string& entryId)
{
    for (FormerShare& share : All())
        if (share.entryId == entryId)
            return std::move(share);
    return std::nullopt;
}

void FormerShares::Keep(const std::string& folderId)
{
    Statement(database_,
              "INSERT OR REPLACE INTO former (folder_id, entry_id, name) SELECT folder_id, entry_id, name "
              "FROM share WHERE folder_id = ?")
        .Bind(1, folderId)
        .Run();
}

void FormerShares::Forget(const Share& share)
{
    Statement(database_, "DELETE FROM former WHERE folder_id = ? OR entry_id = ?")
        .Bind(1, share.folderId)
        .Bind(2, share.entryId)
        .Run();
}

}  // namespace quorvane::host
