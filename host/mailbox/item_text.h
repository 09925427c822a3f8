// host/mailbox/item_text.h: the text that the program sends along with an item: what is known of its
// versions.
//
// An item's CustomInfo is a free text of the host. The program writes one JSON value into it:
//
//     {"heads": "0100...", "member": "alice"}
//
// heads: ItemHeads as bytes, in hexadecimal; member: who made what the item shows, as far as the sender
// knows. Former versions of the program wrote {"stamp": 134070000000000000, "member": "alice"}.
#ifndef QUORVANE_HOST_MAILBOX_ITEM_TEXT_H_
#define QUORVANE_HOST_MAILBOX_ITEM_TEXT_H_

#include <optional>
#include <string>
#include <string_view>

#include "host/base/output.h"
#include "host/mailbox/records.h"

namespace quorvane::host {

// What such a text says.
struct ItemText {
    exchange::ItemHeads heads;
    std::string member;
};

std::string FormatItem(const ItemRecord& record);
// Nothing when it isn't one. isDeletion: of a former version's text, whether the item is deleted with it.
std::optional<ItemText> ParseItem(std::string_view text, bool isDeletion);

// What is known of an item of which a former version of the program noted so much: nobody's in particular,
// and the same on all devices.
exchange::ItemHeads FormerHeads(const ItemVersion& version, bool isDeletion);

// Heads in hexadecimal, and back; nothing when they aren't that.
std::string FormatHeads(const exchange::ItemHeads& heads);
std::optional<exchange::ItemHeads> ParseHeads(std::string_view text);

// A JSON object out of foreign text; a discarded value when it is none.
Json ParseObject(std::string_view text);
std::optional<std::string> TextField(const Json& json, const char* name);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_ITEM_TEXT_H_
