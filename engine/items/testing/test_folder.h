// items/testing/test_folder.h: a directory for one test.
#ifndef QUORVANE_ENGINE_ITEMS_TESTING_TEST_FOLDER_H_
#define QUORVANE_ENGINE_ITEMS_TESTING_TEST_FOLDER_H_

#include <filesystem>
#include <string>

namespace quorvane::testing {

// A new directory under the system's temporary one, removed with all that is in it when this goes.
class TestFolder {
public:
    TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder();

    std::string Path() const { return path_.string(); }
    std::string File(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_ITEMS_TESTING_TEST_FOLDER_H_
