#include "host/mime/mail_content.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "host/mail/ascii.h"
#include "host/mime/mapi_read.h"
#include "host/mime/message_envelope.h"
#include "host/mime/mime_tags.h"
#include "host/mime/value_reader.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

constexpr int kDeepestContent = 32;

constexpr ULONG kAttachmentTexts[] = {
    PR_DISPLAY_NAME_W,         PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_FILENAME_W, PR_ATTACH_EXTENSION_W,
    PR_ATTACH_MIME_TAG_W,      kPrTextAttachmentCharsetW, kPrAttachContentIdW,  kPrAttachContentLocationW,
    PR_ATTACH_LONG_PATHNAME_W, PR_ATTACH_PATHNAME_W,      kPrPartHeadersW,
};

// Takes values in, each with a mark before and its length behind it, so that no two sequences are alike.
class ValuesDigest {
public:
    ValuesDigest() : sum_(g_checksum_new(G_CHECKSUM_SHA256)) {}

    void AddNumber(std::uint64_t number)
    {
        AddBytes({reinterpret_cast<const char*>(&number), sizeof number});
    }
    void AddText(std::string_view text)
    {
        AddBytes(text);
        AddNumber(text.size());
    }
    void AddLong(const std::optional<LONG>& value)
    {
        AddNumber(value ? 1 : 0);
        AddNumber(static_cast<std::uint64_t>(value.value_or(0)));
    }
    HRESULT AddValue(const ValueReader& value)
    {
        std::uint64_t size = 0;
        const HRESULT hr = value.Read([&](std::string_view piece) {
            AddBytes(piece);
            size += piece.size();
            return true;
        });
        AddNumber(size);
        AddNumber(value.Exists() ? 1 : 0);
        return hr;
    }
    HRESULT AddText(IMAPIProp& object, ULONG tag, ULONG codePage)
    {
        ValueReader value;
        const HRESULT hr = value.OpenText(object, tag, codePage);
        return FAILED(hr) ? hr : AddValue(value);
    }
    HRESULT AddBinary(IMAPIProp& object, ULONG tag)
    {
        ValueReader value;
        const HRESULT hr = value.OpenBinary(object, tag);
        return FAILED(hr) ? hr : AddValue(value);
    }
    std::string Text() const { return TextOf(g_checksum_get_string(sum_.get())); }

private:
    struct Free {
        void operator()(GChecksum* sum) const noexcept { g_checksum_free(sum); }
    };

    void AddBytes(std::string_view bytes)
    {
        g_checksum_update(sum_.get(), reinterpret_cast<const guchar*>(bytes.data()),
                          static_cast<gssize>(bytes.size()));
    }

    std::unique_ptr<GChecksum, Free> sum_;
};

bool SameMoment(const std::optional<FILETIME>& a, const std::optional<FILETIME>& b)
{
    return a.has_value() == b.has_value() && (!a || std::memcmp(&*a, &*b, sizeof(FILETIME)) == 0);
}

HRESULT ReadContent(IMessage& message, int depth, MailContent& content);

void AddPeople(const std::vector<MailAddress>& people, ValuesDigest& digest)
{
    digest.AddNumber(people.size());
    for (const MailAddress& person : people) {
        digest.AddText(person.name);
        digest.AddText(person.address);
    }
}

// What an embedded message says.
void AddEnvelope(const MailEnvelope& envelope, ValuesDigest& digest)
{
    AddPeople(envelope.from, digest);
    AddPeople(envelope.sender, digest);
    AddPeople(envelope.replyTo, digest);
    for (const MailRecipient& recipient : envelope.recipients) {
        digest.AddLong(recipient.type);
        AddPeople({recipient.who}, digest);
    }
    for (const auto& text : {envelope.subject, envelope.messageId, envelope.inReplyTo, envelope.references}) {
        digest.AddNumber(text ? 1 : 0);
        digest.AddText(text.value_or(""));
    }
    for (const auto& time : {envelope.sent, envelope.received}) {
        digest.AddNumber(time ? time->dwHighDateTime : ~std::uint64_t{0});
        digest.AddNumber(time ? time->dwLowDateTime : 0);
    }
    for (const auto& number : {envelope.importance, envelope.priority, envelope.sensitivity})
        digest.AddLong(number);
    digest.AddNumber((envelope.readReceipt ? 1U : 0U) + (envelope.deliveryReceipt ? 2U : 0U));
    digest.AddText(envelope.threadIndex);
}

// All of it, or what stays of it in a mail that is made anew.
void AddContent(const MailContent& content, bool isAll, ValuesDigest& digest)
{
    AddEnvelope(content.envelope, digest);
    digest.AddText(isAll ? content.headers : std::string());
    digest.AddText(content.text);
    digest.AddText(content.html);
    digest.AddNumber(content.attachments.size());
    for (const AttachmentContent& attachment : content.attachments)
        digest.AddText(isAll ? attachment.digest : attachment.essence);
}

HRESULT DigestData(IAttach& attachment, LONG method, int depth, std::string& all, std::string& essence)
{
    ValuesDigest data;
    HRESULT hr = data.AddBinary(attachment, PR_ATTACH_DATA_BIN);
    all = essence = data.Text();
    if (FAILED(hr) || method != static_cast<LONG>(ATTACH_EMBEDDED_MSG))
        return hr;
    ComPtr<IMessage> message;
    hr = attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, message.PutUnknown());
    MailContent content;
    if (SUCCEEDED(hr))
        hr = ReadContent(*message, depth + 1, content);
    for (const bool isAll : {true, false}) {
        ValuesDigest digest;
        AddContent(content, isAll, digest);
        (isAll ? all : essence) += digest.Text();
    }
    return hr;
}

