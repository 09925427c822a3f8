#include "platform/registry/registry_text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>

#include "platform/com/bstr.h"

namespace quorvane {

namespace {

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kOldHeader = "REGEDIT4";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kBlanks = " \t\r";

bool IsTextType(RegistryType type) noexcept
{
    return type == RegistryType::Text || type == RegistryType::ExpandableText ||
           type == RegistryType::MultiText;
}

std::string_view Trimmed(std::string_view text) noexcept
{
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool StartsWith(std::string_view text, std::string_view head) noexcept
{
    return text.substr(0, head.size()) == head;
}

OleString FromUtf16Bytes(std::string_view bytes)
{
    OleString text;
    text.reserve(bytes.size() / 2);
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto low = static_cast<unsigned char>(bytes[i]);
        const auto high = static_cast<unsigned char>(bytes[i + 1]);
        text += static_cast<OLECHAR>(high << 8 | low);
    }
    return text;
}

std::string ToUtf16Bytes(std::string_view utf8)
{
    std::string bytes;
    for (const OLECHAR c : FromUtf8(utf8)) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8 & 0xFF);
    }
    return bytes;
}

// Takes lines off a text; a hexadecimal one that ends in a backslash goes on in the next.
class Lines {
public:
    explicit Lines(std::string_view text) noexcept : rest_(text) {}

    bool Next(std::string& line)
    {
        if (rest_.empty())
            return false;
        line.clear();
        bool goesOn = true;
        while (goesOn && !rest_.empty()) {
            line += Trimmed(TakeOne());
            goesOn = line.ends_with('\\') && line.find("=hex") != std::string::npos;
            if (goesOn)
                line.pop_back();
        }
        return true;
    }

private:
    std::string_view TakeOne() noexcept
    {
        const size_t end = rest_.find('\n');
        const std::string_view line = rest_.substr(0, end);
        rest_ = end == std::string_view::npos ? std::string_view() : rest_.substr(end + 1);
        return line;
    }

    std::string_view rest_;
};

// A quoted text at the beginning of `rest`, which then begins behind it.
std::optional<std::string> TakeQuoted(std::string_view& rest)
{
    if (rest.empty() || rest.front() != '"')
        return std::nullopt;
    std::string text;
    for (size_t i = 1; i < rest.size(); ++i) {
        if (rest[i] == '"') {
            rest.remove_prefix(i + 1);
            return text;
        }
        if (rest[i] == '\\' && ++i == rest.size())
            break;
        text += rest[i];
    }
    return std::nullopt;
}

// A hexadecimal number that is all of `digits`.
std::optional<DWORD> ParseHex(std::string_view digits) noexcept
{
    unsigned long value = 0;
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.empty() || parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size() ||
        value > 0xFFFFFFFF)
        return std::nullopt;
    return static_cast<DWORD>(value);
}

std::optional<std::string> ParseBytes(std::string_view list)
{
    std::string bytes;
    while (!list.empty()) {
        const size_t comma = list.find(',');
        const std::string_view one = Trimmed(list.substr(0, comma));
        const auto byte = ParseHex(one);
        if (!byte || *byte > 0xFF)
            return std::nullopt;
        bytes += static_cast<char>(*byte);
        list = comma == std::string_view::npos ? std::string_view() : Trimmed(list.substr(comma + 1));
    }
    return bytes;
}

// The bytes of a text type are kept as the ANSI functions give them, with a zero at the end.
std::string TextBytes(RegistryType type, std::string_view utf16Bytes)
{
    std::string text = ToUtf8(FromUtf16Bytes(utf16Bytes));
    const size_t zeros = type == RegistryType::MultiText ? 2 : 1;
    while (text.size() < zeros || text.find_last_not_of('\0') + 1 > text.size() - zeros)
        text += '\0';
    return text;
}

