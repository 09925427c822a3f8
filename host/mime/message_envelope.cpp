#include "host/mime/message_envelope.h"

#include <algorithm>

#include "host/mail/ascii.h"
#include "host/mime/mapi_read.h"
#include "host/mime/one_off.h"
#include "host/mime/person_tags.h"

namespace quorvane {
namespace {

// Of an address of another kind than SMTP only the name can go into a mail.
MailAddress Person(std::string name, const std::string& type, std::string address, std::string smtp)
{
    if (smtp.empty() && (type.empty() || EqualNoCase(type, "SMTP")) && address.find('/') != 0)
        smtp = std::move(address);
    if (name == smtp)
        name.clear();
    return {std::move(name), std::move(smtp)};
}

void ReadPerson(IMessage& message, const PersonTags& tags, ULONG codePage, std::vector<MailAddress>& people)
{
    MailAddress person =
        Person(ShortText(message, tags.name, codePage), ShortText(message, tags.type, codePage),
               ShortText(message, tags.address, codePage), ShortText(message, tags.smtp, codePage));
    if (!person.Shown().empty())
        people.push_back(std::move(person));
}

void ReadPeople(IMessage& message, ULONG codePage, MailEnvelope& envelope)
{
    ReadPerson(message, kSentRepresenting, codePage, envelope.from);
    ReadPerson(message, kSender, codePage, envelope.sender);
    if (envelope.sender == envelope.from)
        envelope.sender.clear();
    std::optional<std::string> entries;
    if (SUCCEEDED(ReadBinary(message, PR_REPLY_RECIPIENT_ENTRIES, entries)) && entries)
        envelope.replyTo = ReadFlatEntryList(*entries);
}

HRESULT ReadRecipients(IMessage& message, ULONG codePage, std::vector<MailRecipient>& recipients)
{
    ComPtr<IMAPITable> table;
    HRESULT hr = message.GetRecipientTable(MAPI_UNICODE, table.Put());
    if (FAILED(hr))
        return hr;
    SizedSPropTagArray(9, columns) = {9,
                                      {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W, PR_DISPLAY_NAME_A, PR_ADDRTYPE_W,
                                       PR_ADDRTYPE_A, PR_EMAIL_ADDRESS_W, PR_EMAIL_ADDRESS_A, kPrSmtpAddressW,
                                       CHANGE_PROP_TYPE(kPrSmtpAddressW, PT_STRING8)}};
    hr = ForEachRow(*table, reinterpret_cast<SPropTagArray*>(&columns), [&](const SRow& row) {
        const SPropValue* const type = FindValue(row, PR_RECIPIENT_TYPE);
        MailRecipient recipient;
        // The upper bits tell of submission; the sender's own row (MAPI_ORIG) is no recipient.
        recipient.type = type ? (type->Value.l & 0xF) : MAPI_TO;
        recipient.who =
            Person(RowText(row, PR_DISPLAY_NAME_W, codePage), RowText(row, PR_ADDRTYPE_W, codePage),
                   RowText(row, PR_EMAIL_ADDRESS_W, codePage), RowText(row, kPrSmtpAddressW, codePage));
        if (recipient.type != MAPI_ORIG && !recipient.who.Shown().empty())
            recipients.push_back(std::move(recipient));
        return S_OK;
    });
    std::stable_sort(recipients.begin(), recipients.end(),
                     [](const MailRecipient& a, const MailRecipient& b) { return a.type < b.type; });
    return hr;
}

// Stores may keep the length of the prefix in front of the subject, behind a byte 1.
std::string WithoutPrefixLength(const std::string& subject)
{
    const bool marked = subject.size() >= 2 && subject[0] == '\x01';
    return marked ? subject.substr(2) : subject;
}

std::optional<std::string> Identifier(IMessage& message, ULONG tag, ULONG codePage)
{
    std::string text = ShortText(message, tag, codePage);
    return text.empty() ? std::nullopt : std::optional<std::string>(std::move(text));
}

}  // namespace

HRESULT ReadMessageEnvelope(IMessage& message, ULONG codePage, MailEnvelope& envelope)
{
    envelope = {};
    std::optional<std::string> subject;
    HRESULT hr = ReadText(message, PR_SUBJECT_W, codePage, subject);
    if (FAILED(hr))
        return hr;
    if (subject)
        envelope.subject = WithoutPrefixLength(std::move(*subject));
    ReadPeople(message, codePage, envelope);
    hr = ReadRecipients(message, codePage, envelope.recipients);
    if (FAILED(hr))
        return hr;

    envelope.sent = ReadTime(message, PR_CLIENT_SUBMIT_TIME);
    envelope.received = ReadTime(message, PR_MESSAGE_DELIVERY_TIME);
    envelope.messageId = Identifier(message, kPrInternetMessageIdW, codePage);
    envelope.inReplyTo = Identifier(message, kPrInReplyToIdW, codePage);
    envelope.references = Identifier(message, kPrInternetReferencesW, codePage);
    envelope.importance = ReadLong(message, PR_IMPORTANCE);
    envelope.priority = ReadLong(message, PR_PRIORITY);
    envelope.sensitivity = ReadLong(message, PR_SENSITIVITY);
    envelope.readReceipt = ReadBoolean(message, PR_READ_RECEIPT_REQUESTED).value_or(false);
    envelope.deliveryReceipt = ReadBoolean(message, PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED).value_or(false);
    std::optional<std::string> index;
    if (SUCCEEDED(ReadBinary(message, PR_CONVERSATION_INDEX, index)) && index)
        envelope.threadIndex = *index;
    return S_OK;
}

}  // namespace quorvane
