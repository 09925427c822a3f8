#include <new>

#include "platform/com/bstr.h"
#include "platform/com/com_object.h"

namespace {

using namespace quorvane;

// The texts and numbers of one failure. Written before it is set, read afterwards.
class CErrorInfo final : public ComObject<CErrorInfo, ICreateErrorInfo, IErrorInfo> {
public:
    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID guid) override
    {
        m_Guid = guid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR source) override { return Store(source, m_bstrSource); }
    HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR text) override
    {
        return Store(text, m_bstrDescription);
    }
    HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR file) override { return Store(file, m_bstrHelpFile); }
    HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD context) override
    {
        m_nHelpContext = context;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetGUID(GUID* guid) override
    {
        if (!guid)
            return E_INVALIDARG;
        *guid = m_Guid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR* source) override { return m_bstrSource.CopyTo(source); }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override { return m_bstrDescription.CopyTo(text); }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* file) override { return m_bstrHelpFile.CopyTo(file); }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* context) override
    {
        if (!context)
            return E_INVALIDARG;
        *context = m_nHelpContext;
        return S_OK;
    }

private:
    static HRESULT Store(LPOLESTR text, Bstr& place) noexcept
    {
        Bstr copy = Bstr::Attach(SysAllocString(text));
        if (text && copy.IsNull())
            return E_OUTOFMEMORY;
        place = std::move(copy);
        return S_OK;
    }

    GUID m_Guid{};
    Bstr m_bstrSource;
    Bstr m_bstrDescription;
    Bstr m_bstrHelpFile;
    DWORD m_nHelpContext = 0;
};

ComPtr<IErrorInfo>& OfThisThread() noexcept
{
    thread_local ComPtr<IErrorInfo> info;
    return info;
}

}  // namespace

HRESULT CreateErrorInfo(ICreateErrorInfo** info)
{
    if (!info)
        return E_INVALIDARG;
    *info = MakeComObject<CErrorInfo>().Detach();
    return *info ? S_OK : E_OUTOFMEMORY;
}

HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* info)
{
    if (reserved != 0)
        return E_INVALIDARG;
    OfThisThread() = info;
    return S_OK;
}

HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** info)
{
    if (reserved != 0 || !info)
        return E_INVALIDARG;
    *info = OfThisThread().Detach();
    return *info ? S_OK : S_FALSE;
}
