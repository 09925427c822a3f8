// host/base/processor_time.h: what a thread has cost so far.
#ifndef QUORVANE_HOST_BASE_PROCESSOR_TIME_H_
#define QUORVANE_HOST_BASE_PROCESSOR_TIME_H_

#include <chrono>

namespace quorvane::host {

// The processor time that the calling thread has had, the system's for it included; only differences of two
// mean something. What it waited, for others or for its turn, doesn't count.
std::chrono::nanoseconds ProcessorTimeOfThread() noexcept;

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_PROCESSOR_TIME_H_
