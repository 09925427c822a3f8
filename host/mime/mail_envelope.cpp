#include "host/mime/mail_envelope.h"

#include <algorithm>

#include "host/mail/ascii.h"
#include "host/mail/mail_check.h"
#include "host/mime/charset.h"
#include "host/mime/filetime.h"
#include "host/mime/gmime_setup.h"
#include "host/mime/import_bodies.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

GMimeHeader* FindHeader(GMimeMessage* message, const char* name)
{
    return g_mime_header_list_get_header(g_mime_object_get_header_list(GMIME_OBJECT(message)), name);
}

std::string Trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// A field's value decoded, unfolded, without blanks around it.
std::optional<std::string> Value(GMimeMessage* message, const char* name)
{
    GMimeHeader* const header = FindHeader(message, name);
    if (!header)
        return std::nullopt;
    return CleanUtf8(Trimmed(DecodedHeader(g_mime_header_get_raw_value(header))));
}

// A field's value unfolded alone: identifiers aren't text.
std::optional<std::string> Identifier(GMimeMessage* message, const char* name)
{
    GMimeHeader* const header = FindHeader(message, name);
    if (!header)
        return std::nullopt;
    const GText unfolded(g_mime_utils_header_unfold(g_mime_header_get_raw_value(header)));
    const std::string value = DecodeText(Trimmed(TextOf(unfolded)), "");
    return value.empty() ? std::nullopt : std::optional<std::string>(value);
}

// Everyone in all fields of a name.
std::vector<MailAddress> Addresses(GMimeMessage* message, const char* name)
{
    std::vector<MailAddress> addresses;
    GMimeHeaderList* const list = g_mime_object_get_header_list(GMIME_OBJECT(message));
    for (int i = 0; i < g_mime_header_list_get_count(list); ++i) {
        GMimeHeader* const header = g_mime_header_list_get_header_at(list, i);
        if (!EqualNoCase(g_mime_header_get_name(header), name))
            continue;
        std::vector<MailAddress> more = ParseAddressList(TextOf(g_mime_header_get_raw_value(header)));
        std::move(more.begin(), more.end(), std::back_inserter(addresses));
    }
    return addresses;
}

void AddRecipients(GMimeMessage* message, const char* name, LONG type, std::vector<MailRecipient>& out)
{
    for (MailAddress& address : Addresses(message, name))
        out.push_back({type, std::move(address)});
}

std::optional<FILETIME> SentTime(GMimeMessage* message)
{
    if (!FindHeader(message, "Date"))
        return std::nullopt;
    GDateTime* const date = g_mime_message_get_date(message);
    return date ? FileTimeFromUnix(g_date_time_to_unix(date)) : std::nullopt;
}

std::optional<FILETIME> ReceivedTime(GMimeMessage* message)
{
    const auto received = Identifier(message, "Received");
    const std::size_t semicolon = received ? received->rfind(';') : std::string::npos;
    if (semicolon == std::string::npos)
        return std::nullopt;
    GDateTime* const date = g_mime_utils_header_decode_date(received->c_str() + semicolon + 1);
    if (!date)
        return std::nullopt;
    const gint64 seconds = g_date_time_to_unix(date);
    g_date_time_unref(date);
    return FileTimeFromUnix(seconds);
}

std::optional<LONG> Importance(GMimeMessage* message)
{
    for (const char* name : {"Importance", "X-MSMail-Priority"}) {
        const std::string value = LowerAscii(Value(message, name).value_or(""));
        if (value.starts_with("high"))
            return IMPORTANCE_HIGH;
        if (value.starts_with("normal"))
            return IMPORTANCE_NORMAL;
        if (value.starts_with("low"))
            return IMPORTANCE_LOW;
    }
    const std::string value = Value(message, "X-Priority").value_or("");
    if (value.starts_with('1') || value.starts_with('2'))
        return IMPORTANCE_HIGH;
    if (value.starts_with('3'))
        return IMPORTANCE_NORMAL;
    if (value.starts_with('4') || value.starts_with('5'))
        return IMPORTANCE_LOW;
    return std::nullopt;
}

