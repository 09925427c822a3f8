#include "host/mailbox/item_text.h"

#include <algorithm>

#include "host/base/errors.h"
#include "host/exchange/error.h"
#include "host/exchange/member_name.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// Of a FILETIME, so that it fits a signed number of the records.
constexpr std::uint64_t kLatest = exchange::Revision::kLatestStamp;

exchange::DeviceId NobodysId(std::string_view what, const ItemVersion& version)
{
    exchange::WireWriter bytes;
    bytes.Put("a former version's ").Put(what).Put(version.stamp).Put(version.member);
    exchange::Digest digest;
    digest.Add(bytes.Bytes());
    const auto whole = digest.Finish();
    exchange::DeviceId id;
    std::copy_n(whole.begin(), id.bytes.size(), id.bytes.begin());
    return id;
}

}  // namespace

Json ParseObject(std::string_view text)
{
    Json json = Json::parse(text, nullptr, false);
    return json.is_object() ? json : Json(Json::value_t::discarded);
}

std::optional<std::string> TextField(const Json& json, const char* name)
{
    const auto field = json.find(name);
    if (field == json.end() || !field->is_string())
        return std::nullopt;
    return field->get<std::string>();
}

// The later one of two is shown, as it was then: their contents aren't known, and so never in conflict.
exchange::ItemHeads FormerHeads(const ItemVersion& version, bool isDeletion)
{
    exchange::Revision revision;
    revision.version.Raise(exchange::ChangerId{NobodysId("changer", version).bytes});
    revision.stamp = std::min(version.stamp, kLatest);
    revision.by = NobodysId("device", {0, version.member});
    revision.isDeletion = isDeletion;
    exchange::ItemHeads heads;
    heads.Take(revision);
    return heads;
}

std::string FormatHeads(const exchange::ItemHeads& heads)
{
    const std::string bytes = heads.Write();
    return Hex(Bytes(bytes.begin(), bytes.end()));
}

std::optional<exchange::ItemHeads> ParseHeads(std::string_view text)
try {
    const Bytes bytes = FromHex(text);
    return exchange::ItemHeads::Read({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, "an item");
} catch (const HostError&) {
    return std::nullopt;
} catch (const exchange::Error&) {
    return std::nullopt;
}

std::string FormatItem(const ItemRecord& record)
{
    return Json{{"heads", FormatHeads(record.heads)}, {"member", record.version.member}}.dump();
}

std::optional<ItemText> ParseItem(std::string_view text, bool isDeletion)
{
    const Json json = ParseObject(text);
    const auto member = json.is_discarded() ? std::nullopt : TextField(json, "member");
    if (!member || !IsMemberName(*member))
        return std::nullopt;
    if (const auto stamp = json.find("stamp"); stamp != json.end() && !json.contains("heads")) {
        if (!stamp->is_number_unsigned() || stamp->get<std::uint64_t>() > kLatest)
            return std::nullopt;
        return ItemText{FormerHeads({stamp->get<std::uint64_t>(), *member}, isDeletion), *member};
    }
    const auto text16 = TextField(json, "heads");
    const auto heads = text16 ? ParseHeads(*text16) : std::nullopt;
    if (!heads || !heads->Shown())
        return std::nullopt;
    return ItemText{*heads, *member};
}

}  // namespace quorvane::host
