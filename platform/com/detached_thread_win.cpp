#include "platform/com/detached_thread.h"

namespace quorvane {

namespace {

// What a thread is started with: its work, and a reference to the module that it leaves with.
struct DetachedStart {
    std::unique_ptr<detail::DetachedWork> work;
    HMODULE module = nullptr;
};

DWORD WINAPI RunDetached(void* argument)
{
    HMODULE module = nullptr;
    {
        const std::unique_ptr<DetachedStart> start(static_cast<DetachedStart*>(argument));
        module = start->module;
        start->work->Run();
    }
    FreeLibraryAndExitThread(module, 0);
}

}  // namespace

HRESULT detail::StartDetachedWork(std::unique_ptr<DetachedWork> work) noexcept
{
    std::unique_ptr<DetachedStart> start(new (std::nothrow) DetachedStart);
    if (!start)
        return E_OUTOFMEMORY;
    start->work = std::move(work);
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&RunDetached),
                            &start->module))
        return HRESULT_FROM_WIN32(GetLastError());
    HANDLE const thread = CreateThread(nullptr, 0, &RunDetached, start.get(), 0, nullptr);
    if (!thread) {
        FreeLibrary(start->module);
        return E_FAIL;
    }
    start.release();
    CloseHandle(thread);
    return S_OK;
}

}  // namespace quorvane
