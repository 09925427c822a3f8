// msgstore/store/text_argument.h: callers' text, which comes in two widths.
#ifndef QUORVANE_MSGSTORE_STORE_TEXT_ARGUMENT_H_
#define QUORVANE_MSGSTORE_STORE_TEXT_ARGUMENT_H_

#include <string>

#include "platform/com/bstr.h"
#include "platform/mapi/mapi.h"

namespace quorvane {

// UTF-8 of a text that is UTF-16 with MAPI_UNICODE among the flags and of the ANSI code page without. Null is
// empty. Throws std::bad_alloc.
inline std::string TextArgument(LPTSTR text, ULONG flags)
{
    if (!text)
        return {};
    if ((flags & MAPI_UNICODE) != 0)
        return ToUtf8(reinterpret_cast<LPCWSTR>(text));
    return ToUtf8(Widen(reinterpret_cast<const char*>(text)));
}

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_TEXT_ARGUMENT_H_
