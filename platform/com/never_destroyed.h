// platform/com/never_destroyed.h: state of the process that is there from its first use to the very end.
#ifndef QUORVANE_PLATFORM_COM_NEVER_DESTROYED_H_
#define QUORVANE_PLATFORM_COM_NEVER_DESTROYED_H_

#include <cstddef>
#include <new>
#include <utility>

namespace quorvane {

// For a static variable that threads and other modules may still use while the process ends: made in place,
// without an allocation that could fail, and never destroyed.
template <class T>
class NeverDestroyed {
public:
    template <class... Args>
    explicit NeverDestroyed(Args&&... args) : value_(new (storage_) T(std::forward<Args>(args)...))
    {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    ~NeverDestroyed() = default;

    T& operator*() const noexcept { return *value_; }

private:
    alignas(T) std::byte storage_[sizeof(T)];
    T* const value_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_NEVER_DESTROYED_H_
