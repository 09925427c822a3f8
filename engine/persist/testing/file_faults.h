// persist/testing/file_faults.h: lets a change of a file fail, or kill the process, in a test program.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_

namespace quorvane::testing {

enum class Fault {
    None,
    Kill,        // the process ends before the change
    KillAtByte,  // the process ends when so many bytes are written; any other change counts as one
    DiskFull,    // the change fails; half of what is written arrives
    NoRead,      // a read fails
};

// Counts write, pwrite, ftruncate, rename and unlink from now on (pread for NoRead); the `at`th of them (from
// 1) suffers. For KillAtByte `at` bytes still arrive.
void ArmFault(Fault fault, unsigned at) noexcept;
// How many there were; disarms.
unsigned DisarmFault() noexcept;

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_
