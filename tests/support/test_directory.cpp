#include "tests/support/test_directory.h"

#include <cstdio>
#include <thread>

namespace quorvane::test {

void Check(HRESULT hr, const char* step)
{
    if (SUCCEEDED(hr))
        return;
    char text[160];
    std::snprintf(text, sizeof text, "%s: 0x%08X", step, static_cast<unsigned>(hr));
    throw std::runtime_error(text);
}

bool Eventually(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace quorvane::test
