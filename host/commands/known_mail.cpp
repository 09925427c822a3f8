#include "host/commands/known_mail.h"

#include <algorithm>
#include <functional>

#include "host/base/errors.h"
#include "host/sharing/message_content.h"
#include "host/store/folders.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr LONG kRowsOfTable = 200;
// A message's own at each import, so that it is found again wherever it goes; those embedded in it have one too.
constexpr char kSearchKey[] = "0x300B0102";
constexpr char kOriginal[] = "/OriginalMail:0102";

std::uint64_t KeyOf(const std::string& messageId, std::uint64_t sent)
{
    return std::hash<std::string>()(messageId.empty() ? "sent " + std::to_string(sent) : messageId);
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

bool IsSame(MessageContent a, MessageContent b)
{
    for (MessageContent* const content : {&a, &b})
        std::erase_if(*content, [](const auto& entry) { return entry.first.ends_with(kSearchKey); });
    const std::string original = TakeOriginal(a);
    if (const std::string other = TakeOriginal(b); !original.empty() && original == other) {
        const std::vector<std::string> names = Differences(a, b);
        if (std::none_of(names.begin(), names.end(), IsOfSubstance))
            return true;
    }
    return DigestOf(std::move(a)) == DigestOf(std::move(b));
}

}  // namespace

KnownMail::KnownMail(const MailSession& session, IMAPIFolder& folder) : session_(session)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), "list the items of", "the folder");
    SizedSPropTagArray(3, columns) = {3, {PR_ENTRYID, kPrInternetMessageIdW, PR_CLIENT_SUBMIT_TIME}};
    Check(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), "list the items of", "the folder");
    for (;;) {
        Rows rows;
        Check(table->QueryRows(kRowsOfTable, 0, rows.Put()), "list the items of", "the folder");
        if (rows.Count() == 0)
            return;
        for (ULONG i = 0; i < rows.Count(); ++i)
            items_.emplace(KeyOf(TextOf(rows[i], kPrInternetMessageIdW), TimeOf(rows[i], PR_CLIENT_SUBMIT_TIME)),
                           HexOf(rows[i], PR_ENTRYID));
    }
}

bool KnownMail::Take(IMessage& message)
{
    const auto [begin, end] =
        items_.equal_range(KeyOf(TextOf(message, kPrInternetMessageIdW), TimeOf(message, PR_CLIENT_SUBMIT_TIME)));
    if (begin == end)
        return false;
    const MessageContent content = ReadContent(message, "the mail");
    for (auto item = begin; item != end; ++item) {
        const ComPtr<IMessage> known = OpenMessage(session_, item->second, false);
        try {
            if (known && IsSame(content, ReadContent(*known, "an item"))) {
                items_.erase(item);
                return true;
            }
        } catch (const HostError&) {
            continue;  // a damaged item is no reason to leave a mail out
        }
    }
    return false;
}

}  // namespace quorvane::host
