#include "platform/com/connection_point.h"

#include <gtest/gtest.h>

#include "platform/com/class_factory.h"

namespace quorvane {

// {5C7B0C5E-6E5F-4C2B-8E43-0D6F3B7B9A11}
constexpr IID kTestEventsId = {0x5C7B0C5E, 0x6E5F, 0x4C2B, {0x8E, 0x43, 0x0D, 0x6F, 0x3B, 0x7B, 0x9A, 0x11}};
struct ITestEvents : IDispatch {};

}  // namespace quorvane

QUORVANE_IID(quorvane::ITestEvents, quorvane::kTestEventsId);

namespace quorvane {
namespace {

class CSource final : public ComObject<CSource, ISupportErrorInfo, ConnectionPointContainer<ITestEvents>> {
public:
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override { return S_FALSE; }
};

// Answers the source interface by its identifier alone.
class CSink final : public IUnknown {
public:
    explicit CSink(REFIID answered) noexcept : m_Answered(answered) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        const bool known = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, m_Answered);
        *object = known ? this : nullptr;
        if (known)
            AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nReferences; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_nReferences; }

    ULONG m_nReferences = 0;

private:
    const IID m_Answered;
};

class ConnectionPointTest : public testing::Test {
protected:
    void SetUp() override
    {
        source = MakeComObject<CSource>();
        ASSERT_EQ(source.As(container), S_OK);
        ASSERT_EQ(container->FindConnectionPoint(kTestEventsId, point.Put()), S_OK);
    }

    ComPtr<CSource> source;
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    CSink sink{kTestEventsId};
    DWORD cookie = 0;
};

TEST_F(ConnectionPointTest, OnlyTheOneSourceInterfaceIsFound)
{
    ComPtr<IConnectionPoint> other;
    EXPECT_EQ(container->FindConnectionPoint(IID_IStream, other.Put()), CONNECT_E_NOCONNECTION);
    EXPECT_FALSE(other);
    IID iid{};
    EXPECT_EQ(point->GetConnectionInterface(&iid), S_OK);
    EXPECT_TRUE(IsEqualIID(iid, kTestEventsId));
}

TEST_F(ConnectionPointTest, AnAdvisedSinkIsHeldUntilUnadvised)
{
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(sink.m_nReferences, 1u);
    EXPECT_EQ(source->Connections().Snapshot().size(), 1u);

    EXPECT_EQ(point->Unadvise(cookie), S_OK);

    EXPECT_EQ(sink.m_nReferences, 0u);
    EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);
}

TEST_F(ConnectionPointTest, ASinkWithoutTheInterfaceCannotConnect)
{
    CSink stranger(IID_IStream);
    CSink dispatch(IID_IDispatch);
    cookie = 5;

    EXPECT_EQ(point->Advise(&stranger, &cookie), CONNECT_E_CANNOTCONNECT);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(point->Advise(nullptr, &cookie), E_POINTER);
    EXPECT_EQ(point->Advise(&dispatch, &cookie), S_OK);
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
}

TEST_F(ConnectionPointTest, ConnectionsAreEnumeratedAsTheyWereWhenAsked)
{
    DWORD second = 0;
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);
    ASSERT_EQ(point->Advise(&sink, &second), S_OK);
    ComPtr<IEnumConnections> connections;
    ASSERT_EQ(point->EnumConnections(connections.Put()), S_OK);
    ASSERT_EQ(point->Unadvise(second), S_OK);

    CONNECTDATA found[3]{};
    ULONG fetched = 0;
    EXPECT_EQ(connections->Next(3, found, &fetched), S_FALSE);
    ASSERT_EQ(fetched, 2u);
    EXPECT_EQ(found[0].dwCookie, cookie);
    EXPECT_EQ(found[1].dwCookie, second);
    for (ULONG i = 0; i < fetched; ++i)
        found[i].pUnk->Release();
    connections.Reset();
    ASSERT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(sink.m_nReferences, 0u);
}

TEST_F(ConnectionPointTest, ThePointIsEnumeratedAndLeadsBackToItsContainer)
{
    ComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(container->EnumConnectionPoints(points.Put()), S_OK);
    ComPtr<IConnectionPoint> found;
    ComPtr<IConnectionPointContainer> back;

    EXPECT_EQ(points->Next(1, found.Put(), nullptr), S_OK);
    EXPECT_EQ(found, point);
    EXPECT_EQ(found->GetConnectionPointContainer(back.Put()), S_OK);
    EXPECT_EQ(back, container);
    EXPECT_EQ(points->Skip(1), S_FALSE);
}

TEST_F(ConnectionPointTest, ACookieThatWasNeverGivenHasNoConnection)
{
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);

    EXPECT_EQ(point->Unadvise(0), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(cookie + 1), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(sink.m_nReferences, 1u);
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
}

