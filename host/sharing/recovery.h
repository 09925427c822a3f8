// host/sharing/recovery.h: puts right what a power cut may have left of commits that were on their way to the
// disk together (commit_group.h).
//
// Each of message store, sharing database and records is then as it was at some moment after the last
// synchronisation, each at another. Of the items of the package in hand it isn't known what that means: so
// none of them may be sent before the package is applied once more. What is found here is told to nobody.
//
//     a row, and its message isn't there and was never deleted   the row goes: it would be sent as a deletion
//     a message, and its row isn't there      it gets its row by its search key: it would be made, and sent,
//                                             a second time
//     the message is older than the records   it counts as not applied: it would pass for an edit made here
//     the message is as the package has it, and the records tell of an earlier one, or of none
//                                             likewise
//
// After a kill all of them agree, and nothing of it is found.
#ifndef QUORVANE_HOST_SHARING_RECOVERY_H_
#define QUORVANE_HOST_SHARING_RECOVERY_H_

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/base/compound_file.h"
#include "host/mailbox/deleted_messages.h"
#include "host/mailbox/item_text.h"
#include "host/sharing/addin.h"

namespace quorvane::host {

// Before the engine works on anything, for the run's thread. Methods throw a HostError.
class Recovery {
public:
    Recovery(const Addin::Parts& parts, const EngineSession& engine) : parts_(parts), engine_(engine) {}

    // The items of a package that was in hand when the last run ended; `path` is a whole copy of it.
    void MendReceived(const std::filesystem::path& path);

    // Items of a folder that are known by the records alone: whose rows are lost, and that no package with a
    // number held. Their messages are items of their own by another ID, or of none yet.
    void ForgetUnsent(const Share& share);

private:
    // An item of the package that has a message.
    struct Item {
        std::string id, folderId;
        ItemText sent;
    };
    // Those without a row, by search key.
    using Wanted = std::multimap<std::string, Item>;

    void Mend(const Item& item, const SharingRow& row);
    void MendMessage(const Item& item, IMessage& message);
    void MatchFolder(const std::string& folderId, const Wanted& wanted);
    bool WasDeleted(const std::string& entryId);

    Addin::Parts parts_;
    const EngineSession& engine_;
    std::optional<DeletedMessages> deleted_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RECOVERY_H_
