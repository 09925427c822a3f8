// items/bstr_order.h: the order of the collections that are keyed by text.
#ifndef QUORVANE_ENGINE_ITEMS_BSTR_ORDER_H_
#define QUORVANE_ENGINE_ITEMS_BSTR_ORDER_H_

#include "platform/com/bstr.h"

namespace quorvane {

// Key A stands before key B when VarBstrCmp says so for the user's locale.
struct BstrLess {
    using is_transparent = void;

    static bool Compare(BSTR a, BSTR b) noexcept
    {
        return VarBstrCmp(a, b, LOCALE_USER_DEFAULT, 0) == static_cast<HRESULT>(VARCMP_LT);
    }
    bool operator()(const Bstr& a, const Bstr& b) const noexcept { return Compare(a.Get(), b.Get()); }
    bool operator()(const Bstr& a, BSTR b) const noexcept { return Compare(a.Get(), b); }
    bool operator()(BSTR a, const Bstr& b) const noexcept { return Compare(a, b.Get()); }
};

inline bool BstrEqual(BSTR a, BSTR b) noexcept
{
    return VarBstrCmp(a, b, LOCALE_USER_DEFAULT, 0) == static_cast<HRESULT>(VARCMP_EQ);
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_ITEMS_BSTR_ORDER_H_