std::optional<RegistryValue> ParseHexValue(std::string_view data)
{
    RegistryType type = RegistryType::Binary;
    const size_t colon = data.find(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    std::string_view form = data.substr(3, colon - 3);
    if (!form.empty()) {
        if (form.size() < 3 || form.front() != '(' || form.back() != ')')
            return std::nullopt;
        const auto number = ParseHex(form.substr(1, form.size() - 2));
        if (!number)
            return std::nullopt;
        type = static_cast<RegistryType>(*number);
    }
    auto bytes = ParseBytes(data.substr(colon + 1));
    if (!bytes || (IsTextType(type) && bytes->size() % 2 != 0))
        return std::nullopt;
    return RegistryValue{type, IsTextType(type) ? TextBytes(type, *bytes) : std::move(*bytes)};
}

std::optional<RegistryValue> ParseData(std::string_view data)
{
    constexpr std::string_view kNumber = "dword:";
    if (StartsWith(data, "\"")) {
        const auto text = TakeQuoted(data);
        return text && data.empty() ? std::optional(RegistryValue::OfText(*text)) : std::nullopt;
    }
    if (StartsWith(data, kNumber)) {
        const auto number = ParseHex(data.substr(kNumber.size()));
        return number ? std::optional(RegistryValue::OfNumber(*number)) : std::nullopt;
    }
    return StartsWith(data, "hex") ? ParseHexValue(data) : std::nullopt;
}

std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

// Whether a text survives between quotes on one line.
bool FitsInQuotes(std::string_view text) noexcept
{
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
    }
    return true;
}

// Breaks the list after so many bytes that lines stay under 80 characters.
std::string HexList(std::string_view bytes)
{
    constexpr size_t kBytesPerLine = 20;
    std::string list;
    char digits[8];
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i != 0)
            list += i % kBytesPerLine == 0 ? ",\\\n  " : ",";
        std::snprintf(digits, sizeof(digits), "%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(bytes[i])));
        list += digits;
    }
    return list;
}

std::string FormatData(const RegistryValue& value)
{
    char head[32] = "hex:";
    const bool isTerminated = !value.bytes.empty() && value.bytes.find('\0') == value.bytes.size() - 1;
    if (value.type == RegistryType::Text && isTerminated && FitsInQuotes(value.Text()))
        return Quoted(value.Text());
    if (value.type == RegistryType::Dword && value.bytes.size() == 4) {
        std::snprintf(head, sizeof(head), "dword:%08x", static_cast<unsigned>(value.Number()));
        return head;
    }
    if (value.type != RegistryType::Binary)
        std::snprintf(head, sizeof(head), "hex(%x):", static_cast<unsigned>(value.type));
    return head + HexList(IsTextType(value.type) ? ToUtf16Bytes(value.bytes) : value.bytes);
}

OLECHAR FoldedCharacter(OLECHAR c) noexcept
{
    const bool isLatin = (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
    const bool isGreekOrCyrillic = (c >= 0x391 && c <= 0x3A9) || (c >= 0x410 && c <= 0x42F);
    if (isLatin || isGreekOrCyrillic)
        return static_cast<OLECHAR>(c + 0x20);
    return c >= 0x400 && c <= 0x40F ? static_cast<OLECHAR>(c + 0x50) : c;
}

// The range of paths below a folded path.
std::string BelowPrefix(std::string_view path)
{
    return FoldedName(path) + '\\';
}

}  // namespace

std::string FoldedName(std::string_view name)
{
    OleString text = FromUtf8(name);
    for (OLECHAR& c : text)
        c = FoldedCharacter(c);
    return ToUtf8(text);
}

bool RegistryText::Parse(std::string_view text)
{
    std::string converted;
    if (StartsWith(text, kUtf16Mark)) {
        converted = ToUtf8(FromUtf16Bytes(text.substr(kUtf16Mark.size())));
        text = converted;
    } else if (StartsWith(text, kUtf8Mark)) {
        text.remove_prefix(kUtf8Mark.size());
    }
    Lines lines(text);
    std::string line;
    if (!lines.Next(line) || (line != kHeader && line != kOldHeader))
        return false;
    keys_.clear();
    Values* current = nullptr;
    while (lines.Next(line)) {
        if (line.empty() || line.front() == ';')
            continue;
        if (line.front() == '[')
            ReadSection(line, current);
        else if (current)
            ReadValue(line, *current);
    }
    return true;
}

