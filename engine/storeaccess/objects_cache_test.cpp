#include "engine/storeaccess/objects_cache.h"

#include <gtest/gtest.h>

#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/testing/fake_mapi_state.h"
#include "engine/storeaccess/testing/fake_store.h"
#include "platform/com/bstr.h"
#include "platform/module/module.h"

namespace quorvane {
namespace {

using testing::FakeStore;
using testing::TracedLines;

class FakeFolder final : public ComObject<FakeFolder, Answers<testing::UnimplementedMAPIFolder>> {};

// A store by its slots that doesn't answer as one.
class NoStore final : public ComObject<NoStore, Answers<testing::UnimplementedMsgStore>> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
};

// Opens one store, whatever it is asked for, and remembers the question.
class FakeSession final : public ComObject<FakeSession, Answers<testing::UnimplementedMAPISession>> {
public:
    ComPtr<IMsgStore> store;
    HRESULT result = S_OK;
    unsigned opens = 0;
    ULONG lastFlags = 0;
    std::string lastId;

    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR, ULONG size, LPENTRYID id, LPCIID, ULONG flags,
                                           LPMDB* opened) override
    {
        ++opens;
        lastFlags = flags;
        lastId.assign(reinterpret_cast<const char*>(id), size);
        if (FAILED(result))
            return result;
        store.CopyTo(opened);
        return result;
    }
};

// Makes MAPI's memory run out for a scope.
class NoMemory {
public:
    NoMemory() { State().refusesMemory = true; }
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
    ~NoMemory() { State().refusesMemory = false; }

private:
    static testing::FakeMapiState& State()
    {
        Module library;
        EXPECT_EQ(library.Load("mapi32.dll"), S_OK);
        return *library.Find<testing::FakeStateFunction>("FakeState")();
    }
};

class ObjectsCacheTest : public ::testing::Test {
protected:
    void SetUp() override { session->store = fake.Get(); }

    // What the log has of an opening that must fail so.
    std::string TraceOfStore(BSTR id, HRESULT expected)
    {
        return TracedLines([&] { EXPECT_EQ(cache.OpenStore(id, store.Put()), expected); });
    }
    std::string TraceOfFolder(BSTR id, HRESULT expected)
    {
        return TracedLines([&] { EXPECT_EQ(cache.OpenFolder(id, fake.Get(), folder.Put()), expected); });
    }

    ComPtr<FakeStore> fake = MakeComObject<FakeStore>();
    ComPtr<FakeSession> session = MakeComObject<FakeSession>();
    CMapiObjectsCache cache{session.Get()};
    const Bstr storeId{OLESTR("0102")};
    const Bstr folderId{OLESTR("A1B2")};
    ComPtr<IMsgStore> store;
    ComPtr<IMAPIFolder> folder;
};

TEST_F(ObjectsCacheTest, AStoreIsOpenedForWritingByItsBinaryIdentifier)
{
    ASSERT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    EXPECT_EQ(store, fake.Get());
    EXPECT_EQ(session->lastFlags, 0x84u);
    EXPECT_EQ(session->lastId, std::string("\x01\x02"));
}

TEST_F(ObjectsCacheTest, AFolderIsOpenedForWritingByItsBinaryIdentifier)
{
    const ComPtr<FakeFolder> opened = MakeComObject<FakeFolder>();
    fake->other = static_cast<IMAPIFolder*>(opened.Get());
    ASSERT_EQ(cache.OpenFolder(folderId.Get(), fake.Get(), folder.Put()), S_OK);
    EXPECT_EQ(folder, opened.Get());
    EXPECT_EQ(fake->lastFlags, 1u);
}

TEST_F(ObjectsCacheTest, OpeningAStoreTwiceAsksTheSessionOnce)
{
    ASSERT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    ASSERT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    EXPECT_TRUE(store);
    EXPECT_EQ(session->opens, 1u);
}

TEST_F(ObjectsCacheTest, StoresAreToldApartByTheTextOfTheirIdentifier)
{
    ASSERT_EQ(cache.OpenStore(Bstr(OLESTR("AB")).Get(), store.Put()), S_OK);
    ASSERT_EQ(cache.OpenStore(Bstr(OLESTR("ab")).Get(), store.Put()), S_OK);
    EXPECT_EQ(session->opens, 2u);
}

TEST_F(ObjectsCacheTest, AFailedOpenMsgStoreIsReturnedUntracedAndNotKept)
{
    session->result = MAPI_E_LOGON_FAILED;
    EXPECT_EQ(TraceOfStore(storeId.Get(), MAPI_E_LOGON_FAILED), "");
    session->result = S_OK;
    EXPECT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    EXPECT_EQ(session->opens, 2u);
}

