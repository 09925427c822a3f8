#include <exception>
#include <thread>

#include "platform/com/detached_thread.h"

namespace quorvane {

HRESULT detail::StartDetachedWork(std::unique_ptr<DetachedWork> work) noexcept
{
    try {
        std::thread([held = std::move(work)] { held->Run(); }).detach();
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_FAIL;
    }
}

}  // namespace quorvane
