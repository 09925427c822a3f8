// Notifications with memory that runs short at each allocation in turn.
#include "engine/session/testing/failing_memory.h"
#include "tests/fault/notify_faults.h"

namespace quorvane {
namespace {

using testing::Told;

// A loop that comes here doesn't end by itself.
constexpr long kTooMany = 1000000;

class NotifyMemoryTest : public testing::NotifyFaultsFixture, public ::testing::WithParamInterface<Told> {};

// The batch runs on this thread, whose allocations fail.
TEST_P(NotifyMemoryTest, AnAllocationThatFailsCostsItsItemAlone)
{
    // Far apart where there are many: each item allocates alike.
    long number = 0;
    long batches = 0;
    long misledBatches = 0;
    for (bool failed = true; failed; number += 1 + number / 40) {
        ASSERT_LT(number, kTooMany);
        SCOPED_TRACE("allocation " + std::to_string(number));
        Prepare();
        ComPtr<CAdviseSink> told = sink;
        auto args = Batch(GetParam());
        {
            const testing::FailingAllocation failure(number);
            HR_IGNORE(NotifyThreadProc(std::move(told), std::move(args)), "the test looks at what it left");
            failed = failure.HasCome();
        }
        const bool misled = WasMisled();
        ++batches;
        misledBatches += misled ? 1 : 0;
        ExpectMembersGetWhole(misled);
        if (!misled && GetParam() == Told::kRows) {
            ExpectToldIsSent();
            ExpectNextTellingCompletes();
        }
        if (HasFailure())
            return;
    }
    EXPECT_GT(number, 100);
    EXPECT_LT(misledBatches, batches / 4);
}

INSTANTIATE_TEST_SUITE_P(Told, NotifyMemoryTest, ::testing::Values(Told::kRows, Told::kTable),
                         [](const auto& told) { return told.param == Told::kRows ? "Rows" : "Table"; });

}  // namespace
}  // namespace quorvane
