// A logon and its end with memory that runs short at each allocation in turn.
#include <gtest/gtest.h>

#include "engine/session/testing/failing_memory.h"
#include "engine/session/testing/logon_test_base.h"
#include "platform/com/error_text.h"

namespace quorvane {
namespace {

// Far more than there are; a loop that comes here doesn't end by itself.
constexpr long kTooMany = 100000;

class MemoryFaultsTest : public testing::LogonTest {
protected:
    void SetUp() override
    {
        LogonTest::SetUp();
        // The watcher is no part of what may fail.
        WatchMapi(nullptr);
    }

    // Runs a piece of work in which the allocation of that number fails. Whether it got that far.
    template <class Work>
    static bool FailAllocation(long number, Work work)
    {
        const testing::FailingAllocation failure(number);
        work();
        return failure.HasCome();
    }
};

TEST_F(MemoryFaultsTest, ALogonSucceedsOrLeavesNothingBehind)
{
    long refused = 0;
    long number = 0;
    for (HRESULT hr = S_OK; FailAllocation(number, [&] { hr = Logon(); }); ++number) {
        ASSERT_LT(number, kTooMany);
        if (FAILED(hr)) {
            ++refused;
            EXPECT_FALSE(session);
            EXPECT_FALSE(HostIsHeld());
            EXPECT_EQ(library->get_Session(session.Put()), DISP_E_EXCEPTION);
            EXPECT_EQ(TakeErrorDescription().View(), OLESTR("Please login first."));
        }
        End();
        EXPECT_FALSE(HostIsHeld());
        library = MakeComObject<CLibrary>();
    }

    EXPECT_GT(refused, 0);
    EXPECT_TRUE(session);
}

TEST_F(MemoryFaultsTest, AFailedLogonMayBeRepeatedOnTheSameLibrary)
{
    long number = 0;
    HRESULT hr = E_FAIL;
    while (FAILED(hr)) {
        ASSERT_LT(number, kTooMany);
        FailAllocation(number++, [&] { hr = Logon(); });
    }
    EXPECT_GT(number, 1);
    Bstr path;
    EXPECT_EQ(session->get_DBPath(path.Put()), S_OK);
}

TEST_F(MemoryFaultsTest, TheFirstAllocationIsTheSessionsOwnAndItsLackIsTold)
{
    HRESULT hr = S_OK;
    const std::string lines =
        testing::TracedLines([&] { EXPECT_TRUE(FailAllocation(0, [&] { hr = Logon(); })); });

    EXPECT_EQ(hr, E_OUTOFMEMORY);
    EXPECT_FALSE(session);
    EXPECT_EQ(Logon(), S_OK);
}

TEST_F(MemoryFaultsTest, AnEndIsAnEndWithoutMemoryToo)
{
    long number = 0;
    bool failed = true;
    for (; failed; ++number) {
        ASSERT_LT(number, kTooMany);
        ASSERT_EQ(Logon(), S_OK);
        failed = FailAllocation(number, [this] { End(); });
        EXPECT_FALSE(HostIsHeld());
        library = MakeComObject<CLibrary>();
    }
    EXPECT_GT(number, 1);
}

}  // namespace
}  // namespace quorvane
