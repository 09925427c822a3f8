#include "host/mail/mbox_reader.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "host/mail/mail_check.h"
#include "host/mail/mail_reader.h"

namespace quorvane {
namespace {

constexpr std::string_view kFrom = "From ";

bool IsDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

bool HasTimeOfDay(std::string_view line) noexcept
{
    for (std::size_t colon = line.find(':'); colon != std::string_view::npos;
         colon = line.find(':', colon + 1)) {
        if (colon >= 1 && colon + 2 < line.size() && IsDigit(line[colon - 1]) && IsDigit(line[colon + 1]) &&
            IsDigit(line[colon + 2]))
            return true;
    }
    return false;
}

bool HasYear(std::string_view line) noexcept
{
    for (std::size_t at = 0; at + 4 <= line.size(); ++at) {
        const std::string_view four = line.substr(at, 4);
        const bool alone =
            (at == 0 || !IsDigit(line[at - 1])) && (at + 4 == line.size() || !IsDigit(line[at + 4]));
        if (alone && (four.starts_with("19") || four.starts_with("20")) && IsDigit(four[2]) &&
            IsDigit(four[3]))
            return true;
    }
    return false;
}

bool IsQuotedFrom(std::string_view line, MboxVariant variant) noexcept
{
    if (!line.starts_with('>') || variant == MboxVariant::MboxCl2)
        return false;
    const std::size_t quotes = line.find_first_not_of('>');
    if (quotes == std::string_view::npos || (variant == MboxVariant::MboxO && quotes != 1))
        return false;
    return line.substr(quotes).starts_with(kFrom);
}

std::optional<std::uint64_t> ContentLength(std::string_view header)
{
    const auto text = RawHeaderValue(header, "Content-Length");
    if (!text)
        return std::nullopt;
    std::uint64_t length = 0;
    const auto [end, failure] = std::from_chars(text->data(), text->data() + text->size(), length);
    if (failure != std::errc() || end != text->data() + text->size() || length > kLargestMail)
        return std::nullopt;
    return length;
}

// "From -", as some programs write it: nothing that a sentence begins with.
bool HasOneWord(std::string_view line) noexcept
{
    line.remove_prefix(kFrom.size());
    const std::size_t end = line.find_last_not_of(" \t\r\n");
    return end != std::string_view::npos &&
           line.substr(0, end + 1).find_first_of(" \t") == std::string_view::npos;
}

}  // namespace

bool IsDatedSeparator(std::string_view line) noexcept
{
    return line.starts_with(kFrom) && HasTimeOfDay(line) && HasYear(line);
}

MboxReader::MboxReader(const std::filesystem::path& path, MboxVariant variant)
    : lines_(path), variant_(variant)
{}

bool MboxReader::IsSeparator(std::string_view line, bool afterBlank)
{
    if (!line.starts_with(kFrom))
        return false;
    const bool dated = IsDatedSeparator(line);
    const bool oneWord = HasOneWord(line);
    const std::string_view next = lines_.Peek();
    if (afterBlank ? dated || IsHeaderField(next) : dated && IsHeaderField(next))
        return true;
    if (!afterBlank && IsMailField(next)) {
        if (oneWord)
            return true;
        doubt_ = "it has a line within that may begin another mail";
    }
    return false;
}

void MboxReader::Keep(MailBytes& bytes, std::string_view piece)
{
    tooLarge_ = tooLarge_ || bytes.Size() + piece.size() > kLargestMail;
    empty_ = empty_ && piece.find_first_not_of("\r\n") == std::string_view::npos;
    if (!tooLarge_)
        bytes.Append(piece);
}

// Reads up to and with the blank line; false when the mail ends before it.
bool MboxReader::ReadHeader(MailBytes& bytes)
{
    FileLine line;
    while (lines_.Next(line)) {
        const bool candidate = line.startsLine && line.text.starts_with(kFrom);
        const std::string text(line.text);
        if (candidate && IsSeparator(text, false))
            return false;
        Keep(bytes, text);
        if (IsBlankLine(text))
            return true;
    }
    ended_ = true;
    return false;
}

// Whether the file ends at `offset`, or a separator stands there, blank lines before it allowed. Leaves
// the reader behind the separator if so, where it was if not.
bool MboxReader::EndsWithSeparator(std::uint64_t offset)
{
    const std::uint64_t back = lines_.Offset();
    FileLine line;
    bool found = false;
    if (lines_.Seek(offset)) {
        bool more = lines_.Next(line);
        while (more && IsBlankLine(line.text))
            more = lines_.Next(line);
        found = !more || line.text.starts_with(kFrom);
        ended_ = !more;
    }
    if (!found)
        (void)lines_.Seek(back);
    return found;
}

// Whether `offset` is behind a line end: a length that ends within a line counts something else. Leaves the
// reader where it was.
bool MboxReader::EndsLine(std::uint64_t offset)
{
    const std::uint64_t back = lines_.Offset();
    const bool ends = offset <= back || (lines_.Seek(offset - 1) && lines_.Peek().starts_with('\n'));
    return lines_.Seek(back) && ends;
}

// Reads a body whose length the header tells rightly; false, and nothing was read, when it doesn't.
bool MboxReader::ReadCountedBody(MailBytes& bytes)
{
    if (variant_ != MboxVariant::Auto && variant_ != MboxVariant::MboxCl2)
        return false;
    const auto length = ContentLength(bytes.Header());
    const std::uint64_t begin = lines_.Offset();
    if (!length || *length > lines_.Size() - std::min(begin, lines_.Size()))
        return false;
    if (!EndsLine(begin + *length) || !EndsWithSeparator(begin + *length))
        return false;

    const std::uint64_t next = lines_.Offset();
    const bool ended = ended_;
    if (!lines_.Seek(begin))
        return false;
    FileLine line;
    bool afterBlank = true;
    for (std::uint64_t left = *length; left > 0 && lines_.Next(line);) {
        const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(left, line.text.size()));
        const bool candidate = line.startsLine && line.text.starts_with(kFrom);
        const std::string text(line.text.substr(0, count));
        Keep(bytes, text);
        left -= count;
        if (candidate && IsSeparator(text, afterBlank))
            doubt_ = "by its Content-Length it has a line within that may begin another mail";
        afterBlank = IsBlankLine(text);
    }
    ended_ = ended || !lines_.Seek(next);
    return true;
}

