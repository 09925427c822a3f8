#include "engine/monitor/msg_stores.h"

#include <gtest/gtest.h>

#include "engine/items/testing/test_mailbox.h"
#include "engine/items/testing/test_session.h"
#include "engine/session/options/options.h"
#include "engine/storeaccess/mapi_functions.h"
#include "engine/storeaccess/testing/fake_store.h"

namespace quorvane::testing {
namespace {

// A store that tells its identifier and takes no sinks.
class DeafStore final : public ComObject<DeafStore, Answers<UnimplementedMsgStore, IMAPIProp>> {
public:
    int asked = 0;

    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray, ULONG, ULONG* count, LPSPropValue* values) override
    {
        static BYTE identifier[] = {1, 2, 3};
        void* buffer = nullptr;
        if (FAILED(mapi::MAPIAllocateBuffer(sizeof(SPropValue), &buffer)))
            return E_OUTOFMEMORY;
        *values = static_cast<LPSPropValue>(buffer);
        **values = SPropValue{};
        (*values)->ulPropTag = PR_ENTRYID;
        (*values)->Value.bin = {sizeof(identifier), identifier};
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override
    {
        ++asked;
        return MAPI_E_NO_SUPPORT;
    }
};

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

TEST_F(MsgStoresTest, AStoreThatTakesNoSinkIsNotKeptAndIsAskedAgain)
{
    const ComPtr<DeafStore> deaf = MakeComObject<DeafStore>();
    EXPECT_EQ(stores->Add(deaf.Get()), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(stores->Count(), 0U);
    EXPECT_EQ(stores->Add(deaf.Get()), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(deaf->asked, 2);
}

TEST_F(MsgStoresTest, WhatIsNoStoreIsRefusedWithTheAnswerToTheQuestionForOne)
{
    EXPECT_EQ(stores->Add(mailbox.Session().Get()), E_NOINTERFACE);
    EXPECT_EQ(stores->Count(), 0U);
}

}  // namespace
}  // namespace quorvane::testing
