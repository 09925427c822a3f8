// host/sharing/inbox.h: packages on their way from the exchange into the engine.
//
// The packages of a known device are taken strictly in its order, whatever lies there and however it got
// there. The next one is copied to the mailbox, looked through, handed to the engine, and noted as applied
// when the engine is done with it; only then is it acknowledged (receipts.h). One package at a time is with
// the engine.
//
// What a package has come to stands in the records (IncomingRecord), and each step may be done again after a
// kill:
//
//     lies in the exchange   nothing noted; or refused, with the reason
//     taken                  its sealed copy lies in inbox/, and was found to be the next one
//     given                  the engine has it, or has had it
//     applied                the device's order has gone on to its number
#ifndef QUORVANE_HOST_SHARING_INBOX_H_
#define QUORVANE_HOST_SHARING_INBOX_H_

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "host/base/compound_file.h"
#include "host/exchange/comparison.h"
#include "host/mailbox/mailbox.h"
#include "host/mailbox/records.h"
#include "host/sharing/commit_group.h"
#include "host/sharing/engine.h"
#include "host/sharing/item_state.h"
#include "host/sharing/matcher.h"
#include "host/sharing/recovery.h"
#include "host/sharing/statistics.h"
#include "host/sharing/transport.h"

namespace quorvane::host {

// What hears the reports that other devices send of their folders.
class ReportSink {
public:
    virtual void Hear(const Peer& peer, const exchange::FolderReport& report) = 0;
    // Something of a device's was put aside: what it held may be missing here.
    virtual void Miss(const exchange::DeviceId& device) = 0;

protected:
    ~ReportSink() = default;
};

// What hears of items' flags that members share.
class FlagSink {
public:
    // While the engine applies nothing. False when some are to be asked for again.
    virtual bool Hear(const exchange::FlagNote& note) = 0;

protected:
    ~FlagSink() = default;
};

// For the run's thread alone. Methods throw a HostError, or an exchange::Error when the place or the disk
// can't be used.
class Inbox {
public:
    // report: gets one line for the user about a package that can't be used. askAfter: how many seconds a gap
    // stands until it is asked for.
    Inbox(const Addin::Parts& parts, const EngineSession& engine, Matcher& matcher,
          std::function<void(const std::string&)> report,
          std::int64_t askAfter = exchange::GapWatch::kPatience);

    // Without it reports are acknowledged and forgotten.
    void SetReports(ReportSink* reports) noexcept { reports_ = reports; }

    // Without it flags are acknowledged and forgotten.
    void SetFlags(FlagSink* flags) noexcept { flags_ = flags; }

    // What is applied is on the disk before its package counts as applied. Without it each commit waits.
    void SetGroup(CommitGroup* group) noexcept { group_ = group; }

    // Puts right what a power cut left of the package that was in hand, if there is one: before anything is
    // sent.
    void Recover(Transport& transport, Recovery& recovery);
    // What is applied of that package from now on is applied in the group.
    void ResumeGroup(Transport& transport);

    // Hands the next package over, if the engine is free and there is one. True if one was, or was put aside.
    bool TakeNext(Transport& transport);

    // Whether the engine still works a package off.
    bool IsBusy();

    // Whether a package is with the engine, or lies in the exchange and could be taken.
    bool HasWork(Transport& transport);

private:
    using Clock = std::chrono::steady_clock;
    enum class Verdict { kUse, kPass, kReject };
    // What a file in the exchange says of itself; nothing when it isn't for this device.
    using Header = std::optional<exchange::ForUs>;
    struct Refusal {
        Clock::time_point nextLook;
        std::chrono::seconds pause;
    };
    using Key = std::pair<exchange::DeviceId, std::uint64_t>;

