#include "platform/com/connection_point.h"

#include <algorithm>
#include <memory>
#include <new>

namespace quorvane {

HRESULT ConnectionList::Advise(REFIID sourceId, IUnknown* sink, DWORD* cookie) noexcept
{
    if (cookie)
        *cookie = 0;
    if (!sink || !cookie)
        return E_POINTER;
    ComPtr<IUnknown> asked;
    if (FAILED(sink->QueryInterface(sourceId, asked.PutVoid())) &&
        FAILED(sink->QueryInterface(IID_IDispatch, asked.PutVoid())))
        return CONNECT_E_CANNOTCONNECT;
    try {
        const MutexLock lock(mutex_);
        connections_.push_back({nextCookie_, asked});
        *cookie = nextCookie_++;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT ConnectionList::Unadvise(DWORD cookie) noexcept
{
    ComPtr<IUnknown> released;
    const MutexLock lock(mutex_);
    const auto found = std::find_if(connections_.begin(), connections_.end(),
                                    [cookie](const Connection& each) { return each.cookie == cookie; });
    if (found == connections_.end())
        return CONNECT_E_NOCONNECTION;
    // Declared before the lock, so released after it.
    released = std::move(found->sink);
    connections_.erase(found);
    return S_OK;
}

std::vector<ConnectionList::Connection> ConnectionList::Snapshot() const
{
    const MutexLock lock(mutex_);
    return connections_;
}

namespace detail {

namespace {

void GiveElement(const ConnectionList::Connection& from, CONNECTDATA& to) noexcept
{
    to.pUnk = ComPtr<IUnknown>(from.sink).Detach();
    to.dwCookie = from.cookie;
}

void GiveElement(const ComPtr<IConnectionPoint>& from, IConnectionPoint*& to) noexcept
{
    to = ComPtr<IConnectionPoint>(from).Detach();
}

// The four methods that all enumerators have, over elements that were copied when it was made.
template <class Enumerator, class Stored, class Given>
class CEnumerator final : public ComObject<CEnumerator<Enumerator, Stored, Given>, Enumerator> {
public:
    using Elements = std::shared_ptr<const std::vector<Stored>>;

    CEnumerator(Elements elements, size_t next) noexcept : m_pElements(std::move(elements)), m_nNext(next) {}

    HRESULT STDMETHODCALLTYPE Next(ULONG count, Given* given, ULONG* fetched) override
    {
        if (fetched)
            *fetched = 0;
        if (!given || (!fetched && count != 1))
            return E_POINTER;
        const size_t available = std::min<size_t>(count, m_pElements->size() - m_nNext);
        for (size_t i = 0; i < available; ++i)
            GiveElement((*m_pElements)[m_nNext++], given[i]);
        if (fetched)
            *fetched = static_cast<ULONG>(available);
        return available == count ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override
    {
        const size_t available = std::min<size_t>(count, m_pElements->size() - m_nNext);
        m_nNext += available;
        return available == count ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Reset() override
    {
        m_nNext = 0;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Clone(Enumerator** enumerator) override
    {
        if (!enumerator)
            return E_POINTER;
        *enumerator = MakeComObject<CEnumerator>(m_pElements, m_nNext).Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    }

private:
    const Elements m_pElements;
    size_t m_nNext;
};

template <class Enumerator, class Stored, class Given>
HRESULT Enumerate(std::vector<Stored> elements, Enumerator** enumerator)
{
    using Class = CEnumerator<Enumerator, Stored, Given>;
    auto shared = std::make_shared<const std::vector<Stored>>(std::move(elements));
    *enumerator = MakeComObject<Class>(std::move(shared), size_t{0}).Detach();
    return *enumerator ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

HRESULT EnumerateConnections(const ConnectionList& list, IEnumConnections** enumerator) noexcept
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = nullptr;
    try {
        return Enumerate<IEnumConnections, ConnectionList::Connection, CONNECTDATA>(list.Snapshot(),
                                                                                    enumerator);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT EnumerateOnePoint(IConnectionPoint* point, IEnumConnectionPoints** enumerator) noexcept
{
    if (!enumerator)
        return E_POINTER;
    *enumerator = nullptr;
    try {
        std::vector<ComPtr<IConnectionPoint>> points{point};
        return Enumerate<IEnumConnectionPoints, ComPtr<IConnectionPoint>, IConnectionPoint*>(
            std::move(points), enumerator);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace detail

}  // namespace quorvane
