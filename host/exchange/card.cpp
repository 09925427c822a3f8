#include "host/exchange/card.h"

#include <algorithm>

#include "host/exchange/error.h"
#include "host/exchange/member_name.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kCardMagic("QV3CARD\1", 8);
constexpr std::string_view kCardPurpose = "quorvane3 card";
constexpr std::string_view kVoucherPurpose = "quorvane3 voucher";
constexpr std::size_t kMostVouchers = 16;

// What a voucher says.
std::string Vouched(const Card& card)
{
    return WireWriter().Put(card.signing).Put(card.sealing).Put(card.name).Bytes();
}

}  // namespace

std::string WriteCard(const DeviceKeys& keys, const std::string& name, std::uint64_t serial,
                      const std::vector<Voucher>& vouchers)
{
    if (!IsMemberName(name) || vouchers.size() > kMostVouchers)
        Refuse("a card can't have the name '" + name + "' and " + std::to_string(vouchers.size()) +
               " vouchers");
    WireWriter card;
    card.Put(kCardMagic).Put(serial).Put(keys.Signing()).Put(keys.Sealing());
    card.Put(static_cast<std::uint8_t>(name.size())).Put(name);
    card.Put(static_cast<std::uint8_t>(vouchers.size()));
    for (const Voucher& voucher : vouchers)
        card.Put(voucher.by).Put(voucher.signature);
    const Signature signature = keys.Sign(kCardPurpose, card.Bytes());
    return card.Put(signature).Bytes();
}

Card ReadCard(std::string_view bytes, const DeviceId& whose)
{
    const std::string what = "the card of device " + TextOf(whose);
    if (bytes.size() > kLongestCard)
        Refuse(what + " is too long");
    WireReader reader(bytes, what);
    if (reader.Take(kCardMagic.size()) != kCardMagic)
        Refuse(what + " is none, or of a later format");
    Card card;
    card.serial = reader.Get<std::uint64_t>();
    card.signing = reader.GetBytes<32>();
    card.sealing = reader.GetBytes<32>();
    card.name = reader.Take(reader.Get<std::uint8_t>());
    const std::size_t vouchers = reader.Get<std::uint8_t>();
    if (!IsMemberName(card.name) || vouchers > kMostVouchers)
        Refuse(what + " has no proper name, or too many vouchers");
    for (std::size_t count = 0; count < vouchers; ++count) {
        Voucher voucher;
        voucher.by = reader.GetBytes<32>();
        voucher.signature = reader.GetBytes<64>();
        card.vouchers.push_back(voucher);
    }
    const std::string_view isSigned = bytes.substr(0, bytes.size() - reader.Left());
    const Signature signature = reader.GetBytes<64>();
    reader.End();
    if (card.Id() != whose)
        Refuse(what + " is another device's");
    if (!IsSignedBy(card.signing, kCardPurpose, isSigned, signature))
        Refuse(what + " isn't signed by it");
    return card;
}

Voucher VouchFor(const DeviceKeys& keys, const Card& card)
{
    return {keys.Signing(), keys.Sign(kVoucherPurpose, Vouched(card))};
}

bool IsVouchedFor(const Card& card, const SigningKey& known)
{
    const std::string vouched = Vouched(card);
    return std::any_of(card.vouchers.begin(), card.vouchers.end(), [&](const Voucher& voucher) {
        return voucher.by == known && IsSignedBy(known, kVoucherPurpose, vouched, voucher.signature);
    });
}

}  // namespace quorvane::host::exchange
