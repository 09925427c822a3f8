#include "host/mime/one_off.h"

#include <cstdint>

#include "host/mail/ascii.h"
#include "host/mime/charset.h"
#include "host/mime/mapi_text.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

constexpr BYTE kOneOffUid[16] = MAPI_ONE_OFF_UID;
constexpr std::size_t kFlagsSize = 4;
constexpr std::size_t kUidSize = sizeof(kOneOffUid);
constexpr std::size_t kTextAt = kFlagsSize + kUidSize + 2 + 2;  // version, then flags
constexpr std::size_t kOneOffFlagsAt = kTextAt - 2;
constexpr const char* kSmtp = "SMTP";

void AppendNumber(std::string& bytes, std::uint32_t value, int size)
{
    for (int i = 0; i < size; ++i)
        bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

std::uint32_t ReadNumber(std::string_view bytes, std::size_t at, int size)
{
    std::uint32_t value = 0;
    for (int i = 0; i < size; ++i)
        value |= std::uint32_t{static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)])}
                 << (8 * i);
    return value;
}

void AppendWide(std::string& bytes, const std::string& text)
{
    for (const OLECHAR unit : MapiText(text))
        AppendNumber(bytes, unit, 2);
    AppendNumber(bytes, 0, 2);
}

// Takes a NUL-terminated text from the front of `bytes`; nothing when the NUL is missing.
std::optional<std::string> TakeWide(std::string_view& bytes)
{
    OleString text;
    while (bytes.size() >= 2) {
        const auto unit = static_cast<OLECHAR>(ReadNumber(bytes, 0, 2));
        bytes.remove_prefix(2);
        if (unit == 0)
            return ToUtf8(text);
        text.push_back(unit);
    }
    return std::nullopt;
}

std::optional<std::string> TakeNarrow(std::string_view& bytes)
{
    const std::size_t end = bytes.find('\0');
    if (end == std::string_view::npos)
        return std::nullopt;
    std::string text = DecodeText(bytes.substr(0, end), "");
    bytes.remove_prefix(end + 1);
    return text;
}

}  // namespace

std::string OneOffEntryId(const MailAddress& who)
{
    std::string id(kFlagsSize, '\0');
    id.append(reinterpret_cast<const char*>(kOneOffUid), kUidSize);
    AppendNumber(id, 0, 2);
    AppendNumber(id, MAPI_ONE_OFF_UNICODE | MAPI_ONE_OFF_NO_RICH_INFO, 2);
    AppendWide(id, who.Shown());
    AppendWide(id, kSmtp);
    AppendWide(id, who.address);
    return id;
}

std::optional<MailAddress> ReadOneOffEntryId(std::string_view id)
{
    if (id.size() < kTextAt ||
        id.compare(kFlagsSize, kUidSize,
                   std::string_view(reinterpret_cast<const char*>(kOneOffUid), kUidSize)) != 0)
        return std::nullopt;
    const bool wide = (ReadNumber(id, kOneOffFlagsAt, 2) & MAPI_ONE_OFF_UNICODE) != 0;
    std::string_view rest = id.substr(kTextAt);
    const auto take = [&] { return wide ? TakeWide(rest) : TakeNarrow(rest); };
    const auto name = take();
    const auto type = take();
    const auto address = take();
    if (!name || !type || !address || (name->empty() && address->empty()))
        return std::nullopt;
    return MailAddress{*name == *address ? "" : *name, *address};
}

std::string AddressSearchKey(const MailAddress& who)
{
    std::string key = kSmtp + (":" + UpperAscii(who.address));
    key.push_back('\0');
    return key;
}

std::string FlatEntryList(const std::vector<MailAddress>& people)
{
    std::string entries;
    for (const MailAddress& person : people) {
        const std::string id = OneOffEntryId(person);
        AppendNumber(entries, static_cast<std::uint32_t>(id.size()), 4);
        entries += id;
        entries.append((4 - id.size() % 4) % 4, '\0');
    }
    std::string list;
    AppendNumber(list, static_cast<std::uint32_t>(people.size()), 4);
    AppendNumber(list, static_cast<std::uint32_t>(entries.size()), 4);
    return list + entries;
}

std::vector<MailAddress> ReadFlatEntryList(std::string_view list)
{
    std::vector<MailAddress> people;
    if (list.size() < 8)
        return people;
    for (std::string_view rest = list.substr(8); rest.size() >= 4;) {
        const std::uint32_t size = ReadNumber(rest, 0, 4);
        rest.remove_prefix(4);
        if (size > rest.size())
            break;
        if (auto person = ReadOneOffEntryId(rest.substr(0, size)))
            people.push_back(std::move(*person));
        rest.remove_prefix(std::min<std::size_t>(rest.size(), (std::size_t{size} + 3) / 4 * 4));
    }
    return people;
}

}  // namespace quorvane
