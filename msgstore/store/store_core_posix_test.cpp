#include <gtest/gtest.h>

#include <filesystem>

#include "msgstore/store/store_core.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;

TEST(StoreCorePosixTest, AnOpenStoreIsFoundWhereItsFileLiesAndNowhereElse)
{
    const TestDirectory directory;
    const auto path = [&](const char* name) { return (directory.Path() / name).string(); };
    std::shared_ptr<StoreCore> first;
    ASSERT_EQ(StoreCore::Open(path("a"), true, first), S_OK);
    std::filesystem::create_symlink("a", path("link"));
    std::shared_ptr<StoreCore> second;
    ASSERT_EQ(StoreCore::Open(path("link"), false, second), S_OK);
    EXPECT_EQ(second, first);

    std::filesystem::rename(path("a"), path("b"));
    EXPECT_EQ(StoreCore::Open(path("a"), false, second), MAPI_E_NOT_FOUND);
    std::filesystem::remove(path("link"));
    ASSERT_EQ(StoreCore::Open(path("link"), true, second), S_OK);
    EXPECT_NE(second, first);
}

}  // namespace
}  // namespace quorvane
