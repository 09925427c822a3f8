#include "platform/desktop/desktop.h"

// After windows.h.
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <memory>
#include <thread>

#include "platform/com/bstr.h"
#include "platform/event/event.h"

namespace quorvane {
namespace {

struct HandleCloser {
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using ProcessHandle = std::unique_ptr<void, HandleCloser>;

HRESULT LastFailure() noexcept
{
    const DWORD error = GetLastError();
    return error == 0 ? E_FAIL : HRESULT_FROM_WIN32(error);
}

HRESULT Start(const std::string& program, const std::string& file, ProcessHandle& process)
{
    OleString line = L'"' + Widen(program) + L"\" \"" + Widen(file) + L'"';
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &started))
        return LastFailure();
    CloseHandle(started.hThread);
    process.reset(started.hProcess);
    return S_OK;
}

// The process is empty when a running program took the file over.
HRESULT OpenAssociated(const std::string& file, ProcessHandle& process)
{
    const OleString path = Widen(file);
    SHELLEXECUTEINFOW execute{};
    execute.cbSize = sizeof(execute);
    execute.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI | SEE_MASK_NOASYNC;
    execute.lpVerb = L"open";
    execute.lpFile = path.c_str();
    execute.nShow = SW_SHOWNORMAL;
    if (!ShellExecuteExW(&execute))
        return LastFailure();
    process.reset(execute.hProcess);
    return S_OK;
}

void WaitForEnd(const ProcessHandle& process)
{
    Event ended;
    if (FAILED(ended.Create(false)))
        return;
    std::jthread watch([&] {
        WaitForSingleObject(process.get(), INFINITE);
        ended.Set();
    });
    ended.Wait(kForever, WaitMode::KeepQueueAlive);
}

}  // namespace

ULONG_PTR ActiveWindow() noexcept
{
    return reinterpret_cast<ULONG_PTR>(GetActiveWindow());
}

bool OutputIsTerminal() noexcept
{
    return _isatty(_fileno(stdout)) != 0;
}

HRESULT OpenFileWith(const std::string& program, const std::string& file, ProgramWait wait) noexcept
try {
    if ((program + file).find('"') != std::string::npos)
        return E_INVALIDARG;
    ProcessHandle process;
    const HRESULT hr = program.empty() ? OpenAssociated(file, process) : Start(program, file, process);
    if (SUCCEEDED(hr) && process && wait == ProgramWait::End)
        WaitForEnd(process);
    return hr;
} catch (...) {
    return E_OUTOFMEMORY;
}

}  // namespace quorvane
