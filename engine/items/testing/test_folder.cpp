#include "engine/items/testing/test_folder.h"

#include "platform/testing/surroundings.h"

namespace quorvane::testing {

TestFolder::TestFolder() : path_(test::MakeTestDirectory()) {}

TestFolder::~TestFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace quorvane::testing
