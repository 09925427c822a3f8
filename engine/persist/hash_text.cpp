#include "engine/persist/hash_text.h"

namespace quorvane {
namespace {

// The first byte of a packed text tells how the rest stands for it. The first form that can hold a text is
// its form.
enum Form : char {
    kHexDigits = 1,  // a byte for two uppercase hexadecimal digits
    kNarrow = 2,     // a byte for a character below 256
    kWide = 3,       // two bytes for a character, little-endian
    kDigest = 4,     // sixteen bytes for 32 lowercase hexadecimal digits, then as kNarrow
};

// What a digest takes in a text, and packed.
constexpr size_t kDigestDigits = 32;
constexpr size_t kDigestBytes = kDigestDigits / 2;

constexpr char kDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";

constexpr unsigned ByteOf(char c) noexcept
{
    return static_cast<unsigned char>(c);
}

// A text as the file has it.
class FileText {
public:
    FileText(const char* bytes, size_t characters) noexcept : bytes_(bytes), size_(characters) {}
    size_t size() const noexcept { return size_; }
    OLECHAR operator[](size_t i) const noexcept
    {
        return static_cast<OLECHAR>(ByteOf(bytes_[2 * i]) | (ByteOf(bytes_[2 * i + 1]) << 8));
    }

private:
    const char* bytes_;
    size_t size_;
};

constexpr bool IsUpperHex(OLECHAR c) noexcept
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

constexpr bool IsLowerHex(OLECHAR c) noexcept
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

constexpr unsigned HexValue(OLECHAR c) noexcept
{
    return c <= '9' ? c - '0' : c - (c >= 'a' ? 'a' : 'A') + 10u;
}

template <class Text>
bool BeginsWithDigest(const Text& text) noexcept
{
    if (text.size() < kDigestDigits)
        return false;
    for (size_t i = 0; i < kDigestDigits; ++i) {
        if (!IsLowerHex(text[i]))
            return false;
    }
    return true;
}

template <class Text>
Form FormFor(const Text& text) noexcept
{
    size_t hexDigits = 0;
    while (hexDigits < text.size() && IsUpperHex(text[hexDigits]))
        ++hexDigits;
    if (hexDigits == text.size() && hexDigits > 0 && hexDigits % 2 == 0)
        return kHexDigits;
    for (size_t i = hexDigits; i < text.size(); ++i) {
        if (text[i] >= 0x100)
            return kWide;
    }
    return BeginsWithDigest(text) ? kDigest : kNarrow;
}

// Digits from the beginning of a text, two to a byte.
template <class Text>
void PackDigits(const Text& text, size_t digits, std::string& packed)
{
    for (size_t i = 0; i < digits; i += 2)
        packed += static_cast<char>((HexValue(text[i]) << 4) | HexValue(text[i + 1]));
}

template <class Text>
void Pack(const Text& text, std::string& packed)
{
    const Form form = FormFor(text);
    const size_t count = text.size();
    packed.assign(1, form);
    if (form == kHexDigits) {
        packed.reserve(1 + count / 2);
        PackDigits(text, count, packed);
        return;
    }
    const size_t digits = form == kDigest ? kDigestDigits : 0;
    packed.reserve(1 + (form == kWide ? 2 * count : count - digits / 2));
    PackDigits(text, digits, packed);
    for (size_t i = digits; i < count; ++i) {
        packed += static_cast<char>(text[i] & 0xFF);
        if (form == kWide)
            packed += static_cast<char>(text[i] >> 8);
    }
}

// Calls `put` with each character of a packed text that isn't null.
template <class Put>
void ForEachCharacter(std::string_view packed, Put put)
{
    const char form = packed[0];
    for (size_t i = 1; i < packed.size(); i += form == kWide ? 2 : 1) {
        const unsigned byte = ByteOf(packed[i]);
        if (form == kHexDigits || (form == kDigest && i <= kDigestBytes)) {
            const char* const digits = form == kDigest ? kLowerDigits : kDigits;
            put(static_cast<OLECHAR>(digits[byte >> 4]));
            put(static_cast<OLECHAR>(digits[byte & 15]));
        } else {
            put(static_cast<OLECHAR>(form == kWide ? byte | (ByteOf(packed[i + 1]) << 8) : byte));
        }
    }
}

}  // namespace

std::string PackHashText(OleStringView text)
{
    std::string packed;
    Pack(text, packed);
    return packed;
}

void PackHashBytes(const char* bytes, size_t characters, std::string& packed)
{
    Pack(FileText(bytes, characters), packed);
}

OleString UnpackHashText(std::string_view packed)
{
    OleString text;
    if (packed.empty())
        return text;
    text.reserve(packed[0] == kHexDigits ? 2 * packed.size() : packed.size() + kDigestBytes);
    ForEachCharacter(packed, [&](OLECHAR c) { text += c; });
    return text;
}

std::uint64_t HashStringBytes(std::string_view packed) noexcept
{
    if (packed.empty())
        return 0;
    const std::uint64_t rest = packed.size() - 1;
    if (packed[0] == kDigest)
        return 2 * (rest + kDigestBytes) + kHashTerminatorSize;
    const unsigned factor = packed[0] == kHexDigits ? 4 : packed[0] == kNarrow ? 2 : 1;
    return factor * rest + kHashTerminatorSize;
}

void AppendHashCharacters(std::string& bytes, std::string_view packed)
{
    if (packed.empty())
        return;
    const size_t start = bytes.size();
    bytes.resize(start + static_cast<size_t>(HashStringBytes(packed)) - kHashTerminatorSize);
    char* to = bytes.data() + start;
    ForEachCharacter(packed, [&](OLECHAR c) {
        *to++ = static_cast<char>(c & 0xFF);
        *to++ = static_cast<char>(c >> 8);
    });
}

void AppendHashString(std::string& bytes, std::string_view packed)
{
    AppendLittleEndian32(bytes, static_cast<std::uint32_t>(HashStringBytes(packed)));
    if (packed.empty())
        return;
    AppendHashCharacters(bytes, packed);
    bytes.append(kHashTerminatorSize, '\0');
}

void AppendLittleEndian32(std::string& bytes, std::uint32_t value)
{
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>((value >> shift) & 0xFF);
}

std::uint32_t ReadLittleEndian32(const char* bytes) noexcept
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < 4; ++i)
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return value;
}

}  // namespace quorvane
