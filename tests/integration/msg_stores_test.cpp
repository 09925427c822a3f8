// Subscriptions to whole stores.
#include <gtest/gtest.h>

#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

class MsgStoresTest : public testing::Test {
protected:
    void SetUp() override
    {
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(DllGetClassObject(CLSID_MsgStores, IID_IClassFactory, factory.PutVoid()), S_OK);
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IMsgStores, stores.PutVoid()), S_OK);
    }

    static ULONG ReferencesOf(IUnknown& object)
    {
        object.AddRef();
        return object.Release();
    }

    TestMailbox mailbox;
    ComPtr<IMsgStores> stores;
};

TEST_F(MsgStoresTest, AStoreIsSubscribedOnce)
{
    ASSERT_EQ(stores->Add(&mailbox.Store()), S_OK);
    const ULONG once = ReferencesOf(mailbox.Store());

    EXPECT_EQ(stores->Add(&mailbox.Store()), S_OK);
    EXPECT_EQ(ReferencesOf(mailbox.Store()), once);
}

TEST_F(MsgStoresTest, TheSubscriptionEndsWithTheObject)
{
    const ULONG before = ReferencesOf(mailbox.Store());
    ASSERT_EQ(stores->Add(&mailbox.Store()), S_OK);
    EXPECT_GT(ReferencesOf(mailbox.Store()), before);
    stores.Reset();

    EXPECT_EQ(ReferencesOf(mailbox.Store()), before);
}

TEST_F(MsgStoresTest, EventsOfTheStoreDoNoHarm)
{
    ASSERT_EQ(stores->Add(&mailbox.Store()), S_OK);
    const TestFolder folder = mailbox.MakeFolder("Folder");
    folder.Delete(folder.Add("Hello", "body"));

    EXPECT_EQ(folder.Count(), 0u);
}

TEST_F(MsgStoresTest, WhatIsNoStoreIsRefused)
{
    EXPECT_EQ(stores->Add(stores.Get()), E_NOINTERFACE);
    EXPECT_EQ(stores->Add(nullptr), E_POINTER);
}

}  // namespace
}  // namespace quorvane::test
