#include "engine/storeaccess/objects_cache.h"

#include <gtest/gtest.h>

#include "engine/storeaccess/testing/fake_store.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

using testing::FakeMessage;
using testing::FakeStore;

// Opens one store, whatever it is asked for, and remembers the question.
class FakeSession final : public ComObject<FakeSession, Answers<testing::UnimplementedMAPISession>> {
public:
    ComPtr<FakeStore> store = MakeComObject<FakeStore>();
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
        ComPtr<IMsgStore>(store.Get()).CopyTo(opened);
        return S_OK;
    }
};

class ObjectsCacheTest : public ::testing::Test {
protected:
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
    EXPECT_EQ(store, session->store.Get());
    EXPECT_EQ(session->lastFlags, 0x84u);
    EXPECT_EQ(session->lastId, std::string("\x01\x02"));
}

TEST_F(ObjectsCacheTest, OpeningAStoreTwiceAsksTheSessionOnce)
{
    ASSERT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    ASSERT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    EXPECT_TRUE(store);
    EXPECT_EQ(session->opens, 1u);
}

TEST_F(ObjectsCacheTest, AFailureIsReturnedAndNotKept)
{
    session->result = MAPI_E_LOGON_FAILED;
    EXPECT_EQ(cache.OpenStore(storeId.Get(), store.Put()), MAPI_E_LOGON_FAILED);
    session->result = S_OK;
    EXPECT_EQ(cache.OpenStore(storeId.Get(), store.Put()), S_OK);
    EXPECT_EQ(session->opens, 2u);
}

TEST_F(ObjectsCacheTest, AMalformedKeyLeavesTheResultUntouchedAndCountsAsSuccess)
{
    auto* untouched = reinterpret_cast<IMsgStore*>(0x10);
    EXPECT_EQ(cache.OpenStore(Bstr(OLESTR("xyz")).Get(), &untouched), S_OK);
    EXPECT_EQ(untouched, reinterpret_cast<IMsgStore*>(0x10));
    EXPECT_EQ(session->opens, 0u);
}

TEST_F(ObjectsCacheTest, AnObjectOfAnotherKindIsRefused)
{
    session->store->items["\xA1\xB2"] = {};
    EXPECT_EQ(cache.OpenFolder(folderId.Get(), session->store.Get(), folder.Put()), E_NOINTERFACE);
    EXPECT_FALSE(folder);
}

TEST_F(ObjectsCacheTest, AFolderIsOpenedOncePerIdentifierWhateverTheStore)
{
    session->store->items["\xA1\xB2"] = {};
    const ComPtr<FakeStore> another = MakeComObject<FakeStore>();
    static_cast<void>(cache.OpenFolder(folderId.Get(), session->store.Get(), folder.Put()));
    static_cast<void>(cache.OpenFolder(folderId.Get(), another.Get(), folder.Put()));
    EXPECT_EQ(session->store->opens, 1u);
    EXPECT_EQ(another->opens, 0u);
}

TEST_F(ObjectsCacheTest, AFolderThatIsGoneIsAskedForAgain)
{
    EXPECT_EQ(cache.OpenFolder(folderId.Get(), session->store.Get(), folder.Put()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(cache.OpenFolder(folderId.Get(), session->store.Get(), folder.Put()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(session->store->opens, 2u);
}

TEST_F(ObjectsCacheTest, WithoutAStoreNoFolderIsOpened)
{
    EXPECT_EQ(cache.OpenFolder(folderId.Get(), nullptr, folder.Put()), E_POINTER);
}

}  // namespace
}  // namespace quorvane
