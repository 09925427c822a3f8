#include "host/mirror/maildir_name.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <random>

namespace quorvane::host {

namespace {

constexpr std::string_view kInfoMark = ":2,";
constexpr std::string_view kUidMark = ",U=";

struct MarkLetter {
    Marks mark;
    char letter;
};
constexpr MarkLetter kMarkLetters[] = {{kMarkRead, 'S'},      {kMarkFlagged, 'F'}, {kMarkAnswered, 'R'},
                                       {kMarkForwarded, 'P'}, {kMarkDraft, 'D'},   {kMarkForDeletion, 'T'}};

bool IsLetter(char c) noexcept
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool IsDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

// The letters at the beginning of an info part.
std::string_view LettersOf(std::string_view info) noexcept
{
    return info.substr(
        0, static_cast<std::size_t>(std::find_if_not(info.begin(), info.end(), IsLetter) - info.begin()));
}

}  // namespace

MaildirName::MaildirName(std::string_view name)
{
    const std::size_t mark = name.rfind(kInfoMark);
    hasInfo = mark != std::string_view::npos;
    base = name.substr(0, mark);
    if (hasInfo)
        info = name.substr(mark + kInfoMark.size());
}

Marks MarksOfInfo(std::string_view info) noexcept
{
    const std::string_view letters = LettersOf(info);
    Marks marks = 0;
    for (const MarkLetter& one : kMarkLetters)
        if (letters.find(one.letter) != std::string_view::npos)
            marks = static_cast<Marks>(marks | one.mark);
    return marks;
}

std::string InfoWith(std::string_view info, Marks marks)
{
    const std::string_view before = LettersOf(info);
    std::string letters(before);
    for (const MarkLetter& one : kMarkLetters) {
        std::erase(letters, one.letter);
        if ((marks & one.mark) != 0)
            letters += one.letter;
    }
    std::sort(letters.begin(), letters.end());
    return letters + std::string(info.substr(before.size()));
}

std::string BaseElsewhere(std::string_view base)
{
    const std::size_t at = base.find(kUidMark);
    if (at == std::string_view::npos)
        return std::string(base);
    std::size_t end = at + kUidMark.size();
    while (end < base.size() && IsDigit(base[end]))
        ++end;
    return std::string(base.substr(0, at)) + std::string(base.substr(end));
}

std::string NewBase()
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text = std::to_string(std::time(nullptr)) + ".R";
    std::random_device random;
    for (int word = 0; word < 2; ++word)
        for (std::uint32_t bits = random(), left = 8; left > 0; --left, bits >>= 4)
            text += kDigits[bits & 15];
    return text + ".quorvane";
}

}  // namespace quorvane::host
