#include "host/mime/import_bodies.h"

#include <optional>
#include <string_view>

#include "host/mail/ascii.h"
#include "host/mime/charset.h"
#include "host/mime/flowed_text.h"
#include "host/mime/mime_tags.h"
#include "host/mime/part_bytes.h"
#include "host/mime/property_list.h"
#include "host/mime/value_writer.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

std::string TypeParameter(GMimePart* part, const char* name)
{
    return TextOf(g_mime_object_get_content_type_parameter(GMIME_OBJECT(part), name));
}

void AppendWithCrlf(std::string_view text, char& before, std::string& result)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        result.append(line);
        before = line.empty() ? before : line.back();
        if (end == std::string_view::npos)
            return;
        if (before != '\r')
            result.push_back('\r');
        result.push_back('\n');
        before = '\n';
        text.remove_prefix(end + 1);
    }
}

bool PartIsUtf8(GMimePart* part)
{
    PartBytes bytes(GMIME_OBJECT(part));
    Utf8Check check;
    for (std::string piece; bytes.Next(piece);)
        check.Put(piece);
    return check.End();
}

TextDecoder DecoderFor(GMimePart* part, const std::string& charset)
{
    return TextDecoder(charset, [part] { return PartIsUtf8(part); });
}

// What becomes of a text's pieces behind its charset.
class TextForm {
public:
    explicit TextForm(GMimePart* part)
    {
        if (EqualNoCase(TypeParameter(part, "format"), "flowed"))
            joiner_.emplace(EqualNoCase(TypeParameter(part, "delsp"), "yes"));
    }

    std::string Put(const std::string& text)
    {
        std::string joined;
        if (joiner_)
            joiner_->Put(text, joined);
        return Crlf(joiner_ ? joined : text);
    }
    std::string End()
    {
        std::string joined;
        if (joiner_)
            joiner_->End(joined);
        return Crlf(joined);
    }

private:
    std::string Crlf(const std::string& text)
    {
        std::string result;
        result.reserve(text.size() + text.size() / 32);
        AppendWithCrlf(text, before_, result);
        return result;
    }

    std::optional<FlowedJoiner> joiner_;
    char before_ = '\0';
};

HRESULT SetText(GMimePart* part, IMessage& message)
{
    TextDecoder decoder = DecoderFor(part, TypeParameter(part, "charset"));
    TextForm form(part);
    ValueWriter value(message, PR_BODY_W);
    PartBytes bytes(GMIME_OBJECT(part));
    std::string text;
    for (std::string piece; bytes.Next(piece); text.clear()) {
        decoder.Put(piece, text);
        if (const HRESULT hr = value.Put(form.Put(text)); FAILED(hr))
            return hr;
    }
    decoder.End(text);
    text = form.Put(text);
    text += form.End();
    const HRESULT hr = value.Put(text);
    return FAILED(hr) ? hr : value.End();
}

// The charset that HTML names for itself near its beginning; empty when it doesn't.
std::string CharsetWithinHtml(GMimePart* part)
{
    constexpr std::size_t kLookedAt = 2048;
    constexpr std::string_view kMark = "charset=";
    std::string piece;
    PartBytes(GMIME_OBJECT(part)).Next(piece);
    const std::string head = LowerAscii(std::string_view(piece).substr(0, kLookedAt));
    const std::size_t mark = head.find(kMark);
    if (mark == std::string::npos)
        return {};
    std::size_t begin = mark + kMark.size();
    while (begin < head.size() && (head[begin] == '"' || head[begin] == '\'' || head[begin] == ' '))
        ++begin;
    return head.substr(begin, head.find_first_of("\"' ;/>\r\n\t", begin) - begin);
}

bool KeepsAscii(ULONG codePage) noexcept
{
    constexpr ULONG kUtf16 = 1200;
    constexpr ULONG kUtf16Big = 1201;
    constexpr ULONG kUtf32 = 12000;
    return codePage != kUtf16 && codePage != kUtf16Big && codePage != kUtf32;
}

HRESULT SetHtml(GMimePart* part, IMessage& message, ULONG& codePage)
{
    std::string charset = TypeParameter(part, "charset");
    if (charset.empty())
        charset = CharsetWithinHtml(part);
    if (charset.empty() && PartIsUtf8(part))
        charset = "utf-8";
    const auto known = CodePageOfCharset(charset);
    const bool stays = known && KeepsAscii(*known);
    codePage = stays ? *known : kCodePageUtf8;

    std::optional<TextDecoder> decoder;
    if (!stays)
        decoder.emplace(DecoderFor(part, charset));
    ValueWriter value(message, kPrHtml);
    PartBytes bytes(GMIME_OBJECT(part));
    std::string text;
    for (std::string piece; bytes.Next(piece); text.clear()) {
        if (decoder)
            decoder->Put(piece, text);
        if (const HRESULT hr = value.Put(decoder ? text : piece); FAILED(hr))
            return hr;
    }
    if (decoder)
        decoder->End(text);
    const HRESULT hr = value.Put(text);
    return FAILED(hr) ? hr : value.End();
}

}  // namespace

std::string WithCrlf(const std::string& text)
{
    std::string result;
    result.reserve(text.size() + text.size() / 32);
    char before = '\0';
    AppendWithCrlf(text, before, result);
    return result;
}

HRESULT SetBodies(const MailStructure& structure, IMessage& message)
{
    PropertyList properties;
    ULONG codePage = kCodePageUtf8;
    HRESULT hr = S_OK;
    if (structure.text) {
        hr = SetText(structure.text, message);
        codePage = CodePageOfCharset(TypeParameter(structure.text, "charset")).value_or(kCodePageUtf8);
    } else if (!structure.looseText.empty() || !structure.html) {
        properties.AddText(PR_BODY_W, WithCrlf(DecodeText(structure.looseText, "")));
    }
    if (SUCCEEDED(hr) && structure.html)
        hr = SetHtml(structure.html, message, codePage);
    if (FAILED(hr))
        return hr;
    properties.AddLong(kPrInternetCpid, static_cast<LONG>(codePage));
    properties.AddLong(kPrMessageEditorFormat, structure.html ? kEditorHtml : kEditorPlainText);
    return properties.SetOn(message);
}

}  // namespace quorvane
