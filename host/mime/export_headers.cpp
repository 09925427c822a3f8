#include "host/mime/export_headers.h"

#include <glib.h>

#include <algorithm>

#include "host/mail/ascii.h"
#include "host/mail/mail_check.h"
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

// A header block of which fields are exchanged.
class FieldBlock {
public:
    virtual ~FieldBlock() = default;

    // Puts one field, in place of the first of `names`, which go; an empty value only takes them away.
    virtual void Replace(std::initializer_list<std::string_view> names, const std::string& value) = 0;

    void ReplaceUnless(bool same, std::initializer_list<std::string_view> names, const std::string& value)
    {
        if (!same)
            Replace(names, value);
    }
};

class Fields : public FieldBlock {
public:
    explicit Fields(std::vector<HeaderField> fields) : fields_(std::move(fields)) {}
    std::vector<HeaderField> Take() { return std::move(fields_); }

    void Replace(std::initializer_list<std::string_view> names, const std::string& value) override
    {
        const std::string name(*names.begin());
        const auto first = std::find_if(fields_.begin(), fields_.end(),
                                        [&](const HeaderField& field) { return IsOneOf(field.name, names); });
        const auto index = first - fields_.begin();
        RemoveFields(fields_, names);
        if (!value.empty())
            fields_.insert(fields_.begin() + std::min(index, std::ssize(fields_)), {name, value});
    }

private:
    std::vector<HeaderField> fields_;
};

// Whose fields are the bytes of their lines.
class RawFields : public FieldBlock {
public:
    explicit RawFields(std::string_view block)
    {
        lineEnd_ = block.substr(0, LineLength(block)).ends_with("\r\n") ? "\r\n" : "\n";
        for (; !block.empty(); block.remove_prefix(LineLength(block))) {
            const std::string_view line = block.substr(0, LineLength(block));
            const bool continues = line.starts_with(' ') || line.starts_with('\t');
            if (continues && !fields_.empty())
                fields_.back().value.append(line);
            else
                fields_.push_back({NameOf(line), std::string(line)});
        }
    }

    void Replace(std::initializer_list<std::string_view> names, const std::string& value) override
    {
        const auto first = std::find_if(fields_.begin(), fields_.end(),
                                        [&](const HeaderField& field) { return IsOneOf(field.name, names); });
        const auto index = first - fields_.begin();
        RemoveFields(fields_, names);
        if (!value.empty())
            fields_.insert(fields_.begin() + std::min(index, std::ssize(fields_)),
                           NewField(*names.begin(), value));
    }

    [[nodiscard]] std::string Text() const
    {
        std::string text;
        for (const HeaderField& field : fields_)
            text += field.value;
        return text;
    }

    const std::vector<HeaderField>& Lines() const noexcept { return fields_; }

private:
    static std::string NameOf(std::string_view line)
    {
        if (!IsFieldOfBlock(line))
            return {};
        const std::string_view name = line.substr(0, line.find(':'));
        return std::string(name.substr(0, name.find_last_not_of(" \t") + 1));
    }

    HeaderField NewField(std::string_view name, const std::string& value) const
    {
        std::string line(name);
        line.append(": ");
        for (const char c : value + "\r\n") {
            if (c == '\n')
                line += lineEnd_;
            else if (c != '\r')
                line += c;
        }
        return {std::string(name), std::move(line)};
    }

    std::string lineEnd_;
    std::vector<HeaderField> fields_;  // as the values their lines
};

// Whether two lists of people are one.
using AreSame = bool (*)(const std::vector<MailAddress>&, const std::vector<MailAddress>&);

bool EqualPeople(const std::vector<MailAddress>& a, const std::vector<MailAddress>& b)
{
    return a == b;
}

