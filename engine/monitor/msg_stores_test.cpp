#include "engine/monitor/msg_stores.h"

#include <gtest/gtest.h>

#include "engine/items/testing/test_mailbox.h"
#include "engine/items/testing/test_session.h"
#include "engine/session/options/options.h"

namespace quorvane::testing {
namespace {

class MsgStoresTest : public ::testing::Test {
protected:
    void SetNoListeners(const VARIANT& value)
    {
        const ComPtr<COptions> options = MakeComObject<COptions>();
        ASSERT_EQ(options->Add(kNoListeners, value), S_OK);
        session.options = ComPtr<IOptions>(options.Get());
    }

    TestMailbox mailbox;
    TestSession session;
    ComPtr<CMsgStores> stores = MakeComObject<CMsgStores>(&session);
};

TEST_F(MsgStoresTest, AStoreIsSubscribedOnce)
{
    SetNoListeners(Variant::Bool(false).Raw());
    EXPECT_EQ(stores->Add(&mailbox.Store()), S_OK);
    EXPECT_EQ(stores->Add(&mailbox.Store()), S_OK);
    EXPECT_EQ(stores->Count(), 1U);
}

TEST_F(MsgStoresTest, WithoutListenersNothingIsSubscribed)
{
    SetNoListeners(Variant::Bool(true).Raw());
    EXPECT_EQ(stores->Add(&mailbox.Store()), S_OK);
    EXPECT_EQ(stores->Count(), 0U);
}

TEST_F(MsgStoresTest, AnOptionThatCantBeReadMeansListening)
{
    EXPECT_EQ(stores->Add(&mailbox.Store()), S_OK);
    EXPECT_EQ(stores->Count(), 1U);
}

TEST_F(MsgStoresTest, WhatIsNoStoreIsRefusedWithTheAnswerToTheQuestionForOne)
{
    EXPECT_EQ(stores->Add(mailbox.Session().Get()), E_NOINTERFACE);
    EXPECT_EQ(stores->Count(), 0U);
}

}  // namespace
}  // namespace quorvane::testing
