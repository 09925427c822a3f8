// The free-threaded marshaler.
#include <new>

#include "platform/com/com_object.h"

namespace {

using namespace quorvane;

// What an object that aggregates the marshaler answers as IMarshal: its references are the object's.
class CFreeMarshal final : public IMarshal {
public:
    explicit CFreeMarshal(IUnknown& outer) noexcept : m_Outer(outer) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return m_Outer.QueryInterface(riid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_Outer.AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_Outer.Release(); }

    HRESULT STDMETHODCALLTYPE GetUnmarshalClass(REFIID, void*, DWORD, void*, DWORD, CLSID* clsid) override
    {
        if (!clsid)
            return E_POINTER;
        *clsid = CLSID_InProcFreeMarshaler;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMarshalSizeMax(REFIID, void*, DWORD, void*, DWORD, DWORD*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE MarshalInterface(IStream*, REFIID, void*, DWORD, void*, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE UnmarshalInterface(IStream*, REFIID, void**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReleaseMarshalData(IStream*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DisconnectObject(DWORD) override { return S_OK; }

private:
    IUnknown& m_Outer;
};

// The marshaler itself, which its owner holds. Any thread may call.
class CFreeMarshaler final : public ComObject<CFreeMarshaler, IUnknown> {
public:
    explicit CFreeMarshaler(IUnknown* outer) noexcept : m_Marshal(outer ? *outer : *this) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        *object = nullptr;
        if (IsEqualIID(riid, IID_IMarshal))
            *object = static_cast<IMarshal*>(&m_Marshal);
        else if (IsEqualIID(riid, IID_IUnknown))
            *object = static_cast<IUnknown*>(this);
        else
            return E_NOINTERFACE;
        static_cast<IUnknown*>(*object)->AddRef();
        return S_OK;
    }

private:
    CFreeMarshal m_Marshal;
};

}  // namespace

HRESULT CoCreateFreeThreadedMarshaler(IUnknown* outer, IUnknown** marshaler)
{
    if (!marshaler)
        return E_INVALIDARG;
    *marshaler = new (std::nothrow) CFreeMarshaler(outer);
    return *marshaler ? S_OK : E_OUTOFMEMORY;
}
