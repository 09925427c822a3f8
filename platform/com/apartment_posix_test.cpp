// Apartments as this library makes them off Windows: calls into them by proxies for dispatch interfaces
// alone.
#include "platform/com/apartment.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/com/dispatch.h"
#include "platform/com/error_text.h"

namespace quorvane {

// {B1C53F0A-3D6E-4A0B-8C35-7F4E5D6A1B01}, {...02} and {...03}
constexpr IID kEchoId = {0xB1C53F0A, 0x3D6E, 0x4A0B, {0x8C, 0x35, 0x7F, 0x4E, 0x5D, 0x6A, 0x1B, 0x01}};
constexpr IID kOtherId = {0xB1C53F0A, 0x3D6E, 0x4A0B, {0x8C, 0x35, 0x7F, 0x4E, 0x5D, 0x6A, 0x1B, 0x02}};
constexpr IID kDualId = {0xB1C53F0A, 0x3D6E, 0x4A0B, {0x8C, 0x35, 0x7F, 0x4E, 0x5D, 0x6A, 0x1B, 0x03}};

// Two dispatch-only interfaces, and one with a slot of its own.
struct IEcho : IDispatch {};
struct IOther : IDispatch {};
struct IDual : IDispatch {
    virtual HRESULT STDMETHODCALLTYPE Own() = 0;
};

}  // namespace quorvane

QUORVANE_IID(quorvane::IEcho, quorvane::kEchoId);
QUORVANE_IID(quorvane::IOther, quorvane::kOtherId);
QUORVANE_IID(quorvane::IDual, quorvane::kDualId);

namespace quorvane {

// One of the dispatch interfaces; answers a call with `answer()`.
template <class Interface>
class DispatchBase : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 3;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID* ids) override
    {
        *ids = 44;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                     EXCEPINFO*, UINT*) override
    {
        return Answer(id, *params, result);
    }

protected:
    virtual HRESULT Answer(DISPID id, DISPPARAMS& params, VARIANT* result) = 0;
    ~DispatchBase() = default;
};

template <class Interface>
struct IidOf<DispatchBase<Interface>> : IidOf<Interface> {};

namespace {

static_assert(detail::IsDispatchOnly<IEcho>() && !detail::IsDispatchOnly<IDual>());

// Belongs to the thread that made it, and watches that nobody else calls, or releases it last.
class CEcho final
    : public ComObject<CEcho, Answers<DispatchBase<IEcho>, IEcho, IDispatch>, ISupportErrorInfo> {
public:
    explicit CEcho(std::function<HRESULT(DISPPARAMS&, VARIANT*)> answer = nullptr)
        : m_Answer(std::move(answer))
    {}
    ~CEcho()
    {
        EXPECT_EQ(std::this_thread::get_id(), m_Owner);
        if (m_pGone)
            *m_pGone = true;
    }

    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }

    bool* m_pGone = nullptr;

protected:
    HRESULT Answer(DISPID id, DISPPARAMS& params, VARIANT* result) override
    {
        EXPECT_EQ(std::this_thread::get_id(), m_Owner);
        if (m_Answer)
            return m_Answer(params, result);
        *result = Variant::Long(id * 2).Detach();
        return S_OK;
    }

private:
    const std::function<HRESULT(DISPPARAMS&, VARIANT*)> m_Answer;
    const std::thread::id m_Owner = std::this_thread::get_id();
};

ComPtr<IGlobalInterfaceTable> Table()
{
    ComPtr<IGlobalInterfaceTable> table;
    EXPECT_EQ(CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IGlobalInterfaceTable, table.PutVoid()),
              S_OK);
    return table;
}

DWORD Register(IUnknown* object)
{
    DWORD cookie = 0;
    EXPECT_EQ(Table()->RegisterInterfaceInGlobal(object, IID_IUnknown, &cookie), S_OK);
    return cookie;
}

template <class Interface>
HRESULT Fetch(DWORD cookie, ComPtr<Interface>& object)
{
    ComPtr<IUnknown> unknown;
    const HRESULT hr = Table()->GetInterfaceFromGlobal(cookie, IID_IUnknown, unknown.PutVoid());
    return FAILED(hr) ? hr : unknown.As(object);
}

// Calls the object under a cookie; its answer is a number.
HRESULT CallUnder(DWORD cookie, DISPID id, LONG& answer)
{
    ComPtr<IEcho> echo;
    HRESULT hr = Fetch(cookie, echo);
    Variant result;
    if (SUCCEEDED(hr))
        hr = InvokeById(echo.Get(), id, DISPATCH_METHOD, {}, &result);
    answer = result.Is(VT_I4) ? result.Raw().lVal : -1;
    return hr;
}

