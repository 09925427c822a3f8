#include "msgstore/form/message_text.h"

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <vector>

#include "msgstore/form/mime_encoding.h"
#include "msgstore/util/guarded.h"
#include "msgstore/util/memory.h"
#include "platform/clock/clock.h"
#include "platform/com/bstr.h"
#include "platform/com/com_ptr.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

constexpr std::size_t kLargestPart = 64 << 20;
constexpr unsigned kDeepest = 16;
constexpr std::string_view kNewLine = "\r\n";

// A property's bytes, in line or through a stream; empty when there is none. MAPI_E_NOT_ENOUGH_MEMORY: more
// than `kLargestPart`.
HRESULT ReadBytes(IMAPIProp& object, ULONG tag, std::string& bytes)
{
    bytes.clear();
    ComPtr<IStream> stream;
    const HRESULT hr = object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutUnknown());
    if (hr == MAPI_E_NOT_FOUND)
        return S_OK;
    QV_RETURN_IF_FAILED(hr);
    std::vector<char> block(64 * 1024);
    for (ULONG read = 1; read != 0;) {
        QV_RETURN_IF_FAILED(stream->Read(block.data(), static_cast<ULONG>(block.size()), &read));
        if (bytes.size() + read > kLargestPart)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        bytes.append(block.data(), read);
    }
    return S_OK;
}

HRESULT ReadText(IMAPIProp& object, ULONG tag, std::string& utf8)
{
    std::string bytes;
    QV_RETURN_IF_FAILED(ReadBytes(object, tag, bytes));
    OleString text(bytes.size() / sizeof(OLECHAR), OLECHAR{0});
    std::copy_n(bytes.data(), text.size() * sizeof(OLECHAR), reinterpret_cast<char*>(text.data()));
    while (!text.empty() && text.back() == OLECHAR{0})
        text.pop_back();
    utf8 = ToUtf8(text);
    return S_OK;
}

LONG NumberOf(IMAPIProp& object, ULONG tag, LONG otherwise)
{
    MapiBuffer<SPropValue> value;
    return SUCCEEDED(HrGetOneProp(&object, tag, value.Put())) ? value->Value.l : otherwise;
}

// "Mon, 12 Jan 2026 09:30:00 +0000"; empty when the message has no time.
std::string DateOf(IMessage& message)
{
    constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    MapiBuffer<SPropValue> value;
    SYSTEMTIME parts{};
    if ((FAILED(HrGetOneProp(&message, PR_CLIENT_SUBMIT_TIME, value.Put())) &&
         FAILED(HrGetOneProp(&message, PR_MESSAGE_DELIVERY_TIME, value.Put()))) ||
        !FileTimeToSystemTime(&value->Value.ft, &parts) || parts.wMonth < 1 || parts.wMonth > 12)
        return {};
    char text[64];
    std::snprintf(text, sizeof(text), "%s, %02u %s %04u %02u:%02u:%02u +0000", kDays[parts.wDayOfWeek % 7],
                  unsigned{parts.wDay}, kMonths[parts.wMonth - 1], unsigned{parts.wYear},
                  unsigned{parts.wHour}, unsigned{parts.wMinute}, unsigned{parts.wSecond});
    return text;
}

struct Address {
    LONG kind = MAPI_TO;
    std::string name;
    std::string mail;  // empty, or nothing in it that would end it
};

bool IsMailAddress(std::string_view text) noexcept
{
    if (text.find('@') == std::string_view::npos)
        return false;
    for (const char c : text) {
        if (c <= ' ' || c > '~' || c == '<' || c == '>' || c == ',' || c == '"')
            return false;
    }
    return true;
}

Address MakeAddress(LONG kind, std::string name, std::string mail)
{
    return {kind, std::move(name), IsMailAddress(mail) ? std::move(mail) : std::string()};
}

