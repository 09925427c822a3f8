// Where the functions of this library are stricter, or of another form, than the same ones of Windows.
#include "platform/com/safe_array.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(SafeArrayTest, AnArrayBeyondAllMemoryIsRefused)
{
    SAFEARRAYBOUND bounds[] = {{0xFFFFFFFF, 0}, {0xFFFFFFFF, 0}};

    EXPECT_EQ(SafeArrayCreate(VT_I4, 2, bounds), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_EMPTY, 1, bounds), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_I4, 0, bounds), nullptr);
}

}  // namespace
}  // namespace quorvane
