// host/sharing/pinning.h: finding out which device in the exchange is whose.
#ifndef QUORVANE_HOST_SHARING_PINNING_H_
#define QUORVANE_HOST_SHARING_PINNING_H_

#include <array>
#include <string>
#include <vector>

#include "host/sharing/transport.h"

namespace quorvane::host {

// A card that lies in the exchange, as it was read.
struct FoundCard {
    exchange::Card card;
    std::string bytes;
};

// "0123... (words)".
std::string ShownDevice(const exchange::DeviceId& id);

// The cards of this name in the exchange, without those of devices that the user has pinned to somebody.
// Throws an exchange::Error when the exchange can't be read.
std::vector<FoundCard> FindCards(Transport& transport, const std::string& name);

// The card of a device. Throws a HostError when there is none, or it names somebody else than `member`.
FoundCard FindCard(const Transport& transport, const exchange::DeviceId& id, const std::string& member);

// Throws a HostError that names both when two devices claim one name, and the user has pinned neither.
void RefuseAmbiguity(const std::string& member, const std::vector<FoundCard>& cards);

// The exchange that a command works with: the one that was named, which is remembered, or the remembered one;
// empty when there is neither.
std::string ChosenExchange(const Mailbox& mailbox, const std::string& named);

// The modes of files in the exchange that `--exchange-mode` names.
inline constexpr std::array<const char*, 3> kExchangeModes{"0600", "0640", "0644"};

// One of kExchangeModes: holds from now on for what the mailbox lays into `exchange`, and for what lies there
// already, and is remembered. Empty: all stays as it is. Throws a HostError.
void ChooseExchangeMode(const Mailbox& mailbox, const std::string& exchange, const std::string& mode);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SHARING_PINNING_H_
