// The helpers of the public headers, as a host uses them.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "quorvane3/mapi_helpers.h"
#include "quorvane3/quorvane3.h"
#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

class HelpersTest : public ::testing::Test {
protected:
    void SetUp() override { mailbox.Select(); }

    TestMailbox mailbox;
    TestHost host{mailbox};
};

// Leaves the name of the database to a test.
class HostWithDatabase final : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(Widen(database));
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(kProductCode);
        return S_OK;
    }

    std::string database;
};

TEST_F(HelpersTest, ALogonHoldsASessionUntilItsEnd)
{
    HostSession session;
    ASSERT_EQ(session.Logon(host), S_OK);
    Bstr path;
    EXPECT_TRUE(session.IsLoggedOn());
    EXPECT_EQ(session->get_DBPath(path.Put()), S_OK);
    EXPECT_EQ(ToUtf8(path.View()), mailbox.DatabasePath().string());

    session.Logoff();

    EXPECT_FALSE(session.IsLoggedOn());
    EXPECT_EQ(session.Get(), nullptr);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST_F(HelpersTest, AFailedLogonHoldsNothingAndAnotherMayFollow)
{
    HostWithDatabase chooser;
    chooser.database = (mailbox.Directory() / "none.db").string();
    HostSession session;
    EXPECT_TRUE(FAILED(session.Logon(chooser)));
    EXPECT_FALSE(session.IsLoggedOn());

    chooser.database = mailbox.DatabasePath().string();
    EXPECT_EQ(session.Logon(chooser), S_OK);
    EXPECT_TRUE(session.IsLoggedOn());
}

TEST_F(HelpersTest, ASecondLogonEndsTheFirst)
{
    HostSession session;
    ASSERT_EQ(session.Logon(host), S_OK);
    ASSERT_EQ(session.Logon(host), S_OK);
    session.Logoff();
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

// Stays in ProductCode until it is let go, or for as long as a test can spare when it must not be.
class SlowHost final : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr&) override { return S_OK; }
    HRESULT ProductCode(Bstr&) override
    {
        std::unique_lock lock(mutex_);
        inside_ = true;
        changed_.notify_all();
        closedWhileInside_ = changed_.wait_for(lock, std::chrono::milliseconds(200), [&] { return closed_; });
        return S_OK;
    }

    void WaitUntilInside()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return inside_; });
    }
    void NoteClosed()
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }
    bool ClosedWhileInside() const { return closedWhileInside_; }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool inside_ = false;
    bool closed_ = false;
    bool closedWhileInside_ = false;
};

HRESULT AskProductCode(IDispatch& callback)
{
    DISPPARAMS none{};
    Variant code;
    return callback.Invoke(quorvane::kProductCode, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, code.Put(),
                           nullptr, nullptr);
}

TEST_F(HelpersTest, ClosingACallbackWaitsForTheCallUnderWay)
{
    SlowHost slow;
    const ComPtr<ExtCallback> callback = MakeComObject<ExtCallback>(slow);
    std::jthread engine([&] { EXPECT_EQ(AskProductCode(*callback.Get()), S_OK); });
    slow.WaitUntilInside();
    callback->Close();
    slow.NoteClosed();
    engine.join();
    EXPECT_FALSE(slow.ClosedWhileInside());
}

TEST_F(HelpersTest, AClosedCallbackIsDisconnected)
{
    const ComPtr<ExtCallback> callback = MakeComObject<ExtCallback>(host);
    EXPECT_EQ(AskProductCode(*callback.Get()), S_OK);
    callback->Close();
    EXPECT_EQ(AskProductCode(*callback.Get()), RPC_E_DISCONNECTED);
}

TEST_F(HelpersTest, ACallbackThatWasMadeInNoApartmentMayBeCalledOnAnyThread)
{
    HRESULT free = E_FAIL;
    HRESULT bound = E_FAIL;
    std::thread([&] {
        const FreeThreadScope thread;
        ComPtr<IMarshal> marshal;
        free = QueryFor(static_cast<IQuorvaneExt*>(MakeComObject<ExtCallback>(host).Get()), marshal);
    }).join();
    std::thread([&] {
        const ApartmentScope thread;
        ComPtr<IMarshal> marshal;
        bound = QueryFor(static_cast<IQuorvaneExt*>(MakeComObject<ExtCallback>(host).Get()), marshal);
    }).join();

    EXPECT_EQ(free, S_OK);
    EXPECT_EQ(bound, E_NOINTERFACE);
}

