#include "host/mail/file_form.h"

#include <algorithm>

#include "quorvane3/com.h"

namespace quorvane {
namespace {

bool IsLetterOfAName(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

constexpr OLECHAR kMark = 0xFEFF;

}  // namespace

// By its mark, or by the zero bytes of its first letters.
Utf16File::Utf16File(std::string_view beginning) noexcept : order_(Order::kNo)
{
    if (beginning.starts_with("\xFF\xFE")) {
        order_ = Order::kLittle;
    } else if (beginning.starts_with("\xFE\xFF")) {
        order_ = Order::kBig;
    } else if (beginning.size() >= 4) {
        const auto letters = [&](std::size_t zero, std::size_t letter) {
            return beginning[zero] == '\0' && beginning[zero + 2] == '\0' &&
                   IsLetterOfAName(beginning[letter]) && IsLetterOfAName(beginning[letter + 2]);
        };
        if (letters(0, 1))
            order_ = Order::kBig;
        else if (letters(1, 0))
            order_ = Order::kLittle;
    }
}

void Utf16File::Put(std::string_view piece, std::string& text)
{
    held_.append(piece);
    OleString wide;
    wide.reserve(held_.size() / 2);
    std::size_t at = 0;
    for (; at + 1 < held_.size(); at += 2) {
        const auto first = static_cast<unsigned char>(held_[at]);
        const auto second = static_cast<unsigned char>(held_[at + 1]);
        wide.push_back(
            static_cast<OLECHAR>(order_ == Order::kBig ? first << 8 | second : second << 8 | first));
    }
    if (!wide.empty() && wide.back() >= 0xD800 && wide.back() < 0xDC00) {
        wide.pop_back();
        at -= 2;
    }
    held_.erase(0, at);
    OleStringView rest = wide;
    if (!begun_ && !rest.empty() && rest.front() == kMark)
        rest.remove_prefix(1);
    begun_ = begun_ || !wide.empty();
    text += CleanUtf8(ToUtf8(rest));
}

void Utf16File::End(std::string& text)
{
    if (held_.size() >= 2)
        AppendUtf8(text, kReplacement);
    if (held_.size() % 2 != 0)
        AppendUtf8(text, kReplacement);
    held_.clear();
}

void RepairForm(std::string& bytes)
{
    if (Utf16File file(bytes); file.Is()) {
        std::string text;
        file.Put(bytes, text);
        file.End(text);
        bytes = std::move(text);
    }
    if (bytes.find('\r') != std::string::npos && bytes.find('\n') == std::string::npos)
        std::replace(bytes.begin(), bytes.end(), '\r', '\n');
}

}  // namespace quorvane