// Runs `work` on a free thread while this thread, an apartment, answers calls.
template <class Work>
void WhilePumping(Work&& work)
{
    ApartmentLoop loop;
    std::jthread worker([&] {
        work();
        loop.Stop();
    });
    loop.Run();
}

// An apartment on a thread of its own that runs until told to stop.
class ApartmentThread {
public:
    ApartmentThread()
    {
        std::promise<void> ready;
        thread_ = std::jthread([this, &ready] {
            const ApartmentScope apartment;
            ready.set_value();
            loop_.Run();
        });
        ready.get_future().wait();
    }
    ~ApartmentThread() { loop_.Stop(); }

    // Runs a function on the thread and waits for it.
    void Do(const std::function<void()>& function)
    {
        std::promise<void> done;
        EXPECT_EQ(loop_.Post([&] {
            function();
            done.set_value();
        }),
                  S_OK);
        done.get_future().wait();
    }

    void End()
    {
        loop_.Stop();
        thread_.join();
    }

private:
    ApartmentLoop loop_;
    std::jthread thread_;
};

class ApartmentTest : public testing::Test {
protected:
    const ApartmentScope apartment;
};

TEST(ApartmentModelTest, OnlyTheGlobalTableIsAClassHere)
{
    void* object = nullptr;
    EXPECT_EQ(CoCreateInstance(kEchoId, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object),
              REGDB_E_CLASSNOTREG);
}

TEST_F(ApartmentTest, OnItsOwnThreadTheObjectItselfIsGiven)
{
    const auto object = MakeComObject<CEcho>();
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));
    ComPtr<IEcho> fetched;

    EXPECT_EQ(Fetch(cookie, fetched), S_OK);

    EXPECT_EQ(fetched.Get(), static_cast<IEcho*>(object.Get()));
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, ACallFromAnotherThreadRunsOnTheOwningThread)
{
    const auto object = MakeComObject<CEcho>();
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));
    LONG answer = 0;

    WhilePumping([&] { EXPECT_EQ(CallUnder(cookie, 21, answer), S_OK); });

    EXPECT_EQ(answer, 42);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, EveryMethodOfIDispatchCrosses)
{
    const auto object = MakeComObject<CEcho>();
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));

    WhilePumping([&] {
        ComPtr<IDispatch> proxy;
        ASSERT_EQ(Fetch(cookie, proxy), S_OK);
        UINT count = 0;
        DISPID id = 0;
        ITypeInfo* info = nullptr;
        EXPECT_EQ(proxy->GetTypeInfoCount(&count), S_OK);
        EXPECT_EQ(count, 3u);
        EXPECT_EQ(proxy->GetIDsOfNames(IID_NULL, nullptr, 0, 0, &id), S_OK);
        EXPECT_EQ(id, 44);
        EXPECT_EQ(proxy->GetTypeInfo(0, 0, &info), E_NOTIMPL);
    });
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AProxyHasOneIdentityAndOnlyDispatchInterfaces)
{
    const auto object = MakeComObject<CEcho>();
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));

    WhilePumping([&] {
        ComPtr<IEcho> echo;
        ASSERT_EQ(Fetch(cookie, echo), S_OK);
        EXPECT_NE(echo.Get(), static_cast<IEcho*>(object.Get()));
        ComPtr<IDispatch> dispatch;
        ComPtr<IUnknown> first;
        ComPtr<IUnknown> second;
        EXPECT_EQ(echo.As(dispatch), S_OK);
        EXPECT_EQ(echo->QueryInterface(IID_IUnknown, first.PutVoid()), S_OK);
        EXPECT_EQ(dispatch->QueryInterface(IID_IUnknown, second.PutVoid()), S_OK);
        EXPECT_EQ(first, second);
        ComPtr<IEcho> again;
        EXPECT_EQ(dispatch.As(again), S_OK);
        EXPECT_EQ(again, echo);

        ComPtr<IOther> other;
        ComPtr<IDual> dual;
        ComPtr<ISupportErrorInfo> support;
        EXPECT_EQ(echo.As(other), E_NOINTERFACE) << "the object doesn't answer it";
        EXPECT_EQ(echo.As(dual), E_NOINTERFACE);
        EXPECT_EQ(echo.As(support), E_NOINTERFACE) << "the object does, but it is no dispatch interface";
    });
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AFailureBringsItsErrorTextAlong)
{
    const auto object = MakeComObject<CEcho>([](DISPPARAMS&, VARIANT*) {
        return RaiseError(kEchoId, OLESTR("echo"), OLESTR("no answer"), E_ACCESSDENIED);
    });
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));

    WhilePumping([&] {
        LONG answer = 0;
        EXPECT_EQ(CallUnder(cookie, 1, answer), E_ACCESSDENIED);
        EXPECT_EQ(TakeErrorDescription().View(), OLESTR("no answer"));
    });
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AnOutArgumentIsWrittenInTheCallersMemory)
{
    const auto object = MakeComObject<CEcho>([](DISPPARAMS& params, VARIANT*) {
        *params.rgvarg[0].pboolVal = VARIANT_TRUE;
        return S_OK;
    });
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));
    VARIANT_BOOL ignore = VARIANT_FALSE;

    WhilePumping([&] {
        ComPtr<IEcho> echo;
        ASSERT_EQ(Fetch(cookie, echo), S_OK);
        VARIANT argument{};
        argument.vt = VT_BYREF | VT_BOOL;
        argument.pboolVal = &ignore;
        EXPECT_EQ(InvokeById(echo.Get(), 3, DISPATCH_METHOD, std::span(&argument, 1)), S_OK);
    });

    EXPECT_EQ(ignore, VARIANT_TRUE);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, ACallThatComesBackInWhileItsCallerWaitsDoesNotDeadlock)
{
    ApartmentThread other;
    DWORD inner = 0;
    DWORD outer = 0;
    const auto here = MakeComObject<CEcho>();
    inner = Register(static_cast<IEcho*>(here.Get()));
    other.Do([&] {
        const auto there = MakeComObject<CEcho>([&](DISPPARAMS&, VARIANT* result) {
            LONG answer = 0;
            const HRESULT hr = CallUnder(inner, 4, answer);
            *result = Variant::Long(answer + 1).Detach();
            return hr;
        });
        outer = Register(static_cast<IEcho*>(there.Get()));
    });
    LONG answer = 0;

    EXPECT_EQ(CallUnder(outer, 1, answer), S_OK);

    EXPECT_EQ(answer, 9);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(inner), S_OK);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(outer), S_OK);
}