void RegistryText::ReadSection(std::string_view line, Values*& current)
{
    current = nullptr;
    if (line.back() != ']')
        return;
    const std::string_view path = line.substr(1, line.size() - 2);
    if (StartsWith(path, "-"))
        RemoveKey(path.substr(1));
    else if (!path.empty() && path.front() != '\\' && path.back() != '\\' &&
             path.find("\\\\") == std::string_view::npos)
        current = &MakeKey(path);
}

void RegistryText::ReadValue(std::string_view line, Values& values)
{
    std::string name;
    if (line.front() == '@') {
        line.remove_prefix(1);
    } else {
        auto quoted = TakeQuoted(line);
        if (!quoted || quoted->empty())
            return;
        name = std::move(*quoted);
    }
    line = Trimmed(line);
    if (line.empty() || line.front() != '=')
        return;
    const std::string_view data = Trimmed(line.substr(1));
    if (data == "-") {
        values.erase(FoldedName(name));
        return;
    }
    if (auto value = ParseData(data)) {
        std::string folded = FoldedName(name);
        values[std::move(folded)] = Value{std::move(name), std::move(*value)};
    }
}

std::string RegistryText::Format() const
{
    std::string text(kHeader);
    text += '\n';
    for (const auto& [folded, key] : keys_) {
        text += "\n[" + key.path + "]\n";
        for (const auto& [foldedName, value] : key.values) {
            text += value.name.empty() ? "@" : Quoted(value.name);
            text += '=' + FormatData(value.value) + '\n';
        }
    }
    return text;
}

bool RegistryText::HasKey(std::string_view path) const
{
    if (keys_.count(FoldedName(path)) != 0)
        return true;
    const std::string below = BelowPrefix(path);
    const auto next = keys_.lower_bound(below);
    return next != keys_.end() && StartsWith(next->first, below);
}

const RegistryText::Values* RegistryText::FindValues(std::string_view path) const
{
    const auto found = keys_.find(FoldedName(path));
    return found == keys_.end() ? nullptr : &found->second.values;
}

RegistryText::Values& RegistryText::MakeKey(std::string_view path)
{
    Key& key = keys_[FoldedName(path)];
    if (key.path.empty())
        key.path = path;
    return key.values;
}

bool RegistryText::RemoveKey(std::string_view path)
{
    const std::string below = BelowPrefix(path);
    const auto first = keys_.lower_bound(below);
    auto last = first;
    while (last != keys_.end() && StartsWith(last->first, below))
        ++last;
    const bool hadSubkeys = first != last;
    keys_.erase(first, last);
    return keys_.erase(FoldedName(path)) != 0 || hadSubkeys;
}

std::vector<std::string> RegistryText::SubkeyNames(std::string_view path) const
{
    const std::string below = BelowPrefix(path);
    std::map<std::string, std::string> names;
    for (auto key = keys_.lower_bound(below); key != keys_.end() && StartsWith(key->first, below); ++key) {
        const std::string folded =
            key->first.substr(below.size(), key->first.find('\\', below.size()) - below.size());
        std::string_view shown = key->second.path;
        for (size_t separators = static_cast<size_t>(std::count(below.begin(), below.end(), '\\'));
             separators; --separators)
            shown.remove_prefix(shown.find('\\') + 1);
        names.try_emplace(folded, shown.substr(0, shown.find('\\')));
    }
    std::vector<std::string> result;
    result.reserve(names.size());
    for (auto& [folded, name] : names)
        result.push_back(std::move(name));
    return result;
}

}  // namespace quorvane
