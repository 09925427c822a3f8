// host/exchange/card.h: the card of a device: who it is, signed by itself.
//
// As bytes, all numbers little-endian:
//
//     8   "QV3CARD" and the format's version, 1
//     8   serial number: of two cards of a device the one with the greater number holds
//     32  signing key, and 32 sealing key
//     1   length of the member's name, and the name
//     1   number of vouchers, and for each: 32 signing key of the device that vouches, and 64 its signature
//     64  signature over all that
//
// A second device of a member is vouched for by one that is known already: that one signs the new one's keys
// and name.
#ifndef QUORVANE_HOST_EXCHANGE_CARD_H_
#define QUORVANE_HOST_EXCHANGE_CARD_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/keys.h"

namespace quorvane::host::exchange {

// Longer ones are refused unread.
inline constexpr std::size_t kLongestCard = 4096;

struct Voucher {
    SigningKey by{};
    Signature signature{};
};

struct Card {
    std::string name;  // of the member (IsMemberName)
    SigningKey signing{};
    SealingKey sealing{};
    std::uint64_t serial = 0;
    std::vector<Voucher> vouchers;

    DeviceId Id() const { return IdOf(signing); }
};

// The bytes of a device's own card. Throws an Error (kRefused) when the name is none, or vouchers are too
// many.
std::string WriteCard(const DeviceKeys& keys, const std::string& name, std::uint64_t serial,
                      const std::vector<Voucher>& vouchers = {});

// Throws an Error (kRefused) unless the bytes are a card that this device signed.
Card ReadCard(std::string_view bytes, const DeviceId& whose);

// A voucher for another device of the same member, and whether a card has one of a known device's that holds.
Voucher VouchFor(const DeviceKeys& keys, const Card& card);
bool IsVouchedFor(const Card& card, const SigningKey& known);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_CARD_H_
