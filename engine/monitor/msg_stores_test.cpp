#include "engine/monitor/msg_stores.h"

#include <gtest/gtest.h>

#include "engine/items/testing/test_mailbox.h"
#include "engine/items/testing/test_session.h"
#include "engine/monitor/test_doubles.h"
#include "engine/session/options/options.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane::testing {
namespace {

constexpr ULONG kConnection = 77;

// A store that notes its subscriptions and can refuse each step of one.
class RefusingStore final : public ComObject<RefusingStore, Answers<UnimplementedMsgStore, IMAPIProp>> {
public:
    ULONG idTag = PR_ENTRYID;
    HRESULT idResult = S_OK;
    HRESULT adviseResult = S_OK;
    ULONG mask = 0;
    int advised = 0;
    std::vector<ULONG> ended;
    std::vector<ULONG> asked;

    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG, ULONG* count,
                                       LPSPropValue* values) override
    {
        asked.push_back(tags->aulPropTag[0]);
        if (tags->aulPropTag[0] != PR_ENTRYID || FAILED(idResult))
            return FAILED(idResult) ? idResult : MAPI_E_NO_SUPPORT;
        void* buffer = nullptr;
        EXPECT_EQ(mapi::MAPIAllocateBuffer(sizeof(SPropValue), &buffer), S_OK);
        *values = static_cast<SPropValue*>(buffer);
        **values = SPropValue{};
        (*values)->ulPropTag = idTag;
        (*values)->Value.bin = {4, id_};
        *count = 1;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG size, LPENTRYID id, ULONG events, LPMAPIADVISESINK sink,
                                     ULONG* connection) override
    {
        EXPECT_EQ(size, 0u);
        EXPECT_FALSE(id);
        EXPECT_TRUE(sink);
        ++advised;
        mask = events;
        *connection = kConnection;
        return adviseResult;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override
    {
        ended.push_back(connection);
        return S_OK;
    }
    // How often the store is held by others than the test.
    ULONG Holders()
    {
        AddRef();
        return Release() - 1;
    }

private:
    BYTE id_[4] = {0, 0, 0, 9};
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

TEST_F(MsgStoresTest, ANotificationWithoutASessionIsTracedAndUnexpected)
{
    const ComPtr<CMsgStores> alone = MakeComObject<CMsgStores>(nullptr);
    const std::string lines =
        TracedLines([&] { EXPECT_EQ(static_cast<HRESULT>(alone->OnNotify(0, nullptr)), E_UNEXPECTED); });
    EXPECT_NE(lines.find("CMsgStores::OnNotify("), std::string::npos) << lines;
}

TEST_F(MsgStoresTest, WhatIsNoStoreIsRefusedWithTheAnswerToTheQuestionForOne)
{
    EXPECT_EQ(stores->Add(mailbox.Session().Get()), E_NOINTERFACE);
    EXPECT_EQ(stores->Count(), 0U);
}

class MsgStoresStepsTest : public MsgStoresTest {
protected:
    // Adds the store, which fails in that way: traced, nothing is subscribed, and the store is let go of.
    void Refuses(HRESULT expected)
    {
        const std::string lines = TracedLines([&] { EXPECT_EQ(stores->Add(store.Get()), expected); });
        EXPECT_NE(lines.find("CMsgStores::Add("), std::string::npos);
        EXPECT_EQ(stores->Count(), 0U);
        EXPECT_EQ(store->Holders(), 0u);
    }

    const ComPtr<RefusingStore> store = MakeComObject<RefusingStore>();
};

TEST_F(MsgStoresStepsTest, TheWholeStoreIsSubscribedToItsObjectsEventsUntilTheObjectGoes)
{
    EXPECT_EQ(stores->Add(store.Get()), S_OK);
    EXPECT_EQ(stores->Add(store.Get()), S_OK);
    EXPECT_EQ(store->advised, 1);
    EXPECT_EQ(store->mask, 0x7Cu);
    EXPECT_EQ(std::count(store->asked.begin(), store->asked.end(), 0x662B0102u), 1);
    EXPECT_TRUE(store->ended.empty());

    stores.Reset();
    EXPECT_EQ(store->ended, std::vector<ULONG>{kConnection});
    EXPECT_EQ(store->Holders(), 0u);
}

TEST_F(MsgStoresStepsTest, AnIdentifierThatCantBeReadFailsTheAddition)
{
    store->idResult = MAPI_E_NOT_FOUND;
    Refuses(MAPI_E_NOT_FOUND);
    EXPECT_EQ(store->advised, 0);
}

TEST_F(MsgStoresStepsTest, WhatIsNoIdentifierFailsTheAddition)
{
    store->idTag = PR_RECORD_KEY;
    Refuses(E_INVALIDARG);
    EXPECT_EQ(store->advised, 0);
}

TEST_F(MsgStoresStepsTest, AStoreThatRefusesTheSubscriptionIsNotKept)
{
    store->adviseResult = MAPI_E_NO_SUPPORT;
    Refuses(MAPI_E_NO_SUPPORT);
    store->adviseResult = S_OK;
    EXPECT_EQ(stores->Add(store.Get()), S_OK) << "it may be tried again";
    stores.Reset();

    EXPECT_EQ(store->ended.size(), 1u);
}

}  // namespace
}  // namespace quorvane::testing
