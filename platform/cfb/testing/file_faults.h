// platform/cfb/testing/file_faults.h: for tests: files of this process that refuse reads and writes, or end
// the process at one.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_FILE_FAULTS_H_
#define QUORVANE_PLATFORM_CFB_TESTING_FILE_FAULTS_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace quorvane::cfb::test {

// What the C library's functions for reads and writes at a place do, which compound files use and tests
// don't. One thread.
class FileFaults {
public:
    // Whether there are any: not on Windows.
    static bool Exist() noexcept;

    // Of one file. The write (or change of the file's length) with this number, counted from 0, is refused,
    // as by a full disk; of several pages all but the last one come through. `on`: those behind it too.
    static void RefuseWrite(const std::string& file, std::size_t write, bool on) noexcept;
    static void RefuseRead(const std::string& file, std::size_t read) noexcept;
    // This process ends before that write, to any file, as if it were killed.
    static void DieAtWrite(std::size_t write) noexcept;
    static bool HasRefused() noexcept;
    // All goes through again.
    static void Stop() noexcept;

    // How often bytes were read or written since the process began, and how many.
    static std::uint64_t Calls() noexcept;
    static std::uint64_t Moved() noexcept;
};

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_FILE_FAULTS_H_
