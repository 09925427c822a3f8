// persist/testing/file_faults.h: lets the Nth change of a file fail, or kill the process, in a test program.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_

namespace quorvane::testing {

enum class Fault {
    None,
    Kill,      // the process ends before the change
    KillTorn,  // half of what is written arrives, and the process ends
    DiskFull,  // the change fails; half of what is written arrives
};

// Counts write, pwrite, ftruncate, rename and unlink from now on; the `at`th of them (from 1) suffers.
void ArmFault(Fault fault, unsigned at) noexcept;
// How many there were; disarms.
unsigned DisarmFault() noexcept;

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_FILE_FAULTS_H_
