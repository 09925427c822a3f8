// platform/com/enum_variant.h: an IEnumVARIANT over values that were copied when it was made.
#ifndef QUORVANE_PLATFORM_COM_ENUM_VARIANT_H_
#define QUORVANE_PLATFORM_COM_ENUM_VARIANT_H_

#include <memory>
#include <vector>

#include "platform/com/com_object.h"
#include "platform/com/variant.h"

namespace quorvane {

// Next: S_OK when all that were asked for came, S_FALSE when fewer did; Skip: S_FALSE past the end.
// Clones share the values and have a position each. One thread at a time per enumerator.
class CEnumVariant final : public ComObject<CEnumVariant, IEnumVARIANT> {
public:
    using Values = std::shared_ptr<const std::vector<Variant>>;

    CEnumVariant(Values values, size_t position) noexcept : m_pValues(std::move(values)), m_nNext(position) {}

    // Takes over `values` and gives an enumerator that stands at the first.
    // E_POINTER: `enumerator` is null. E_OUTOFMEMORY: null is left there.
    [[nodiscard]] static HRESULT Create(std::vector<Variant> values, IEnumVARIANT** enumerator) noexcept;
    // The same as the IUnknown that a `_NewEnum` property returns.
    [[nodiscard]] static HRESULT Create(std::vector<Variant> values, IUnknown** enumerator) noexcept;

    HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* elements, ULONG* fetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override;
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** enumerator) override;

private:
    const Values m_pValues;
    size_t m_nNext;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_ENUM_VARIANT_H_