std::string TextIn(const SRow& row, ULONG tag)
{
    const SPropValue* const value = PpropFindProp(row.lpProps, row.cValues, tag);
    return value && value->Value.lpszW ? ToUtf8(value->Value.lpszW) : std::string();
}

HRESULT ReadAddresses(IMessage& message, std::vector<Address>& addresses)
{
    using Tags = std::tuple<ULONG, ULONG, ULONG>;
    for (const auto& [nameTag, mailTag, smtpTag] :
         {Tags{PR_SENT_REPRESENTING_NAME_W, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W,
               kPrSentRepresentingSmtpAddressW},
          Tags{PR_SENDER_NAME_W, PR_SENDER_EMAIL_ADDRESS_W, kPrSenderSmtpAddressW}}) {
        std::string name;
        std::string mail;
        QV_RETURN_IF_FAILED(ReadText(message, nameTag, name));
        QV_RETURN_IF_FAILED(ReadText(message, smtpTag, mail));
        if (mail.empty())
            QV_RETURN_IF_FAILED(ReadText(message, mailTag, mail));
        if (addresses.empty() && !(name.empty() && mail.empty()))
            addresses.push_back(MakeAddress(MAPI_ORIG, std::move(name), std::move(mail)));
    }
    ComPtr<IMAPITable> table;
    QV_RETURN_IF_FAILED(message.GetRecipientTable(MAPI_UNICODE, table.Put()));
    SizedSPropTagArray(4, columns) = {
        4, {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, kPrSmtpAddressW}};
    RowSet rows;
    QV_RETURN_IF_FAILED(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                                       nullptr, 0, rows.Put()));
    for (const SRow& row : rows) {
        const SPropValue* const kind = PpropFindProp(row.lpProps, row.cValues, PR_RECIPIENT_TYPE);
        std::string mail = TextIn(row, kPrSmtpAddressW);
        if (mail.empty())
            mail = TextIn(row, PR_EMAIL_ADDRESS_W);
        addresses.push_back(MakeAddress(kind ? kind->Value.l & 15 : MAPI_TO, TextIn(row, PR_DISPLAY_NAME_W),
                                        std::move(mail)));
    }
    return S_OK;
}

// What stands before the body of a message, for either form of text.
struct Heading {
    std::vector<Address> addresses;
    std::string subject;
    std::string date;
    std::string messageId;
};

HRESULT ReadHeading(IMessage& message, Heading& heading)
{
    QV_RETURN_IF_FAILED(ReadAddresses(message, heading.addresses));
    QV_RETURN_IF_FAILED(ReadText(message, PR_SUBJECT_W, heading.subject));
    QV_RETURN_IF_FAILED(ReadText(message, kPrInternetMessageIdW, heading.messageId));
    heading.date = DateOf(message);
    return S_OK;
}

struct AddressField {
    LONG kind;
    const char* name;
};
constexpr AddressField kAddressFields[] = {
    {MAPI_ORIG, "From"}, {MAPI_TO, "To"}, {MAPI_CC, "Cc"}, {MAPI_BCC, "Bcc"}};

// An address that has none is written as a group without members, which a name alone isn't.
std::string MimeAddress(const Address& address)
{
    std::string name = address.name;
    std::erase_if(name, [](char c) { return c == '"' || c == '\\'; });
    if (address.mail.empty()) {
        const std::string encoded = HeaderText(name);
        return (encoded == name ? '"' + name + '"' : encoded) + ":;";
    }
    if (name.empty() || name == address.mail)
        return address.mail;
    const std::string encoded = HeaderText(name);
    return (encoded == name ? '"' + name + '"' : encoded) + " <" + address.mail + ">";
}

