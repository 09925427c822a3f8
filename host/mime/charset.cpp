#include "host/mime/charset.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "host/mail/ascii.h"
#include "quorvane3/com.h"

namespace quorvane {
namespace {

struct Charset {
    std::string_view name;  // as mail writes it, in lower case; of a literal, so that a zero ends it
    ULONG codePage;         // 0: none
    const char* decoder;    // iconv's name of the charset that reads it best
};

// The first entry of a code page is the name that goes into new mail.
constexpr auto kCharsets = std::to_array<Charset>({
    {"us-ascii", 20127, ""},
    {"ascii", 20127, ""},
    {"ansi_x3.4-1968", 20127, ""},
    {"utf-8", 65001, "UTF-8"},
    {"utf8", 65001, "UTF-8"},
    {"unicode-1-1-utf-8", 65001, "UTF-8"},
    {"utf-7", 65000, "UTF-7"},
    {"unicode-1-1-utf-7", 65000, "UTF-7"},
    {"utf-16", 1200, "UTF-16"},
    {"utf-16le", 1200, "UTF-16LE"},
    {"utf-16be", 1201, "UTF-16BE"},
    {"ucs-2", 1200, "UTF-16"},
    {"utf-32", 12000, "UTF-32"},
    {"iso-8859-1", 28591, "WINDOWS-1252"},
    {"iso8859-1", 28591, "WINDOWS-1252"},
    {"latin1", 28591, "WINDOWS-1252"},
    {"iso_8859-1", 28591, "WINDOWS-1252"},
    {"windows-1252", 1252, "WINDOWS-1252"},
    {"cp1252", 1252, "WINDOWS-1252"},
    {"iso-8859-2", 28592, "ISO-8859-2"},
    {"iso-8859-3", 28593, "ISO-8859-3"},
    {"iso-8859-4", 28594, "ISO-8859-4"},
    {"iso-8859-5", 28595, "ISO-8859-5"},
    {"iso-8859-6", 28596, "ISO-8859-6"},
    {"iso-8859-7", 28597, "ISO-8859-7"},
    {"iso-8859-8", 28598, "ISO-8859-8"},
    {"iso-8859-8-i", 38598, "ISO-8859-8"},
    {"iso-8859-8-e", 38598, "ISO-8859-8"},
    {"iso-8859-9", 28599, "WINDOWS-1254"},
    {"iso-8859-13", 28603, "ISO-8859-13"},
    {"iso-8859-15", 28605, "ISO-8859-15"},
    {"latin-9", 28605, "ISO-8859-15"},
    {"windows-1250", 1250, "WINDOWS-1250"},
    {"windows-1251", 1251, "WINDOWS-1251"},
    {"cp1251", 1251, "WINDOWS-1251"},
    {"windows-1253", 1253, "WINDOWS-1253"},
    {"windows-1254", 1254, "WINDOWS-1254"},
    {"windows-1255", 1255, "WINDOWS-1255"},
    {"windows-1256", 1256, "WINDOWS-1256"},
    {"windows-1257", 1257, "WINDOWS-1257"},
    {"windows-1258", 1258, "WINDOWS-1258"},
    {"windows-874", 874, "WINDOWS-874"},
    {"tis-620", 874, "WINDOWS-874"},
    {"iso-8859-11", 874, "WINDOWS-874"},
    {"koi8-r", 20866, "KOI8-R"},
    {"koi8-u", 21866, "KOI8-U"},
    {"gb2312", 936, "GB18030"},
    {"gbk", 936, "GB18030"},
    {"x-gbk", 936, "GB18030"},
    {"cp936", 936, "GB18030"},
    {"gb_2312-80", 936, "GB18030"},
    {"gb18030", 54936, "GB18030"},
    {"big5", 950, "CP950"},
    {"big5-hkscs", 951, "BIG5-HKSCS"},
    {"shift_jis", 932, "CP932"},
    {"shift-jis", 932, "CP932"},
    {"sjis", 932, "CP932"},
    {"x-sjis", 932, "CP932"},
    {"windows-31j", 932, "CP932"},
    {"cp932", 932, "CP932"},
    {"iso-2022-jp", 50220, "ISO-2022-JP-3"},
    {"iso-2022-jp-2", 50220, "ISO-2022-JP-2"},
    {"euc-jp", 51932, "EUC-JP"},
    {"x-euc-jp", 51932, "EUC-JP"},
    {"ks_c_5601-1987", 949, "CP949"},
    {"euc-kr", 51949, "CP949"},
    {"cp949", 949, "CP949"},
    {"iso-2022-kr", 50225, "ISO-2022-KR"},
    {"macintosh", 10000, "MACINTOSH"},
    {"x-mac-roman", 10000, "MACINTOSH"},
    {"x-mac-cyrillic", 10007, "MAC-CYRILLIC"},
    {"ibm437", 437, "IBM437"},
    {"cp437", 437, "IBM437"},
    {"ibm850", 850, "IBM850"},
    {"cp850", 850, "IBM850"},
    {"ibm852", 852, "IBM852"},
    {"cp866", 866, "IBM866"},
});

std::string NormalName(std::string_view charset)
{
    std::string name = LowerAscii(charset);
    std::erase_if(name, [](char c) { return c == '"' || c == '\'' || c == ' '; });
    return name;
}

// Some write koi8_r, or windows_1252.
std::string WithDashes(std::string name)
{
    std::replace(name.begin(), name.end(), '_', '-');
    return name;
}

const Charset* FindCharset(std::string_view charset)
{
    std::string name = NormalName(charset);
    if (name.empty())
        return nullptr;
    const auto isName = [&](const Charset& c) { return name == c.name; };
    auto found = std::find_if(kCharsets.begin(), kCharsets.end(), isName);
    if (found == kCharsets.end()) {
        name = WithDashes(name);
        found = std::find_if(kCharsets.begin(), kCharsets.end(), isName);
    }
    return found == kCharsets.end() ? nullptr : &*found;
}

constexpr std::size_t kLongestMark = 3;

// Without a byte order mark, text counts as little-endian, as its writers are.
const char* Utf16Order(std::string& bytes)
{
    const bool big = bytes.starts_with("\xFE\xFF");
    if (big || bytes.starts_with("\xFF\xFE"))
        bytes.erase(0, 2);
    return big ? "UTF-16BE" : "UTF-16LE";
}

}  // namespace

// One conversion to UTF-8.
class CharsetConverter {
public:
    explicit CharsetConverter(const char* from) : handle_(g_iconv_open("UTF-8", from)) {}
    ~CharsetConverter()
    {
        if (Works())
            g_iconv_close(handle_);
    }
    CharsetConverter(const CharsetConverter&) = delete;
    CharsetConverter& operator=(const CharsetConverter&) = delete;

