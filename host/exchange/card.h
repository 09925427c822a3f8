// host/exchange/card.h: the card of a device: who it is, signed by itself.
//
// As bytes, all numbers little-endian:
//
//     8   "QV3CARD" and the format's version, 1
//     8   serial number: of two cards of a device the one with the greater number holds
//     32  signing key, and 32 sealing key
//     1   length of the member's name, and the name
//     1   number of links, and for each: 32 signing key of another device of the same member, and 64 the
//         signature by which this device agrees to be linked by that one (device_link.h)
//     64  signature over all that
#ifndef QUORVANE_HOST_EXCHANGE_CARD_H_
#define QUORVANE_HOST_EXCHANGE_CARD_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/exchange/keys.h"

namespace quorvane::host::exchange {

// Longer ones are refused unread.
inline constexpr std::size_t kLongestCard = 4096;
// So many others of its member a device names at the most.
inline constexpr std::size_t kMostLinks = 16;

struct CardLink {
    SigningKey by{};
    Signature agreement{};
};

struct Card {
    std::string name;  // of the member (IsMemberName)
    SigningKey signing{};
    SealingKey sealing{};
    std::uint64_t serial = 0;
    std::vector<CardLink> links;

    DeviceId Id() const { return IdOf(signing); }
};

// The bytes of a device's own card. Throws an Error (kRefused) when the name is none, or links are too
// many.
std::string WriteCard(const DeviceKeys& keys, const std::string& name, std::uint64_t serial,
                      const std::vector<CardLink>& links = {});

// Throws an Error (kRefused) unless the bytes are a card that this device signed.
Card ReadCard(std::string_view bytes, const DeviceId& whose);

// By which the card's device agrees to be linked by this one; empty where it doesn't.
std::optional<Signature> AgreementIn(const Card& card, const SigningKey& by);

}  // namespace quorvane::host::exchange

#endif  // QUORVANE_HOST_EXCHANGE_CARD_H_
