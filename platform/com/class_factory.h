// platform/com/class_factory.h: a class factory for ComObject classes, and the server's lock count.
#ifndef QUORVANE_PLATFORM_COM_CLASS_FACTORY_H_
#define QUORVANE_PLATFORM_COM_CLASS_FACTORY_H_

#include <atomic>

#include "platform/com/com_object.h"

namespace quorvane {

// What keeps a module in memory: IClassFactory::LockServer and, where a class counts itself, its objects.
// Any thread may call.
class ServerLocks {
public:
    static void Add() noexcept { Count().fetch_add(1, std::memory_order_relaxed); }
    static void Remove() noexcept { Count().fetch_sub(1, std::memory_order_release); }
    // For DllCanUnloadNow.
    static bool AreHeld() noexcept { return Count().load(std::memory_order_acquire) != 0; }

private:
    static std::atomic<LONG>& Count() noexcept
    {
        static std::atomic<LONG> count{0};
        return count;
    }
};

// A member of a class whose objects keep the module in memory.
class ServerLockScope {
public:
    ServerLockScope() noexcept { ServerLocks::Add(); }
    ServerLockScope(const ServerLockScope&) = delete;
    ServerLockScope& operator=(const ServerLockScope&) = delete;
    ~ServerLockScope() { ServerLocks::Remove(); }
};

// Makes objects of `Class`, which has a default constructor. CreateInstance: CLASS_E_NOAGGREGATION with an
// outer object, E_NOINTERFACE, E_OUTOFMEMORY, E_POINTER. Any thread may call.
template <class Class>
class CClassFactory final : public ComObject<CClassFactory<Class>, IClassFactory> {
public:
    // A factory, as DllGetClassObject gives it: E_NOINTERFACE, E_OUTOFMEMORY, E_POINTER.
    [[nodiscard]] static HRESULT Create(REFIID riid, void** factory) noexcept
    {
        if (!factory)
            return E_POINTER;
        *factory = nullptr;
        const auto made = MakeComObject<CClassFactory>();
        return made ? made->QueryInterface(riid, factory) : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        *object = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        const auto made = MakeComObject<Class>();
        return made ? made->QueryInterface(riid, object) : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        if (lock)
            ServerLocks::Add();
        else
            ServerLocks::Remove();
        return S_OK;
    }

private:
    const ServerLockScope m_ServerLock;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_CLASS_FACTORY_H_
