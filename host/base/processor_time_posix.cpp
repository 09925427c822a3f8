#include <ctime>

#include "host/base/processor_time.h"

namespace quorvane::host {

std::chrono::nanoseconds ProcessorTimeOfThread() noexcept
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace quorvane::host
