#include "host/mime/export_headers.h"

#include <glib.h>

#include <algorithm>

#include "host/mail/unicode.h"
#include "host/mime/filetime.h"
#include "host/mime/gmime_setup.h"
#include "host/mime/header_repair.h"

namespace quorvane {
namespace {

std::vector<MailAddress> RecipientsOf(const MailEnvelope& envelope, LONG type)
{
    std::vector<MailAddress> people;
    for (const MailRecipient& recipient : envelope.recipients) {
        if (recipient.type == type)
            people.push_back(recipient.who);
    }
    return people;
}

// The same people: stores reorder them, and know some by another name or without their mail address.
bool SamePeople(const std::vector<MailAddress>& header, const std::vector<MailAddress>& properties)
{
    if (header.size() != properties.size())
        return false;
    std::vector<std::string> known;
    for (const MailAddress& person : header)
        known.push_back(LowerAscii(person.address));
    return std::all_of(properties.begin(), properties.end(), [&](const MailAddress& person) {
        if (person.address.empty())
            return true;
        const auto found = std::find(known.begin(), known.end(), LowerAscii(person.address));
        if (found == known.end())
            return false;
        known.erase(found);
        return true;
    });
}

bool SameTimes(const std::optional<FILETIME>& a, const std::optional<FILETIME>& b)
{
    return a && b ? SameTime(*a, *b) : a.has_value() == b.has_value();
}

const char* ImportanceName(LONG importance)
{
    if (importance == IMPORTANCE_HIGH)
        return "high";
    return importance == IMPORTANCE_LOW ? "low" : "";
}

const char* PriorityName(LONG priority)
{
    if (priority == PRIO_URGENT)
        return "urgent";
    return priority == PRIO_NONURGENT ? "non-urgent" : "";
}

const char* SensitivityName(LONG sensitivity)
{
    switch (static_cast<ULONG>(sensitivity)) {
        case SENSITIVITY_PERSONAL:
            return "Personal";
        case SENSITIVITY_PRIVATE:
            return "Private";
        case SENSITIVITY_COMPANY_CONFIDENTIAL:
            return "Company-Confidential";
        default:
            return "";
    }
}

class Fields {
public:
    explicit Fields(std::vector<HeaderField> fields) : fields_(std::move(fields)) {}
    std::vector<HeaderField> Take() { return std::move(fields_); }

    // Puts one field, in place of the first of `names`, which go; an empty value only takes them away.
    void Replace(std::initializer_list<std::string_view> names, const std::string& value)
    {
        const std::string name(*names.begin());
        const auto first = std::find_if(fields_.begin(), fields_.end(),
                                        [&](const HeaderField& field) { return IsOneOf(field.name, names); });
        const auto index = first - fields_.begin();
        RemoveFields(fields_, names);
        if (!value.empty())
            fields_.insert(fields_.begin() + std::min(index, std::ssize(fields_)), {name, value});
    }

    void ReplaceUnless(bool same, std::initializer_list<std::string_view> names, const std::string& value)
    {
        if (!same)
            Replace(names, value);
    }

