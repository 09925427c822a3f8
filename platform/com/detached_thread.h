// platform/com/detached_thread.h: threads that nobody joins.
#ifndef QUORVANE_PLATFORM_COM_DETACHED_THREAD_H_
#define QUORVANE_PLATFORM_COM_DETACHED_THREAD_H_

#include <memory>
#include <new>
#include <utility>

#include "platform/com/com.h"

namespace quorvane {
namespace detail {

class DetachedWork {
public:
    virtual ~DetachedWork() = default;
    virtual void Run() noexcept = 0;
};

template <class Function>
class DetachedCall final : public DetachedWork {
public:
    explicit DetachedCall(Function&& function) noexcept : function_(std::move(function)) {}
    void Run() noexcept override { function_(); }

private:
    Function function_;
};

[[nodiscard]] HRESULT StartDetachedWork(std::unique_ptr<DetachedWork> work) noexcept;

}  // namespace detail

// Calls a function, which must not throw, on a thread of its own, and destroys it there. On Windows the
// thread keeps the module of this code in memory to its very end, beyond whatever the function lets go of: a
// library whose last object went on that thread may be given up by its users, and the thread leaves it
// together with them.
//
// E_OUTOFMEMORY. E_FAIL: no thread can be started. The function is destroyed on the calling thread then.
template <class Function>
[[nodiscard]] HRESULT StartDetachedThread(Function function) noexcept
{
    std::unique_ptr<detail::DetachedWork> work(new (std::nothrow)
                                                   detail::DetachedCall<Function>(std::move(function)));
    return work ? detail::StartDetachedWork(std::move(work)) : E_OUTOFMEMORY;
}

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_DETACHED_THREAD_H_
