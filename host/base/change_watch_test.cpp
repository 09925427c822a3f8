#include "host/base/change_watch.h"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/testing/test_directory.h"

namespace quorvane::host {
namespace {

using namespace std::chrono_literals;
using Woken = ChangeWatch::Woken;

constexpr auto kDeadline = 30s;
// For what is not to come.
constexpr auto kMoment = 50ms;

class ChangeWatchTest : public ::testing::Test {
protected:
    std::filesystem::path Path(const char* name) const { return directory.Path() / name; }
    static void Write(const std::filesystem::path& path) { std::ofstream(path, std::ios::app) << "more"; }

    const test::TestDirectory directory;
    const StopSignals signals;
    ChangeWatch watch;
};

TEST_F(ChangeWatchTest, AFileThatIsMadeWrittenRenamedOrRemovedIsTold)
{
    watch.Watch(directory.Path());
    std::filesystem::create_directory(Path("below"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
    watch.Forget();
    Write(Path("file"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
    watch.Forget();
    Write(Path("file"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
    watch.Forget();
    std::filesystem::rename(Path("file"), Path("other"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
    watch.Forget();
    std::filesystem::remove(Path("other"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
}

TEST_F(ChangeWatchTest, ADirectoryThatTookThePlaceOfAnotherIsWatchedWhenAskedFor)
{
    watch.Watch(Path("later"));
    std::filesystem::create_directory(Path("later"));
    watch.Watch(Path("later"));
    Write(Path("later") / "file");
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
}

TEST_F(ChangeWatchTest, WhatWasToldIsntToldAgain)
{
    watch.Watch(directory.Path());
    std::filesystem::create_directory(Path("below"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
    EXPECT_EQ(watch.Wait(signals, kMoment), Woken::kTime);
}

TEST_F(ChangeWatchTest, WhatIsWatchedNoMoreTellsNothingUntilItIsWatchedAgain)
{
    watch.Watch(directory.Path());
    watch.End();
    Write(Path("file"));
    EXPECT_EQ(watch.Wait(signals, kMoment), Woken::kTime);
    watch.Watch(directory.Path());
    EXPECT_EQ(watch.Wait(signals, kMoment), Woken::kTime);
    Write(Path("file"));
    EXPECT_EQ(watch.Wait(signals, kDeadline), Woken::kChange);
}

TEST_F(ChangeWatchTest, WhereNothingHappensTheTimePasses)
{
    EXPECT_EQ(watch.Wait(signals, kMoment), Woken::kTime);
    watch.Watch(directory.Path());
    EXPECT_EQ(watch.Wait(signals, kMoment), Woken::kTime);
}

}  // namespace
}  // namespace quorvane::host
