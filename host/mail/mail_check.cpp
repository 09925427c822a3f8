#include "host/mail/mail_check.h"

#include <algorithm>
#include <array>

#include "host/mail/ascii.h"
#include "host/mail/file_form.h"

namespace quorvane {
namespace {

constexpr auto kMailFields = std::to_array<std::string_view>(
    {"from", "to", "cc", "bcc", "subject", "date", "message-id", "received", "reply-to", "return-path",
     "mime-version", "content-type", "delivered-to", "sender", "resent-to", "x-mailer", "in-reply-to",
     "references"});

bool IsNameCharacter(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

std::string_view FieldName(std::string_view line) noexcept
{
    const auto end = std::find_if_not(line.begin(), line.end(), IsNameCharacter);
    return line.substr(0, static_cast<std::size_t>(end - line.begin()));
}

bool IsSeparator(std::string_view line) noexcept
{
    return line.starts_with("From ") || line.starts_with(">From ");
}

// Calls `visit` with each line up to the first blank one, until it says to stop.
template <class Visit>
void ForEachHeaderLine(std::string_view mail, Visit visit)
{
    while (!mail.empty()) {
        const std::string_view line = mail.substr(0, LineLength(mail));
        if (IsBlankLine(line) || !visit(line))
            return;
        mail.remove_prefix(line.size());
    }
}

std::string_view Trimmed(std::string_view text) noexcept
{
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

std::optional<std::string> WhyNotMail(std::string_view bytes, MailHint hint)
{
    if (bytes.empty())
        return "the file is empty";
    if (bytes.find_first_not_of('\0') == std::string_view::npos)
        return "it holds nothing but NUL bytes";
    if (bytes.find_first_not_of(std::string_view(" \t\r\n\0", 5)) == std::string_view::npos)
        return "it holds nothing but blanks";

    std::string repaired(bytes);
    RepairForm(repaired);
    bool isMail = false;
    ForEachHeaderLine(TrimToMail(repaired), [&](std::string_view line) {
        isMail = IsHeaderField(line) && (hint == MailHint::Named || IsMailField(line));
        return !isMail;
    });
    if (isMail)
        return std::nullopt;
    return hint == MailHint::Named ? "it doesn't begin with a header field" : "it isn't a mail";
}

bool IsHeaderField(std::string_view line) noexcept
{
    const std::string_view name = FieldName(line);
    const std::size_t colon = line.find_first_not_of(" \t", name.size());
    return !name.empty() && colon != std::string_view::npos && line[colon] == ':' &&
           !line.substr(colon + 1).starts_with("//");
}

bool IsMailField(std::string_view line) noexcept
{
    if (!IsHeaderField(line))
        return false;
    const std::string_view name = FieldName(line);
    return std::any_of(kMailFields.begin(), kMailFields.end(),
                       [&](std::string_view known) { return EqualNoCase(name, known); });
}

bool IsFieldOfBlock(std::string_view line) noexcept
{
    const auto isPrintable = [](char c) { return c > 32 && c < 127 && c != ':'; };
    const auto end = std::find_if_not(line.begin(), line.end(), isPrintable);
    const auto colon = std::find_if_not(end, line.end(), [](char c) { return c == ' ' || c == '\t'; });
    return end != line.begin() && colon != line.end() && *colon == ':';
}

std::string_view TrimToMail(std::string_view bytes) noexcept
{
    if (bytes.starts_with("\xEF\xBB\xBF"))
        bytes.remove_prefix(3);
    while (!bytes.empty()) {
        const std::string_view line = bytes.substr(0, LineLength(bytes));
        if (!Trimmed(line).empty() && !IsSeparator(line))
            break;
        bytes.remove_prefix(line.size());
    }
    return bytes;
}

std::size_t LineLength(std::string_view bytes) noexcept
{
    const std::size_t end = bytes.find('\n');
    return end == std::string_view::npos ? bytes.size() : end + 1;
}

bool IsBlankLine(std::string_view line) noexcept
{
    return line == "\n" || line == "\r\n" || line == "\r";
}

std::optional<std::string> RawHeaderValue(std::string_view mail, std::string_view name)
{
    std::optional<std::string> value;
    ForEachHeaderLine(mail, [&](std::string_view line) {
        const bool continues = line.starts_with(' ') || line.starts_with('\t');
        if (value && !continues)
            return false;
        if (value)
            value->append(" ").append(Trimmed(line));
        else if (!continues && IsHeaderField(line) && EqualNoCase(FieldName(line), name))
            value = Trimmed(line.substr(line.find(':') + 1));
        return true;
    });
    return value;
}

std::optional<bool> ReadStateOfHeader(std::string_view mail)
{
    if (const auto status = RawHeaderValue(mail, "Status"))
        return status->find('R') != std::string::npos;
    const auto mozilla = RawHeaderValue(mail, "X-Mozilla-Status");
    if (mozilla && !mozilla->empty() && std::isxdigit(static_cast<unsigned char>(mozilla->back())))
        return (std::stoi(mozilla->substr(mozilla->size() - 1), nullptr, 16) & 1) != 0;
    return std::nullopt;
}

}  // namespace quorvane