TEST_F(ConnectionPointTest, EachAdviseGivesACookieOfItsOwn)
{
    DWORD second = 0;
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);
    ASSERT_EQ(point->Advise(&sink, &second), S_OK);
    EXPECT_NE(cookie, second);

    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(point->Unadvise(second), S_OK);
}

TEST_F(ConnectionPointTest, APlaceForTheResultIsAlwaysNeeded)
{
    EXPECT_EQ(container->FindConnectionPoint(kTestEventsId, nullptr), E_POINTER);
    EXPECT_EQ(container->EnumConnectionPoints(nullptr), E_POINTER);
    EXPECT_EQ(point->GetConnectionInterface(nullptr), E_POINTER);
    EXPECT_EQ(point->GetConnectionPointContainer(nullptr), E_POINTER);
    EXPECT_EQ(point->EnumConnections(nullptr), E_POINTER);
    EXPECT_EQ(point->Advise(&sink, nullptr), E_POINTER);
    EXPECT_EQ(point->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(sink.m_nReferences, 0u);
}

TEST_F(ConnectionPointTest, APointIsAnObjectOfItsOwnThatKeepsTheContainer)
{
    ComPtr<IUnknown> ofPoint;
    ComPtr<IUnknown> ofSource;
    ComPtr<IConnectionPointContainer> none;
    ASSERT_EQ(point.As(ofPoint), S_OK);
    ASSERT_EQ(source.As(ofSource), S_OK);

    EXPECT_NE(ofPoint, ofSource);
    EXPECT_EQ(point.As(none), E_NOINTERFACE);
    ofSource.Reset();
    container.Reset();
    source.Reset();
    EXPECT_EQ(point->Advise(&sink, &cookie), S_OK);
    ofPoint.Reset();
    point.Reset();
    EXPECT_EQ(sink.m_nReferences, 0u) << "the source went, and its connections with it";
}

TEST_F(ConnectionPointTest, AnEnumeratorOfConnectionsKeepsItsRules)
{
    DWORD second = 0;
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);
    ASSERT_EQ(point->Advise(&sink, &second), S_OK);
    ComPtr<IEnumConnections> connections;
    ComPtr<IEnumConnections> clone;
    ASSERT_EQ(point->EnumConnections(connections.Put()), S_OK);
    CONNECTDATA found[2]{};
    ULONG fetched = 9;

    EXPECT_EQ(connections->Next(2, found, nullptr), E_POINTER) << "only a single one may come uncounted";
    EXPECT_EQ(connections->Next(1, nullptr, &fetched), E_POINTER);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(connections->Skip(1), S_OK);
    ASSERT_EQ(connections->Clone(clone.Put()), S_OK);
    EXPECT_EQ(connections->Clone(nullptr), E_POINTER);
    EXPECT_EQ(connections->Skip(2), S_FALSE);
    EXPECT_EQ(clone->Next(1, found, nullptr), S_OK);
    EXPECT_EQ(found[0].dwCookie, second);
    found[0].pUnk->Release();
    EXPECT_EQ(connections->Reset(), S_OK);
    EXPECT_EQ(connections->Next(1, found, &fetched), S_OK);
    EXPECT_EQ(found[0].dwCookie, cookie);
    found[0].pUnk->Release();
    connections.Reset();
    clone.Reset();
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(point->Unadvise(second), S_OK);
}

class CCounted final : public ComObject<CCounted, ISupportErrorInfo> {
public:
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }

private:
    const ServerLockScope m_ServerLock;
};

TEST(ClassFactoryTest, AFactoryMakesObjectsThatHoldTheServer)
{
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(CClassFactory<CCounted>::Create(IID_IClassFactory, factory.PutVoid()), S_OK);
    ComPtr<ISupportErrorInfo> object;

    EXPECT_EQ(factory->CreateInstance(nullptr, IID_ISupportErrorInfo, object.PutVoid()), S_OK);
    factory.Reset();

    EXPECT_TRUE(ServerLocks::AreHeld());
    object.Reset();
    EXPECT_FALSE(ServerLocks::AreHeld());
}

TEST(ClassFactoryTest, AggregationAndUnknownInterfacesAreRefused)
{
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(CClassFactory<CCounted>::Create(IID_IClassFactory, factory.PutVoid()), S_OK);
    void* object = &factory;

    EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IStream, &object), E_NOINTERFACE);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
}

TEST(ClassFactoryTest, LockingTheServerHoldsItUntilItIsUnlocked)
{
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(CClassFactory<CCounted>::Create(IID_IClassFactory, factory.PutVoid()), S_OK);
    ASSERT_EQ(factory->LockServer(TRUE), S_OK);
    ComPtr<IClassFactory> other = factory;
    factory.Reset();
    other->LockServer(FALSE);
    EXPECT_TRUE(ServerLocks::AreHeld()) << "the factory itself still is";
    other.Reset();

    EXPECT_FALSE(ServerLocks::AreHeld());
}

}  // namespace
}  // namespace quorvane
