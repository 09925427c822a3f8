#include "host/mailbox/hash_records.h"

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/base/files.h"

namespace quorvane::host {

namespace {

constexpr std::size_t kSizeBytes = 4;
constexpr std::size_t kEndBytes = 2;  // zeros behind a text
constexpr std::uint32_t kLongestString = 0x100000;
constexpr std::uintmax_t kLargestFile = std::uintmax_t{4} << 30;

// One string with its size in front: its text and all its bytes; nothing where the bytes aren't one.
struct HashString {
    std::string_view text;
    std::size_t bytes = 0;
    bool isNull = false;
};

std::optional<HashString> TakeString(std::string_view bytes)
{
    if (bytes.size() < kSizeBytes)
        return std::nullopt;
    std::uint32_t size = 0;
    for (std::size_t at = kSizeBytes; at-- > 0;)
        size = size << 8 | static_cast<unsigned char>(bytes[at]);
    if (size == 0)
        return HashString{{}, kSizeBytes, true};
    if (size < kEndBytes || size > kLongestString || bytes.size() - kSizeBytes < size)
        return std::nullopt;
    const std::string_view text = bytes.substr(kSizeBytes, size);
    if (text[size - 1] != 0 || text[size - 2] != 0)
        return std::nullopt;
    return HashString{text.substr(0, size - kEndBytes), kSizeBytes + size, false};
}

// Of UTF-16 in little-endian order; what isn't ASCII is no hexadecimal text and shows as '?'.
std::string NarrowKey(std::string_view text)
{
    std::string key;
    for (std::size_t at = 0; at + 1 < text.size(); at += 2)
        key += text[at + 1] == 0 && static_cast<unsigned char>(text[at]) < 0x80 ? text[at] : '?';
    return key;
}

}  // namespace

HashFileContent ReadHashRecords(const std::string& bytes)
{
    HashFileContent content;
    std::string_view rest = bytes;
    for (;;) {
        const auto key = TakeString(rest);
        if (!key || key->isNull)
            break;
        const auto value = TakeString(rest.substr(key->bytes));
        if (!value)
            break;
        const std::size_t size = key->bytes + value->bytes;
        content.records.push_back({NarrowKey(key->text), std::string(rest.substr(0, size))});
        rest.remove_prefix(size);
    }
    content.damagedBytes = rest.size();
    return content;
}

HashFileContent ReadHashFile(const std::filesystem::path& path)
{
    return ReadHashRecords(ReadWhole(path, kLargestFile));
}

void WriteHashFile(const std::filesystem::path& path, const HashFileContent& content,
                   const std::function<bool(const std::string& key)>& isWanted)
{
    std::string bytes;
    for (const HashRecordBytes& record : content.records)
        if (isWanted(record.key))
            bytes += record.bytes;
    WriteDurably(path, bytes);
}

}  // namespace quorvane::host
