// platform/file/temp_directory_for_test.h: a directory for one test, gone with everything in it afterwards.
#ifndef QUORVANE_PLATFORM_FILE_TEMP_DIRECTORY_FOR_TEST_H_
#define QUORVANE_PLATFORM_FILE_TEMP_DIRECTORY_FOR_TEST_H_

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/testing/surroundings.h"

namespace quorvane {

class TempDirectoryForTest {
public:
    TempDirectoryForTest() : path_(test::MakeTestDirectory().string()) {}
    TempDirectoryForTest(const TempDirectoryForTest&) = delete;
    TempDirectoryForTest& operator=(const TempDirectoryForTest&) = delete;
    ~TempDirectoryForTest()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::string& Path() const noexcept { return path_; }

private:
    std::string path_;
};

// A variable of the environment for one test; null takes it away.
class EnvironmentForTest {
public:
    EnvironmentForTest(const char* name, const char* value) : name_(name)
    {
        if (const char* const before = std::getenv(name))
            before_ = before;
        test::SetVariable(name, value);
    }
    EnvironmentForTest(const EnvironmentForTest&) = delete;
    EnvironmentForTest& operator=(const EnvironmentForTest&) = delete;
    ~EnvironmentForTest() { test::SetVariable(name_, before_ ? before_->c_str() : nullptr); }

private:
    const char* const name_;
    std::optional<std::string> before_;
};

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_FILE_TEMP_DIRECTORY_FOR_TEST_H_
