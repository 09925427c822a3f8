#include "host/exchange/card.h"

#include "host/exchange/device_link.h"
#include "host/exchange/error.h"
#include "host/exchange/member_name.h"
#include "host/exchange/wire.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::string_view kCardMagic("QV3CARD\1", 8);
constexpr std::string_view kCardPurpose = "quorvane3 card";

}  // namespace

std::string WriteCard(const DeviceKeys& keys, const std::string& name, std::uint64_t serial,
                      const std::vector<CardLink>& links)
{
    if (!IsMemberName(name) || links.size() > kMostLinks)
        Refuse("a card can't have the name '" + name + "' and " + std::to_string(links.size()) + " links");
    WireWriter card;
    card.Put(kCardMagic).Put(serial).Put(keys.Signing()).Put(keys.Sealing());
    card.Put(static_cast<std::uint8_t>(name.size())).Put(name);
    card.Put(static_cast<std::uint8_t>(links.size()));
    for (const CardLink& link : links)
        card.Put(link.by).Put(link.agreement);
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
    const std::size_t links = reader.Get<std::uint8_t>();
    if (!IsMemberName(card.name) || links > kMostLinks)
        Refuse(what + " has no proper name, or too many links");
    for (std::size_t count = 0; count < links; ++count) {
        CardLink link;
        link.by = reader.GetBytes<32>();
        link.agreement = reader.GetBytes<64>();
        card.links.push_back(link);
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

std::optional<Signature> AgreementIn(const Card& card, const SigningKey& by)
{
    for (const CardLink& link : card.links)
        if (link.by == by && AgreesToLink(card.signing, by, link.agreement))
            return link.agreement;
    return std::nullopt;
}

}  // namespace quorvane::host::exchange
