// platform/com/com_object.h: ComObject, the base of every COM class of the project.
#ifndef QUORVANE_PLATFORM_COM_COM_OBJECT_H_
#define QUORVANE_PLATFORM_COM_COM_OBJECT_H_

#include <atomic>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/com/com_ptr.h"

namespace quorvane {

// Names, beside an interface, the base interfaces whose identifiers it answers as well:
// ComObject<CMessage, Answers<IMessage, IMAPIProp>> answers IID_IMessage and IID_IMAPIProp.
template <class Interface, class... Bases>
struct Answers {};

// Listed last among a class's interfaces: its objects may be used from any thread, and tell COM so. They
// carry the free-threaded marshaler, and cross to other apartments as they are.
class FreeThreaded {
public:
    FreeThreaded(const FreeThreaded&) = delete;
    FreeThreaded& operator=(const FreeThreaded&) = delete;

protected:
    FreeThreaded() noexcept = default;
    ~FreeThreaded();

    // The marshaler's IMarshal, which counts its references on `outer`, the object; none is added. Null when
    // memory is short. Any thread may call.
    IMarshal* Marshaler(IUnknown* outer) noexcept;

private:
    std::atomic<IUnknown*> marshaler_{nullptr};  // made at the first question
};

namespace detail {

template <class Entry>
struct InterfaceEntry {
    using Type = Entry;
    template <class Derived>
    static void* Find(Derived* self, REFIID riid) noexcept
    {
        return IsEqualIID(riid, Iid<Entry>()) ? static_cast<Entry*>(self) : nullptr;
    }
};

template <class Interface, class... Bases>
struct InterfaceEntry<Answers<Interface, Bases...>> {
    using Type = Interface;
    template <class Derived>
    static void* Find(Derived* self, REFIID riid) noexcept
    {
        auto* const primary = static_cast<Interface*>(self);
        if (IsEqualIID(riid, Iid<Interface>()))
            return primary;
        void* found = nullptr;
        ((found = !found && IsEqualIID(riid, Iid<Bases>()) ? static_cast<Bases*>(primary) : found), ...);
        return found;
    }
};

template <>
struct InterfaceEntry<FreeThreaded> {
    // In reach of the entry.
    struct Type : FreeThreaded {
        using FreeThreaded::Marshaler;
    };
    template <class Derived>
    static void* Find(Derived* self, REFIID riid) noexcept
    {
        if (!IsEqualIID(riid, IID_IMarshal))
            return nullptr;
        ComPtr<IUnknown> outer;
        self->QueryInterface(IID_IUnknown, outer.PutVoid());
        return static_cast<Type*>(self)->Marshaler(outer.Get());
    }
};

template <class First, class...>
struct FirstOf {
    using Type = First;
};

}  // namespace detail

// Gives `Derived` IUnknown over its list of interfaces: an atomic count that starts at one, an answer
// for each listed interface (and for IUnknown, through the first), and a Release that returns the local
// value. `Derived` has a destructor that this template may call; objects are made with MakeComObject.
// Any thread may call.
template <class Derived, class... Interfaces>
class ComObject : public detail::InterfaceEntry<Interfaces>::Type... {
public:
    ComObject() noexcept = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    // S_OK with a reference; E_NOINTERFACE and null; E_POINTER when there is no place for the result.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        *object = FindInterface(riid);
        if (!*object)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return references_.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            delete static_cast<Derived*>(this);
        return left;
    }

protected:
    ~ComObject() = default;

    IUnknown* Identity() noexcept
    {
        using First = typename detail::FirstOf<typename detail::InterfaceEntry<Interfaces>::Type...>::Type;
        return static_cast<First*>(static_cast<Derived*>(this));
    }

private:
    void* FindInterface(REFIID riid) noexcept
    {
        if (IsEqualIID(riid, IID_IUnknown))
            return Identity();
        void* found = nullptr;
        ((found =
              found ? found : detail::InterfaceEntry<Interfaces>::Find(static_cast<Derived*>(this), riid)),
         ...);
        return found;
    }

    std::atomic<ULONG> references_{1};
};

// Makes an object of a ComObject class; empty when memory is short or the constructor throws.
template <class T, class... Args>
ComPtr<T> MakeComObject(Args&&... args) noexcept
{
    try {
        return ComPtr<T>::Attach(new T(std::forward<Args>(args)...));
    } catch (...) {
        return nullptr;
    }
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_COM_OBJECT_H_
