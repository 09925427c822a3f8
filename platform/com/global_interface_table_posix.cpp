// The global interface table, and interfaces carried between threads in a stream.
#include <map>
#include <new>

#include "platform/com/apartment_core.h"
#include "platform/com/com_object.h"
#include "platform/com/never_destroyed.h"

namespace {

using namespace quorvane;

// The one table of the process; never destroyed. Any thread may call.
class CGlobalInterfaceTable final : public IGlobalInterfaceTable {
public:
    static CGlobalInterfaceTable& OfProcess() noexcept
    {
        static NeverDestroyed<CGlobalInterfaceTable> instance;
        return *instance;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        const bool known = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IGlobalInterfaceTable);
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE RegisterInterfaceInGlobal(IUnknown* object, REFIID riid, DWORD* cookie) override
    {
        if (!object || !cookie)
            return E_INVALIDARG;
        *cookie = 0;
        InterfaceParcel parcel;
        const HRESULT hr = InterfaceParcel::Make(object, riid, parcel);
        if (FAILED(hr))
            return hr;
        try {
            const MutexLock lock(m_Mutex);
            const DWORD free = NextCookie();
            m_Parcels.emplace(free, std::move(parcel));
            *cookie = free;
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT STDMETHODCALLTYPE RevokeInterfaceFromGlobal(DWORD cookie) override
    {
        // Outlives the lock: what it carries may do anything when it goes.
        InterfaceParcel revoked;
        const MutexLock lock(m_Mutex);
        const auto found = m_Parcels.find(cookie);
        if (found == m_Parcels.end())
            return E_INVALIDARG;
        revoked = std::move(found->second);
        m_Parcels.erase(found);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetInterfaceFromGlobal(DWORD cookie, REFIID riid, void** object) override
    {
        if (!object)
            return E_INVALIDARG;
        *object = nullptr;
        InterfaceParcel parcel;
        {
            const MutexLock lock(m_Mutex);
            const auto found = m_Parcels.find(cookie);
            if (found == m_Parcels.end())
                return E_INVALIDARG;
            parcel = found->second;
        }
        return parcel.Open(riid, object);
    }

private:
    DWORD NextCookie() QV_REQUIRES(m_Mutex)
    {
        do
            ++m_nLastCookie;
        while (m_nLastCookie == 0 || m_Parcels.count(m_nLastCookie) != 0);
        return m_nLastCookie;
    }

    Mutex m_Mutex;
    DWORD m_nLastCookie QV_GUARDED_BY(m_Mutex) = 0x100;
    std::map<DWORD, InterfaceParcel> m_Parcels QV_GUARDED_BY(m_Mutex);
};

// {2B9A3F0E-70F6-4E0C-8E1B-6F2C4B1D9A57}: answered by streams that carry an interface.
constexpr IID kCarrierId = {0x2B9A3F0E, 0x70F6, 0x4E0C, {0x8E, 0x1B, 0x6F, 0x2C, 0x4B, 0x1D, 0x9A, 0x57}};

// A stream that holds an interface and no bytes that anyone may read.
class CInterfaceStream final : public ComObject<CInterfaceStream, Answers<IStream, ISequentialStream>> {
public:
    explicit CInterfaceStream(InterfaceParcel parcel) noexcept : m_Parcel(std::move(parcel)) {}

    const InterfaceParcel& Parcel() const noexcept { return m_Parcel; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return ComObject::QueryInterface(IsEqualIID(riid, kCarrierId) ? IID_IStream : riid, object);
    }

    HRESULT STDMETHODCALLTYPE Read(void*, ULONG, ULONG*) override { return STG_E_ACCESSDENIED; }
    HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return STG_E_ACCESSDENIED; }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return STG_E_INVALIDFUNCTION; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return STG_E_INVALIDFUNCTION; }
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return STG_E_INVALIDFUNCTION; }

private:
    const InterfaceParcel m_Parcel;
};

}  // namespace

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD, REFIID riid, void** object)
{
    if (!object)
        return E_POINTER;
    *object = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_StdGlobalInterfaceTable))
        return REGDB_E_CLASSNOTREG;
    if (outer)
        return CLASS_E_NOAGGREGATION;
    return CGlobalInterfaceTable::OfProcess().QueryInterface(riid, object);
}

HRESULT CoMarshalInterThreadInterfaceInStream(REFIID riid, IUnknown* object, IStream** stream)
{
    if (!stream)
        return E_INVALIDARG;
    *stream = nullptr;
    if (!object)
        return E_INVALIDARG;
    InterfaceParcel parcel;
    const HRESULT hr = InterfaceParcel::Make(object, riid, parcel);
    if (FAILED(hr))
        return hr;
    *stream = new (std::nothrow) CInterfaceStream(std::move(parcel));
    return *stream ? S_OK : E_OUTOFMEMORY;
}

HRESULT CoGetInterfaceAndReleaseStream(IStream* stream, REFIID riid, void** object)
{
    if (object)
        *object = nullptr;
    if (!stream || !object)
        return E_INVALIDARG;
    const auto owned = ComPtr<IStream>::Attach(stream);
    ComPtr<IUnknown> carrier;
    if (FAILED(owned->QueryInterface(kCarrierId, carrier.PutVoid())))
        return E_INVALIDARG;
    return static_cast<CInterfaceStream*>(owned.Get())->Parcel().Open(riid, object);
}

// What a stream carries goes with the stream.
HRESULT CoReleaseMarshalData(IStream* stream)
{
    ComPtr<IUnknown> carrier;
    return stream && SUCCEEDED(stream->QueryInterface(kCarrierId, carrier.PutVoid())) ? S_OK : E_INVALIDARG;
}