// What an attachment is called and of which type it is, as a part tells it.
void AddFacts(IAttach& attachment, ULONG codePage, ValuesDigest& digest)
{
    const std::string name = ShortText(attachment, PR_ATTACH_LONG_FILENAME_W, codePage);
    digest.AddText(name.empty() ? ShortText(attachment, PR_ATTACH_FILENAME_W, codePage) : name);
    const std::string type = LowerAscii(ShortText(attachment, PR_ATTACH_MIME_TAG_W, codePage));
    digest.AddText(type.empty() ? "application/octet-stream" : type);
    digest.AddText(ShortText(attachment, kPrAttachContentIdW, codePage));
}

HRESULT DigestAttachment(IAttach& attachment, ULONG codePage, int depth, AttachmentContent& content)
{
    ValuesDigest digest;
    HRESULT hr = S_OK;
    for (const ULONG tag : kAttachmentTexts)
        if (SUCCEEDED(hr))
            hr = digest.AddText(attachment, tag, codePage);
    const std::optional<LONG> method = ReadLong(attachment, PR_ATTACH_METHOD);
    digest.AddLong(method);
    digest.AddLong(ReadLong(attachment, kPrAttachFlags));
    digest.AddNumber(ReadBoolean(attachment, kPrAttachmentHidden).value_or(false) ? 1 : 0);
    std::string all;
    std::string essence;
    if (SUCCEEDED(hr))
        hr = DigestData(attachment, method.value_or(0), depth, all, essence);
    digest.AddText(all);
    content.digest = digest.Text();
    ValuesDigest facts;
    if (method != static_cast<LONG>(ATTACH_EMBEDDED_MSG))
        AddFacts(attachment, codePage, facts);
    facts.AddText(essence);
    content.essence = facts.Text();
    return hr;
}

HRESULT ReadAttachments(IMessage& message, ULONG codePage, int depth, MailContent& content)
{
    ComPtr<IMAPITable> table;
    HRESULT hr = message.GetAttachmentTable(MAPI_UNICODE, table.Put());
    SPropTagArray column = {1, {PR_ATTACH_NUM}};
    if (SUCCEEDED(hr))
        hr = ForEachRow(*table, &column, [&](const SRow& row) -> HRESULT {
            const SPropValue* const number = FindValue(row, PR_ATTACH_NUM);
            if (!number)
                return MAPI_E_CORRUPT_DATA;
            content.attachments.push_back({static_cast<ULONG>(number->Value.l), {}, {}});
            return S_OK;
        });
    for (AttachmentContent& one : content.attachments) {
        ComPtr<IAttach> attachment;
        if (SUCCEEDED(hr))
            hr = message.OpenAttach(one.number, nullptr, 0, attachment.Put());
        if (SUCCEEDED(hr))
            hr = DigestAttachment(*attachment, codePage, depth, one);
    }
    return hr;
}

HRESULT ReadBodies(IMessage& message, ULONG codePage, MailContent& content)
{
    ValuesDigest text;
    HRESULT hr = text.AddText(message, PR_BODY_W, codePage);
    ValuesDigest html;
    ValueReader bytes;
    if (SUCCEEDED(hr))
        hr = bytes.OpenBinary(message, kPrHtml);
    if (SUCCEEDED(hr))
        hr = html.AddValue(bytes);
    if (SUCCEEDED(hr))
        hr = html.AddText(message, kPrBodyHtmlW, codePage);
    if (SUCCEEDED(hr))
        hr = html.AddBinary(message, PR_RTF_COMPRESSED);
    // Of text it tells but how that once came.
    if (bytes.Exists())
        html.AddLong(ReadLong(message, kPrInternetCpid));
    content.text = text.Text();
    content.html = html.Text();
    return hr;
}

HRESULT ReadContent(IMessage& message, int depth, MailContent& content)
{
    if (depth > kDeepestContent)
        return MAPI_E_TOO_COMPLEX;
    content = {};
    const ULONG codePage = NarrowCodePage(message);
    HRESULT hr = ReadMessageEnvelope(message, codePage, content.envelope);
    ValuesDigest headers;
    if (SUCCEEDED(hr))
        hr = headers.AddText(message, PR_TRANSPORT_MESSAGE_HEADERS_W, codePage);
    content.headers = headers.Text();
    if (SUCCEEDED(hr))
        hr = ReadBodies(message, codePage, content);
    return SUCCEEDED(hr) ? ReadAttachments(message, codePage, depth, content) : hr;
}

}  // namespace

HRESULT ReadMailContent(IMessage& message, MailContent& content)
{
    return ReadContent(message, 0, content);
}

bool SameEnvelope(const MailEnvelope& a, const MailEnvelope& b)
{
    return a.subject == b.subject && a.from == b.from && a.sender == b.sender && a.replyTo == b.replyTo &&
           a.recipients == b.recipients && SameMoment(a.sent, b.sent) && SameMoment(a.received, b.received) &&
           a.messageId == b.messageId && a.inReplyTo == b.inReplyTo && a.references == b.references &&
           a.importance == b.importance && a.priority == b.priority && a.sensitivity == b.sensitivity &&
           a.readReceipt == b.readReceipt && a.deliveryReceipt == b.deliveryReceipt &&
           a.threadIndex == b.threadIndex;
}

bool SameBodies(const MailContent& a, const MailContent& b)
{
    return a.text == b.text && a.html == b.html;
}

bool SameAttachments(const MailContent& a, const MailContent& b)
{
    return std::equal(a.attachments.begin(), a.attachments.end(), b.attachments.begin(), b.attachments.end(),
                      [](const auto& one, const auto& other) { return one.digest == other.digest; });
}

}  // namespace quorvane
