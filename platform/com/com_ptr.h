// platform/com/com_ptr.h: ComPtr<T>, the owner of one counted reference.
#ifndef QUORVANE_PLATFORM_COM_COM_PTR_H_
#define QUORVANE_PLATFORM_COM_COM_PTR_H_

#include <cstddef>
#include <utility>

#include "platform/com/iid.h"

namespace quorvane {

// Owns one reference, or none. Copying adds a reference; moving hands it over. As thread-safe as a raw
// pointer: one object of this class is for one thread at a time.
template <class T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Shares: adds a reference.
    ComPtr(T* pointer) noexcept : pointer_(pointer)
    {
        if (pointer_)
            pointer_->AddRef();
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.pointer_) {}
    ComPtr(ComPtr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
    template <class U>
    ComPtr(const ComPtr<U>& other) noexcept : ComPtr(static_cast<T*>(other.Get()))
    {}
    ~ComPtr() { Reset(); }

    ComPtr& operator=(ComPtr other) noexcept
    {
        std::swap(pointer_, other.pointer_);
        return *this;
    }

    // Takes over a reference that the caller owns.
    static ComPtr Attach(T* owned) noexcept
    {
        ComPtr result;
        result.pointer_ = owned;
        return result;
    }

    void Reset() noexcept
    {
        if (T* old = std::exchange(pointer_, nullptr))
            old->Release();
    }

    T* Get() const noexcept { return pointer_; }
    T* operator->() const noexcept { return pointer_; }
    T& operator*() const noexcept { return *pointer_; }
    explicit operator bool() const noexcept { return pointer_ != nullptr; }

    // The place for an out-parameter; what was held is released first.
    T** Put() noexcept
    {
        Reset();
        return &pointer_;
    }
    void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }
    IUnknown** PutUnknown() noexcept { return reinterpret_cast<IUnknown**>(Put()); }

    // Hands the reference to the caller and is empty afterwards.
    T* Detach() noexcept { return std::exchange(pointer_, nullptr); }

    // Gives a caller's out-parameter a reference of its own. E_POINTER: no place, or nothing held.
    HRESULT CopyTo(T** out) const noexcept
    {
        if (!out)
            return E_POINTER;
        *out = pointer_;
        if (!pointer_)
            return E_POINTER;
        pointer_->AddRef();
        return S_OK;
    }

    // QueryInterface into another pointer. E_POINTER when nothing is held.
    template <class U>
    HRESULT As(ComPtr<U>& out) const noexcept
    {
        return As(out.Put());
    }
    template <class U>
    HRESULT As(U** out) const noexcept
    {
        if (!pointer_)
            return E_POINTER;
        return pointer_->QueryInterface(Iid<U>(), reinterpret_cast<void**>(out));
    }

    friend bool operator==(const ComPtr& a, const ComPtr& b) noexcept { return a.pointer_ == b.pointer_; }
    friend bool operator==(const ComPtr& a, const T* b) noexcept { return a.pointer_ == b; }

private:
    T* pointer_ = nullptr;
};

// QueryInterface from a raw pointer that may be null (E_POINTER then).
template <class U>
HRESULT QueryFor(IUnknown* from, ComPtr<U>& out) noexcept
{
    out.Reset();
    return from ? from->QueryInterface(Iid<U>(), out.PutVoid()) : E_POINTER;
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_COM_PTR_H_
