// What the tests of variants and of safe arrays share.
#ifndef QUORVANE_PLATFORM_COM_VARIANT_FOR_TEST_H_
#define QUORVANE_PLATFORM_COM_VARIANT_FOR_TEST_H_

#include "platform/com/com_object.h"
#include "platform/com/variant.h"

namespace quorvane {

class CPlain final : public ComObject<CPlain, IUnknown> {};

inline ULONG ReferencesOf(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

inline Variant OfType(VARTYPE type)
{
    Variant value;
    value.Raw().vt = type;
    return value;
}

// The text that a value becomes; the code of the failure where it becomes none.
inline OleString AsText(Variant value, USHORT flags = 0)
{
    const HRESULT hr = VariantChangeType(&value.Raw(), &value.Raw(), flags, VT_BSTR);
    return SUCCEEDED(hr) ? OleString(ViewOf(value.Raw().bstrVal))
                         : OLESTR("failed ") + Widen(std::to_string(hr));
}

inline HRESULT ToType(Variant& value, VARTYPE type)
{
    return value.ChangeType(type);
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_VARIANT_FOR_TEST_H_
