#include "tests/support/process_counts.h"

#include <windows.h>

#include <winternl.h>

#include <stdexcept>
#include <vector>

namespace quorvane::test {

namespace {

// The system's list of all processes, in its own layout. GetProcessHandleCount doesn't count under Wine.
std::vector<BYTE> ListProcesses()
{
    constexpr NTSTATUS kTooShort = static_cast<NTSTATUS>(0xC0000004);
    using Query = NTSTATUS(NTAPI*)(SYSTEM_INFORMATION_CLASS, void*, ULONG, ULONG*);
    const FARPROC found = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation");
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(found));
    std::vector<BYTE> list(1 << 16);
    for (;;) {
        const NTSTATUS status =
            query(SystemProcessInformation, list.data(), static_cast<ULONG>(list.size()), nullptr);
        if (status >= 0)
            return list;
        if (status != kTooShort)
            throw std::runtime_error("the system doesn't list its processes");
        list.resize(2 * list.size());
    }
}

template <class Number>
Number OfThisProcess(Number SYSTEM_PROCESS_INFORMATION::*count)
{
    const std::vector<BYTE> list = ListProcesses();
    for (const BYTE* place = list.data();;) {
        const auto& process = *reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(place);
        if (reinterpret_cast<ULONG_PTR>(process.UniqueProcessId) == GetCurrentProcessId())
            return process.*count;
        if (process.NextEntryOffset == 0)
            throw std::runtime_error("the system doesn't list this process");
        place += process.NextEntryOffset;
    }
}

}  // namespace

size_t CountThreads()
{
    return OfThisProcess(&SYSTEM_PROCESS_INFORMATION::NumberOfThreads);
}

size_t CountHandles()
{
    return OfThisProcess(&SYSTEM_PROCESS_INFORMATION::HandleCount);
}

}  // namespace quorvane::test
