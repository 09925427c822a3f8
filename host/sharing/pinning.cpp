#include "host/sharing/pinning.h"

#include <algorithm>
#include <system_error>

#include "host/base/errors.h"
#include "host/base/path_text.h"
#include "host/exchange/error.h"

namespace quorvane::host {

namespace {

std::optional<FoundCard> ReadCardOf(const Transport& transport, const exchange::DeviceId& id)
{
    auto bytes = transport.place.Read(id, exchange::Place::Note::kCard, exchange::kLongestCard);
    if (!bytes)
        return std::nullopt;
    exchange::Card card = exchange::ReadCard(*bytes, id);
    return FoundCard{std::move(card), *std::move(bytes)};
}

}  // namespace

std::string ShownDevice(const exchange::DeviceId& id)
{
    return exchange::TextOf(id) + " (" + exchange::FingerprintOf(id) + ")";
}

std::vector<FoundCard> FindCards(Transport& transport, const std::string& name)
{
    std::vector<FoundCard> cards;
    for (const exchange::DeviceId& id : transport.place.Devices()) {
        const auto peer = transport.peers.Find(id);
        if (id == transport.keys.Id() || (peer && peer->IsPinnedByUser()))
            continue;
        try {
            auto found = ReadCardOf(transport, id);
            if (found && found->card.name == name)
                cards.push_back(*std::move(found));
        } catch (const exchange::Error&) {
            continue;  // it is nobody's
        }
    }
    return cards;
}

FoundCard FindCard(const Transport& transport, const exchange::DeviceId& id, const std::string& member)
{
    auto found = ReadCardOf(transport, id);
    if (!found)
        Fail("pin the device", exchange::TextOf(id), "the exchange has no card of it");
    if (found->card.name != member)
        Fail("pin the device", exchange::TextOf(id), "its card has the name '" + found->card.name + "'");
    return *std::move(found);
}

void RefuseAmbiguity(const std::string& member, const std::vector<FoundCard>& cards)
{
    if (cards.size() < 2)
        return;
    std::string devices;
    for (const FoundCard& found : cards)
        devices += (devices.empty() ? "" : " and ") + ShownDevice(found.card.Id());
    Fail("tell who is", member,
         "several devices have that name: " + devices + "; 'quorvane members add MAILBOX " + member +
             " --device ID' says which one is theirs");
}

std::string ChosenExchange(const Mailbox& mailbox, const std::string& named)
{
    Peers peers(mailbox.HostDatabasePath().string());
    const std::string remembered = peers.Exchange();
    if (named.empty())
        return remembered;
    std::error_code error;
    const std::string path = std::filesystem::absolute(PathOf(named), error).lexically_normal().string();
    if (error || path == remembered || !std::filesystem::is_directory(PathOf(path), error))
        return named;
    peers.SetExchange(path);
    return named;
}

void ChooseExchangeMode(const Mailbox& mailbox, const std::string& exchange, const std::string& mode)
{
    if (mode.empty())
        return;
    const auto readers = static_cast<exchange::Readers>(
        std::find(kExchangeModes.begin(), kExchangeModes.end(), mode) - kExchangeModes.begin());
    Peers peers(mailbox.HostDatabasePath().string());
    if (peers.ExchangeReaders() == readers)
        return;
    const auto own = exchange::ParseDeviceId(mailbox.Device()).value_or(exchange::DeviceId{});
    try {
        exchange::Place(PathOf(exchange), own, readers).LetRead();
    } catch (const exchange::Error& error) {
        throw HostError(error.what());
    }
    peers.SetExchangeReaders(readers);
}

}  // namespace quorvane::host
