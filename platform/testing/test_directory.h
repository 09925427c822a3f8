// platform/testing/test_directory.h: a directory for the length of a test.
#ifndef QUORVANE_PLATFORM_TESTING_TEST_DIRECTORY_H_
#define QUORVANE_PLATFORM_TESTING_TEST_DIRECTORY_H_

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/testing/surroundings.h"

namespace quorvane::test {

// A new directory for temporary files, removed with all that is in it. Declared before what keeps files open
// in it, since an open file can't be removed on every system.
class TestDirectory {
public:
    TestDirectory() : path_(MakeTestDirectory()) {}
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;
    ~TestDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& Path() const noexcept { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    // The same as text; of no name, its own with a separator at the end.
    std::string File(const std::string& name) const { return (path_ / name).string(); }

private:
    const std::filesystem::path path_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_TEST_DIRECTORY_H_
