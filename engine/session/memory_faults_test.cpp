// A logon and its end with memory that runs short at each allocation in turn.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "engine/items/arguments.h"
#include "engine/persist/database.h"
#include "engine/session/options/options.h"
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

    // Runs a piece of work with each of its allocations failing in turn: it succeeds or says what it lacks.
    template <class Work>
    static void ExpectLackTold(Work work)
    {
        HRESULT hr = E_FAIL;
        long number = 0;
        for (; FailAllocation(number, [&] { hr = work(); }); ++number) {
            ASSERT_LT(number, kTooMany);
            EXPECT_TRUE(hr == S_OK || hr == E_OUTOFMEMORY)
                << "allocation " << number << ": " << std::hex << hr;
        }
        EXPECT_GT(number, 0);
        EXPECT_EQ(hr, S_OK);
    }

    // Whether the jobs that run leave so many rows.
    bool ComesTo(int rows)
    {
        using Clock = std::chrono::steady_clock;
        const std::string wanted = std::to_string(rows);
        for (const auto deadline = Clock::now() + std::chrono::minutes(1); Clock::now() < deadline;) {
            if (files.Ask("SELECT COUNT(*) FROM tblUnfinishedReceiveJob") == wanted)
                return true;
            std::this_thread::yield();
        }
        return false;
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
    EXPECT_NE(lines.find("CLibrary::Logon("), std::string::npos) << lines;
    EXPECT_NE(lines.find(") 0x8007000E\r\n"), std::string::npos) << lines;
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

TEST_F(MemoryFaultsTest, WhatAnOptionLacksIsMemory)
{
    ExpectLackTold([] {
        const ComPtr<COptions> options = MakeComObject<COptions>();
        return options ? options->Add(OLESTR("NoListeners"), Variant::Bool(true).Raw()) : E_OUTOFMEMORY;
    });
}

TEST_F(MemoryFaultsTest, WhatATransactionLacksIsMemory)
{
    ASSERT_EQ(Logon(), S_OK);
    Bstr path;
    ASSERT_EQ(session->get_DBPath(path.Put()), S_OK);
    DataSource source;
    ASSERT_EQ(source.Open(ConnectionStringFor(path.View())), S_OK);
    DatabaseSession rows;
    ASSERT_EQ(source.OpenSession(rows), S_OK);
    ExpectLackTold([&] {
        const HRESULT hr = rows.StartTransaction();
        return SUCCEEDED(hr) ? rows.Abort() : hr;
    });
}

TEST_F(MemoryFaultsTest, WhatAnItemThatIsAskedForLacksIsMemory)
{
    ASSERT_EQ(Logon(), S_OK);
    const Bstr id(OLESTR("{A}"));
    ComPtr<IItem> item;
    HRESULT hr = S_OK;

    EXPECT_TRUE(FailAllocation(0, [&] {
        hr = session->GetItemFromID(TextArgument(id.Get()), NoArgument(), NoArgument(), item.Put());
    }));

    EXPECT_EQ(hr, E_OUTOFMEMORY);
    EXPECT_FALSE(item);
}

// The job that memory runs short for keeps its row: which one it was tells the order in which they are
// queued.
TEST_F(MemoryFaultsTest, UnfinishedJobsAreQueuedFromTheLastRowToTheFirst)
{
    std::vector<std::string> refused;
    bool failed = true;
    for (long number = 0; failed && !HasFailure(); ++number) {
        ASSERT_LT(number, kTooMany);
        files.Execute("DELETE FROM tblUnfinishedReceiveJob");
        for (const char* name : {"first", "second", "third"})
            files.Execute("INSERT INTO tblUnfinishedReceiveJob VALUES ('" + files.directory.File(name) +
                          "', '" + name + "')");
        ASSERT_EQ(Logon(), S_OK);
        HRESULT hr = S_OK;
        const std::string lines = testing::TracedLines(
            [&] { failed = FailAllocation(number, [&] { hr = session->ResumeJobs(qv_rs_Both); }); });
        if (SUCCEEDED(hr)) {
            const bool isOneRefused = lines.find("CSession2::QueueStorageFile(") != std::string::npos;
            EXPECT_TRUE(ComesTo(isOneRefused ? 1 : 0));
            const std::string left = files.Ask("SELECT Tag FROM tblUnfinishedReceiveJob");
            if (isOneRefused && (refused.empty() || refused.back() != left))
                refused.push_back(left);
        }
        End();
        library = MakeComObject<CLibrary>();
    }
    EXPECT_EQ(refused, (std::vector<std::string>{"third", "second", "first"}));
}

}  // namespace
}  // namespace quorvane
