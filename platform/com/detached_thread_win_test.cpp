// A library that is given up while a thread of it runs.
#include <gtest/gtest.h>

#include <chrono>

#include "platform/com/com.h"

namespace quorvane {
namespace {

bool IsLoaded()
{
    return GetModuleHandleW(L"detachedthread.dll") != nullptr;
}

TEST(DetachedThreadWinTest, ALibraryStaysUntilItsThreadHasLeft)
{
    const std::string path = std::string(QUORVANE_LIBRARY_DIRECTORY) + "/detachedthread.dll";
    HMODULE const library = LoadLibraryA(path.c_str());
    ASSERT_TRUE(library) << path;
    using StartFunction = HRESULT (*)(HANDLE running, HANDLE mayEnd);
    const auto start =
        reinterpret_cast<StartFunction>(reinterpret_cast<void*>(GetProcAddress(library, "Start")));
    ASSERT_TRUE(start);
    HANDLE const running = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE const mayEnd = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_EQ(start(running, mayEnd), S_OK);
    ASSERT_EQ(WaitForSingleObject(running, INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));

    FreeLibrary(library);
    EXPECT_TRUE(IsLoaded());
    SetEvent(mayEnd);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (IsLoaded() && std::chrono::steady_clock::now() < deadline)
        Sleep(1);
    EXPECT_FALSE(IsLoaded());
    CloseHandle(running);
    CloseHandle(mayEnd);
}

}  // namespace
}  // namespace quorvane
