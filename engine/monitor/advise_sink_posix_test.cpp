// A sink when the system starts no threads.
#include <gmock/gmock.h>

#include "engine/monitor/advise_sink.h"
#include "engine/monitor/test_doubles.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/testing/no_more_threads_posix.h"

namespace quorvane::testing {
namespace {

TEST(AdviseSinkThreadsTest, ABatchWhoseThreadCantBeStartedIsLostAndTraced)
{
    MonitorSession session;
    const auto sink = MakeComObject<CAdviseSink>();
    sink->SetSession(&session);
    NOTIFICATION none{};
    const std::string lines = TracedLines([&] {
        const test::NoMoreThreads scope;
        EXPECT_EQ(sink->OnNotify(1, &none), static_cast<ULONG>(E_POINTER));
    });

    EXPECT_THAT(lines, ::testing::ContainsRegex("CAdviseSink::OnNotify[(][0-9]+[)] 0x80004003\r\n"));
}

}  // namespace
}  // namespace quorvane::testing
