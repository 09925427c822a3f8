// A resend with memory that runs short at each allocation in turn.
#include "engine/session/testing/failing_memory.h"
#include "tests/fault/resend_faults.h"

namespace quorvane {
namespace {

// A loop that comes here doesn't end by itself.
constexpr long kTooMany = 1000000;

using ResendMemoryTest = testing::ResendFaultsFixture;

// The job runs on this thread, whose allocations fail.
TEST_F(ResendMemoryTest, AnAllocationThatFailsCostsItsItemAlone)
{
    // Far apart where there are many: each job allocates for every item alike.
    long number = 0;
    long jobs = 0;
    long misledJobs = 0;
    for (bool failed = true; failed; number += 1 + number / 40) {
        ASSERT_LT(number, kTooMany);
        SCOPED_TRACE("allocation " + std::to_string(number));
        Prepare();
        auto job = MakeJob();
        {
            const testing::FailingAllocation failure(number);
            job->ThreadProc(stop);
            failed = failure.HasCome();
        }
        job.reset();
        const bool misled = WasMisled();
        ++jobs;
        misledJobs += misled ? 1 : 0;
        ExpectWhole(misled);
        if (!misled)
            ExpectNextJobCompletes();
        if (HasFailure())
            return;
    }
    EXPECT_GT(number, 100);
    EXPECT_LT(misledJobs, jobs / 5);
}

}  // namespace
}  // namespace quorvane
