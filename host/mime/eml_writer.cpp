#include "host/mime/eml_writer.h"

#include <glib.h>

#include <algorithm>
#include <random>

#include "host/mime/gmime_ptr.h"

namespace quorvane {
namespace {

constexpr std::size_t kLongestPlainLine = 200;
constexpr std::size_t kLongestQuotedLine = 76;
constexpr std::size_t kQuotedSize = 3;  // of one character

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

void TextSurvey::PutOne(char c) noexcept
{
    constexpr std::string_view kFrom = "From ";
    if (afterCr_) {
        afterCr_ = false;
        loneLineEnd_ = loneLineEnd_ || c != '\n';
        lineLength_ = like_ = 0;
        return;
    }
    afterCr_ = c == '\r';
    loneLineEnd_ = loneLineEnd_ || c == '\n';
    if (c == '\r' || c == '\n')
        return;
    if (like_ == lineLength_ && like_ < kFrom.size() && c == kFrom[like_])
        ++like_;
    ++lineLength_;
    plain_ = plain_ && lineLength_ <= kLongestPlainLine && like_ < kFrom.size();
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 126 || (byte < 32 && c != '\t'))
        ++foreign_;
}

void TextSurvey::Put(std::string_view piece) noexcept
{
    size_ += piece.size();
    for (const char c : piece)
        PutOne(c);
}

TextEncoding TextSurvey::Best() const noexcept
{
    if (loneLineEnd_ || afterCr_)
        return TextEncoding::Base64;
    if (foreign_ == 0 && plain_)
        return TextEncoding::SevenBit;
    return foreign_ * 4 > size_ ? TextEncoding::Base64 : TextEncoding::QuotedPrintable;
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

void TextWriter::Write(std::string_view piece)
{
    if (encoding_ == TextEncoding::SevenBit)
        return out_.Raw(piece);
    if (encoding_ == TextEncoding::Base64)
        return base64_.Write(piece);
    for (const char c : piece)
        Quote(c);
}

void TextWriter::End()
{
    if (encoding_ == TextEncoding::Base64)
        return base64_.End();
    QuoteHeld(true);
    out_.Raw(line_);
    line_.clear();
}

// Line ends come as pairs.
void TextWriter::Quote(char c)
{
    if (c == '\r')
        return QuoteHeld(true);
    if (c == '\n') {
        out_.Line(line_);
        return line_.clear();
    }
    QuoteHeld(false);
    held_ = c;
    holds_ = true;
}

void TextWriter::QuoteHeld(bool last)
{
    if (!holds_)
        return;
    holds_ = false;
    const bool blank = (held_ == ' ' || held_ == '\t') && !last;
    // "From " and "." at a line's beginning change on the way through some mailboxes.
    const bool endangered = line_.empty() && (held_ == 'F' || held_ == '.');
    const bool plain = (IsPrintable(held_) || blank) && !endangered;
    // A line that is too long is broken softly.
    if (line_.size() + (plain ? 1 : kQuotedSize) >= kLongestQuotedLine) {
        out_.Raw(line_);
        out_.Raw("=\r\n");
        line_.clear();
    }
    if (plain)
        line_.push_back(held_);
    else
        AppendQuoted(line_, held_);
}

}  // namespace quorvane
