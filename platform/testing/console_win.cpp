#include <windows.h>

#include <stdexcept>

#include "platform/testing/console.h"

namespace quorvane::test {

namespace {

std::intptr_t Create(const std::string& path)
{
    const HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        throw std::runtime_error("no console for a test");
    return reinterpret_cast<std::intptr_t>(file);
}

// The end of a console closes the standard output, whatever that is by then.
void KeepOpen(std::intptr_t handle, bool kept)
{
    SetHandleInformation(reinterpret_cast<HANDLE>(handle), HANDLE_FLAG_PROTECT_FROM_CLOSE,
                         kept ? HANDLE_FLAG_PROTECT_FROM_CLOSE : 0);
}

void UseAsOutput(std::intptr_t handle)
{
    SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(handle));
}

}  // namespace

// A process that has a console gets no other: what it writes then goes where its standard output is.
ConsoleForTest::ConsoleForTest()
    : file_(Create(path_)), before_(reinterpret_cast<std::intptr_t>(GetStdHandle(STD_OUTPUT_HANDLE)))
{
    AllocConsole();
    KeepOpen(before_, true);
    KeepOpen(file_, true);
    UseAsOutput(file_);
}

ConsoleForTest::~ConsoleForTest()
{
    UseAsOutput(before_);
    KeepOpen(file_, false);
    CloseHandle(reinterpret_cast<HANDLE>(file_));
}

}  // namespace quorvane::test
