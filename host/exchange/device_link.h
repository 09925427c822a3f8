// host/exchange/device_link.h: how a device agrees to be linked by another one of the same member.
//
// Whoever is a member's device says in a folder's membership that another one is his, too
// (membership_entry.h), with this signature of that other one: nobody passes somebody else's device for his.
#ifndef QUORVANE_HOST_EXCHANGE_DEVICE_LINK_H_
#define QUORVANE_HOST_EXCHANGE_DEVICE_LINK_H_

#include "host/exchange/keys.h"

namespace quorvane::host::exchange {

// The signature by which the device with these keys agrees to be linked by that one.
Signature AgreeToLink(const DeviceKeys& keys, const SigningKey& by);

// Whether it is that of `device`.
bool AgreesToLink(const SigningKey& device, const SigningKey& by, const Signature& agreement);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_DEVICE_LINK_H_
