#include "platform/com/apartment.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace quorvane {
namespace {

TEST(ApartmentModelTest, AThreadIsWhatItWasInitialisedAsUntilTheLastUninitialise)
{
    EXPECT_FALSE(IsApartmentThread());
    EXPECT_EQ(CoInitialize(nullptr), S_OK);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_FALSE);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    CoUninitialize();
    EXPECT_TRUE(IsApartmentThread());
    CoUninitialize();
    EXPECT_FALSE(IsApartmentThread());

    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    EXPECT_EQ(CoInitialize(nullptr), RPC_E_CHANGED_MODE);
    EXPECT_FALSE(IsApartmentThread());
    CoUninitialize();
}

TEST(ApartmentModelTest, AFreeThreadIsNoApartment)
{
    const FreeThreadScope thread;

    EXPECT_EQ(thread.Result(), S_OK);
    EXPECT_FALSE(IsApartmentThread());
    EXPECT_EQ(ApartmentScope().Result(), RPC_E_CHANGED_MODE);
}

class ApartmentLoopTest : public testing::Test {
protected:
    const ApartmentScope apartment;
};

TEST_F(ApartmentLoopTest, ALoopEndsAtItsTimeOrAtAStopThatCameBefore)
{
    ApartmentLoop loop;

    EXPECT_FALSE(loop.RunFor(std::chrono::milliseconds(1)));
    loop.Stop();
    EXPECT_TRUE(loop.RunFor(std::chrono::hours(1)));
    EXPECT_FALSE(loop.RunFor(std::chrono::milliseconds(0))) << "a stop ends one run";
}

TEST_F(ApartmentLoopTest, PostedFunctionsRunOnTheLoopsThreadInTheirOrder)
{
    ApartmentLoop loop;
    std::vector<int> ran;
    const std::thread::id here = std::this_thread::get_id();
    std::jthread poster([&] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(loop.Post([&, i] {
                EXPECT_EQ(std::this_thread::get_id(), here);
                ran.push_back(i);
                if (i == 2)
                    loop.Stop();
            }),
                      S_OK);
        }
    });
    loop.Run();

    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2}));
}

}  // namespace
}  // namespace quorvane
