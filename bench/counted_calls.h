// bench/counted_calls.h: how often this process called the system for a file.
#ifndef QUORVANE_BENCH_COUNTED_CALLS_H_
#define QUORVANE_BENCH_COUNTED_CALLS_H_

#include <cstdint>

namespace quorvane::bench {

// Calls of open, close, pread, pwrite, ftruncate, fallocate, fstat, futimens, flock, mmap, madvise and munmap
// by the libraries of this program, counted from its start. Any thread may call.
std::uint64_t CountedCalls() noexcept;

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_COUNTED_CALLS_H_
