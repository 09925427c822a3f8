// host/sharing/comparisons.h: shared folders are compared with those of other devices, and each side sends
// what the other lacks (exchange/comparison.h). So whatever was lost on the way between them heals by itself.
//
// A comparison is begun when nothing else passes between the two: when the user asks for it, when something
// of the device's was put aside, when the last one differed, and otherwise once in a while.
#ifndef QUORVANE_HOST_SHARING_COMPARISONS_H_
#define QUORVANE_HOST_SHARING_COMPARISONS_H_

#include <chrono>
#include <deque>
#include <functional>
#include <string>

#include "host/exchange/comparison.h"
#include "host/mailbox/comparison_records.h"
#include "host/sharing/flag_sharing.h"
#include "host/sharing/inbox.h"
#include "host/sharing/outbox.h"
#include "host/sharing/sender.h"

namespace quorvane::host {

// For the run's thread alone. Methods throw a HostError.
class Comparisons final : public ReportSink {
public:
    static constexpr std::int64_t kOnceInADay = 24 * 60 * 60;

    // after: how many seconds after the last comparison, or after the folder came, the next one is begun
    // unasked.
    Comparisons(const Addin::Parts& parts, Sender& sender, FlagSharing& flags,
                std::function<void(const std::string&)> report, std::int64_t after = kOnceInADay);

    void Hear(const Peer& peer, const exchange::FolderReport& report) override;
    void Miss(const exchange::DeviceId& device) override;

    // Sends what others lack, some of it at a time; then, while nothing else is under way, begins what is
    // due.
    void Step(bool isQuiet);
    // Whether there is something to send, or a comparison could be begun now.
    bool HasWork();

private:
    using Clock = std::chrono::steady_clock;
    struct Lacking {
        std::string folderId;
        std::string member;
        std::string item;
    };

    bool IsAnsweredThere(const Peer& peer, const exchange::FolderReport& report, std::uint64_t now);
    bool IsDue(const ComparisonRecord& pair, std::uint64_t now) const;
    void SendLacking();
    void SendOne(const Lacking& lacking);
    void Send(const exchange::FolderReport& report, const std::string& device);

    Addin::Parts parts_;
    Sender& sender_;
    FlagSharing& flags_;
    std::function<void(const std::string&)> report_;
    std::int64_t after_;
    exchange::DeviceId own_;
    ComparisonRecords records_;
    std::deque<Lacking> lacking_;
    Clock::time_point nextLook_{};
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_COMPARISONS_H_
