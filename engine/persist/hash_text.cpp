#include "engine/persist/hash_text.h"

#include <algorithm>

namespace quorvane {
namespace {

// The first byte of a packed text tells how the rest stands for it. The first form that can hold a text is
// its form.
enum Form : char {
    kHexDigits = 1,  // a byte for two uppercase hexadecimal digits
    kNarrow = 2,     // a byte for a character below 256
    kWide = 3,       // two bytes for a character, little-endian
};

constexpr char kDigits[] = "0123456789ABCDEF";

constexpr bool IsUpperHex(OLECHAR c) noexcept
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

constexpr unsigned HexValue(OLECHAR c) noexcept
{
    return c <= '9' ? c - '0' : c - 'A' + 10u;
}

Form FormFor(OleStringView text) noexcept
{
    if (!text.empty() && text.size() % 2 == 0 && std::ranges::all_of(text, IsUpperHex))
        return kHexDigits;
    return std::ranges::all_of(text, [](OLECHAR c) { return c < 0x100; }) ? kNarrow : kWide;
}

unsigned ByteAt(const std::string& bytes, size_t at) noexcept
{
    return static_cast<unsigned char>(bytes[at]);
}

}  // namespace

std::string PackHashText(OleStringView text)
{
    const Form form = FormFor(text);
    std::string packed(1, form);
    packed.reserve(1 + (form == kHexDigits ? text.size() / 2
                        : form == kNarrow  ? text.size()
                                           : 2 * text.size()));
    if (form == kHexDigits) {
        for (size_t i = 0; i < text.size(); i += 2)
            packed += static_cast<char>((HexValue(text[i]) << 4) | HexValue(text[i + 1]));
        return packed;
    }
    for (const OLECHAR c : text) {
        packed += static_cast<char>(c & 0xFF);
        if (form == kWide)
            packed += static_cast<char>(c >> 8);
    }
    return packed;
}

OleString UnpackHashText(const std::string& packed)
{
    OleString text;
    if (packed.empty())
        return text;
    const char form = packed[0];
    text.reserve(form == kHexDigits ? 2 * packed.size() : packed.size());
    for (size_t i = 1; i < packed.size(); i += form == kWide ? 2 : 1) {
        const unsigned byte = ByteAt(packed, i);
        if (form == kHexDigits) {
            text += static_cast<OLECHAR>(kDigits[byte >> 4]);
            text += static_cast<OLECHAR>(kDigits[byte & 15]);
        } else {
            text += static_cast<OLECHAR>(form == kWide ? byte | (ByteAt(packed, i + 1) << 8) : byte);
        }
    }
    return text;
}

std::uint64_t HashStringBytes(const std::string& packed) noexcept
{
    if (packed.empty())
        return 0;
    const std::uint64_t rest = packed.size() - 1;
    const unsigned factor = packed[0] == kHexDigits ? 4 : packed[0] == kNarrow ? 2 : 1;
    return factor * rest + kHashTerminatorSize;
}

void AppendHashString(std::string& bytes, const std::string& packed)
{
    AppendLittleEndian32(bytes, static_cast<std::uint32_t>(HashStringBytes(packed)));
    if (packed.empty())
        return;
    for (const OLECHAR c : UnpackHashText(packed)) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
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
