#include "host/mirror/maildir_tree.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <system_error>

#include "host/base/errors.h"
#include "host/base/path_text.h"
#include "platform/com/utf8.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";
constexpr int kBitsOfUnit = 16;
constexpr int kBitsOfDigit = 6;

std::vector<std::string> Split(std::string_view text, char separator)
{
    std::vector<std::string> parts(1);
    for (const char c : text)
        if (c == separator)
            parts.emplace_back();
        else
            parts.back() += c;
    return parts;
}

bool IsPrintable(std::uint32_t c) noexcept
{
    return c >= 0x20 && c <= 0x7e;
}

bool IsPart(std::string_view name) noexcept
{
    return name == "cur" || name == "new" || name == "tmp";
}

std::string PlainName(const std::string& name, const std::string& folder)
{
    if (name.empty() || name.front() == '.' || IsPart(name) || name.find('\0') != std::string::npos)
        Fail("find a place in the Maildir for", folder, "'" + name + "' is another thing there");
    return name;
}

std::string DottedName(const std::string& name, const std::string& folder)
{
    if (name.empty() || name.find_first_of(std::string_view("./\0", 3)) != std::string::npos)
        Fail("find a place in the Maildir for", folder, "no name in it may hold a dot or a slash");
    return "." + ToModifiedUtf7(name);
}

void Take(std::set<std::string>& folders, const std::vector<std::string>& names)
{
    std::string path;
    for (const std::string& name : names)
        folders.insert(path += (path.empty() ? "" : "/") + name);
}

bool IsDirectory(const fs::path& path)
{
    std::error_code error;  // what can't be looked at is none
    return fs::is_directory(fs::symlink_status(path, error));
}

std::vector<std::string> DirectoriesIn(const fs::path& path)
{
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error))
        if (IsDirectory(entry->path()))
            names.push_back(entry->path().filename().string());
    if (error)
        Fail("read the directory", path.string(), error.message());
    std::sort(names.begin(), names.end());
    return names;
}

void TakeNested(const fs::path& directory, std::vector<std::string>& names, std::set<std::string>& folders)
{
    for (const std::string& name : DirectoriesIn(directory)) {
        if (name.front() == '.' || IsPart(name))
            continue;
        names.push_back(name);
        if (IsDirectory(directory / name / "cur"))
            Take(folders, names);
        TakeNested(directory / name, names, folders);
        names.pop_back();
    }
}

void TakeDotted(const fs::path& root, std::set<std::string>& folders)
{
    for (const std::string& directory : DirectoriesIn(root)) {
        if (directory.front() != '.' || !IsDirectory(root / directory / "cur"))
            continue;
        std::vector<std::string> names;
        for (const std::string& text : Split(directory.substr(1), '.'))
            names.push_back(FromModifiedUtf7(text).value_or(""));
        const bool isNamed = std::none_of(names.begin(), names.end(), [](const std::string& name) {
            return name.empty() || name.find_first_of(std::string_view("./\0", 3)) != std::string::npos;
        });
        if (isNamed)
            Take(folders, names);
    }
}

}  // namespace

std::string ToModifiedUtf7(std::string_view name)
{
    std::string text;
    std::uint32_t held = 0;
    int count = 0;  // of bits that are held
    bool isShifted = false;
    const auto put = [&](int bits) { text += kBase64[held << (kBitsOfDigit - bits) & 63]; };
    for (const OLECHAR unit : FromUtf8(name)) {
        const auto c = static_cast<std::uint16_t>(unit);
        if (IsPrintable(c)) {
            if (isShifted && count > 0)
                put(count);
            text += isShifted ? "-" : "";
            isShifted = false;
            held = 0;
            count = 0;
            text += c == '&' ? "&-" : std::string(1, static_cast<char>(c));
            continue;
        }
        text += isShifted ? "" : "&";
        isShifted = true;
        held = held << kBitsOfUnit | c;
        for (count += kBitsOfUnit; count >= kBitsOfDigit; count -= kBitsOfDigit)
            text += kBase64[held >> (count - kBitsOfDigit) & 63];
        held &= (1U << count) - 1;
    }
    if (isShifted && count > 0)
        put(count);
    return text + (isShifted ? "-" : "");
}

// What would be written in another way is no name: one directory stands for one folder.
std::optional<std::string> FromModifiedUtf7(std::string_view text)
{
    OleString name;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '&') {
            name += static_cast<OLECHAR>(static_cast<unsigned char>(text[at]));
            continue;
        }
        const std::size_t end = text.find('-', at);
        if (end == std::string_view::npos)
            return std::nullopt;
        if (end == at + 1)
            name += static_cast<OLECHAR>('&');
        std::uint32_t held = 0;
        int count = 0;
        for (const char c : text.substr(at + 1, end - at - 1)) {
            const std::size_t digit = kBase64.find(c);
            if (digit == std::string_view::npos)
                return std::nullopt;
            held = (held << kBitsOfDigit | static_cast<std::uint32_t>(digit)) & 0x3fffff;
            if ((count += kBitsOfDigit) < kBitsOfUnit)
                continue;
            count -= kBitsOfUnit;
            name += static_cast<OLECHAR>(held >> count & 0xffff);
        }
        at = end;
    }
    const std::string plain = ToUtf8(name);
    return ToModifiedUtf7(plain) == text ? std::optional(plain) : std::nullopt;
}

fs::path PlaceInTree(const fs::path& root, const std::string& folder, TreeLayout layout)
{
    fs::path place = root;
    std::string dotted;
    for (const std::string& name : Split(folder, '/'))
        if (layout == TreeLayout::kNested)
            place /= PathOf(PlainName(name, folder));
        else
            dotted += DottedName(name, folder);
    return dotted.empty() ? place : place / PathOf(dotted);
}

std::vector<std::string> FoldersInTree(const fs::path& root, TreeLayout layout)
{
    std::set<std::string> folders;
    std::vector<std::string> names;
    if (!IsDirectory(root))
        return {};
    if (layout == TreeLayout::kNested)
        TakeNested(root, names, folders);
    else
        TakeDotted(root, folders);
    return {folders.begin(), folders.end()};
}

}  // namespace quorvane::host
