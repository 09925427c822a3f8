// A store that is to be listened to, with memory that runs short at each allocation in turn: of MAPI's
// wrapper around the sink too.
#include <gtest/gtest.h>

#include "engine/items/testing/test_mailbox.h"
#include "engine/monitor/msg_stores.h"
#include "engine/monitor/test_doubles.h"
#include "engine/session/options/options.h"
#include "engine/session/testing/failing_memory.h"

namespace quorvane {
namespace {

// Far more than there are; a loop that comes here doesn't end by itself.
constexpr long kTooMany = 10000;

TEST(ListenMemoryTest, AStoreThatMemoryRanShortForIsListenedToAtTheNextTry)
{
    testing::TestMailbox mailbox;
    testing::MonitorSession session;
    session.mapiSession = mailbox.Session();
    session.options = ComPtr<IOptions>(MakeComObject<COptions>().Get());
    long failures = 0;
    for (long number = 0; number < kTooMany; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const auto stores = MakeComObject<CMsgStores>(&session);
        HRESULT hr = S_OK;
        bool failed = false;
        {
            const testing::FailingAllocation failure(number);
            hr = stores->Add(&mailbox.Store());
            failed = failure.HasCome();
        }
        if (SUCCEEDED(hr) && !failed) {
            EXPECT_GT(failures, 3);
            return;
        }
        failures += FAILED(hr) ? 1 : 0;
        EXPECT_EQ(stores->Count(), FAILED(hr) ? 0u : 1u);
        ASSERT_EQ(stores->Add(&mailbox.Store()), S_OK);
        EXPECT_EQ(stores->Count(), 1u);
    }
    FAIL() << "it doesn't end";
}

}  // namespace
}  // namespace quorvane
