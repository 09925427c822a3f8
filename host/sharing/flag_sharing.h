// host/sharing/flag_sharing.h: what readers make of the items of folders whose members share that: whether
// they are read, flagged, answered, forwarded (exchange/item_flags.h). Elsewhere nothing of it is looked at.
//
// The message store tells of such changes like of any other, and the engine passes them by. Here the items'
// rows are compared with what is known, whenever the store has changed, and what was changed goes out in
// packages of its own. What comes from others is noted first and shown then: a kill in between leaves it due,
// and not undone as if somebody here had taken it back. The same holds for an item that is applied, which the
// engine marks as unread.
#ifndef QUORVANE_HOST_SHARING_FLAG_SHARING_H_
#define QUORVANE_HOST_SHARING_FLAG_SHARING_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/mailbox/flag_records.h"
#include "host/sharing/addin.h"
#include "host/sharing/inbox.h"
#include "host/store/item_marks.h"

namespace quorvane::host {

// For the run's thread, but where it says otherwise. Methods throw a HostError.
class FlagSharing final : public MarkKeeper, public FlagSink {
public:
    explicit FlagSharing(const Addin::Parts& parts);

    // An item that is here, or is known to come, is about to be applied. Any thread.
    void KeepMarks(const std::string& id, const std::string& folderId) override;

    // Takes what a device of a folder's member tells, while the engine applies nothing; false when more would
    // wait for its items than may.
    bool Hear(const exchange::FlagNote& note) override;

    // Shows what is due, while the engine applies nothing.
    void Show();
    // The same, and finds what changed here (`isFree`: the engine applies nothing); packs what is to
    // be sent.
    void Step(bool isFree);
    // Whether anything is left to be shown, looked at or packed.
    bool HasWork();

    FlagRecords& Flags() noexcept { return records_; }
    // Tells one device what is known of these items.
    void Send(const std::string& folderId, const std::string& device, const std::vector<std::string>& items);

private:
    using Clock = std::chrono::steady_clock;

    std::vector<Share> SharedWithFlags();
    void ShowDue();
    bool ShowOne(const FlagRecord& record);
    std::string LookOfStore() const;
    void Look(const Share& share);
    bool LookAt(const Share& share, const std::string& entryId, Marks marks,
                std::vector<FlagRecord>& changed);
    void PackChanges(const Share& share);
    void PackAll(const Share& share);
    std::string WriteNote(const exchange::FlagNote& note);
    void SendAll(const Share& share, const std::vector<std::string>& devices,
                 const std::map<std::string, exchange::ItemFlags>& flags, bool isAll);
    FlagRecord Known(const std::string& id, const std::string& folderId);
    // What readers here made of an item: of marks that are still to be shown nothing is seen in it. True when
    // anything changed.
    bool NoteMarks(Marks marks, FlagRecord& record) const;

    Addin::Parts parts_;
    FlagRecords records_;
    exchange::DeviceId own_;
    std::mutex keeping_;  // from the reading of an item's record to its writing
    std::string looked_;  // what the store looked like when the folders were looked at
    bool isSettled_ =
        false;  // they were looked at twice since: a file's time may hide a change right after one
    Clock::time_point nextLook_{};
    std::unordered_map<std::size_t, Marks> seen_;  // of items that are as they are known, by their digests
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_FLAG_SHARING_H_
