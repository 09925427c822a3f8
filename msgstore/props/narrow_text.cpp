#include "msgstore/props/narrow_text.h"

#include <algorithm>
#include <string_view>

#include "msgstore/props/little_endian.h"
#include "platform/com/utf8.h"

namespace quorvane {
namespace {

// Four letters at once: as units, as bytes, and what of either is beyond ASCII.
constexpr std::size_t kBlock = 4;
constexpr std::uint64_t kBeyondAsciiUnits = 0xFF80FF80FF80FF80;
constexpr std::uint32_t kBeyondAsciiBytes = 0x80808080;

std::uint32_t PackLetters(std::uint64_t units) noexcept
{
    units = (units | (units >> 8)) & 0x0000FFFF0000FFFF;
    return static_cast<std::uint32_t>(units | (units >> 16));
}

std::uint64_t SpreadLetters(std::uint32_t letters) noexcept
{
    std::uint64_t units = letters;
    units = (units | (units << 16)) & 0x0000FFFF0000FFFF;
    return (units | (units << 8)) & 0x00FF00FF00FF00FF;
}

// Writes the letters of ASCII that the units from `at` on begin with, and gives how many there were.
std::size_t NarrowLetters(const BYTE* units, std::size_t count, BYTE* to) noexcept
{
    std::size_t done = 0;
    for (; count - done >= kBlock; done += kBlock) {
        const auto block = LoadLittle<std::uint64_t>(units + 2 * done);
        if ((block & kBeyondAsciiUnits) != 0)
            break;
        StoreLittle(to + done, PackLetters(block));
    }
    for (; done < count && units[2 * done + 1] == 0 && units[2 * done] < 0x80; ++done)
        to[done] = units[2 * done];
    return done;
}

// The other way, of bytes.
std::size_t WidenLetters(const BYTE* letters, std::size_t count, BYTE* to) noexcept
{
    std::size_t done = 0;
    for (; count - done >= kBlock; done += kBlock) {
        const auto block = LoadLittle<std::uint32_t>(letters + done);
        if ((block & kBeyondAsciiBytes) != 0)
            break;
        StoreLittle(to + 2 * done, SpreadLetters(block));
    }
    for (; done < count && letters[done] < 0x80; ++done)
        StoreLittle(to + 2 * done, std::uint16_t{letters[done]});
    return done;
}

// The character at the front of the units, which are some, and how many of them it takes.
char32_t CharacterAt(const BYTE* units, std::size_t count, std::size_t& taken) noexcept
{
    OLECHAR both[2];
    const std::size_t seen = std::min<std::size_t>(count, 2);
    CopyLittle(both, units, seen, sizeof(OLECHAR));
    taken = 0;
    return NextUtf16(OleStringView(both, seen), taken);
}

}  // namespace

bool AppendNarrow(std::span<const BYTE> text, Bytes& to)
{
    if (text.size() % 2 != 0)
        return false;
    constexpr std::size_t kMostBytesOfAUnit = 3;  // the two of a pair take four
    const std::size_t count = text.size() / 2;
    const std::size_t before = to.size();
    to.resize(before + kMostBytesOfAUnit * count);
    BYTE* written = to.data() + before;
    std::string character;
    bool valid = true;
    for (std::size_t at = 0; valid;) {
        const std::size_t letters = NarrowLetters(text.data() + 2 * at, count - at, written);
        at += letters;
        written += letters;
        if (at == count)
            break;
        std::size_t taken = 0;
        const char32_t next = CharacterAt(text.data() + 2 * at, count - at, taken);
        at += taken;
        valid = next != kInvalidCharacter;
        character.clear();
        AppendUtf8(character, next);
        written = std::copy(character.begin(), character.end(), written);
    }
    const auto size = static_cast<std::size_t>(written - to.data()) - before;
    const bool narrower = valid && size < text.size();
    to.resize(narrower ? before + size : before);
    return narrower;
}

bool Widen(std::span<const BYTE> narrow, Bytes& text)
{
    const std::string_view bytes(reinterpret_cast<const char*>(narrow.data()), narrow.size());
    text.resize(2 * narrow.size());  // no character takes more units than bytes
    std::size_t written = 0;
    OleString units;
    for (std::size_t at = 0;;) {
        const std::size_t letters =
            WidenLetters(narrow.data() + at, narrow.size() - at, text.data() + 2 * written);
        at += letters;
        written += letters;
        if (at == bytes.size())
            break;
        const char32_t next = NextUtf8(bytes, at);
        if (next == kInvalidCharacter)
            return false;
        units.clear();
        AppendUtf16(units, next);
        CopyLittle(text.data() + 2 * written, units.data(), units.size(), sizeof(OLECHAR));
        written += units.size();
    }
    text.resize(2 * written);
    return true;
}

}  // namespace quorvane