TEST_F(ApartmentTest, ManyThreadsCallOneApartmentAtOnce)
{
    constexpr int kThreads = 8;
    constexpr int kCalls = 50;
    const auto object = MakeComObject<CEcho>();
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));
    std::atomic<int> right = 0;

    WhilePumping([&] {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&] {
                for (int call = 0; call < kCalls; ++call) {
                    LONG answer = 0;
                    if (CallUnder(cookie, call, answer) == S_OK && answer == call * 2)
                        ++right;
                }
            });
        }
    });

    EXPECT_EQ(right, kThreads * kCalls);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, ARevokedObjectIsNoLongerGivenButAProxyGoesOn)
{
    ComPtr<CEcho> object = MakeComObject<CEcho>();
    bool gone = false;
    object->m_pGone = &gone;
    const DWORD cookie = Register(static_cast<IEcho*>(object.Get()));
    object.Reset();

    WhilePumping([&] {
        ComPtr<IEcho> echo;
        ASSERT_EQ(Fetch(cookie, echo), S_OK);
        EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
        EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), E_INVALIDARG);
        LONG answer = 0;
        EXPECT_EQ(CallUnder(cookie, 1, answer), E_INVALIDARG);
        EXPECT_EQ(InvokeById(echo.Get(), 1, DISPATCH_METHOD, {}), S_OK);
    });

    PumpApartmentCalls();
    EXPECT_TRUE(gone) << "released on its own thread when the proxy went";
}

