// Notifications with memory that runs short at each allocation in turn.
#include "engine/session/testing/failing_memory.h"
#include "tests/fault/notify_faults.h"

namespace quorvane {
namespace {

using testing::Told;

class NotifyMemoryTest : public testing::NotifyFaultsFixture, public ::testing::WithParamInterface<Told> {};

// The batch runs on this thread, whose allocations fail.
TEST_P(NotifyMemoryTest, AnAllocationThatFailsCostsItsItemAlone)
{
    long batches = 0;
    long misledBatches = 0;
    FailEach(
        100,
        [&](long at) {
            ComPtr<CAdviseSink> told = sink;
            auto args = Batch(GetParam());
            const testing::FailingAllocation failure(at - 1);
            HR_IGNORE(NotifyThreadProc(std::move(told), std::move(args)), "the test looks at what it left");
            return failure.HasCome();
        },
        [&] {
            const bool misled = WasMisled();
            ++batches;
            misledBatches += misled ? 1 : 0;
            ExpectMembersGetWhole(misled);
            if (!misled && GetParam() == Told::kRows) {
                ExpectToldIsSent();
                ExpectNextTellingCompletes();
            }
        });
    EXPECT_LT(misledBatches, batches / 4);
}

INSTANTIATE_TEST_SUITE_P(Told, NotifyMemoryTest, ::testing::Values(Told::kRows, Told::kTable),
                         [](const auto& told) { return told.param == Told::kRows ? "Rows" : "Table"; });

}  // namespace
}  // namespace quorvane