std::string MimeHeading(const Heading& heading)
{
    std::string text;
    for (const AddressField& field : kAddressFields) {
        std::string list;
        for (const Address& address : heading.addresses) {
            if (address.kind == field.kind)
                list.append(list.empty() ? "" : ",\r\n ").append(MimeAddress(address));
        }
        if (!list.empty())
            text.append(field.name).append(": ").append(list).append(kNewLine);
    }
    text.append("Subject: ").append(HeaderText(heading.subject)).append(kNewLine);
    if (!heading.date.empty())
        text.append("Date: ").append(heading.date).append(kNewLine);
    const std::string& id = heading.messageId;
    if (id.size() > 2 && id.front() == '<' && id.back() == '>' && IsMailAddress(id.substr(1, id.size() - 2)))
        text.append("Message-ID: ").append(id).append(kNewLine);
    return text.append("MIME-Version: 1.0").append(kNewLine);
}

// One part of a message with its own header fields.
std::string Part(std::string type, std::string_view disposition, std::string_view bytes)
{
    std::string text = "Content-Type: " + std::move(type);
    text.append(kNewLine).append("Content-Transfer-Encoding: base64").append(kNewLine);
    if (!disposition.empty())
        text.append("Content-Disposition: ").append(disposition).append(kNewLine);
    return text.append(kNewLine).append(Base64Lines(bytes));
}

// The parts as one: alone, or behind each other. `number` tells the borders of parts within parts apart; no
// line of base64 has their characters.
std::string Joined(std::string_view kind, const std::vector<std::string>& parts, unsigned& number)
{
    if (parts.size() == 1)
        return parts.front();
    const std::string border = "=_quorvane_" + std::to_string(++number) + "_=";
    std::string text = "Content-Type: multipart/";
    text.append(kind).append(Parameter("boundary", border)).append(kNewLine).append(kNewLine);
    for (const std::string& part : parts)
        text.append("--").append(border).append(kNewLine).append(part).append(kNewLine);
    return text.append("--").append(border).append("--").append(kNewLine);
}

std::string CharsetOf(IMessage& message)
{
    const LONG page = NumberOf(message, kPrInternetCpid, 65001);
    if (page >= 1250 && page <= 1258)
        return "windows-" + std::to_string(page);
    if (page >= 28591 && page <= 28605)
        return "iso-8859-" + std::to_string(page - 28590);
    return "utf-8";
}

HRESULT BodyPart(IMessage& message, unsigned& number, std::string& part)
{
    std::string plain;
    std::string html;
    QV_RETURN_IF_FAILED(ReadText(message, PR_BODY_W, plain));
    QV_RETURN_IF_FAILED(ReadBytes(message, kPrHtml, html));
    std::vector<std::string> parts;
    if (!plain.empty() || html.empty())
        parts.push_back(Part("text/plain; charset=utf-8", "", plain));
    if (!html.empty())
        parts.push_back(Part("text/html; charset=" + CharsetOf(message), "", html));
    part = Joined("alternative", parts, number);
    return S_OK;
}

HRESULT MessagePart(IMessage& message, unsigned depth, unsigned& number, std::string& text);

struct OpenedAttachment {
    ComPtr<IAttach> object;
    std::string name;
    LONG method = 0;
};

HRESULT OpenAttachments(IMessage& message, std::vector<OpenedAttachment>& attachments)
{
    ComPtr<IMAPITable> table;
    QV_RETURN_IF_FAILED(message.GetAttachmentTable(MAPI_UNICODE, table.Put()));
    SPropTagArray columns{1, {PR_ATTACH_NUM}};
    RowSet rows;
    QV_RETURN_IF_FAILED(HrQueryAllRows(table.Get(), &columns, nullptr, nullptr, 0, rows.Put()));
    for (const SRow& row : rows) {
        OpenedAttachment opened;
        QV_RETURN_IF_FAILED(
            message.OpenAttach(static_cast<ULONG>(row.lpProps[0].Value.l), nullptr, 0, opened.object.Put()));
        for (const ULONG tag : {PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_FILENAME_W, PR_DISPLAY_NAME_W}) {
            if (opened.name.empty())
                QV_RETURN_IF_FAILED(ReadText(*opened.object.Get(), tag, opened.name));
        }
        opened.method = NumberOf(*opened.object.Get(), PR_ATTACH_METHOD, NO_ATTACHMENT);
        attachments.push_back(std::move(opened));
    }
    return S_OK;
}