// Reads up to the next separator. The blank line before it belongs to it, not to the mail.
void MboxReader::ReadBody(MailBytes& bytes)
{
    std::string heldBlank;
    FileLine line;
    bool afterBlank = true;
    while (lines_.Next(line)) {
        if (line.startsLine && line.text.starts_with(kFrom)) {
            const std::string text(line.text);
            if (IsSeparator(text, afterBlank))
                return;
            Keep(bytes, heldBlank);
            Keep(bytes, text);
            heldBlank.clear();
            afterBlank = false;
            continue;
        }
        Keep(bytes, heldBlank);
        heldBlank.clear();
        afterBlank = line.startsLine && IsBlankLine(line.text);
        if (afterBlank)
            heldBlank = line.text;
        else
            Keep(bytes, line.text.substr(line.startsLine && IsQuotedFrom(line.text, variant_) ? 1 : 0));
    }
    ended_ = true;
}

MboxReader::Step MboxReader::Next(MailBytes& bytes)
{
    bytes.Clear();
    if (!lines_.IsOpen() && !begun_) {
        begun_ = ended_ = true;
        return Step::Unreadable;
    }
    if (!begun_) {
        begun_ = true;
        constexpr std::string_view kMark = "\xEF\xBB\xBF";
        std::string_view first = lines_.Peek();
        if (first.starts_with(kMark)) {
            if (!lines_.Seek(kMark.size()))
                return Step::End;
            first = lines_.Peek();
        }
        FileLine line;
        while (IsBlankLine(first) && lines_.Next(line))
            first = lines_.Peek();
        if (first.starts_with(kFrom) && !lines_.Next(line))
            return Step::End;
        ended_ = first.empty();
    }
    if (ended_)
        return Step::End;

    ++number_;
    tooLarge_ = false;
    empty_ = true;
    doubt_.clear();
    if (ReadHeader(bytes) && !ReadCountedBody(bytes))
        ReadBody(bytes);
    if (lines_.Failed()) {
        ended_ = true;
        return Step::Unreadable;
    }
    if (tooLarge_) {
        bytes.Clear();
        return Step::TooLarge;
    }
    return empty_ ? Step::Empty : Step::Mail;
}

}  // namespace quorvane