TEST_F(ObjectsCacheTest, ASuccessWithoutAStoreIsReturnedAndNotKept)
{
    auto* untouched = reinterpret_cast<IMsgStore*>(0x10);
    session->store.Reset();
    session->result = MAPI_W_ERRORS_RETURNED;
    EXPECT_EQ(cache.OpenStore(storeId.Get(), &untouched), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(cache.OpenStore(storeId.Get(), &untouched), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(untouched, reinterpret_cast<IMsgStore*>(0x10));
    EXPECT_EQ(session->opens, 2u);
}

TEST_F(ObjectsCacheTest, AMalformedKeyLeavesTheResultUntouchedAndCountsAsSuccess)
{
    auto* noStore = reinterpret_cast<IMsgStore*>(0x10);
    auto* noFolder = reinterpret_cast<IMAPIFolder*>(0x10);
    for (const OleStringView text :
         {OleStringView(OLESTR("xyz")), OleStringView(OLESTR("0G")), OleStringView(OLESTR("ABC"))}) {
        const Bstr key{text};
        EXPECT_EQ(cache.OpenStore(key.Get(), &noStore), S_OK);
        EXPECT_EQ(cache.OpenFolder(key.Get(), fake.Get(), &noFolder), S_OK);
    }
    EXPECT_EQ(noStore, reinterpret_cast<IMsgStore*>(0x10));
    EXPECT_EQ(noFolder, reinterpret_cast<IMAPIFolder*>(0x10));
    EXPECT_EQ(session->opens + fake->opens, 0u);
}

TEST_F(ObjectsCacheTest, AnEmptyKeyAsksForTheIdentifierOfNoBytes)
{
    ASSERT_EQ(cache.OpenStore(nullptr, store.Put()), S_OK);
    EXPECT_EQ(store, fake.Get());
    EXPECT_EQ(session->lastId, "");
    EXPECT_EQ(session->opens, 1u);
}

TEST_F(ObjectsCacheTest, WithoutMemoryForTheIdentifierNothingIsOpened)
{
    const NoMemory scope;
    EXPECT_EQ(cache.OpenStore(storeId.Get(), store.Put()), E_OUTOFMEMORY);
    EXPECT_EQ(cache.OpenFolder(folderId.Get(), fake.Get(), folder.Put()), E_OUTOFMEMORY);
    EXPECT_EQ(session->opens + fake->opens, 0u);
}

TEST_F(ObjectsCacheTest, AStoreThatDoesNotAnswerAsOneIsRefusedWithATrace)
{
    session->store = MakeComObject<NoStore>().Get();
    const std::string lines = TraceOfStore(storeId.Get(), E_NOINTERFACE);
    EXPECT_NE(lines.find("CMapiObjectsCache::OpenStore"), std::string::npos) << lines;
    EXPECT_NE(lines.find("0x80004002"), std::string::npos) << lines;
    EXPECT_FALSE(store);
}

TEST_F(ObjectsCacheTest, AnObjectThatIsNoFolderIsRefusedWithATrace)
{
    fake->items["\xA1\xB2"] = {};
    const std::string lines = TraceOfFolder(folderId.Get(), E_NOINTERFACE);
    EXPECT_NE(lines.find("CMapiObjectsCache::OpenFolder"), std::string::npos) << lines;
    EXPECT_NE(lines.find("0x80004002"), std::string::npos) << lines;
    EXPECT_FALSE(folder);
}

TEST_F(ObjectsCacheTest, AFolderIsOpenedOncePerIdentifierWhateverTheStore)
{
    const ComPtr<FakeFolder> opened = MakeComObject<FakeFolder>();
    const ComPtr<FakeStore> another = MakeComObject<FakeStore>();
    fake->other = static_cast<IMAPIFolder*>(opened.Get());
    ASSERT_EQ(cache.OpenFolder(folderId.Get(), fake.Get(), folder.Put()), S_OK);
    ASSERT_EQ(cache.OpenFolder(folderId.Get(), another.Get(), folder.Put()), S_OK);
    EXPECT_EQ(folder, opened.Get());
    EXPECT_EQ(fake->opens, 1u);
    EXPECT_EQ(another->opens, 0u);
}

TEST_F(ObjectsCacheTest, AFolderThatIsGoneIsAskedForAgain)
{
    EXPECT_EQ(TraceOfFolder(folderId.Get(), MAPI_E_NOT_FOUND), "");
    EXPECT_EQ(cache.OpenFolder(folderId.Get(), fake.Get(), folder.Put()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(fake->opens, 2u);
}

TEST_F(ObjectsCacheTest, WithoutASessionOrAStoreNothingIsOpened)
{
    CMapiObjectsCache none(nullptr);
    EXPECT_EQ(none.OpenStore(storeId.Get(), store.Put()), E_POINTER);
    EXPECT_EQ(none.OpenFolder(folderId.Get(), nullptr, folder.Put()), E_POINTER);
}

TEST_F(ObjectsCacheTest, TheCacheHoldsWhatItOpenedUntilItGoes)
{
    const auto references = [&] {
        fake->AddRef();
        return fake->Release();
    };
    const ULONG before = references();
    {
        CMapiObjectsCache job(session.Get());
        ASSERT_EQ(job.OpenStore(storeId.Get(), store.Put()), S_OK);
        store.Reset();
        EXPECT_EQ(references(), before + 1);
    }
    EXPECT_EQ(references(), before);
}

}  // namespace
}  // namespace quorvane
