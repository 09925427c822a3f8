#include "msgstore/props/text_encoding.h"

namespace quorvane {

bool DecodeCodePage(std::string_view text, ULONG codePage, OleString& result)
{
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    if (length <= 0)
        return false;
    result.resize(static_cast<std::size_t>(length));
    return MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text.data(), size, result.data(), length) ==
           length;
}

}  // namespace quorvane
