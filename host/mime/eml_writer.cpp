#include "host/mime/eml_writer.h"

#include <glib.h>

#include <algorithm>
#include <random>

#include "host/mime/gmime_ptr.h"

namespace quorvane {
namespace {

constexpr std::size_t kLongestPlainLine = 200;
constexpr std::size_t kLongestQuotedLine = 76;

bool IsPrintable(char c) noexcept
{
    return (c >= 33 && c <= 126 && c != '=');
}

void AppendQuoted(std::string& line, char c)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    line.push_back('=');
    line.push_back(kDigits[byte >> 4]);
    line.push_back(kDigits[byte & 15]);
}

// One line without its line end in quoted-printable, broken softly where it is too long.
std::string QuotedLine(std::string_view text)
{
    std::string result;
    std::string line;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool last = at + 1 == text.size();
        const bool blank = (c == ' ' || c == '\t') && !last;
        std::string piece;
        // "From " and "." at a line's beginning change on the way through some mailboxes.
        const bool endangered = line.empty() && (c == 'F' || c == '.');
        if ((IsPrintable(c) || blank) && !endangered)
            piece.push_back(c);
        else
            AppendQuoted(piece, c);
        if (line.size() + piece.size() >= kLongestQuotedLine) {
            result += line + "=\r\n";
            line.clear();
        }
        line += piece;
    }
    return result + line;
}

}  // namespace

void EmlWriter::Line(std::string_view text)
{
    Raw(text);
    Raw("\r\n");
}

void EmlWriter::Raw(std::string_view bytes)
{
    out_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void EmlWriter::Field(std::string_view name, std::string_view value)
{
    Raw(name);
    Raw(": ");
    Line(value);
}

std::string EmlWriter::NewBoundary()
{
    // "=_" occurs neither in base64 nor in quoted-printable; the random part keeps nested mails apart.
    std::random_device random;
    std::string boundary = "=_" + std::to_string(++boundaries_) + "_";
    for (int i = 0; i < 4; ++i)
        boundary += std::to_string(random());
    return boundary.substr(0, 60);
}

void Base64Writer::WriteLine(std::string_view bytes)
{
    if (begun_)
        out_.Raw("\r\n");
    begun_ = true;
    const GText text(g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
    out_.Raw(text.get());
}

void Base64Writer::Write(std::string_view bytes)
{
    if (!held_.empty()) {
        const std::size_t wanted = std::min(kBytesALine - held_.size(), bytes.size());
        held_.append(bytes.substr(0, wanted));
        bytes.remove_prefix(wanted);
        if (held_.size() < kBytesALine)
            return;
        WriteLine(held_);
        held_.clear();
    }
    while (bytes.size() >= kBytesALine) {
        WriteLine(bytes.substr(0, kBytesALine));
        bytes.remove_prefix(kBytesALine);
    }
    held_ = bytes;
}

void Base64Writer::End()
{
    if (!held_.empty())
        WriteLine(held_);
    held_.clear();
}

TextEncoding BestTextEncoding(std::string_view text)
{
    std::size_t foreign = 0;
    std::size_t lineLength = 0;
    bool plain = true;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\r' && at + 1 < text.size() && text[at + 1] == '\n') {
            ++at;
            lineLength = 0;
            continue;
        }
        if (c == '\r' || c == '\n')
            return TextEncoding::Base64;
        if (lineLength++ == 0 && text.substr(at).starts_with("From "))
            plain = false;
        plain = plain && lineLength <= kLongestPlainLine;
        if (static_cast<unsigned char>(c) > 126 || (static_cast<unsigned char>(c) < 32 && c != '\t'))
            ++foreign;
    }
    if (foreign == 0 && plain)
        return TextEncoding::SevenBit;
    return foreign * 4 > text.size() ? TextEncoding::Base64 : TextEncoding::QuotedPrintable;
}

const char* EncodingName(TextEncoding encoding) noexcept
{
    switch (encoding) {
        case TextEncoding::SevenBit:
            return "7bit";
        case TextEncoding::QuotedPrintable:
            return "quoted-printable";
        case TextEncoding::Base64:
            break;
    }
    return "base64";
}

void WriteText(EmlWriter& out, std::string_view text, TextEncoding encoding)
{
    if (encoding == TextEncoding::SevenBit)
        return out.Raw(text);
    if (encoding == TextEncoding::Base64) {
        Base64Writer base64(out);
        base64.Write(text);
        return base64.End();
    }
    while (!text.empty()) {
        const std::size_t end = text.find("\r\n");
        out.Raw(QuotedLine(text.substr(0, end)));
        if (end == std::string_view::npos)
            return;
        out.Raw("\r\n");
        text.remove_prefix(end + 2);
    }
}

}  // namespace quorvane
