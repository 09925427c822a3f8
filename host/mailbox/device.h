// host/mailbox/device.h: the keys of a mailbox's device, in a file of the mailbox that its owner alone may
// read.
#ifndef QUORVANE_HOST_MAILBOX_DEVICE_H_
#define QUORVANE_HOST_MAILBOX_DEVICE_H_

#include "host/exchange/keys.h"
#include "host/exchange/seal.h"
#include "host/mailbox/mailbox.h"

namespace quorvane::host {

// Draws the keys of a mailbox that has none, writes them to `keyFile`, and notes the device and its first
// epoch in the mailbox's records. Called within a transaction. Throws a HostError.
void DrawDeviceKeys(const std::filesystem::path& keyFile, Database& records);

// Throws a HostError when they aren't there, or aren't those of the device that the records name.
exchange::DeviceKeys ReadDeviceKeys(const Mailbox& mailbox);

exchange::Epoch NewEpoch();

// 32 hexadecimal digits, and back; zeros for any other text.
std::string TextOfEpoch(const exchange::Epoch& epoch);
exchange::Epoch ParseEpoch(const std::string& text);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_DEVICE_H_
