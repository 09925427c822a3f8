#include <windows.h>

#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>

#include "platform/testing/debugger.h"

namespace quorvane::test {

namespace {

// The exception by which OutputDebugStringA reaches a debugger: the text's size with its zero, and the text.
constexpr DWORD kDebugText = 0x40010006;

std::mutex fileMutex;
std::filesystem::path openFile;

LONG CALLBACK TakeText(EXCEPTION_POINTERS* raised)
{
    const EXCEPTION_RECORD& record = *raised->ExceptionRecord;
    if (record.ExceptionCode != kDebugText || record.NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
    const auto size = static_cast<std::streamsize>(record.ExceptionInformation[0]);
    const auto* const text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    const std::lock_guard lock(fileMutex);
    std::ofstream(openFile, std::ios::binary | std::ios::app).write(text, size > 0 ? size - 1 : 0);
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

DebuggerForTest::DebuggerForTest(const std::filesystem::path& file)
    : handler_(AddVectoredExceptionHandler(1, &TakeText))
{
    if (!handler_)
        throw std::runtime_error("no handler for the debugger's text");
    const std::lock_guard lock(fileMutex);
    openFile = file;
}

DebuggerForTest::~DebuggerForTest()
{
    RemoveVectoredExceptionHandler(handler_);
}

}  // namespace quorvane::test
