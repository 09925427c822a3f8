#include <iconv.h>

#include <string>

#include "msgstore/props/text_encoding.h"

namespace quorvane {
namespace {

// One conversion of the system's, from a code page to UTF-16.
class Converter {
public:
    explicit Converter(const std::string& from) : handle_(iconv_open("UTF-16LE", from.c_str())) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter()
    {
        if (IsOpen())
            iconv_close(handle_);
    }

    bool IsOpen() const noexcept { return handle_ != reinterpret_cast<iconv_t>(-1); }

    bool Convert(std::string_view text, OleString& result)
    {
        result.assign(text.size() * 2 + 1, OLECHAR{});
        char* in = const_cast<char*>(text.data());
        std::size_t inLeft = text.size();
        char* out = reinterpret_cast<char*>(result.data());
        std::size_t outLeft = result.size() * sizeof(OLECHAR);
        if (iconv(handle_, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1) || inLeft != 0)
            return false;
        result.resize(result.size() - outLeft / sizeof(OLECHAR));
        return true;
    }

private:
    iconv_t handle_;
};

// The system's name of a code page: most are CP and the number; these go by their standards' names.
std::string NameOf(ULONG codePage)
{
    switch (codePage) {
        case 20127:
            return "US-ASCII";
        case 20866:
            return "KOI8-R";
        case 21866:
            return "KOI8-U";
        case 20932:
        case 51932:
            return "EUC-JP";
        case 50220:
        case 50221:
        case 50222:
            return "ISO-2022-JP";
        case 50225:
            return "ISO-2022-KR";
        case 51936:
            return "EUC-CN";
        case 51949:
            return "EUC-KR";
        case 52936:
            return "HZ";
        case 54936:
            return "GB18030";
        case 65000:
            return "UTF-7";
        default:
            break;
    }
    if (codePage > 28590 && codePage <= 28605)
        return "ISO-8859-" + std::to_string(codePage - 28590);
    return "CP" + std::to_string(codePage);
}

}  // namespace

bool DecodeCodePage(std::string_view text, ULONG codePage, OleString& result)
{
    Converter converter(NameOf(codePage));
    return converter.IsOpen() && converter.Convert(text, result);
}

}  // namespace quorvane
