// host/test_directory.h: a directory for one test.
#ifndef QUORVANE_HOST_TEST_DIRECTORY_H_
#define QUORVANE_HOST_TEST_DIRECTORY_H_

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/testing/surroundings.h"

namespace quorvane::host {

class TestDirectory {
public:
    TestDirectory() : path_(test::MakeTestDirectory()) {}
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;
    ~TestDirectory()
    {
        // On Windows the engine's log stays open as long as the process lives, and can't go.
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& Path() const noexcept { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_TEST_DIRECTORY_H_