    [[nodiscard]] bool Has(std::string_view name) const { return HasField(fields_, name); }

private:
    std::vector<HeaderField> fields_;
};

void PutPeople(Fields& fields, const MailEnvelope& said, const MailEnvelope& now)
{
    const std::vector<MailAddress> first(said.from.begin(), said.from.begin() + (said.from.empty() ? 0 : 1));
    fields.ReplaceUnless(SamePeople(first, now.from), {"From"}, AddressListValue(now.from));
    fields.ReplaceUnless(SamePeople(said.sender, now.sender) || (now.sender.empty() && said.sender == first),
                         {"Sender"}, AddressListValue(now.sender));
    fields.ReplaceUnless(SamePeople(said.replyTo, now.replyTo), {"Reply-To"}, AddressListValue(now.replyTo));
    struct Kind {
        LONG type;
        const char* name;
    };
    for (const Kind kind : {Kind{MAPI_TO, "To"}, Kind{MAPI_CC, "Cc"}, Kind{MAPI_BCC, "Bcc"}}) {
        const std::vector<MailAddress> people = RecipientsOf(now, kind.type);
        fields.ReplaceUnless(SamePeople(RecipientsOf(said, kind.type), people), {kind.name},
                             AddressListValue(people));
    }
}

void PutUrgency(Fields& fields, const MailEnvelope& said, const MailEnvelope& now)
{
    const LONG importance = now.importance.value_or(IMPORTANCE_NORMAL);
    const LONG priority = now.priority.value_or(PRIO_NORMAL);
    const LONG sensitivity = now.sensitivity.value_or(static_cast<LONG>(SENSITIVITY_NONE));
    fields.ReplaceUnless(said.importance.value_or(IMPORTANCE_NORMAL) == importance,
                         {"Importance", "X-Priority", "X-MSMail-Priority"}, ImportanceName(importance));
    fields.ReplaceUnless(said.priority.value_or(PRIO_NORMAL) == priority, {"Priority"},
                         PriorityName(priority));
    fields.ReplaceUnless(said.sensitivity.value_or(static_cast<LONG>(SENSITIVITY_NONE)) == sensitivity,
                         {"Sensitivity"}, SensitivityName(sensitivity));
}

void PutReceipts(Fields& fields, const MailEnvelope& said, const MailEnvelope& now)
{
    const std::string asker = AddressListValue(now.sender.empty() ? now.from : now.sender);
    fields.ReplaceUnless(said.readReceipt == now.readReceipt, {"Disposition-Notification-To"},
                         now.readReceipt ? asker : "");
    fields.ReplaceUnless(said.deliveryReceipt == now.deliveryReceipt, {"Return-Receipt-To"},
                         now.deliveryReceipt ? asker : "");
}

void PutThread(Fields& fields, const MailEnvelope& said, const MailEnvelope& now)
{
    fields.ReplaceUnless(said.messageId == now.messageId, {"Message-ID"},
                         IdentifierValue(now.messageId.value_or("")));
    fields.ReplaceUnless(said.inReplyTo == now.inReplyTo, {"In-Reply-To"},
                         IdentifierValue(now.inReplyTo.value_or("")));
    fields.ReplaceUnless(said.references == now.references, {"References"},
                         IdentifierValue(now.references.value_or("")));
    const GText index(
        g_base64_encode(reinterpret_cast<const guchar*>(now.threadIndex.data()), now.threadIndex.size()));
    fields.ReplaceUnless(said.threadIndex == now.threadIndex, {"Thread-Index"}, TextOf(index));
}

}  // namespace

std::vector<HeaderField> ExportedFields(const std::string& block, MailEnvelope envelope)
{
    std::vector<HeaderField> kept = SplitHeaderBlock(block);
    RemoveFields(kept, {"MIME-Version", "Content-Type", "Content-Transfer-Encoding", "Content-Disposition",
                        "Content-ID", "Content-Description", "Content-Location", "Content-MD5",
                        "Content-Length", "Lines"});
    const bool fresh = kept.empty();
    if (fresh && envelope.from.empty())
        envelope.from.swap(envelope.sender);
    const MailBytes repaired = RepairHeaders(block + "\r\n");
    const auto parsed = ParseMime(repaired);
    const MailEnvelope said = parsed ? ReadEnvelope(parsed.Get()) : MailEnvelope();

    Fields fields(std::move(kept));
    PutPeople(fields, said, envelope);
    fields.ReplaceUnless(said.subject.value_or("") == envelope.subject.value_or(""), {"Subject"},
                         UnstructuredValue(envelope.subject.value_or("")));
    const std::optional<FILETIME> date = envelope.sent || !fresh ? envelope.sent : envelope.received;
    fields.ReplaceUnless(SameTimes(said.sent, date), {"Date"}, date ? DateValue(*date) : "");
    PutThread(fields, said, envelope);
    PutUrgency(fields, said, envelope);
    PutReceipts(fields, said, envelope);
    return fields.Take();
}

}  // namespace quorvane
