#include "engine/session/options/options.h"

#include <iterator>
#include <vector>

#include "platform/com/enum_variant.h"

namespace quorvane {

HRESULT COption::get_Name(BSTR* pVal)
{
    return m_bstrName.CopyTo(pVal);
}

HRESULT COption::get_Value(VARIANT* pVal)
{
    const MutexLock lock(m_csValue);
    return m_Value.CopyTo(pVal);
}

HRESULT COption::put_Value(VARIANT newVal)
{
    Variant copy;
    if (FAILED(copy.Assign(newVal)))
        return S_OK;
    const MutexLock lock(m_csValue);
    std::swap(m_Value.Raw(), copy.Raw());
    return S_OK;
}

HRESULT COptions::Add(OleStringView name, const VARIANT& value) noexcept
{
    const Traced traced{"COptions::Add"};
    try {
        const auto option = MakeComObject<COption>(m_pSession);
        if (!option)
            return traced(E_OUTOFMEMORY);
        option->SetName(Bstr(name));
        HR_TRY(traced, option->put_Value(value));
        ComPtr<IOption> entry;
        HR_TRY(traced, option.As(entry));
        m_Options.insert_or_assign(OleString(name), std::move(entry));
        return S_OK;
    } catch (const std::bad_alloc&) {
        return traced(E_OUTOFMEMORY);
    }
}

HRESULT COptions::get__NewEnum(IUnknown** pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = nullptr;
    try {
        std::vector<Variant> values;
        values.reserve(m_Options.size());
        for (const auto& [name, option] : m_Options)
            values.push_back(Variant::Dispatch(option.Get()));
        return CEnumVariant::Create(std::move(values), pVal);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT COptions::get_Item(VARIANT Index, VARIANT* pvar)
{
    if (!pvar)
        return E_POINTER;
    VariantInit(pvar);
    Variant index;
    HR_TRY_QUIET(index.Assign(Index));
    auto found = m_Options.end();
    if (index.Is(VT_BSTR)) {
        found = m_Options.find(ViewOf(index.Raw().bstrVal));
    } else {
        HR_TRY_QUIET(index.ChangeType(VT_I4));
        const LONG position = index.Raw().lVal;
        if (position < 1)
            return E_INVALIDARG;
        if (static_cast<size_t>(position) <= m_Options.size())
            found = std::next(m_Options.begin(), position - 1);
    }
    if (found == m_Options.end())
        return E_FAIL;
    *pvar = Variant::Dispatch(found->second.Get()).Detach();
    return S_OK;
}

HRESULT COptions::get_Count(LONG* pVal)
{
    if (!pVal)
        return E_POINTER;
    *pVal = static_cast<LONG>(m_Options.size());
    return S_OK;
}

HRESULT ReadBooleanOption(IOptions* options, OleStringView name, bool& isTrue) noexcept
{
    if (!options)
        return E_POINTER;
    try {
        const Variant index = Variant::Text(name);
        Variant item;
        HR_TRY_QUIET(options->get_Item(index.Raw(), item.Put()));
        if (!item.Is(VT_DISPATCH))
            return E_INVALIDARG;
        ComPtr<IOption> option;
        HR_TRY_QUIET(QueryFor(item.Raw().pdispVal, option));
        Variant value;
        HR_TRY_QUIET(option->get_Value(value.Put()));
        HR_TRY_QUIET(value.ChangeType(VT_BOOL));
        isTrue = value.Raw().boolVal == VARIANT_TRUE;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

bool IsSessionOptionSet(const Traced& traced, SessionContext& session, OleStringView name) noexcept
{
    ComPtr<IOptions> options;
    bool isSet = false;
    HRESULT hr = session.GetOptions(options);
    if (SUCCEEDED(hr))
        hr = ReadBooleanOption(options.Get(), name, isSet);
    HR_IGNORE(traced(hr), "an option that can't be read counts as not set");
    return isSet;
}

}  // namespace quorvane
