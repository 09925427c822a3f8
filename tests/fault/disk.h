// tests/fault/disk.h: a disk that goes wrong at the Nth change of a file, for the test program that this is
// linked to.
//
// It stands in two places: as the default file system of SQLite, and in front of the C library's calls that
// change files. A change is a write, a truncation, a sync, a renaming or a deletion.
#ifndef QUORVANE_TESTS_FAULT_DISK_H_
#define QUORVANE_TESTS_FAULT_DISK_H_

#include <string>

namespace quorvane::test {

enum class DiskTrouble {
    kHiccup,    // one change isn't done and fails
    kBroken,    // from then on every change fails; half of the first write arrives
    kFull,      // from then on no file grows; half of the first write that wants to arrives
    kPowerCut,  // as kBroken, and what no sync was answered for is lost, or any part of it; for databases
                // alone
    kKill,      // this process ends in place of the change
};

// Its name in a test's name.
std::string NameOf(DiskTrouble trouble);

// There is one disk in the process. Any thread may use its files; Break and Repair are the test's thread's.
class Disk {
public:
    // What a process that kKill ended leaves as its exit code.
    static constexpr int kKilled = 9;

    // From now on counts the changes of the files whose path contains `where`; the trouble begins with the
    // `at`th (from 1).
    //
    // seed  of a power cut: draws which of the writes that no sync was answered for are on the disk all the
    //       same, some of them in half; 0: none is.
    static void Break(DiskTrouble trouble, unsigned at, const std::string& where, unsigned seed = 0);

    // Makes it whole again; how many changes were asked for since. After a power cut: when every database
    // that it struck is closed.
    static unsigned Repair();
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_FAULT_DISK_H_
