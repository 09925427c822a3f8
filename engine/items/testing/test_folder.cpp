#include "engine/items/testing/test_folder.h"

#include <random>
#include <stdexcept>

namespace quorvane::testing {

TestFolder::TestFolder()
{
    std::random_device random;
    const std::filesystem::path parent = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        path_ = parent / ("quorvane-test-" + std::to_string(random()));
        if (std::filesystem::create_directory(path_))
            return;
    }
    throw std::runtime_error("no directory for a test");
}

TestFolder::~TestFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace quorvane::testing
