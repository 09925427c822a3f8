#include "tests/oledb_provider/command.h"

#include <algorithm>

#include "tests/oledb_provider/rowset.h"

namespace quorvane::test {
namespace {

// DBGUID_DEFAULT, which no library holds.
constexpr GUID kDefaultDialect = {
    0xC8B521FB, 0x5CF3, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};

}  // namespace

HRESULT Command::SetCommandText(REFGUID dialect, LPCOLESTR text)
{
    if (!IsEqualGUID(dialect, kDefaultDialect))
        return Fail(DB_E_DIALECTNOTSUPPORTED, {"There is one dialect."});
    try {
        text_.reset();
        if (text && *text)
            text_ = text;
        return S_OK;
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

HRESULT Command::GetCommandText(GUID* dialect, LPOLESTR* text)
{
    if (!text)
        return E_INVALIDARG;
    *text = nullptr;
    if (!text_)
        return Fail(DB_E_NOCOMMAND, {"There is no text."});
    if (dialect)
        *dialect = kDefaultDialect;
    const size_t size = text_->size() + 1;
    *text = static_cast<LPOLESTR>(CoTaskMemAlloc(size * sizeof(OLECHAR)));
    if (!*text)
        return E_OUTOFMEMORY;
    std::copy_n(text_->c_str(), size, *text);
    return S_OK;
}

HRESULT Command::GetDBSession(REFIID, IUnknown** session)
{
    if (!session)
        return E_INVALIDARG;
    *session = nullptr;
    return S_FALSE;
}

HRESULT Command::FindParameters(const DBPARAMS* given, Connection::Parameters& parameters) const noexcept
{
    if (!given)
        return S_OK;
    if (given->cParamSets != 1 || !given->pData)
        return Fail(E_INVALIDARG, {"A command takes one set of parameters."});
    parameters.block = static_cast<const BYTE*>(given->pData);
    return accessors_.Find(given->hAccessor, DBACCESSOR_PARAMETERDATA, parameters.bindings);
}

HRESULT Command::Execute(IUnknown* outer, REFIID riid, DBPARAMS* given, DBROWCOUNT* changed,
                         IUnknown** rowset)
{
    const bool wantsRows = !IsEqualIID(riid, IID_NULL);
    if (wantsRows && !rowset)
        return E_INVALIDARG;
    if (rowset)
        *rowset = nullptr;
    if (outer)
        return DB_E_NOAGGREGATION;
    if (!text_)
        return Fail(DB_E_NOCOMMAND, {"There is no text."});
    Connection::Parameters parameters;
    if (const HRESULT hr = FindParameters(given, parameters); FAILED(hr))
        return hr;
    Connection::Result result;
    if (const HRESULT hr = connection_->Run(*text_, parameters, result); FAILED(hr))
        return hr;
    if (changed)
        *changed = result.changed;
    if (!wantsRows || result.columns.empty())
        return S_OK;
    const auto made = MakeComObject<Rowset>(std::move(result.columns), std::move(result.rows));
    return made ? made->QueryInterface(riid, reinterpret_cast<void**>(rowset)) : E_OUTOFMEMORY;
}

}  // namespace quorvane::test
