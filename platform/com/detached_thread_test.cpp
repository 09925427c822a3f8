#include "platform/com/detached_thread.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace quorvane {
namespace {

// Tells when it is destroyed, and where.
class Farewell {
public:
    explicit Farewell(std::promise<std::thread::id>& gone) : gone_(&gone) {}
    Farewell(Farewell&& other) noexcept : gone_(std::exchange(other.gone_, nullptr)) {}
    Farewell& operator=(Farewell&&) = delete;
    ~Farewell()
    {
        if (gone_)
            gone_->set_value(std::this_thread::get_id());
    }

private:
    std::promise<std::thread::id>* gone_;
};

TEST(DetachedThreadTest, TheFunctionRunsAndGoesOnAThreadOfItsOwn)
{
    std::promise<std::thread::id> ran;
    std::promise<std::thread::id> gone;

    ASSERT_EQ(
        StartDetachedThread([&ran, farewell = Farewell(gone)] { ran.set_value(std::this_thread::get_id()); }),
        S_OK);

    const std::thread::id thread = ran.get_future().get();
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_EQ(gone.get_future().get(), thread);
}

}  // namespace
}  // namespace quorvane
