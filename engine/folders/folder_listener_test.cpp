// How a folder subscribes to its contents table and ends the subscription, over a store that can refuse each
// step.
#include <gtest/gtest.h>

#include <fstream>

#include "engine/folders/folder.h"
#include "engine/items/testing/test_folders.h"
#include "engine/items/testing/test_session.h"
#include "engine/session/options/options.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/storeaccess/testing/unimplemented.h"

namespace quorvane::testing {
namespace {

// What the store does, and has seen.
struct Listening {
    HRESULT tableResult = S_OK;
    HRESULT adviseResult = S_OK;
    ULONG mask = 0;
    IMAPIAdviseSink* sink = nullptr;
    std::vector<ULONG> ended;
};

constexpr ULONG kConnection = 77;

class ListenedTable final : public ComObject<ListenedTable, UnimplementedMAPITable> {
public:
    explicit ListenedTable(Listening& listening) : listening_(listening) {}
    HRESULT STDMETHODCALLTYPE Advise(ULONG mask, LPMAPIADVISESINK sink, ULONG* connection) override
    {
        if (FAILED(listening_.adviseResult))
            return listening_.adviseResult;
        listening_.mask = mask;
        listening_.sink = sink;
        *connection = kConnection;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override
    {
        listening_.ended.push_back(connection);
        return S_OK;
    }

private:
    Listening& listening_;
};

class ListenedFolder final
    : public ComObject<ListenedFolder, Answers<UnimplementedMAPIFolder, IMAPIContainer>> {
public:
    explicit ListenedFolder(Listening& listening) : listening_(listening) {}
    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) override
    {
        EXPECT_EQ(flags, 0u);
        if (FAILED(listening_.tableResult))
            return listening_.tableResult;
        *table = MakeComObject<ListenedTable>(listening_).Detach();
        return S_OK;
    }

private:
    Listening& listening_;
};

class ListenedStore final : public ComObject<ListenedStore, UnimplementedMsgStore> {
public:
    explicit ListenedStore(Listening& listening) : listening_(listening) {}
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN* object) override
    {
        *object = MakeComObject<ListenedFolder>(listening_).Detach();
        return S_OK;
    }

private:
    Listening& listening_;
};

class ListenedSession final : public ComObject<ListenedSession, UnimplementedMAPISession> {
public:
    explicit ListenedSession(Listening& listening) : listening_(listening) {}
    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR, ULONG, LPENTRYID, LPCIID, ULONG, LPMDB* store) override
    {
        *store = MakeComObject<ListenedStore>(listening_).Detach();
        return S_OK;
    }

private:
    Listening& listening_;
};

class FolderListenerTest : public ::testing::Test {
protected:
    FolderListenerTest()
    {
        session.mapiSession = MakeComObject<ListenedSession>(listening);
        session.folders = MakeComObject<SharedFolders>();
        EXPECT_EQ(folder->put_ID(Bstr(OLESTR("{F}")).Get()), S_OK);
        EXPECT_EQ(folder->put_StoreID(Bstr(OLESTR("00AA")).Get()), S_OK);
    }
    void SetNoListeners(const VARIANT& value)
    {
        const ComPtr<COptions> options = MakeComObject<COptions>();
        EXPECT_EQ(options->Add(kNoListeners, value), S_OK);
        session.options = ComPtr<IOptions>(options.Get());
    }
    HRESULT Open() { return folder->put_EntryID(Bstr(OLESTR("00BB")).Get()); }

    Listening listening;
    TestSession session;
    ComPtr<CFolder> folder = MakeComObject<CFolder>(&session);
};

TEST_F(FolderListenerTest, AnOpenedFolderListensForChangesOfItsTableAndEndsThatWhenItGoes)
{
    SetNoListeners(Variant::Bool(false).Raw());
    ASSERT_EQ(Open(), S_OK);
    EXPECT_EQ(listening.mask, static_cast<ULONG>(fnevTableModified));
    EXPECT_TRUE(listening.sink);
    EXPECT_TRUE(listening.ended.empty());

    folder.Reset();
    EXPECT_EQ(listening.ended, std::vector<ULONG>{kConnection});
}

TEST_F(FolderListenerTest, WithoutListenersThereIsNoSubscriptionToEnd)
{
    SetNoListeners(Variant::Bool(true).Raw());
    ASSERT_EQ(Open(), S_OK);
    folder.Reset();

    EXPECT_FALSE(listening.sink);
    EXPECT_TRUE(listening.ended.empty());
}

// The option is missing, is no option, or has a value that is no boolean.
TEST_F(FolderListenerTest, AnOptionThatCantBeReadIsTracedAndTheFolderListens)
{
    const std::string lines = TracedLines([this] { ASSERT_EQ(Open(), S_OK); });
    EXPECT_NE(lines.find("CFolder::OpenFolder("), std::string::npos);
    EXPECT_TRUE(listening.sink);

    SetNoListeners(Variant::Text(OLESTR("perhaps")).Raw());
    listening.sink = nullptr;
    EXPECT_NE(TracedLines([this] { ASSERT_EQ(Open(), S_OK); }).find("CFolder::OpenFolder("),
              std::string::npos);
    EXPECT_TRUE(listening.sink);
}

TEST_F(FolderListenerTest, OnlyVariantTrueMeansNoListeners)
{
    SetNoListeners(Variant::Long(0).Raw());
    ASSERT_EQ(Open(), S_OK);

    EXPECT_TRUE(listening.sink);
}

TEST_F(FolderListenerTest, ATableThatCantBeHadIsTracedAndLeavesNoSubscription)
{
    listening.tableResult = MAPI_E_NO_ACCESS;
    const std::string lines = TracedLines([this] { EXPECT_EQ(Open(), MAPI_E_NO_ACCESS); });
    EXPECT_NE(lines.find("CFolder::OpenFolder("), std::string::npos);
    folder.Reset();

    EXPECT_FALSE(listening.sink);
    EXPECT_TRUE(listening.ended.empty());
}

TEST_F(FolderListenerTest, ASubscriptionThatIsRefusedIsTracedAndNotEnded)
{
    listening.adviseResult = MAPI_E_NO_SUPPORT;
    const std::string lines = TracedLines([this] { EXPECT_EQ(Open(), MAPI_E_NO_SUPPORT); });
    EXPECT_NE(lines.find("CFolder::OpenFolder("), std::string::npos);
    Bstr entryId;
    EXPECT_EQ(folder->get_EntryID(entryId.Put()), S_OK);
    EXPECT_EQ(entryId.View(), OLESTR("00BB")) << "it works as a folder";
    folder.Reset();

    EXPECT_TRUE(listening.ended.empty());
}

TEST_F(FolderListenerTest, AFolderThatCantHaveAHashFileListensAllTheSame)
{
    std::ofstream(session.directory.File("qvdata")) << "in the directory's place";
    ASSERT_EQ(Open(), S_OK);

    EXPECT_TRUE(listening.sink);
    EXPECT_TRUE(session.HashStores().Find(Bstr(OLESTR("{F}")).Get()));
}

}  // namespace
}  // namespace quorvane::testing
