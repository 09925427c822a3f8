#include "engine/transfer/pool/thread_pool.h"

#include <gmock/gmock.h>

#include <regex>
#include <stdexcept>
#include <thread>

#include "engine/session/trace/testing/traced_lines.h"
#include "engine/transfer/pool/pool_jobs_for_test.h"
#include "platform/com/apartment.h"
#include "platform/com/com_object.h"
#include "platform/testing/unimplemented_dispatch.h"

namespace quorvane {
namespace {

using testing::Counter;

class ThreadPoolTest : public testing::PoolTest {};

TEST_F(ThreadPoolTest, AJobRunsAndIsDestroyed)
{
    Counter ran;
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Add(Make([&](Event&) -> DWORD {
        ran.Add();
        return 7;
    })),
              S_OK);
    EXPECT_TRUE(ran.WaitFor(1));
    EXPECT_TRUE(destroyed.WaitFor(1));
}

TEST_F(ThreadPoolTest, NoMoreJobsRunAtOnceThanThePoolAllows)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(2), S_OK);
    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(pool.Add(Runner()), S_OK);
    EXPECT_TRUE(running.WaitFor(2));
    EXPECT_FALSE(running.WaitFor(3, testing::kGrace));
    release.Set();
    EXPECT_TRUE(destroyed.WaitFor(6));
    EXPECT_EQ(running.Highest(), 2);
}

TEST_F(ThreadPoolTest, ASecondJobWaitsForTheFirst)
{
    Counter secondRan;
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Add(Runner()), S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    ASSERT_EQ(pool.Add(Make([&](Event&) -> DWORD {
        secondRan.Add();
        return 0;
    })),
              S_OK);
    EXPECT_FALSE(secondRan.WaitFor(1, testing::kGrace));
    release.Set();
    EXPECT_TRUE(secondRan.WaitFor(1));
}

TEST_F(ThreadPoolTest, ShutdownOfAPoolThatNeverHadAJobSucceedsAtOnce)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    EXPECT_EQ(pool.Shutdown(), S_OK);
}

TEST_F(ThreadPoolTest, ShutdownAsksJobsToStopAndWaitsForThem)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(2), S_OK);
    ASSERT_EQ(pool.Add(Runner()), S_OK);
    ASSERT_EQ(pool.Add(Runner()), S_OK);
    ASSERT_TRUE(running.WaitFor(2));
    EXPECT_EQ(pool.Shutdown(), S_OK);
    EXPECT_EQ(stopped.Value(), 2);
    EXPECT_EQ(running.Value(), 0);
}

TEST_F(ThreadPoolTest, WaitingJobsArePassedOverByAShutdown)
{
    Counter ran;
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Add(Runner()), S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(pool.Add(Make([&](Event&) -> DWORD {
            ran.Add();
            return 0;
        })),
                  S_OK);
    }
    EXPECT_EQ(pool.Shutdown(), S_OK);
    EXPECT_TRUE(destroyed.WaitFor(3));
    EXPECT_EQ(ran.Value(), 0);
}

TEST_F(ThreadPoolTest, AJobThatIsPassedOverLeavesNoTrace)
{
    const std::string lines = testing::TracedLines([this] {
        CCustomThreadPool pool;
        ASSERT_EQ(pool.Init(1), S_OK);
        ASSERT_EQ(pool.Add(Runner()), S_OK);
        ASSERT_TRUE(running.WaitFor(1));
        ASSERT_EQ(pool.Add(Runner()), S_OK);
        EXPECT_EQ(pool.Shutdown(), S_OK);
    });

    EXPECT_EQ(stopped.Value(), 1);
    EXPECT_EQ(lines, "");
}

TEST_F(ThreadPoolTest, AJobAddedAfterAShutdownRuns)
{
    Counter ran;
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Shutdown(), S_OK);
    ASSERT_EQ(pool.Add(Make([&](Event& stop) -> DWORD {
        if (!stop.IsSet())
            ran.Add();
        return 0;
    })),
              S_OK);
    EXPECT_TRUE(ran.WaitFor(1));
}

TEST_F(ThreadPoolTest, AddTakesAStopBackForJobsThatStillWait)
{
    Counter ran;
    Counter stopSeen;
    const auto counts = [&](Event&) -> DWORD {
        ran.Add();
        return 0;
    };
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Add(Make([&](Event& stop) -> DWORD {
        running.Add();
        stop.Wait();
        stopSeen.Add();
        release.Wait();
        return 0;
    })),
              S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    ASSERT_EQ(pool.Add(Make(counts)), S_OK);
    std::thread stopper([&] { EXPECT_EQ(pool.Shutdown(), S_OK); });
    ASSERT_TRUE(stopSeen.WaitFor(1));
    ASSERT_EQ(pool.Add(Make(counts)), S_OK);
    release.Set();
    stopper.join();
    EXPECT_TRUE(ran.WaitFor(2));
}

TEST_F(ThreadPoolTest, UpToThe64thJobShutdownWaits)
{
    Counter ended;
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    for (int i = 0; i < 63; ++i)
        ASSERT_EQ(pool.Add(Make([](Event&) -> DWORD { return 0; })), S_OK);
    ASSERT_TRUE(destroyed.WaitFor(63));
    ASSERT_EQ(pool.Add(Make([&](Event& stop) -> DWORD {
        running.Add();
        stop.Wait();
        std::this_thread::yield();
        ended.Add();
        return 0;
    })),
              S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    EXPECT_EQ(pool.Shutdown(), S_OK);

    EXPECT_EQ(ended.Value(), 1);
}

TEST_F(ThreadPoolTest, FromThe65thJobOnShutdownDoesNotWait)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(pool.Add(Make([](Event&) -> DWORD { return 0; })), S_OK);
    ASSERT_TRUE(destroyed.WaitFor(64));
    ASSERT_EQ(pool.Shutdown(), S_OK);
    ASSERT_EQ(pool.Add(Make([this](Event&) -> DWORD {
        running.Add();
        release.Wait();
        return 0;
    })),
              S_OK);
    ASSERT_TRUE(running.WaitFor(1));
    EXPECT_EQ(pool.Shutdown(), S_OK);
    EXPECT_EQ(destroyed.Value(), 64);
    release.Set();
}

