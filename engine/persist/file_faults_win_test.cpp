// Stands between the test program and the system's calls: the program's table of imported functions leads
// here.
#include <windows.h>

#include "engine/persist/testing/file_faults.h"

// The compiler's names for the places in the table.
extern "C" {
extern decltype(&WriteFile) __imp_WriteFile;
extern decltype(&ReadFile) __imp_ReadFile;
extern decltype(&SetFileInformationByHandle) __imp_SetFileInformationByHandle;
extern decltype(&MoveFileExA) __imp_MoveFileExA;
extern decltype(&DeleteFileA) __imp_DeleteFileA;
}

namespace quorvane::testing {
namespace {

// What stood in the table.
struct SystemCalls {
    decltype(&::WriteFile) write = __imp_WriteFile;
    decltype(&::ReadFile) read = __imp_ReadFile;
    decltype(&SetFileInformationByHandle) setInformation = __imp_SetFileInformationByHandle;
    decltype(&MoveFileExA) move = __imp_MoveFileExA;
    decltype(&DeleteFileA) remove = __imp_DeleteFileA;
};
const SystemCalls systemCalls;

BOOL WINAPI WriteOrFail(HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED place)
{
    const WriteFate fate = FateOfWrite(count);
    if (!fate.kills && fate.arrives == count)
        return systemCalls.write(file, bytes, count, written, place);
    if (fate.arrives > 0)
        systemCalls.write(file, bytes, static_cast<DWORD>(fate.arrives), written, place);
    if (fate.kills)
        Die();
    SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

BOOL WINAPI ReadOrFail(HANDLE file, LPVOID bytes, DWORD count, LPDWORD read, LPOVERLAPPED place)
{
    if (!place || !ReadFails())
        return systemCalls.read(file, bytes, count, read, place);
    SetLastError(ERROR_CRC);
    return FALSE;
}

bool ChangeSuffers() noexcept
{
    const bool fails = ChangeFails();
    if (fails)
        SetLastError(ERROR_DISK_FULL);
    return fails;
}

BOOL WINAPI SetInformation(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID bytes, DWORD size)
{
    return kind == FileEndOfFileInfo && ChangeSuffers() ? FALSE
                                                        : systemCalls.setInformation(file, kind, bytes, size);
}

BOOL WINAPI Move(LPCSTR from, LPCSTR to, DWORD flags)
{
    return ChangeSuffers() ? FALSE : systemCalls.move(from, to, flags);
}

BOOL WINAPI Remove(LPCSTR path)
{
    return ChangeSuffers() ? FALSE : systemCalls.remove(path);
}

template <class Function>
void Replace(Function& place, Function function) noexcept
{
    DWORD protection = 0;
    VirtualProtect(&place, sizeof(place), PAGE_READWRITE, &protection);
    place = function;
    VirtualProtect(&place, sizeof(place), protection, &protection);
}

// Before the first test, when no other thread runs.
const bool replaced = [] {
    Replace(__imp_WriteFile, &WriteOrFail);
    Replace(__imp_ReadFile, &ReadOrFail);
    Replace(__imp_SetFileInformationByHandle, &SetInformation);
    Replace(__imp_MoveFileExA, &Move);
    Replace(__imp_DeleteFileA, &Remove);
    return true;
}();

}  // namespace
}  // namespace quorvane::testing
