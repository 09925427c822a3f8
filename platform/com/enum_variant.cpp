#include "platform/com/enum_variant.h"

#include <algorithm>
#include <new>

namespace quorvane {

HRESULT CEnumVariant::Create(std::vector<Variant> values, IEnumVARIANT** enumerator) noexcept
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = nullptr;
    try {
        auto shared = std::make_shared<const std::vector<Variant>>(std::move(values));
        *enumerator = MakeComObject<CEnumVariant>(std::move(shared), size_t{0}).Detach();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return *enumerator ? S_OK : E_OUTOFMEMORY;
}

HRESULT CEnumVariant::Create(std::vector<Variant> values, IUnknown** enumerator) noexcept
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = nullptr;
    IEnumVARIANT* made = nullptr;
    const HRESULT hr = Create(std::move(values), &made);
    *enumerator = made;
    return hr;
}

HRESULT CEnumVariant::Next(ULONG count, VARIANT* elements, ULONG* fetched)
{
    if (fetched)
        *fetched = 0;
    if (!elements || (!fetched && count != 1))
        return E_POINTER;
    const size_t given = std::min<size_t>(count, m_pValues->size() - m_nNext);
    for (size_t i = 0; i < given; ++i) {
        const HRESULT hr = (*m_pValues)[m_nNext + i].CopyTo(&elements[i]);
        if (FAILED(hr)) {
            while (i > 0)
                VariantClear(&elements[--i]);
            return hr;
        }
    }
    m_nNext += given;
    if (fetched)
        *fetched = static_cast<ULONG>(given);
    return given == count ? S_OK : S_FALSE;
}

HRESULT CEnumVariant::Skip(ULONG count)
{
    const size_t skipped = std::min<size_t>(count, m_pValues->size() - m_nNext);
    m_nNext += skipped;
    return skipped == count ? S_OK : S_FALSE;
}

HRESULT CEnumVariant::Reset()
{
    m_nNext = 0;
    return S_OK;
}

HRESULT CEnumVariant::Clone(IEnumVARIANT** enumerator)
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = MakeComObject<CEnumVariant>(m_pValues, m_nNext).Detach();
    return *enumerator ? S_OK : E_OUTOFMEMORY;
}

}  // namespace quorvane