std::optional<LONG> Priority(GMimeMessage* message)
{
    const std::string value = LowerAscii(Value(message, "Priority").value_or(""));
    if (value == "urgent")
        return PRIO_URGENT;
    if (value == "normal")
        return PRIO_NORMAL;
    if (value == "non-urgent")
        return PRIO_NONURGENT;
    return std::nullopt;
}

std::optional<LONG> Sensitivity(GMimeMessage* message)
{
    const std::string value = LowerAscii(Value(message, "Sensitivity").value_or(""));
    if (value == "personal")
        return static_cast<LONG>(SENSITIVITY_PERSONAL);
    if (value == "private")
        return static_cast<LONG>(SENSITIVITY_PRIVATE);
    if (value == "company-confidential")
        return static_cast<LONG>(SENSITIVITY_COMPANY_CONFIDENTIAL);
    return std::nullopt;
}

std::string ThreadIndex(GMimeMessage* message)
{
    const std::string text = Identifier(message, "Thread-Index").value_or("");
    if (text.empty())
        return {};
    gsize size = 0;
    guchar* const bytes = g_base64_decode(text.c_str(), &size);
    std::string result(reinterpret_cast<const char*>(bytes), size);
    g_free(bytes);
    return result;
}

std::string CleanBlock(const std::string& block)
{
    std::string clean;
    for (std::string_view rest = block; !rest.empty();) {
        const std::string_view line = rest.substr(0, LineLength(rest));
        clean += DecodeText(line, "");
        rest.remove_prefix(line.size());
    }
    if (!clean.empty() && !clean.ends_with('\n'))
        clean += '\n';
    return WithCrlf(clean);
}

}  // namespace

MailEnvelope ReadEnvelope(GMimeMessage* message)
{
    MailEnvelope envelope;
    envelope.subject = Value(message, "Subject");
    envelope.from = Addresses(message, "From");
    envelope.sender = Addresses(message, "Sender");
    envelope.replyTo = Addresses(message, "Reply-To");
    AddRecipients(message, "To", MAPI_TO, envelope.recipients);
    AddRecipients(message, "Cc", MAPI_CC, envelope.recipients);
    AddRecipients(message, "Bcc", MAPI_BCC, envelope.recipients);
    envelope.sent = SentTime(message);
    envelope.received = ReceivedTime(message);
    envelope.messageId = Identifier(message, "Message-ID");
    envelope.inReplyTo = Identifier(message, "In-Reply-To");
    envelope.references = Identifier(message, "References");
    envelope.importance = Importance(message);
    envelope.priority = Priority(message);
    envelope.sensitivity = Sensitivity(message);
    envelope.readReceipt = FindHeader(message, "Disposition-Notification-To") != nullptr;
    envelope.deliveryReceipt = FindHeader(message, "Return-Receipt-To") != nullptr;
    envelope.threadTopic = Value(message, "Thread-Topic");
    envelope.threadIndex = ThreadIndex(message);
    return envelope;
}

std::string HeaderBlock(GMimeObject* object)
{
    std::string block;
    GMimeHeaderList* const list = g_mime_object_get_header_list(object);
    for (int i = 0; i < g_mime_header_list_get_count(list); ++i) {
        GMimeHeader* const header = g_mime_header_list_get_header_at(list, i);
        block +=
            TextOf(g_mime_header_get_raw_name(header)) + ":" + TextOf(g_mime_header_get_raw_value(header));
        if (!block.ends_with('\n'))
            block += '\n';
    }
    return CleanBlock(block);
}

std::string HeaderText(const std::string& block)
{
    return CleanBlock(block);
}

SplitSubject SplitSubjectPrefix(const std::string& subject)
{
    const std::size_t colon = subject.find(':');
    if (colon == std::string::npos || subject.compare(colon, 2, ": ") != 0)
        return {{}, subject};
    const std::string_view prefix = std::string_view(subject).substr(0, colon);
    const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    const auto characters = std::count_if(prefix.begin(), prefix.end(), begins);
    const bool isNumber = prefix.find_first_of("0123456789 ") != std::string_view::npos;
    if (characters < 1 || characters > 3 || isNumber)
        return {{}, subject};
    return {subject.substr(0, colon + 2), subject.substr(colon + 2)};
}

}  // namespace quorvane