TEST_F(ApartmentTest, AfterTheApartmentsEndACallIsDisconnected)
{
    DWORD cookie = 0;
    ComPtr<IEcho> before;
    bool gone = false;
    {
        ApartmentThread other;
        other.Do([&] {
            const auto object = MakeComObject<CEcho>();
            object->m_pGone = &gone;
            cookie = Register(static_cast<IEcho*>(object.Get()));
        });
        ASSERT_EQ(Fetch(cookie, before), S_OK);
        other.End();
    }

    EXPECT_TRUE(gone);
    EXPECT_EQ(InvokeById(before.Get(), 1, DISPATCH_METHOD, {}), RPC_E_DISCONNECTED);
    LONG answer = 0;
    EXPECT_EQ(CallUnder(cookie, 1, answer), RPC_E_DISCONNECTED);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, ACallThatStillWaitsWhenTheApartmentEndsIsRefused)
{
    std::promise<DWORD> registered;
    std::promise<void> mayEnd;
    std::jthread owner([&] {
        const ApartmentScope scope;
        const auto object = MakeComObject<CEcho>();
        registered.set_value(Register(static_cast<IEcho*>(object.Get())));
        // Never pumps.
        mayEnd.get_future().wait();
    });
    const DWORD cookie = registered.get_future().get();
    std::promise<void> aboutToCall;
    std::jthread caller([&] {
        ComPtr<IDispatch> proxy;
        ASSERT_EQ(Fetch(cookie, proxy), S_OK);
        aboutToCall.set_value();
        EXPECT_EQ(InvokeById(proxy.Get(), 1, DISPATCH_METHOD, {}), RPC_E_DISCONNECTED);
    });
    aboutToCall.get_future().wait();

    mayEnd.set_value();
    caller.join();
    owner.join();
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AThreadThatEndsWithoutUninitialisingLeavesNothingDangling)
{
    DWORD cookie = 0;
    std::thread([&] {
        ASSERT_EQ(CoInitialize(nullptr), S_OK);
        const auto object = MakeComObject<CEcho>();
        cookie = Register(static_cast<IEcho*>(object.Get()));
    }).join();
    LONG answer = 0;

    EXPECT_EQ(CallUnder(cookie, 1, answer), RPC_E_DISCONNECTED);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AFreeThreadsObjectIsGivenItself)
{
    const auto object = MakeComObject<CEcho>();
    DWORD cookie = 0;
    std::thread([&] { cookie = Register(static_cast<IEcho*>(object.Get())); }).join();
    ComPtr<IEcho> fetched;

    EXPECT_EQ(Fetch(cookie, fetched), S_OK);
    EXPECT_EQ(fetched.Get(), static_cast<IEcho*>(object.Get()));
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AnObjectWithoutIDispatchIsGivenItself)
{
    ComPtr<IStream> stream;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), S_OK);
    const DWORD cookie = Register(stream.Get());

    std::thread([&] {
        ComPtr<IStream> fetched;
        EXPECT_EQ(Fetch(cookie, fetched), S_OK);
        EXPECT_EQ(fetched, stream);
    }).join();
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(cookie), S_OK);
}

TEST_F(ApartmentTest, AProxyThatIsRegisteredAgainStillCallsTheFirstOwner)
{
    ApartmentThread other;
    DWORD first = 0;
    other.Do([&] {
        const auto object = MakeComObject<CEcho>();
        first = Register(static_cast<IEcho*>(object.Get()));
    });
    ComPtr<IEcho> proxy;
    ASSERT_EQ(Fetch(first, proxy), S_OK);
    const DWORD second = Register(proxy.Get());

    std::thread([&] {
        // This apartment doesn't pump, so the call goes straight to the first.
        LONG answer = 0;
        EXPECT_EQ(CallUnder(second, 3, answer), S_OK);
        EXPECT_EQ(answer, 6);
    }).join();
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(first), S_OK);
    EXPECT_EQ(Table()->RevokeInterfaceFromGlobal(second), S_OK);
}

TEST_F(ApartmentTest, AnInterfaceTravelsInAStreamOnce)
{
    const auto object = MakeComObject<CEcho>();
    IStream* stream = nullptr;
    ASSERT_EQ(CoMarshalInterThreadInterfaceInStream(kEchoId, static_cast<IEcho*>(object.Get()), &stream),
              S_OK);
    LONG answer = 0;

    WhilePumping([&] {
        ComPtr<IEcho> echo;
        ASSERT_EQ(CoGetInterfaceAndReleaseStream(stream, kEchoId, echo.PutVoid()), S_OK);
        Variant result;
        EXPECT_EQ(InvokeById(echo.Get(), 8, DISPATCH_METHOD, {}, &result), S_OK);
        answer = result.Raw().lVal;
    });

    EXPECT_EQ(answer, 16);
}

TEST_F(ApartmentTest, AStreamThatIsNeverReadKeepsNothing)
{
    ComPtr<CEcho> object = MakeComObject<CEcho>();
    bool gone = false;
    object->m_pGone = &gone;
    ComPtr<IStream> stream;
    ASSERT_EQ(CoMarshalInterThreadInterfaceInStream(kEchoId, static_cast<IEcho*>(object.Get()), stream.Put()),
              S_OK);
    object.Reset();
    stream.Reset();

    PumpApartmentCalls();
    EXPECT_TRUE(gone);
}

TEST_F(ApartmentTest, AnyOtherStreamCarriesNoInterface)
{
    IStream* stream = nullptr;
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, &stream), S_OK);
    void* object = &stream;

    EXPECT_EQ(CoGetInterfaceAndReleaseStream(stream, kEchoId, &object), E_INVALIDARG);
    EXPECT_EQ(object, nullptr);
}

}  // namespace
}  // namespace quorvane
