// host/sharing/reconcile.h: sends what changed in a folder while nobody watched it.
#ifndef QUORVANE_HOST_SHARING_RECONCILE_H_
#define QUORVANE_HOST_SHARING_RECONCILE_H_

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "host/sharing/commit_group.h"
#include "host/sharing/sender.h"
#include "host/sharing/text_set.h"

namespace quorvane::host {

// For the run's thread alone. Methods throw a HostError.
class Reconciler {
public:
    // unsent: gets an item that can't be sent, its folder's ID, and why. Without it such an item ends the
    // work.
    using Unsent =
        std::function<void(const std::string& id, const std::string& folderId, const std::string& reason)>;
    Reconciler(Sender& sender, const Addin::Parts& parts, Unsent unsent = {})
        : sender_(sender), parts_(parts), unsent_(std::move(unsent))
    {}

    // isPacking: whether packages are on their way out that aren't accounted for. Without it, what was lost
    // on the way there isn't looked for.
    void SetPacking(std::function<bool()> isPacking) { isPacking_ = std::move(isPacking); }

    // isAsked: whether the run is to end: then what differs is left to the next one.
    void SetStop(std::function<bool()> isAsked) { isStopAsked_ = std::move(isAsked); }

    // Where many are sent, their commits wait for the disk together; null: each by itself.
    void SetGroup(CommitGroup* group) noexcept { group_ = group; }

    // Compares each item of a folder with its row; sends what differs or has no row, and a deletion for each
    // row whose message is gone. The engine must not be watching the folder meanwhile (IgnoreEvents). True
    // when nothing differed.
    bool SendDifferences(const Share& share);

    // The same while the engine watches: what it may be about to send itself is left to it for `patience`
    // first. True when nothing differs.
    bool CheckDifferences(const Share& share, std::chrono::milliseconds patience);

    // Whether there was what couldn't be sent: a later run tries it again.
    bool HasFailed() const noexcept { return !failed_.empty(); }

    // Lets messages that differ from their rows, or have none, pass for sent as they are.
    void TakeForSent(const Share& share);

private:
    struct Difference {
        std::string entryId;  // of a message to send; empty for a deletion
        std::string id;       // of an item to delete
        std::uint64_t modified = 0;
        std::string Key() const { return entryId + id + ":" + std::to_string(modified); }
    };
    std::set<std::string> FindLost(const Share& share);
    struct Seen {
        TextSet messages;  // entry identifiers
        TextSet items;     // IDs
    };
    void FindChanges(const Share& share, const std::set<std::string>& lost, Seen& seen,
                     std::vector<Difference>& differences);
    std::vector<std::optional<ItemRecord>> RecordsOf(const Share& share,
                                                     const std::vector<std::optional<SharingRow>>& rows);
    static bool IsDifferent(const SharingRow& row, const std::optional<ItemRecord>& record,
                            std::uint64_t modified);
    std::vector<Difference> FindDifferences(const Share& share);
    void Send(const Share& share, const Difference& difference);

    Sender& sender_;
    Addin::Parts parts_;
    Unsent unsent_;
    CommitGroup* group_ = nullptr;
    std::function<bool()> isPacking_;
    std::function<bool()> isStopAsked_ = [] { return false; };
    std::set<std::string>
        failed_;  // differences that can't be sent: tried again by a later run, or when they change
    // Per folder: differences that were left to the engine, since when.
    std::map<std::string, std::map<std::string, std::chrono::steady_clock::time_point>> firstSeen_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_RECONCILE_H_
