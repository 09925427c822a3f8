// platform/com/upper_case.h: the simple upper case of a UTF-16 unit, the same on every system and in every
// release.
#ifndef QUORVANE_PLATFORM_COM_UPPER_CASE_H_
#define QUORVANE_PLATFORM_COM_UPPER_CASE_H_

#include "platform/com/com.h"

namespace quorvane {

// The simple upper case of one UTF-16 unit; surrogates and what has none stay as they are. No non-ASCII
// unit becomes an ASCII one.
OLECHAR UpperBeyondAscii(OLECHAR unit) noexcept;
inline OLECHAR UpperUnit(OLECHAR unit) noexcept
{
    if (unit < 0x80)
        return unit >= 'a' && unit <= 'z' ? static_cast<OLECHAR>(unit - ('a' - 'A')) : unit;
    return UpperBeyondAscii(unit);
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_UPPER_CASE_H_
