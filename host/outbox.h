// host/outbox.h: packages on their way from the engine to the exchange.
//
// A package is taken from the engine when it has been quiet for a moment. From then on it is the program's:
// it is noted before the engine forgets it, gets a sequence number for each member, and goes when every
// member's copy lies in the exchange. A kill at any point leads to one more delivery under the same numbers,
// never to none.
#ifndef QUORVANE_HOST_OUTBOX_H_
#define QUORVANE_HOST_OUTBOX_H_

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "host/engine.h"
#include "host/exchange.h"
#include "host/mailbox.h"
#include "host/records.h"
#include "host/statistics.h"

namespace quorvane::host {

// For the run's thread alone. Methods throw a HostError.
class Outbox {
public:
    Outbox(const EngineSession& engine, Records& records, Statistics& statistics) noexcept
        : engine_(engine), records_(records), statistics_(statistics)
    {}

    // Takes up what a killed run had noted: the engine may still list it. Once, before the engine's folders
    // are added.
    void Resume();

    // Takes every package that is ready. Announcements come first, so that a member knows a folder before its
    // changes.
    void TakeReady(bool evenIfFresh);

    // Delivers what was taken. Throws when the exchange can't be used; what wasn't delivered is kept for the
    // next call.
    void Deliver(const Exchange& exchange);

    // Whether anything waits: in the engine or taken.
    bool HasWork();

private:
    struct Listed {
        std::string recipients;
        std::string path;
    };
    std::vector<Listed> ListEngine() const;
    bool IsReady(const std::string& path);
    void Take(const Listed& package);
    void Forget(const std::string& recipients) const;
    std::vector<Delivery> Plan(const OutgoingPackage& package);

    const EngineSession& engine_;
    Records& records_;
    Statistics& statistics_;
    std::map<std::string, std::chrono::steady_clock::time_point>
        firstSeen_;  // packages that were still filling
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_OUTBOX_H_
