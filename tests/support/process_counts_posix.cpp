#include "tests/support/process_counts.h"

#include <filesystem>
#include <iterator>

namespace quorvane::test {

namespace {

size_t CountEntries(const char* directory)
{
    return static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
}

}  // namespace

size_t CountThreads()
{
    return CountEntries("/proc/self/task");
}

size_t CountHandles()
{
    return CountEntries("/proc/self/fd");
}

}  // namespace quorvane::test
