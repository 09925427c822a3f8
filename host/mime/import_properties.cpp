#include "host/mime/import_properties.h"

#include <cstddef>

#include "host/mime/one_off.h"
#include "host/mime/person_tags.h"

namespace quorvane {
namespace {

void AddPersonProperties(const PersonTags& tags, const MailAddress& person, PropertyList& properties)
{
    properties.AddText(tags.name, person.Shown());
    properties.AddBinary(tags.entryId, OneOffEntryId(person));
    if (person.address.empty())
        return;
    properties.AddText(tags.type, "SMTP");
    properties.AddText(tags.address, person.address);
    properties.AddText(tags.smtp, person.address);
    properties.AddBinary(tags.searchKey, AddressSearchKey(person));
}

void AddPeople(const MailEnvelope& envelope, PropertyList& properties)
{
    if (!envelope.from.empty())
        AddPersonProperties(kSentRepresenting, envelope.from.front(), properties);
    if (!envelope.sender.empty())
        AddPersonProperties(kSender, envelope.sender.front(), properties);
    else if (!envelope.from.empty())
        AddPersonProperties(kSender, envelope.from.front(), properties);
    if (envelope.replyTo.empty())
        return;
    std::string names;
    for (const MailAddress& person : envelope.replyTo)
        names += (names.empty() ? "" : ";") + person.Shown();
    properties.AddText(PR_REPLY_RECIPIENT_NAMES_W, names);
    properties.AddBinary(PR_REPLY_RECIPIENT_ENTRIES, FlatEntryList(envelope.replyTo));
}

void AddSubject(const MailEnvelope& envelope, PropertyList& properties)
{
    if (envelope.subject) {
        const SplitSubject split = SplitSubjectPrefix(*envelope.subject);
        properties.AddText(PR_SUBJECT_W, *envelope.subject);
        properties.AddText(PR_SUBJECT_PREFIX_W, split.prefix);
        properties.AddText(PR_NORMALIZED_SUBJECT_W, split.normal);
        properties.AddText(PR_CONVERSATION_TOPIC_W, envelope.threadTopic.value_or(split.normal));
    } else if (envelope.threadTopic) {
        properties.AddText(PR_CONVERSATION_TOPIC_W, *envelope.threadTopic);
    }
    if (!envelope.threadIndex.empty())
        properties.AddBinary(PR_CONVERSATION_INDEX, envelope.threadIndex);
}

}  // namespace

void AddEnvelopeProperties(const MailEnvelope& envelope, PropertyList& properties)
{
    AddSubject(envelope, properties);
    AddPeople(envelope, properties);
    if (envelope.sent)
        properties.AddTime(PR_CLIENT_SUBMIT_TIME, *envelope.sent);
    if (const auto& arrived = envelope.received ? envelope.received : envelope.sent)
        properties.AddTime(PR_MESSAGE_DELIVERY_TIME, *arrived);
    if (envelope.messageId)
        properties.AddText(kPrInternetMessageIdW, *envelope.messageId);
    if (envelope.inReplyTo)
        properties.AddText(kPrInReplyToIdW, *envelope.inReplyTo);
    if (envelope.references)
        properties.AddText(kPrInternetReferencesW, *envelope.references);
    properties.AddLong(PR_IMPORTANCE, envelope.importance.value_or(IMPORTANCE_NORMAL));
    properties.AddLong(PR_PRIORITY, envelope.priority.value_or(PRIO_NORMAL));
    properties.AddLong(PR_SENSITIVITY, envelope.sensitivity.value_or(static_cast<LONG>(SENSITIVITY_NONE)));
    if (envelope.readReceipt)
        properties.AddBoolean(PR_READ_RECEIPT_REQUESTED, true);
    if (envelope.deliveryReceipt)
        properties.AddBoolean(PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED, true);
}

HRESULT AddRecipients(const std::vector<MailRecipient>& recipients, IMessage& message)
{
    if (recipients.empty())
        return S_OK;
    std::vector<PropertyList> rows(recipients.size());
    // An ADRLIST ends in an array; max_align_t keeps the block aligned for it.
    std::vector<std::max_align_t> block(CbNewADRLIST(recipients.size()) / sizeof(std::max_align_t) + 1);
    auto* const list = reinterpret_cast<ADRLIST*>(block.data());
    list->cEntries = static_cast<ULONG>(recipients.size());
    for (std::size_t i = 0; i < recipients.size(); ++i) {
        PropertyList& row = rows[i];
        row.AddLong(PR_ROWID, static_cast<LONG>(i));
        row.AddLong(PR_RECIPIENT_TYPE, recipients[i].type);
        row.AddLong(PR_OBJECT_TYPE, static_cast<LONG>(MAPI_MAILUSER));
        row.AddLong(PR_DISPLAY_TYPE, static_cast<LONG>(DT_MAILUSER));
        AddPersonProperties(kRecipient, recipients[i].who, row);
        list->aEntries[i] = ADRENTRY{0, row.Count(), row.Values()};
    }
    const HRESULT hr = message.ModifyRecipients(MODRECIP_ADD, list);
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace quorvane