class CollectionTest : public HelpersTest {
protected:
    void SetUp() override
    {
        HelpersTest::SetUp();
        ASSERT_EQ(session.Logon(host), S_OK);
        ASSERT_EQ(session->get_StorageFiles(packages.Put()), S_OK);
        for (const OLECHAR* recipients : {OLESTR("b"), OLESTR("c"), OLESTR("a")})
            AddPackage(recipients);
    }
    void AddPackage(const OLECHAR* recipients)
    {
        ComPtr<IStorageFile> package;
        ASSERT_EQ(packages->Add(Bstr(OleStringView(recipients)).Get(), package.Put()), S_OK);
    }

    HostSession session;
    ComPtr<IStorageFiles> packages;
};

TEST_F(CollectionTest, AWalkVisitsEachElementInTheOrderOfKeys)
{
    std::string seen;
    const HRESULT hr = ForEach<IStorageFile>(*packages.Get(), [&](IStorageFile& package) {
        std::string recipients;
        EXPECT_EQ(ReadText(package, &IStorageFile::get_Recipients, recipients), S_OK);
        seen += recipients;
        return S_OK;
    });
    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(seen, "abc");
}

TEST_F(CollectionTest, AWalkMayRemoveAndAddElements)
{
    unsigned visits = 0;
    const HRESULT hr = ForEach<IStorageFile>(*packages.Get(), [&](IStorageFile& package) {
        Bstr recipients;
        EXPECT_EQ(package.get_Recipients(recipients.Put()), S_OK);
        if (++visits == 1)
            AddPackage(OLESTR("d"));
        return packages->Remove(Variant::Text(recipients.View()).Raw());
    });
    LONG left = 0;
    EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(visits, 3u);
    EXPECT_EQ(packages->get_Count(&left), S_OK);
    EXPECT_EQ(left, 1);
}

TEST_F(CollectionTest, AFailureEndsAWalkAndIsReturned)
{
    unsigned visits = 0;
    const HRESULT hr = ForEach<IStorageFile>(*packages.Get(), [&](IStorageFile&) {
        ++visits;
        return E_ACCESSDENIED;
    });
    EXPECT_EQ(hr, E_ACCESSDENIED);
    EXPECT_EQ(visits, 1u);
}

TEST_F(CollectionTest, AnElementOfAnotherKindIsRefused)
{
    EXPECT_EQ(ForEach<IFolder>(*packages.Get(), [](IFolder&) { return S_OK; }), E_NOINTERFACE);
}

TEST_F(HelpersTest, MapisScopeStartsMapiAndALogonFindsTheDefaultStore)
{
    const MapiScope mapi;
    ASSERT_EQ(mapi.Result(), S_OK);
    ComPtr<IMAPISession> session;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(LogonToMapi(session), S_OK);
    ASSERT_EQ(OpenDefaultStore(*session.Get(), store), S_OK);
    const TestFolder folder = mailbox.MakeFolder("F");
    Bstr storeId;
    Bstr entryId;
    EXPECT_EQ(HexProperty(*store.Get(), PR_ENTRYID, storeId), S_OK);
    EXPECT_EQ(ToUtf8(storeId.View()), folder.StoreId());
    EXPECT_EQ(HexProperty(folder.Folder(), PR_ENTRYID, entryId), S_OK);
    EXPECT_EQ(ToUtf8(entryId.View()), folder.EntryId());
}

TEST_F(HelpersTest, AMissingBinaryPropertyLeavesTheTextAlone)
{
    Bstr text(OLESTR("before"));
    EXPECT_EQ(HexProperty(mailbox.Store(), PROP_TAG(PT_BINARY, 0x6789), text), MAPI_E_NOT_FOUND);
    EXPECT_EQ(text.View(), OLESTR("before"));
}

TEST_F(HelpersTest, TheRowsOfATableComeInTheColumnsAskedFor)
{
    const TestFolder folder = mailbox.MakeFolder("F");
    folder.Add("one", "");
    folder.Add("two", "");
    ComPtr<IMAPITable> table;
    MapiRows rows;
    ASSERT_EQ(folder.Folder().GetContentsTable(0, table.Put()), S_OK);
    ASSERT_EQ((ReadRows<PR_SUBJECT_A, PR_ENTRYID>(*table.Get(), rows)), S_OK);
    std::string subjects;
    for (const SRow& row : rows) {
        ASSERT_EQ(row.cValues, 2u);
        EXPECT_EQ(row.lpProps[1].ulPropTag, static_cast<ULONG>(PR_ENTRYID));
        subjects += row.lpProps[0].Value.lpszA;
    }
    EXPECT_TRUE(subjects == "onetwo" || subjects == "twoone") << subjects;
}

}  // namespace
}  // namespace quorvane::test
