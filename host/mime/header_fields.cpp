#include "host/mime/header_fields.h"

#include <algorithm>

#include "host/mail/ascii.h"
#include "host/mail/mail_check.h"
#include "host/mime/filetime.h"
#include "host/mime/gmime_setup.h"

namespace quorvane {
namespace {

constexpr std::size_t kLineLength = 76;

// Breaks a value at its blanks; encoded words have none within.
std::string Folded(const std::string& value)
{
    std::string result;
    std::size_t length = 16;  // room for the field's name
    for (std::size_t at = 0; at < value.size();) {
        const std::size_t end = std::min(value.find(' ', at + 1), value.size());
        const bool breaks = value[at] == ' ' && length + (end - at) > kLineLength && end > at + 1;
        if (breaks) {
            result += "\r\n";
            length = 0;
        }
        result.append(value, at, end - at);
        length += end - at;
        at = end;
    }
    return result;
}

std::string WithoutLineEnd(std::string_view line)
{
    return std::string(line.substr(0, line.find_last_not_of("\r\n") + 1));
}

}  // namespace

std::vector<HeaderField> SplitHeaderBlock(std::string_view block)
{
    std::vector<HeaderField> fields;
    bool inField = false;
    while (!block.empty()) {
        const std::string_view line = block.substr(0, LineLength(block));
        block.remove_prefix(line.size());
        const std::string text = WithoutLineEnd(line);
        const bool continues = text.starts_with(' ') || text.starts_with('\t');
        if (continues && inField) {
            fields.back().value += "\r\n" + text;
        } else if (!continues && IsHeaderField(text)) {
            const std::size_t colon = text.find(':');
            const std::size_t value = std::min(text.find_first_not_of(" \t", colon + 1), text.size());
            fields.push_back(
                {text.substr(0, text.find_last_not_of(" \t", colon - 1) + 1), text.substr(value)});
            inField = true;
        } else {
            inField = false;
        }
    }
    return fields;
}

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names)
{
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view one) { return EqualNoCase(name, one); });
}

bool HasField(const std::vector<HeaderField>& fields, std::string_view name)
{
    return std::any_of(fields.begin(), fields.end(),
                       [&](const HeaderField& field) { return EqualNoCase(field.name, name); });
}

void RemoveFields(std::vector<HeaderField>& fields, std::initializer_list<std::string_view> names)
{
    std::erase_if(fields, [&](const HeaderField& field) { return IsOneOf(field.name, names); });
}

std::string OneLine(std::string_view text)
{
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return static_cast<unsigned char>(c) < 32 || static_cast<unsigned char>(c) == 127; },
        ' ');
    return line;
}

std::string UnstructuredValue(const std::string& text)
{
    MimeOptions();
    return Folded(TextOf(GText(g_mime_utils_header_encode_text(nullptr, OneLine(text).c_str(), "utf-8"))));
}

std::string AddressListValue(const std::vector<MailAddress>& people)
{
    MimeOptions();
    std::string value;
    for (const MailAddress& person : people) {
        const auto mailbox = GObjectPtr<InternetAddress>::Attach(internet_address_mailbox_new(
            person.name.empty() ? nullptr : OneLine(person.name).c_str(), OneLine(person.address).c_str()));
        internet_address_set_charset(mailbox.Get(), "utf-8");
        const GText text(internet_address_to_string(mailbox.Get(), nullptr, TRUE));
        value += (value.empty() ? "" : ",\r\n ") + OneLine(TextOf(text));
    }
    return value;
}

std::string IdentifierValue(const std::string& text)
{
    return Folded(OneLine(text));
}

std::string DateValue(const FILETIME& time)
{
    MimeOptions();
    GDateTime* const date = g_date_time_new_from_unix_utc(UnixFromFileTime(time));
    if (!date)
        return {};
    const GText text(g_mime_utils_header_format_date(date));
    g_date_time_unref(date);
    return TextOf(text);
}

}  // namespace quorvane
