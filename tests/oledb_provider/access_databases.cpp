// The database's tests run on files of Access's, and leave no object of the provider's.
#include <gtest/gtest.h>

#include "engine/persist/testing/database_kind.h"
#include "tests/oledb_provider/access_file.h"
#include "tests/oledb_provider/registered_provider.h"

namespace quorvane::testing {
namespace {

// DB_E_PARAMNOTOPTIONAL, as Access has it.
constexpr HRESULT kValueMissing = static_cast<HRESULT>(0x80040E10u);

class LeftObjects final : public ::testing::EmptyTestEventListener {
    void OnTestEnd(const ::testing::TestInfo&) override
    {
        EXPECT_FALSE(test::ProviderIsInUse()) << "an object of the provider is still alive";
    }
};

[[maybe_unused]] const bool isSet = [] {
    databaseKind = {.vfs = test::kAccessFileVfs,
                    .tablesAt = test::kAccessHeaderSize,
                    .mayNotBeWritten = kDatabasePermission,
                    .valueMissing = kValueMissing};
    ::testing::UnitTest::GetInstance()->listeners().Append(new LeftObjects);
    return true;
}();

}  // namespace
}  // namespace quorvane::testing