    std::optional<exchange::ForUs> FindNext(Transport& transport, Peer& peer);
    std::optional<Header> HeaderOf(Transport& transport, const Peer& peer, std::uint64_t sequence);
    std::vector<std::uint64_t> Lying(Transport& transport, const Peer& peer);
    bool IsGenuine(Transport& transport, const Peer& peer, std::uint64_t sequence);
    void NoteGap(Transport& transport, Peer& peer, const std::optional<exchange::SequenceRange>& gap);
    bool TakeFrom(Transport& transport, Peer& peer);
    bool Take(Transport& transport, const Peer& peer, const exchange::ForUs& package);
    // What the engine was given, as long as it has it: it takes the package to pieces.
    struct Handed {
        Key key;
        exchange::ForUs order;
        std::vector<PackageRecord> items;
        std::vector<std::uint64_t> made{};  // when those of its changes were made that weren't known here
    };
    struct Opened {
        exchange::ForUs order;
        exchange::PackageKind kind = exchange::PackageKind::kItems;
    };
    Opened Unseal(Transport& transport, const Peer& peer, std::uint64_t sequence,
                  const std::filesystem::path& clear) const;
    void BeginGroup(const exchange::DeviceId& device, std::uint64_t sequence);
    // `package`: what it holds, where it is used.
    Verdict Judge(SharedFolders& folders, const Peer& peer, const std::filesystem::path& path,
                  Package& package, std::string& reason);
    Verdict JudgeContent(SharedFolders& folders, const Peer& peer, const Package& package,
                         std::string& reason);
    bool TakeItems(Transport& transport, const Peer& peer, const exchange::ForUs& package);
    void TakeNote(Transport& transport, const Peer& peer, const exchange::ForUs& package);
    void TakeFlags(Transport& transport, const Peer& peer, const exchange::ForUs& package);
    std::string WhyNot(SharedFolders& folders, const Peer& peer, const exchange::FlagNote& note);
    void TurnDown(Transport& transport, const Peer& peer, const exchange::ForUs& package,
                  const std::string& reason);
    void TakeReport(Transport& transport, const Peer& peer, const exchange::ForUs& package);
    void Refuse(Transport& transport, const Peer& peer, std::uint64_t sequence, const std::string& reason);
    bool IsPaused(const Key& key) const;

    bool Advance(Transport& transport);
    bool AdvanceHanded(Transport& transport, const IncomingRecord& current);
    bool IsApplied(const PackageRecord& item);
    std::size_t CountMissing(const std::vector<PackageRecord>& items);
    std::vector<std::uint64_t> NewChanges(SharedFolders& folders, const std::vector<PackageRecord>& items);
    // items: that it brought here. made: as of Handed.
    void Finish(Transport& transport, const Peer& peer, const exchange::ForUs& package, std::size_t items = 0,
                const std::vector<std::uint64_t>& made = {});
    void Process(Transport& transport, const Peer& peer, std::uint64_t sequence);
    void PutAside(const Peer& peer, const std::filesystem::path& path, const std::string& reason);
    std::filesystem::path SealedPath(const exchange::DeviceId& device, std::uint64_t sequence) const;
    std::filesystem::path ClearPath(const exchange::DeviceId& device, std::uint64_t sequence) const;
    void RemoveCopies(const exchange::DeviceId& device, std::uint64_t sequence) const;

    const Mailbox& mailbox_;
    const EngineSession& engine_;
    Records& records_;
    ItemState& state_;
    ApplyGuard& applying_;
    Statistics& statistics_;
    Matcher& matcher_;
    std::function<void(const std::string&)> report_;
    std::int64_t askAfter_;
    bool verbose_;
    ReportSink* reports_ = nullptr;
    FlagSink* flags_ = nullptr;
    CommitGroup* group_ = nullptr;
    bool isCutShort_ = false;           // the last look for a device's next package didn't come to the end
    int tries_ = 0;                     // of the current one in this process
    std::optional<Handed> handed_;      // the current one, if it was handed over in this process
    std::map<Key, Header> headers_;     // of files that were looked at
    std::set<Key> genuine_;             // of these files, those whose signature holds
    Clock::time_point headersEnd_{};    // until when both count
    std::set<std::string> turnedDown_;  // reasons that were told
    std::map<Key, Refusal> refusals_;   // when a file that was refused is looked at again
    exchange::DeviceId lastTaken_;      // whose package was the last one
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_INBOX_H_
