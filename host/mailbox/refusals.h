// host/mailbox/refusals.h: packages that came in order and were refused, as their sender may not send what
// they hold; in host.db (docs/mailbox.md).
#ifndef QUORVANE_HOST_MAILBOX_REFUSALS_H_
#define QUORVANE_HOST_MAILBOX_REFUSALS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/base/sqlite.h"
#include "host/exchange/keys.h"

namespace quorvane::host {

// Packages of a device's that were refused for one reason.
struct RefusalRecord {
    exchange::DeviceId device;
    std::string reason;
    std::uint64_t count = 0;
    std::uint64_t since = 0;
};

// For one thread. Methods throw a HostError when the database fails; what they note is on the disk when they
// return.
class Refusals {
public:
    // How many reasons are kept. Of one that is kept, more packages are counted for ever.
    static constexpr std::int64_t kMost = 200;

    // path: host.db.
    explicit Refusals(const std::string& path) : database_(path, Database::Mode::kOpen) {}

    // Counts a package of a device's. Of a reason that is no more kept nothing is noted.
    void Note(const exchange::DeviceId& device, const std::string& reason);
    // The oldest first.
    std::vector<RefusalRecord> All();

private:
    Database database_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_REFUSALS_H_
