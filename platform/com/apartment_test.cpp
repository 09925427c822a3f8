#include "platform/com/apartment.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/com/com_object.h"
#include "platform/com/marshaled_interface.h"

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

// An automation object with nothing to call.
template <class... Marks>
class Automation final : public ComObject<Automation<Marks...>, IDispatch, Marks...> {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override
    {
        return E_NOTIMPL;
    }
};

class MarshaledInterfaceTest : public ApartmentLoopTest {
protected:
    // Takes the interface out on a free thread, and tells whether it is `object` itself.
    static bool ArrivesAs(IDispatch* object, MarshaledInterface& marshaled)
    {
        bool same = false;
        ApartmentLoop loop;
        std::jthread other([&] {
            {
                const FreeThreadScope free;
                ComPtr<IDispatch> arrived;
                EXPECT_EQ(marshaled.Take(arrived), S_OK);
                same = arrived == object;
            }
            loop.Stop();
        });
        loop.Run();
        return same;
    }

    MarshaledInterface marshaled;
};

TEST_F(MarshaledInterfaceTest, AnObjectOfAnApartmentArrivesAsAProxy)
{
    const auto object = MakeComObject<Automation<>>();

    ASSERT_EQ(marshaled.Put<IDispatch>(object.Get()), S_OK);

    EXPECT_FALSE(ArrivesAs(object.Get(), marshaled));
}

TEST_F(MarshaledInterfaceTest, AFreeThreadedObjectArrivesAsItself)
{
    const auto object = MakeComObject<Automation<FreeThreaded>>();

    ASSERT_EQ(marshaled.Put<IDispatch>(object.Get()), S_OK);

    EXPECT_TRUE(ArrivesAs(object.Get(), marshaled));
}

TEST_F(MarshaledInterfaceTest, AnInterfaceIsTakenOutOnce)
{
    const auto object = MakeComObject<Automation<FreeThreaded>>();
    ASSERT_EQ(marshaled.Put<IDispatch>(object.Get()), S_OK);
    EXPECT_FALSE(marshaled.IsEmpty());
    ASSERT_TRUE(ArrivesAs(object.Get(), marshaled));

    ComPtr<IDispatch> again;
    EXPECT_TRUE(marshaled.IsEmpty());
    EXPECT_EQ(marshaled.Take(again), E_INVALIDARG);
}

TEST_F(MarshaledInterfaceTest, WhatNobodyTookIsLetGoOf)
{
    const auto bound = MakeComObject<Automation<>>();
    const auto free = MakeComObject<Automation<FreeThreaded>>();
    {
        MarshaledInterface first;
        MarshaledInterface second;
        ASSERT_EQ(first.Put<IDispatch>(bound.Get()), S_OK);
        ASSERT_EQ(second.Put<IDispatch>(free.Get()), S_OK);
        EXPECT_GT(free->AddRef(), 2u);
        free->Release();
    }
    PumpApartmentCalls();

    EXPECT_EQ(bound->AddRef(), 2u);
    EXPECT_EQ(bound->Release(), 1u);
    EXPECT_EQ(free->AddRef(), 2u);
    EXPECT_EQ(free->Release(), 1u);
}

TEST(FreeThreadedTest, TheMarshalerCountsOnItsObject)
{
    const auto object = MakeComObject<Automation<FreeThreaded>>();
    ComPtr<IMarshal> marshal;
    ComPtr<IUnknown> outer;

    ASSERT_EQ(object->QueryInterface(IID_IMarshal, marshal.PutVoid()), S_OK);
    ASSERT_EQ(marshal->QueryInterface(IID_IUnknown, outer.PutVoid()), S_OK);

    EXPECT_EQ(outer.Get(), static_cast<IDispatch*>(object.Get()));
    EXPECT_EQ(object->AddRef(), 4u);
    EXPECT_EQ(object->Release(), 3u);
}

}  // namespace
}  // namespace quorvane
