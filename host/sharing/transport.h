// host/sharing/transport.h: what a run uses the exchange with.
#ifndef QUORVANE_HOST_SHARING_TRANSPORT_H_
#define QUORVANE_HOST_SHARING_TRANSPORT_H_

#include <filesystem>

#include "host/exchange/place.h"
#include "host/mailbox/device.h"
#include "host/mailbox/peers.h"
#include "host/mailbox/refusals.h"
#include "host/mailbox/shared_folders.h"

namespace quorvane::host {

// For one thread.
struct Transport {
    // exchange: its directory.
    Transport(const Mailbox& mailbox, const std::filesystem::path& exchange)
        : directory(exchange),
          keys(ReadDeviceKeys(mailbox)),
          peers(mailbox.HostDatabasePath().string()),
          place(exchange, keys.Id(), peers.ExchangeReaders()),
          folders(mailbox.HostDatabasePath().string(), keys),
          refusals(mailbox.HostDatabasePath().string())
    {}

    const std::filesystem::path directory;  // the exchange
    const exchange::DeviceKeys keys;
    Peers peers;
    const exchange::Place place;
    SharedFolders folders;
    Refusals refusals;
};

// A file of this mailbox's own as a source of bytes. Throws an exchange::Error.
std::unique_ptr<exchange::OutsideFile> OpenOwnFile(const std::filesystem::path& path);

struct NumberedPackage {
    std::uint64_t sequence = 0;
    exchange::PackageKind kind = exchange::PackageKind::kItems;
};

// Seals `clear` for its receivers and lays it into the exchange; when this returns, it is on the disk there.
// A file beside `clear` holds it meanwhile. Gives how many bytes lie there. Throws a HostError or an
// exchange::Error.
std::uint64_t LaySealed(Transport& transport, const NumberedPackage& package,
                        const std::vector<exchange::Receiver>& receivers, const std::filesystem::path& clear);

// Lays the device's card into the exchange, unless it lies there as it is to be.
void PublishCard(Transport& transport, const std::string& name);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_TRANSPORT_H_
