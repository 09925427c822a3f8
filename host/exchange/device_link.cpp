#include "host/exchange/device_link.h"

#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kLinkPurpose = "quorvane3 link";

std::string AgreedText(const SigningKey& device, const SigningKey& by)
{
    return WireWriter().Put(device).Put(by).Bytes();
}

}  // namespace

Signature AgreeToLink(const DeviceKeys& keys, const SigningKey& by)
{
    return keys.Sign(kLinkPurpose, AgreedText(keys.Signing(), by));
}

bool AgreesToLink(const SigningKey& device, const SigningKey& by, const Signature& agreement)
{
    return IsSignedBy(device, kLinkPurpose, AgreedText(device, by), agreement);
}

}  // namespace quorvane::host::exchange
