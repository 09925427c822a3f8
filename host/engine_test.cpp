#include "host/engine.h"

#include <gtest/gtest.h>

#include <thread>

#include "host/test_mailbox.h"

namespace quorvane::host {
namespace {

// MAPI may make the thread that starts it an apartment; the engine then works in that.
TEST(EngineSessionTest, TheEngineStartsOnAThreadThatMapiMadeAnApartment)
{
    std::thread([] {
        const ApartmentScope madeByMapi;
        EXPECT_NO_THROW({
            const SharedTestMailbox mailbox;
            EXPECT_TRUE(mailbox.engine.FindFolder("{F}"));
        });
    }).join();
}

}  // namespace
}  // namespace quorvane::host
