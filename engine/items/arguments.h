// items/arguments.h: [in] VARIANTs that borrow what they hold, for calls to the object model.
#ifndef QUORVANE_ENGINE_ITEMS_ARGUMENTS_H_
#define QUORVANE_ENGINE_ITEMS_ARGUMENTS_H_

#include "platform/com/com.h"

namespace quorvane {

// VT_EMPTY.
inline VARIANT NoArgument() noexcept
{
    VARIANT argument;
    VariantInit(&argument);
    return argument;
}

// A text, borrowed for the call.
inline VARIANT TextArgument(BSTR text) noexcept
{
    VARIANT argument = NoArgument();
    argument.vt = VT_BSTR;
    argument.bstrVal = text;
    return argument;
}

inline VARIANT NumberArgument(LONG number) noexcept
{
    VARIANT argument = NoArgument();
    argument.vt = VT_I4;
    argument.lVal = number;
    return argument;
}

// A property tag.
inline VARIANT TagArgument(ULONG tag) noexcept
{
    return NumberArgument(static_cast<LONG>(tag));
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_ARGUMENTS_H_
