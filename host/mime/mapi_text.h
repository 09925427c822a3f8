// host/mime/mapi_text.h: text as MAPI takes it.
#ifndef QUORVANE_HOST_MIME_MAPI_TEXT_H_
#define QUORVANE_HOST_MIME_MAPI_TEXT_H_

#include <algorithm>
#include <string_view>

#include "quorvane3/com.h"

namespace quorvane {

// UTF-16 that ends where its first zero stands, so it has none of its own: cleaned as by CleanUtf8.
inline OleString MapiText(std::string_view text)
{
    OleString wide = FromUtf8(text);
    std::replace(wide.begin(), wide.end(), OLECHAR{0}, static_cast<OLECHAR>(kReplacement));
    return wide;
}

}  // namespace quorvane

#endif  // QUORVANE_HOST_MIME_MAPI_TEXT_H_
