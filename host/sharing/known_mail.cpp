#include "host/sharing/known_mail.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "host/base/errors.h"
#include "host/sharing/message_content.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

// A message's own at each import, so that it is found again wherever it goes; those embedded in it have one
// too.
constexpr char kSearchKey[] = "0x300B0102";
constexpr char kOriginal[] = "/OriginalMail:0102";

std::string KeyOf(const std::string& messageId, std::uint64_t sent)
{
    return messageId.empty() ? "sent " + std::to_string(sent) : "id " + messageId;
}

// Takes the original out of a content; what it was.
std::string TakeOriginal(MessageContent& content)
{
    for (auto entry = content.begin(); entry != content.end(); ++entry)
        if (entry->first.starts_with('{') && entry->first.ends_with(kOriginal)) {
            std::string original = std::move(entry->second);
            content.erase(entry);
            return original;
        }
    return {};
}

// Whether a name of a difference tells of a text, a recipient or an attachment.
bool IsOfSubstance(const std::string& name)
{
    return name.starts_with("attachment ") || name.starts_with("recipient ") || name.starts_with("0x1000") ||
           name.starts_with("0x1009") || name.starts_with("0x1013");
}

}  // namespace

KnownMail::KnownMail(const MailSession& session, IMAPIFolder& folder,
                     const std::function<bool(const std::string&)>& wants)
    : session_(session)
{
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, kPrInternetMessageIdW, PR_CLIENT_SUBMIT_TIME}};
    ForEachItemRow(folder, reinterpret_cast<LPSPropTagArray>(&columns), [&](const SRow& row) {
        std::string id = HexOf(row, PR_ENTRYID);
        if (!wants || wants(id))
            items_[KeyOf(TextOf(row, kPrInternetMessageIdW), TimeOf(row, PR_CLIENT_SUBMIT_TIME))]
                .items.push_back(std::move(id));
    });
}

std::string KnownMail::Take(IMessage& message)
{
    const auto found =
        items_.find(KeyOf(TextOf(message, kPrInternetMessageIdW), TimeOf(message, PR_CLIENT_SUBMIT_TIME)));
    if (found == items_.end())
        return {};
    const Identity mail = IdentityOf(message, "the mail");
    do {
        if (std::string item = TakeOneOf(found->second, mail); !item.empty())
            return item;
    } while (ReadNext(found->second));
    return {};
}

KnownMail::Identity KnownMail::IdentityOf(IMessage& message, const std::string& shown)
{
    MessageContent content = ReadContent(message, shown);
    std::erase_if(content, [](const auto& entry) { return entry.first.ends_with(kSearchKey); });
    Identity identity;
    if (const std::string original = TakeOriginal(content); !original.empty()) {
        MessageContent substance;
        std::copy_if(content.begin(), content.end(), std::inserter(substance, substance.end()),
                     [](const auto& entry) { return IsOfSubstance(entry.first); });
        substance[kOriginal] = original;
        identity.original = DigestOf(std::move(substance));
    }
    identity.content = DigestOf(std::move(content));
    return identity;
}

bool KnownMail::ReadNext(Alike& alike) const
{
    while (alike.taken.size() < alike.items.size()) {
        const std::size_t item = alike.taken.size();
        alike.taken.push_back(false);
        try {
            if (const ComPtr<IMessage> known = OpenMessage(session_, alike.items[item], false)) {
                const Identity identity = IdentityOf(*known, "an item");
                alike.byContent[identity.content].push_back(item);
                if (identity.original)
                    alike.byOriginal[*identity.original].push_back(item);
                return true;
            }
        } catch (const HostError&) {
            continue;  // a damaged item is no reason to leave a mail out
        }
    }
    return false;
}

std::string KnownMail::TakeOneOf(Alike& alike, const Identity& mail)
{
    const auto takeFrom = [&](ItemsByDigest& items, const exchange::ContentDigest& digest) -> std::string {
        const auto found = items.find(digest);
        // An item that was taken by its other digest is still in this list.
        while (found != items.end() && !found->second.empty()) {
            const std::size_t item = found->second.back();
            found->second.pop_back();
            if (!alike.taken[item]) {
                alike.taken[item] = true;
                return alike.items[item];
            }
        }
        return {};
    };
    std::string item = takeFrom(alike.byContent, mail.content);
    return item.empty() && mail.original ? takeFrom(alike.byOriginal, *mail.original) : item;
}

std::size_t KnownMail::DigestHash::operator()(const exchange::ContentDigest& digest) const noexcept
{
    std::size_t hash = 0;
    std::memcpy(&hash, digest.data(), std::min(sizeof hash, digest.size()));
    return hash;
}

}  // namespace quorvane::host
