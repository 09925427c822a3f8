#include "platform/com/bstr.h"

namespace quorvane {

std::string Narrow(OleStringView text)
{
    return ToUtf8(text);
}

OleString Widen(std::string_view text)
{
    return FromUtf8(text);
}

}  // namespace quorvane
