// Proxies for objects that belong to an apartment.
#include <algorithm>
#include <new>
#include <vector>

#include "platform/com/apartment_core.h"
#include "platform/com/com_object.h"
#include "platform/com/never_destroyed.h"

namespace quorvane {

namespace {

// {6D0C5C4B-6B0E-4C76-9A60-0D7A52B6F1A3}: answered by proxies alone.
constexpr IID kProxyId = {0x6D0C5C4B, 0x6B0E, 0x4C76, {0x9A, 0x60, 0x0D, 0x7A, 0x52, 0xB6, 0xF1, 0xA3}};

class CProxy;

// One dispatch interface of the object, as other threads see it. Lives and dies with the proxy.
class CProxyFacet final : public IDispatch {
public:
    CProxyFacet(CProxy& proxy, REFIID riid, std::shared_ptr<const BoundObject> object) noexcept
        : m_Proxy(proxy), m_Iid(riid), m_pObject(std::move(object))
    {}

    const IID& Id() const noexcept { return m_Iid; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        return m_pObject->Call([=](IDispatch& object) { return object.GetTypeInfoCount(count); });
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override
    {
        return m_pObject->Call([=](IDispatch& object) { return object.GetTypeInfo(index, lcid, info); });
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid,
                                            DISPID* ids) override
    {
        return m_pObject->Call(
            [&](IDispatch& object) { return object.GetIDsOfNames(riid, names, count, lcid, ids); });
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        return m_pObject->Call([&](IDispatch& object) {
            return object.Invoke(id, riid, lcid, flags, params, result, exception, argumentError);
        });
    }

private:
    CProxy& m_Proxy;
    const IID m_Iid;
    const std::shared_ptr<const BoundObject> m_pObject;
};

// The identity of an object on other threads. Any thread may call.
class CProxy final : public ComObject<CProxy, IUnknown> {
public:
    explicit CProxy(std::shared_ptr<const BoundObject> object) : m_pObject(std::move(object)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        *object = nullptr;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, kProxyId)) {
            AddRef();
            *object = static_cast<IUnknown*>(this);
            return S_OK;
        }
        const bool isDispatch = IsEqualIID(riid, IID_IDispatch);
        if (!isDispatch && !IsDispatchInterface(riid))
            return E_NOINTERFACE;
        CProxyFacet* facet = nullptr;
        const HRESULT hr = FindFacet(riid, isDispatch, facet);
        if (FAILED(hr))
            return hr;
        AddRef();
        *object = static_cast<IDispatch*>(facet);
        return S_OK;
    }

private:
    HRESULT FindFacet(REFIID riid, bool isDispatch, CProxyFacet*& facet) noexcept
    {
        facet = KnownFacet(riid);
        if (facet)
            return S_OK;
        std::shared_ptr<const BoundObject> bound = m_pObject;
        if (!isDispatch) {
            const HRESULT hr = AskObject(riid, bound);
            if (FAILED(hr))
                return hr;
        }
        return AddFacet(riid, std::move(bound), facet);
    }

    CProxyFacet* KnownFacet(REFIID riid) noexcept
    {
        const MutexLock lock(m_Mutex);
        const auto found = std::find_if(m_Facets.begin(), m_Facets.end(),
                                        [&](const auto& each) { return IsEqualIID(each->Id(), riid); });
        return found == m_Facets.end() ? nullptr : found->get();
    }

    // The object's own answer, on its own thread.
    HRESULT AskObject(REFIID riid, std::shared_ptr<const BoundObject>& bound) noexcept
    {
        return m_pObject->Call([&](IDispatch& object) -> HRESULT {
            // The interface has IDispatch's slots and no more.
            ComPtr<IDispatch> asked;
            const HRESULT hr = object.QueryInterface(riid, asked.PutVoid());
            return FAILED(hr) ? hr : BoundObject::Make(m_pObject->Home(), asked.Get(), bound);
        });
    }

    HRESULT AddFacet(REFIID riid, std::shared_ptr<const BoundObject> bound, CProxyFacet*& facet) noexcept
    {
        try {
            auto made = std::make_unique<CProxyFacet>(*this, riid, std::move(bound));
            const MutexLock lock(m_Mutex);
            // Two threads may have asked at the same time; both facets serve.
            m_Facets.push_back(std::move(made));
            facet = m_Facets.back().get();
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    const std::shared_ptr<const BoundObject> m_pObject;
    Mutex m_Mutex;
    std::vector<std::unique_ptr<CProxyFacet>> m_Facets QV_GUARDED_BY(m_Mutex);
};

HRESULT CProxyFacet::QueryInterface(REFIID riid, void** object)
{
    return m_Proxy.QueryInterface(riid, object);
}

ULONG CProxyFacet::AddRef()
{
    return m_Proxy.AddRef();
}

ULONG CProxyFacet::Release()
{
    return m_Proxy.Release();
}

// Never destroyed: modules declare interfaces at any time from their loading on.
struct Declarations {
    Mutex mutex;
    std::vector<IID> ids QV_GUARDED_BY(mutex);

    static Declarations& OfProcess() noexcept
    {
        static NeverDestroyed<Declarations> instance;
        return *instance;
    }
};

bool Contains(const std::vector<IID>& ids, REFIID riid) noexcept
{
    return std::any_of(ids.begin(), ids.end(), [&](const IID& each) { return IsEqualIID(each, riid); });
}

}  // namespace

ComPtr<IUnknown> MakeProxy(std::shared_ptr<const BoundObject> object) noexcept
{
    return ComPtr<IUnknown>::Attach(new (std::nothrow) CProxy(std::move(object)));
}

bool IsProxy(IUnknown* object) noexcept
{
    ComPtr<IUnknown> proxy;
    return SUCCEEDED(object->QueryInterface(kProxyId, proxy.PutVoid()));
}

void DeclareDispatchInterface(REFIID riid) noexcept
{
    try {
        Declarations& declarations = Declarations::OfProcess();
        const MutexLock lock(declarations.mutex);
        if (!Contains(declarations.ids, riid))
            declarations.ids.push_back(riid);
    } catch (const std::bad_alloc&) {
        // The interface is then refused by proxies, as any unknown one.
    }
}

bool IsDispatchInterface(REFIID riid) noexcept
{
    Declarations& declarations = Declarations::OfProcess();
    const MutexLock lock(declarations.mutex);
    return Contains(declarations.ids, riid);
}

}  // namespace quorvane