HRESULT EmbeddedPart(IAttach& attachment, unsigned depth, unsigned& number, std::string& part)
{
    ComPtr<IMessage> embedded;
    QV_RETURN_IF_FAILED(
        attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.PutUnknown()));
    std::string text;
    QV_RETURN_IF_FAILED(MessagePart(*embedded.Get(), depth + 1, number, text));
    part = "Content-Type: message/rfc822\r\nContent-Disposition: attachment\r\n\r\n" + text;
    return S_OK;
}

HRESULT AttachmentPart(const OpenedAttachment& attachment, unsigned depth, unsigned& number,
                       std::string& part)
{
    if (attachment.method == ATTACH_EMBEDDED_MSG && depth < kDeepest)
        return EmbeddedPart(*attachment.object.Get(), depth, number, part);
    std::string bytes;
    if (attachment.method == ATTACH_BY_VALUE) {
        const HRESULT hr = ReadBytes(*attachment.object.Get(), PR_ATTACH_DATA_BIN, bytes);
        if (hr == MAPI_E_NOT_ENOUGH_MEMORY)
            bytes.clear();
        else
            QV_RETURN_IF_FAILED(hr);
    }
    part = Part("application/octet-stream", "attachment" + Parameter("filename", attachment.name), bytes);
    return S_OK;
}

HRESULT MessagePart(IMessage& message, unsigned depth, unsigned& number, std::string& text)
{
    Heading heading;
    std::vector<OpenedAttachment> attachments;
    std::vector<std::string> parts(1);
    QV_RETURN_IF_FAILED(ReadHeading(message, heading));
    QV_RETURN_IF_FAILED(BodyPart(message, number, parts[0]));
    QV_RETURN_IF_FAILED(OpenAttachments(message, attachments));
    for (const OpenedAttachment& attachment : attachments)
        QV_RETURN_IF_FAILED(AttachmentPart(attachment, depth, number, parts.emplace_back()));
    text = MimeHeading(heading) + Joined("mixed", parts, number);
    return S_OK;
}

std::string PlainAddress(const Address& address)
{
    if (address.mail.empty() || address.name == address.mail)
        return Harmless(address.name, false);
    return Harmless(address.name, false) + " <" + address.mail + ">";
}

}  // namespace

HRESULT MakeMimeText(IMessage& message, std::string& text)
{
    unsigned number = 0;
    return MessagePart(message, 0, number, text);
}

HRESULT MakePlainText(IMessage& message, std::string& text)
{
    Heading heading;
    std::string body;
    std::vector<OpenedAttachment> attachments;
    QV_RETURN_IF_FAILED(ReadHeading(message, heading));
    QV_RETURN_IF_FAILED(ReadText(message, PR_BODY_W, body));
    QV_RETURN_IF_FAILED(OpenAttachments(message, attachments));
    std::string lines;
    for (const AddressField& field : kAddressFields) {
        for (const Address& address : heading.addresses) {
            if (address.kind == field.kind)
                lines.append(field.name).append(": ").append(PlainAddress(address)).append("\n");
        }
    }
    lines.append("Subject: ").append(Harmless(heading.subject, false)).append("\n");
    if (!heading.date.empty())
        lines.append("Date: ").append(heading.date).append("\n");
    for (const OpenedAttachment& attachment : attachments)
        lines.append("Attachment: ").append(Harmless(attachment.name, false)).append("\n");
    text = lines.append("\n").append(Harmless(body, true));
    if (!text.ends_with('\n'))
        text += '\n';
    return S_OK;
}

}  // namespace quorvane
