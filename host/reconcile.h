// host/reconcile.h: sends what changed in a folder while nobody watched it.
#ifndef QUORVANE_HOST_RECONCILE_H_
#define QUORVANE_HOST_RECONCILE_H_

#include <chrono>
#include <map>
#include <string>

#include "host/sender.h"

namespace quorvane::host {

// For the run's thread alone. Methods throw a HostError.
class Reconciler {
public:
    Reconciler(Sender& sender, const Addin::Parts& parts) noexcept : sender_(sender), parts_(parts) {}

    // Compares each item of a folder with its row; sends what differs or has no row, and a deletion for each
    // row whose message is gone. The engine must not be watching the folder meanwhile (IgnoreEvents).
    void SendDifferences(const Share& share);

    // The same while the engine watches: what it may be about to send itself is left to it for `patience`
    // first. True when nothing differs.
    bool CheckDifferences(const Share& share, std::chrono::milliseconds patience);

private:
    struct Difference {
        std::string entryId;  // of a message to send; empty for a deletion
        std::string id;       // of an item to delete
    };
    std::vector<Difference> FindDifferences(const Share& share);
    void Send(const Share& share, const Difference& difference);

    Sender& sender_;
    Addin::Parts parts_;
    // Per folder: differences that were left to the engine, since when.
    std::map<std::string, std::map<std::string, std::chrono::steady_clock::time_point>> firstSeen_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_RECONCILE_H_
