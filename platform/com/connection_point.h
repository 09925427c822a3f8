// platform/com/connection_point.h: a container of one connection point, for classes with one source
// interface.
#ifndef QUORVANE_PLATFORM_COM_CONNECTION_POINT_H_
#define QUORVANE_PLATFORM_COM_CONNECTION_POINT_H_

#include <vector>

#include "platform/com/com_object.h"
#include "platform/com/mutex.h"

namespace quorvane {

// The sinks of one source interface. Any thread may call; no lock is held while a sink is called or released.
class ConnectionList {
public:
    // The sink is asked for `sourceId`, then for IDispatch. CONNECT_E_CANNOTCONNECT: it answers neither.
    // E_POINTER: `sink` or `cookie` is null. E_OUTOFMEMORY. The cookie is 0 after a failure.
    [[nodiscard]] HRESULT Advise(REFIID sourceId, IUnknown* sink, DWORD* cookie) noexcept;
    // CONNECT_E_NOCONNECTION: no connection has that cookie.
    [[nodiscard]] HRESULT Unadvise(DWORD cookie) noexcept;
    struct Connection {
        DWORD cookie;
        ComPtr<IUnknown> sink;
    };
    // What is connected now, in the order of advising. Throws std::bad_alloc.
    std::vector<Connection> Snapshot() const;

private:
    mutable Mutex mutex_;
    DWORD nextCookie_ QV_GUARDED_BY(mutex_) = 1;
    std::vector<Connection> connections_ QV_GUARDED_BY(mutex_);
};

namespace detail {
HRESULT EnumerateConnections(const ConnectionList& list, IEnumConnections** enumerator) noexcept;
HRESULT EnumerateOnePoint(IConnectionPoint* point, IEnumConnectionPoints** enumerator) noexcept;
}  // namespace detail

// Implements IConnectionPointContainer for a class that lists it:
//
//   class CFolder final : public ComObject<CFolder, ..., ConnectionPointContainer<_IFolderEvents>>
//
// FindConnectionPoint: CONNECT_E_NOCONNECTION for any other source interface. The point shares the count
// of the container, so that it keeps it alive.
template <class Source>
class ConnectionPointContainer : public IConnectionPointContainer {
public:
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** enumerator) override
    {
        return detail::EnumerateOnePoint(&point_, enumerator);
    }

    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID riid, IConnectionPoint** point) override
    {
        if (!point)
            return E_POINTER;
        *point = nullptr;
        if (!IsEqualIID(riid, Iid<Source>()))
            return CONNECT_E_NOCONNECTION;
        point_.AddRef();
        *point = &point_;
        return S_OK;
    }

    // The sinks, for firing an event.
    ConnectionList& Connections() noexcept { return point_.list; }

protected:
    ConnectionPointContainer() noexcept : point_(*this) {}
    ~ConnectionPointContainer() = default;

private:
    class Point final : public IConnectionPoint {
    public:
        explicit Point(ConnectionPointContainer& container) noexcept : container_(container) {}

        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
        {
            if (!object)
                return E_POINTER;
            const bool known = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IConnectionPoint);
            *object = known ? this : nullptr;
            if (!known)
                return E_NOINTERFACE;
            AddRef();
            return S_OK;
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return container_.AddRef(); }
        ULONG STDMETHODCALLTYPE Release() override { return container_.Release(); }

        HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override
        {
            if (!iid)
                return E_POINTER;
            *iid = Iid<Source>();
            return S_OK;
        }
        HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** container) override
        {
            if (!container)
                return E_POINTER;
            *container = &container_;
            container_.AddRef();
            return S_OK;
        }
        HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override
        {
            return list.Advise(Iid<Source>(), sink, cookie);
        }
        HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override { return list.Unadvise(cookie); }
        HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** enumerator) override
        {
            return detail::EnumerateConnections(list, enumerator);
        }

        ConnectionList list;

    private:
        ConnectionPointContainer& container_;
    };

    Point point_;
};

namespace detail {

template <class Source>
struct InterfaceEntry<ConnectionPointContainer<Source>> {
    using Type = ConnectionPointContainer<Source>;
    template <class Derived>
    static void* Find(Derived* self, REFIID riid) noexcept
    {
        const bool asked = IsEqualIID(riid, IID_IConnectionPointContainer);
        return asked ? static_cast<IConnectionPointContainer*>(static_cast<Type*>(self)) : nullptr;
    }
};

}  // namespace detail

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_CONNECTION_POINT_H_
