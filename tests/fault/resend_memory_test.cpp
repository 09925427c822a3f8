// A resend with memory that runs short at each allocation in turn.
#include "engine/session/testing/failing_memory.h"
#include "tests/fault/resend_faults.h"

namespace quorvane {
namespace {

using ResendMemoryTest = testing::ResendFaultsFixture;

// The job runs on this thread, whose allocations fail.
TEST_F(ResendMemoryTest, AnAllocationThatFailsCostsItsItemAlone)
{
    long jobs = 0;
    long misledJobs = 0;
    FailEach(
        100,
        [&](long at) {
            auto job = MakeJob();
            const testing::FailingAllocation failure(at - 1);
            job->ThreadProc(stop);
            return failure.HasCome();
        },
        [&] {
            const bool misled = WasMisled();
            ++jobs;
            misledJobs += misled ? 1 : 0;
            ExpectWhole(misled);
            if (!misled)
                ExpectNextJobCompletes();
        });
    EXPECT_LT(misledJobs, jobs / 5);
}

}  // namespace
}  // namespace quorvane
