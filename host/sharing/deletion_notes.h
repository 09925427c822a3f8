// host/sharing/deletion_notes.h: what is noted of items that were deleted here, before anything else of them
// goes.
//
// A note is on the disk before the engine gives up the item's row, as nothing else is left then to tell of
// it. One at a time, each costs the disk a flush. So where the engine reports several in a row, the folder is
// looked through for all that are gone, and these are noted at once; their reports find the notes.
#ifndef QUORVANE_HOST_SHARING_DELETION_NOTES_H_
#define QUORVANE_HOST_SHARING_DELETION_NOTES_H_

#include <map>
#include <string>
#include <vector>

#include "host/mailbox/records.h"
#include "host/sharing/item_state.h"
#include "host/sharing/item_versions.h"
#include "host/store/profile.h"

namespace quorvane::host {

// Its caller holds the versions' lock. Methods throw a HostError.
class DeletionNotes {
public:
    DeletionNotes(const MailSession& mail, Records& records, ItemState& state, ItemVersions& versions)
        : mail_(mail), records_(records), state_(state), versions_(versions)
    {}

    // Notes that an item of a folder was deleted here; its record.
    ItemRecord Note(const std::string& id, const std::string& folderId);
    // Notes it of all of them, of which others know; in one transaction.
    void NoteAll(const std::vector<std::string>& ids, const std::string& folderId);

private:
    // How many are noted alone before the folder is looked through, at first.
    static constexpr int kPatience = 4;

    struct Row {
        int alone = 0;  // notes since the folder was looked through
        int patience = kPatience;
    };

    void LookAhead(const std::string& folderId, Row& row);
    bool IsGone(const std::string& entryId) const;

    const MailSession& mail_;
    Records& records_;
    ItemState& state_;
    ItemVersions& versions_;
    std::map<std::string, Row> rows_;  // by folder
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_DELETION_NOTES_H_
