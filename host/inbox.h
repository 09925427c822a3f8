// host/inbox.h: packages on their way from the exchange into the engine.
//
// A package is copied to the mailbox, handed to the engine, noted as received, and only then removed from the
// exchange. One package at a time is with the engine, so that changes are applied in the order of their
// senders.
#ifndef QUORVANE_HOST_INBOX_H_
#define QUORVANE_HOST_INBOX_H_

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "host/compound_file.h"
#include "host/engine.h"
#include "host/exchange.h"
#include "host/item_state.h"
#include "host/mailbox.h"
#include "host/matcher.h"
#include "host/records.h"
#include "host/statistics.h"

namespace quorvane::host {

// For the run's thread alone. Methods throw a HostError.
class Inbox {
public:
    // report: gets one line for the user about a package that can't be used.
    Inbox(const Addin::Parts& parts, const EngineSession& engine, Matcher& matcher,
          std::function<void(const std::string&)> report);

    // Takes the next package, if the engine is free and there is one. True if one was taken. A package with
    // items of a folder that isn't shared here yet stays where it is, and so do its sender's later ones.
    bool TakeNext(const Exchange& exchange);

    // Whether the engine still works a package off.
    bool IsBusy();

    // Whether a package is with the engine, or lies in the exchange and could be taken.
    bool HasWork(const Exchange& exchange);

private:
    enum class Verdict { kUse, kHold, kReject };
    Verdict Judge(const std::filesystem::path& path, std::string& reason);
    bool IsNext(const IncomingPackage& package, const Exchange& exchange);
    bool Take(const IncomingPackage& package, const Exchange& exchange);
    bool FinishCurrent(const Exchange& exchange);
    bool IsApplied(const PackageRecord& item, const std::string& member);
    std::size_t CountMissing(const IncomingPackage& package);
    void Done(const IncomingPackage& package, const Exchange& exchange);
    std::filesystem::path PathFor(const IncomingPackage& package) const;
    void CopyFromExchange(const IncomingPackage& package) const;
    void Process(const IncomingPackage& package);
    void Reject(const IncomingPackage& package, const std::filesystem::path& path, const std::string& reason);

    const Mailbox& mailbox_;
    const EngineSession& engine_;
    Records& records_;
    ItemState& state_;
    ApplyGuard& applying_;
    Statistics& statistics_;
    Matcher& matcher_;
    std::function<void(const std::string&)> report_;
    std::optional<IncomingPackage> current_;  // with the engine
    int tries_ = 0;                           // of the current one
    std::set<std::string> held_;              // senders whose next package waits for a folder
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_INBOX_H_
