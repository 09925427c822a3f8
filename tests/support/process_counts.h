// tests/support/process_counts.h: what the system keeps for this process.
#ifndef QUORVANE_TESTS_SUPPORT_PROCESS_COUNTS_H_
#define QUORVANE_TESTS_SUPPORT_PROCESS_COUNTS_H_

#include <cstddef>

namespace quorvane::test {

size_t CountThreads();
// Open files, and on Windows all other handles too.
size_t CountHandles();

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_PROCESS_COUNTS_H_