TEST_F(ThreadPoolTest, TheDestructorWaitsForEveryJobWhateverShutdownAnswers)
{
    constexpr int kJobs = 70;
    {
        CCustomThreadPool pool;
        ASSERT_EQ(pool.Init(2), S_OK);
        for (int i = 0; i < kJobs; ++i)
            ASSERT_EQ(pool.Add(Runner()), S_OK);
        ASSERT_TRUE(running.WaitFor(2));
    }
    EXPECT_EQ(destroyed.Value(), kJobs);
    EXPECT_EQ(running.Value(), 0);
}

TEST_F(ThreadPoolTest, AnExceptionOfAJobEndsThatJobAlone)
{
    Counter ran;
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    ASSERT_EQ(pool.Add(Make([](Event&) -> DWORD { throw std::runtime_error("job"); })), S_OK);
    ASSERT_EQ(pool.Add(Make([&](Event&) -> DWORD {
        ran.Add();
        return 0;
    })),
              S_OK);
    EXPECT_TRUE(ran.WaitFor(1));
    EXPECT_TRUE(destroyed.WaitFor(2));
}

TEST_F(ThreadPoolTest, APoolThatCantBeMadeIsTraced)
{
    const std::string lines = testing::TracedLines([] {
        CCustomThreadPool pool;
        EXPECT_EQ(pool.Init(0), E_FAIL);
    });

    EXPECT_TRUE(std::regex_search(lines, std::regex("CCustomThreadPool::Init\\([0-9]+\\) 0x80004005\r\n")))
        << lines;
}

TEST_F(ThreadPoolTest, APoolThatWasNotMadeTakesNoJob)
{
    CCustomThreadPool pool;
    EXPECT_EQ(pool.Add(Make([](Event&) -> DWORD { return 0; })), E_FAIL);
    EXPECT_EQ(destroyed.Value(), 1);
    EXPECT_EQ(pool.Shutdown(), E_FAIL);
}

TEST_F(ThreadPoolTest, NoJobIsRefused)
{
    CCustomThreadPool pool;
    ASSERT_EQ(pool.Init(1), S_OK);
    EXPECT_EQ(pool.Add(nullptr), E_FAIL);
}

TEST_F(ThreadPoolTest, ManyThreadsMayAddAndShutDownAtOnce)
{
    constexpr int kThreads = 4;
    constexpr int kJobs = 25;
    {
        CCustomThreadPool pool;
        ASSERT_EQ(pool.Init(2), S_OK);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                for (int n = 0; n < kJobs; ++n) {
                    EXPECT_EQ(pool.Add(Make([](Event&) -> DWORD { return 0; })), S_OK);
                    if (i == 0) {
                        EXPECT_EQ(pool.Shutdown(), S_OK);
                    }
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(destroyed.Value(), kThreads * kJobs);
}

// An automation object that lives in the apartment of the test's thread.
class Callee final : public ComObject<Callee, test::UnimplementedDispatch> {
public:
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override
    {
        calledOn = std::this_thread::get_id();
        return S_OK;
    }
    std::thread::id calledOn;
};

TEST_F(ThreadPoolTest, AJobMayCallIntoTheApartmentThatDestroysThePool)
{
    const ApartmentScope apartment;
    ASSERT_EQ(apartment.Result(), S_OK);
    const ComPtr<Callee> callee = MakeComObject<Callee>();
    ComPtr<IGlobalInterfaceTable> table;
    ASSERT_EQ(CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IGlobalInterfaceTable, table.PutVoid()),
              S_OK);
    DWORD cookie = 0;
    ASSERT_EQ(table->RegisterInterfaceInGlobal(callee.Get(), IID_IDispatch, &cookie), S_OK);
    // After 64 jobs it is no shutdown that waits, but the pool's end.
    for (const int jobsBefore : {0, 64}) {
        HRESULT called = E_FAIL;
        const int gone = destroyed.Value();
        {
            CCustomThreadPool pool;
            ASSERT_EQ(pool.Init(1), S_OK);
            for (int i = 0; i < jobsBefore; ++i)
                ASSERT_EQ(pool.Add(Make([](Event&) -> DWORD { return 0; })), S_OK);
            ASSERT_TRUE(destroyed.WaitFor(gone + jobsBefore));
            ASSERT_EQ(pool.Add(Make([&](Event& stop) -> DWORD {
                const FreeThreadScope freeThread;
                running.Add();
                stop.Wait();
                ComPtr<IDispatch> proxy;
                if (SUCCEEDED(table->GetInterfaceFromGlobal(cookie, IID_IDispatch, proxy.PutVoid()))) {
                    DISPPARAMS none{};
                    called = proxy->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr);
                }
                running.Add(-1);
                return 0;
            })),
                      S_OK);
            ASSERT_TRUE(running.WaitFor(1));
        }
        EXPECT_EQ(called, S_OK);
        EXPECT_EQ(callee->calledOn, std::this_thread::get_id());
    }
    table->RevokeInterfaceFromGlobal(cookie);
}

}  // namespace
}  // namespace quorvane
