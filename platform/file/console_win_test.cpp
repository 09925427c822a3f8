// Error texts and the console as Windows has them.
#include <gtest/gtest.h>

#include "platform/file/console.h"
#include "platform/file/system_error.h"

namespace quorvane {
namespace {

TEST(SystemErrorTest, TheThreadsLastErrorIsAFailureInAnyCase)
{
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(LastSystemError(), E_ACCESSDENIED);
    SetLastError(ERROR_SUCCESS);
    EXPECT_TRUE(FAILED(LastSystemError()));
}

TEST(SystemErrorTest, ATextHasNoLineEnd)
{
    const std::string text = SystemErrorText(ERROR_FILE_NOT_FOUND);

    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
}

TEST(ConsoleTest, AClosedConsoleTakesNothing)
{
    Console console;

    console.Write("before");
    EXPECT_FALSE(console.IsOpen());
    console.Close();

    EXPECT_FALSE(console.IsOpen());
}

}  // namespace
}  // namespace quorvane