void PutPeople(FieldBlock& fields, const MailEnvelope& said, const MailEnvelope& now, AreSame same)
{
    const std::vector<MailAddress> first(said.from.begin(), said.from.begin() + (said.from.empty() ? 0 : 1));
    fields.ReplaceUnless(same(first, now.from), {"From"}, AddressListValue(now.from));
    fields.ReplaceUnless(same(said.sender, now.sender) || (now.sender.empty() && said.sender == first),
                         {"Sender"}, AddressListValue(now.sender));
    fields.ReplaceUnless(same(said.replyTo, now.replyTo), {"Reply-To"}, AddressListValue(now.replyTo));
    struct Kind {
        LONG type;
        const char* name;
    };
    for (const Kind kind : {Kind{MAPI_TO, "To"}, Kind{MAPI_CC, "Cc"}, Kind{MAPI_BCC, "Bcc"}}) {
        const std::vector<MailAddress> people = RecipientsOf(now, kind.type);
        fields.ReplaceUnless(same(RecipientsOf(said, kind.type), people), {kind.name},
                             AddressListValue(people));
    }
}

void PutUrgency(FieldBlock& fields, const MailEnvelope& said, const MailEnvelope& now)
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

void PutReceipts(FieldBlock& fields, const MailEnvelope& said, const MailEnvelope& now)
{
    const std::string asker = AddressListValue(now.sender.empty() ? now.from : now.sender);
    fields.ReplaceUnless(said.readReceipt == now.readReceipt, {"Disposition-Notification-To"},
                         now.readReceipt ? asker : "");
    fields.ReplaceUnless(said.deliveryReceipt == now.deliveryReceipt, {"Return-Receipt-To"},
                         now.deliveryReceipt ? asker : "");
}

void PutThread(FieldBlock& fields, const MailEnvelope& said, const MailEnvelope& now)
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
    PutPeople(fields, said, envelope, SamePeople);
    fields.ReplaceUnless(said.subject.value_or("") == envelope.subject.value_or(""), {"Subject"},
                         UnstructuredValue(envelope.subject.value_or("")));
    const std::optional<FILETIME> date = envelope.sent || !fresh ? envelope.sent : envelope.received;
    fields.ReplaceUnless(SameTimes(said.sent, date), {"Date"}, date ? DateValue(*date) : "");
    PutThread(fields, said, envelope);
    PutUrgency(fields, said, envelope);
    PutReceipts(fields, said, envelope);
    return fields.Take();
}

std::string EditedHeader(const std::string& block, const MailEnvelope& said, const MailEnvelope& now)
{
    RawFields fields(block);
    PutPeople(fields, said, now, EqualPeople);
    fields.ReplaceUnless(said.subject == now.subject, {"Subject"},
                         UnstructuredValue(now.subject.value_or("")));
    fields.ReplaceUnless(SameTimes(said.sent, now.sent), {"Date"}, now.sent ? DateValue(*now.sent) : "");
    PutThread(fields, said, now);
    PutUrgency(fields, said, now);
    PutReceipts(fields, said, now);
    return fields.Text();
}

std::string HeaderOfContent(const std::string& block, const std::string& type, const std::string& encoding)
{
    RawFields fields(block);
    fields.Replace({"Content-Type"}, type);
    fields.Replace({"Content-Transfer-Encoding"}, encoding);
    fields.Replace({"Content-MD5", "Content-Length", "Lines"}, "");
    return fields.Text();
}

std::string HeaderOfType(const std::string& block, const std::string& type)
{
    RawFields fields(block);
    fields.Replace({"Content-Type"}, type);
    return fields.Text();
}

SplitHeader SplitContentFields(const std::string& block)
{
    const RawFields fields(block);
    SplitHeader split;
    for (const HeaderField& field : fields.Lines()) {
        const bool isOfContent = LowerAscii(field.name).starts_with("content-");
        const bool isSize = IsOneOf(field.name, {"Content-Length", "Lines"});
        if (!isSize)
            split.all += field.value;
        if (isOfContent)
            split.content += field.value;
        else if (!isSize)
            split.mail += field.value;
        split.hasVersion = split.hasVersion || EqualNoCase(field.name, "MIME-Version");
    }
    return split;
}

}  // namespace quorvane
