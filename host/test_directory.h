// host/test_directory.h: a directory for one test.
#ifndef QUORVANE_HOST_TEST_DIRECTORY_H_
#define QUORVANE_HOST_TEST_DIRECTORY_H_

#include <cstdlib>
#include <filesystem>
#include <string>

namespace quorvane::host {

class TestDirectory {
public:
    TestDirectory()
    {
        // A mailbox that is opened takes the process's temporary files to itself.
        static const std::filesystem::path root = std::filesystem::temp_directory_path();
        std::string name = (root / "quorvane-host-XXXXXX").string();
        if (mkdtemp(name.data()))
            path_ = name;
    }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;
    ~TestDirectory() { std::filesystem::remove_all(path_); }

    const std::filesystem::path& Path() const noexcept { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_TEST_DIRECTORY_H_
