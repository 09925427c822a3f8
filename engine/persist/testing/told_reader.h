// persist/testing/told_reader.h: reads a hash file by its format alone, knowing nothing of how it was
// written.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_TOLD_READER_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_TOLD_READER_H_

#include <bit>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <string>

namespace quorvane::testing {

static_assert(std::endian::native == std::endian::little);

using ToldMap = std::map<std::u16string, std::u16string>;

inline std::string ReadBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    std::string bytes(file ? static_cast<size_t>(file.tellg()) : 0, '\0');
    file.seekg(0);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

// One string at `at`, which moves behind it; nothing for null and for damage.
inline std::optional<std::u16string> ReadToldString(const std::string& bytes, size_t& at)
{
    if (bytes.size() - at < 4)
        return std::nullopt;
    std::uint32_t size = 0;
    for (int i = 3; i >= 0; --i)
        size = (size << 8) | static_cast<unsigned char>(bytes[at + static_cast<size_t>(i)]);
    if (size < 2 || size > 0x100000 || bytes.size() - at - 4 < size)
        return std::nullopt;
    const char* const text = bytes.data() + at + 4;
    if (text[size - 2] != 0 || text[size - 1] != 0)
        return std::nullopt;
    // Both sides have the lower byte first.
    std::u16string result(size / 2 - 1, u'\0');
    std::memcpy(result.data(), text, 2 * result.size());
    at += 4 + size;
    return result;
}

inline bool IsNullString(const std::string& bytes, size_t at)
{
    return bytes.size() - at >= 4 && bytes.compare(at, 4, std::string(4, '\0')) == 0;
}

inline ToldMap ReadTold(const std::string& bytes)
{
    ToldMap map;
    size_t at = 0;
    for (;;) {
        const auto key = ReadToldString(bytes, at);
        if (!key)
            return map;
        if (IsNullString(bytes, at)) {
            at += 4;
            map[*key] = u"";
            continue;
        }
        const auto value = ReadToldString(bytes, at);
        if (!value)
            return map;
        map[*key] = *value;
    }
}

inline std::string ToldString(const std::u16string& text)
{
    std::string bytes;
    const auto size = static_cast<std::uint32_t>(2 * text.size() + 2);
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(size >> shift);
    return bytes.append(reinterpret_cast<const char*>(text.c_str()), size);
}

inline std::string ToldRecord(const std::u16string& key, const std::u16string& value)
{
    return ToldString(key) + ToldString(value);
}

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_TOLD_READER_H_
