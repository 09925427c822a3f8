// platform/testing/open_files.h: which files a test's process holds.
#ifndef QUORVANE_PLATFORM_TESTING_OPEN_FILES_H_
#define QUORVANE_PLATFORM_TESTING_OPEN_FILES_H_

#include <filesystem>

namespace quorvane::test {

// Whether a file is open; where the system can tell, by this process. On Windows another's counts as well.
bool IsOpen(const std::filesystem::path& file);

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_OPEN_FILES_H_
