// persist/testing/file_faults.h: lets a change of a file fail, or kill the process, in a test program.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_

#include <cstddef>

namespace quorvane::testing {

enum class Fault {
    None,
    Kill,        // the process ends before the change
    KillAtByte,  // the process ends when so many bytes are written; any other change counts as one
    DiskFull,    // the change fails; half of what is written arrives
    NoRead,      // a read fails
};

// Counts the writes, the changes of a size, the renamings and the removals from now on (the reads at a place
// for NoRead); the `at`th of them (from 1) suffers. For KillAtByte `at` bytes still arrive.
void ArmFault(Fault fault, unsigned at) noexcept;
// How many there were; disarms.
unsigned DisarmFault() noexcept;

// For what stands between the program and the system: how many bytes of a write arrive before it fails, or
// before the process dies; all of them when nothing happens to it.
struct WriteFate {
    std::size_t arrives;
    bool kills;
};
WriteFate FateOfWrite(std::size_t count) noexcept;
// Whether a change of another kind fails; doesn't come back from one that kills.
bool ChangeFails() noexcept;
bool ReadFails() noexcept;
[[noreturn]] void Die() noexcept;

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_