    bool Works() const noexcept
    {
        return handle_ != reinterpret_cast<GIConv>(-1);
    }  // NOLINT: iconv's failure mark

    void Put(std::string_view bytes, std::string& text)
    {
        held_.append(bytes);
        held_.erase(0, Convert(held_, false, text));
    }

    void End(std::string& text)
    {
        static_cast<void>(Convert(held_, true, text));
        held_.clear();
        // A charset with combining characters holds the last one back until it is told of the end.
        std::array<char, 64> buffer;
        char* out = buffer.data();
        gsize room = buffer.size();
        g_iconv(handle_, nullptr, nullptr, &out, &room);
        text.append(buffer.data(), buffer.size() - room);
    }

private:
    // How many bytes were taken: all, or up to a character that isn't whole yet.
    std::size_t Convert(std::string_view bytes, bool final, std::string& text)
    {
        std::array<char, 16384> buffer;
        auto* in = const_cast<char*>(bytes.data());
        gsize left = bytes.size();
        while (left > 0) {
            char* out = buffer.data();
            gsize room = buffer.size();
            const gsize result = g_iconv(handle_, &in, &left, &out, &room);
            const int failure = errno;
            text.append(buffer.data(), buffer.size() - room);
            if (result != static_cast<gsize>(-1) || failure == E2BIG)
                continue;
            if (failure == EINVAL && !final)
                break;
            SkipByte(text, in, left);
        }
        return bytes.size() - left;
    }

    static void SkipByte(std::string& text, char*& in, gsize& left)
    {
        AppendUtf8(text, kReplacement);
        ++in;
        --left;
    }

    GIConv handle_;
    std::string held_;  // a character that isn't whole yet
};

TextDecoder::TextDecoder(std::string_view charset, const std::function<bool()>& isUtf8)
{
    const Charset* const known = FindCharset(charset);
    std::string name = known ? known->decoder : NormalName(charset);
    if (name == "UTF-8" || name == "UTF-16") {
        mark_ = name == "UTF-8" ? Mark::kUtf8 : Mark::kUtf16;
        return;
    }
    if (!name.empty())
        converter_ = std::make_unique<CharsetConverter>(name.c_str());
    if ((!converter_ || !converter_->Works()) && !isUtf8())
        converter_ = std::make_unique<CharsetConverter>("WINDOWS-1252");
    if (converter_ && !converter_->Works())
        converter_.reset();
}

TextDecoder::TextDecoder(TextDecoder&&) noexcept = default;
TextDecoder::~TextDecoder() = default;

void TextDecoder::TakeMark()
{
    if (mark_ == Mark::kUtf16)
        converter_ = std::make_unique<CharsetConverter>(Utf16Order(beginning_));
    else if (beginning_.starts_with("\xEF\xBB\xBF"))
        beginning_.erase(0, kLongestMark);
    mark_ = Mark::kNone;
}

void TextDecoder::Decode(std::string_view bytes, std::string& text)
{
    if (!converter_)
        return cleaner_.Put(bytes, text);
    std::string converted;
    converter_->Put(bytes, converted);
    text += CleanUtf8(converted);
}

void TextDecoder::Put(std::string_view bytes, std::string& text)
{
    if (mark_ == Mark::kNone)
        return Decode(bytes, text);
    beginning_.append(bytes);
    if (beginning_.size() < kLongestMark)
        return;
    TakeMark();
    Decode(beginning_, text);
}

void TextDecoder::End(std::string& text)
{
    if (mark_ != Mark::kNone) {
        TakeMark();
        Decode(beginning_, text);
    }
    if (!converter_)
        return cleaner_.End(text);
    std::string converted;
    converter_->End(converted);
    text += CleanUtf8(converted);
}

std::string DecodeText(std::string_view bytes, std::string_view charset)
{
    TextDecoder decoder(charset, [&] { return IsUtf8(bytes); });
    std::string text;
    text.reserve(bytes.size());
    decoder.Put(bytes, text);
    decoder.End(text);
    return text;
}

std::optional<ULONG> CodePageOfCharset(std::string_view charset)
{
    const Charset* const known = FindCharset(charset);
    if (!known || known->codePage == 0)
        return std::nullopt;
    return known->codePage;
}

const char* CharsetOfCodePage(ULONG codePage) noexcept
{
    const auto found = std::find_if(kCharsets.begin(), kCharsets.end(),
                                    [&](const Charset& c) { return c.codePage == codePage; });
    return found == kCharsets.end() ? nullptr : found->name.data();
}

}  // namespace quorvane
