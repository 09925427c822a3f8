// An item on its way into a package: the order of the calls, and every one of them failing.
#include <functional>

#include "engine/items/contents_stream.h"
#include "engine/items/package.h"
#include "engine/items/testing/mail_test.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/cfb/stg.h"
#include "platform/cfb/testing/series.h"

namespace quorvane {
namespace {

using testing::MakeDetachedMessage;
using testing::Number;
using testing::TestMail;
using testing::TestMailbox;

constexpr HRESULT kRefused = STG_E_LOCKVIOLATION;

// What was called, in order; the call of the name in `failing` fails.
struct PackageCalls {
    std::vector<std::string> made;
    std::string failing;

    HRESULT Make(const std::string& name)
    {
        made.push_back(name);
        return name == failing ? kRefused : S_OK;
    }
};

// A package with one element in memory.
class RecordingFile final : public ComObject<RecordingFile, DispatchImpl<IStorageFile>, IPackageElements> {
public:
    explicit RecordingFile(PackageCalls& calls) : calls_(calls) { EXPECT_EQ(memory_.Create(), S_OK); }

    // Empty when there is no element.
    ComPtr<IStorage> Element()
    {
        ComPtr<IStorage> element;
        memory_.storage->OpenStorage(OLESTR("element"), nullptr, kOpenMode, nullptr, 0, element.Put());
        return element;
    }

    HRESULT STDMETHODCALLTYPE get_Recipients(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Recipients(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Path(BSTR* path) override { return Bstr(OLESTR("path")).CopyTo(path); }
    HRESULT STDMETHODCALLTYPE put_Path(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_isLocked(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_isLocked(VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenFolder(BSTR, VARIANT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE OpenItem(BSTR id, VARIANT* element) override
    {
        HR_TRY_QUIET(calls_.Make("OpenItem " + Narrow(ViewOf(id))));
        if (answersNoStorage) {
            *element = Number(7);
            return S_OK;
        }
        ComPtr<IStorage> made;
        HR_TRY_QUIET(memory_.storage->CreateStorage(OLESTR("element"), kCreateMode, 0, 0, made.Put()));
        element->vt = VT_UNKNOWN;
        element->punkVal = made.Detach();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Delete() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Unlock() override { return calls_.Make("Unlock"); }
    HRESULT STDMETHODCALLTYPE Lock() override { return calls_.Make("Lock"); }
    HRESULT STDMETHODCALLTYPE DestroyFolder(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DestroyItem(BSTR id) override
    {
        HR_TRY_QUIET(calls_.Make("DestroyItem " + Narrow(ViewOf(id))));
        return memory_.storage->DestroyElement(OLESTR("element"));
    }

    // The element is written into that one from now on.
    void Use(const ComPtr<IStorage>& storage) { memory_.storage = storage; }

    bool answersNoStorage = false;

private:
    PackageCalls& calls_;
    MemoryStorage memory_;
};

// The packages: one, or none until it is added.
class RecordingFiles final : public ComObject<RecordingFiles, DispatchImpl<IStorageFiles>> {
public:
    explicit RecordingFiles(PackageCalls& calls)
        : file(ComPtr<RecordingFile>::Attach(new RecordingFile(calls))), calls_(calls)
    {}

    HRESULT STDMETHODCALLTYPE get__NewEnum(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Item(VARIANT index, VARIANT* found) override
    {
        HR_TRY_QUIET(calls_.Make("Item " + Narrow(ViewOf(index.bstrVal))));
        if (!isThere)
            return E_FAIL;
        return otherAnswer ? otherAnswer(found) : Variant::Dispatch(file.Get()).CopyTo(found);
    }
    HRESULT STDMETHODCALLTYPE get_Count(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Add(BSTR recipients, IStorageFile** made) override
    {
        HR_TRY_QUIET(calls_.Make("Add " + Narrow(ViewOf(recipients))));
        isThere = true;
        return file.As(made);
    }
    HRESULT STDMETHODCALLTYPE Remove(VARIANT) override { return E_NOTIMPL; }

    ComPtr<RecordingFile> file;
    bool isThere = true;
    std::function<HRESULT(VARIANT*)> otherAnswer;

private:
    PackageCalls& calls_;
};

class ItemSendTest : public testing::MailTest {
protected:
    ItemSendTest() { session.storageFiles = ComPtr<IStorageFiles>(files.Get()); }

    HRESULT Send(std::string* lines = nullptr)
    {
        HRESULT hr = E_FAIL;
        const std::string traced = testing::TracedLines([&] { hr = item->Send(Bstr(OLESTR("ann")).Get()); });
        if (lines)
            *lines = traced;
        return hr;
    }

    // The failure is returned, and traced under the operation's name.
    void ExpectFailure(HRESULT expected)
    {
        std::string lines;
        EXPECT_EQ(Send(&lines), expected);
        EXPECT_NE(lines.find("CItem::Send("), std::string::npos) << lines;
        EXPECT_FALSE(files->file->Element());
    }

    PackageCalls calls;
    ComPtr<RecordingFiles> files = ComPtr<RecordingFiles>::Attach(new RecordingFiles(calls));
    ComPtr<CItem> item =
        MakeItem(OLESTR("{A}"), *MakeDetachedMessage({"Sent", "Body", {"ann", "bob"}, {"a.txt"}}));
};

TEST_F(ItemSendTest, APackageThatIsThereIsWrittenUnderItsLock)
{
    EXPECT_EQ(Send(), S_OK);

    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Lock", "OpenItem {A}", "Unlock"}));
}

TEST_F(ItemSendTest, APackageThatIsntThereIsAdded)
{
    files->isThere = false;

    EXPECT_EQ(Send(), S_OK);

    EXPECT_EQ(calls.made,
              (std::vector<std::string>{"Item ann", "Add ann", "Lock", "OpenItem {A}", "Unlock"}));
}

TEST_F(ItemSendTest, TheElementHoldsContentsAndMessage)
{
    ASSERT_EQ(Send(), S_OK);

    DatabaseSession database;
    ASSERT_EQ(session.Database().OpenSession(database), S_OK);
    const ComPtr<IStorage> element = files->file->Element();
    ASSERT_TRUE(element);
    const ComPtr<CItem> loaded = MakeComObject<CItem>(&session);
    ASSERT_EQ(loaded->Load(element.Get(), database), S_OK);
    EXPECT_EQ(loaded->m_bstrID.View(), OLESTR("{A}"));
    const TestMail mail = TestMailbox::Read(*loaded->Message());
    EXPECT_EQ(mail.subject, "Sent");
    EXPECT_EQ(mail.recipients, (std::vector<std::string>{"ann", "bob"}));
    EXPECT_EQ(mail.attachments, std::vector<std::string>{"a.txt"});
}

// One write fails, and those behind it don't, as on a disk that is full for a moment. A message of this size
// is written before its element is finished.
TEST_F(ItemSendTest, WhatThePackageHadNoRoomForIsntMissingFromAnElementThatWasSent)
{
    const TestMail large{"Large", std::string(1'200'000, 'x'), {"ann"}, {"a.txt"}};
    item = MakeItem(OLESTR("{A}"), *MakeDetachedMessage(large));
    DatabaseSession database;
    ASSERT_EQ(session.Database().OpenSession(database), S_OK);
    bool refused = true;
    std::size_t writes = 0;
    for (; refused && !HasFailure(); ++writes) {
        const auto bytes = MakeComObject<cfb::test::FaultyBytes>();
        ComPtr<IStorage> storage;
        ASSERT_EQ(StgCreateDocfileOnILockBytes(bytes.Get(), kCreateMode, 0, storage.Put()), S_OK);
        files->file->Use(storage);
        bytes->RefuseWrite(writes, false);
        const HRESULT sent = Send();
        refused = bytes->HasRefused();
        EXPECT_TRUE(refused || sent == S_OK);
        if (FAILED(sent))
            continue;
        const ComPtr<IStorage> element = files->file->Element();
        ASSERT_TRUE(element) << "write " << writes;
        const ComPtr<CItem> loaded = MakeComObject<CItem>(&session);
        ASSERT_EQ(loaded->Load(element.Get(), database), S_OK) << "write " << writes;
        ASSERT_NE(loaded->Message(), nullptr) << "write " << writes;
        const TestMail mail = TestMailbox::Read(*loaded->Message());
        ComPtr<IStream> body;
        STATSTG stat{};
        ASSERT_EQ(loaded->Message()->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, body.PutUnknown()), S_OK);
        EXPECT_EQ(body->Stat(&stat, STATFLAG_NONAME), S_OK);
        EXPECT_EQ(stat.cbSize.QuadPart, large.body.size()) << "write " << writes;
        EXPECT_EQ(mail.attachments, large.attachments) << "write " << writes;
    }
    EXPECT_GT(writes, 5U);
}

TEST_F(ItemSendTest, AnItemWithoutAMessageSendsItsContentsAlone)
{
    item = MakeItem();
    ASSERT_EQ(Send(), S_OK);

    const ComPtr<IStorage> element = files->file->Element();
    ComPtr<IStream> contents;
    EXPECT_EQ(OpenContents(*element, contents), S_OK);
    ComPtr<IStorage> data;
    EXPECT_EQ(element->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put()),
              STG_E_FILENOTFOUND);
}

TEST_F(ItemSendTest, APackageThatCantBeAddedIsReported)
{
    files->isThere = false;
    calls.failing = "Add ann";
    ExpectFailure(kRefused);
    // Another writer may have added it meanwhile.
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Add ann", "Item ann"}));
}

TEST_F(ItemSendTest, WhatIsNoStorageFileIsReportedAndNothingIsAdded)
{
    files->otherAnswer = [this](VARIANT* found) {
        return Variant::Dispatch(static_cast<IDispatch*>(files.Get())).CopyTo(found);
    };
    ExpectFailure(E_NOINTERFACE);
    files->otherAnswer = [](VARIANT* found) {
        *found = Number(1);
        return S_OK;
    };
    ExpectFailure(E_FAIL);
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Item ann"}));
}

TEST_F(ItemSendTest, APackageThatCantBeLockedIsUnlockedAllTheSame)
{
    calls.failing = "Lock";
    ExpectFailure(kRefused);
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Lock", "Unlock"}));
}

TEST_F(ItemSendTest, APackageIsUnlockedAfterAnElementThatCouldntBeOpened)
{
    calls.failing = "OpenItem {A}";
    ExpectFailure(kRefused);
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Lock", "OpenItem {A}", "Unlock"}));
}

TEST_F(ItemSendTest, AnElementThatIsNoStorageIsReported)
{
    files->file->answersNoStorage = true;
    ExpectFailure(E_FAIL);
    EXPECT_EQ(calls.made.back(), "Unlock");
}

TEST_F(ItemSendTest, AnUnlockThatFailsIsIgnored)
{
    calls.failing = "Unlock";
    EXPECT_EQ(Send(), S_OK);
    EXPECT_TRUE(files->file->Element());
}

}  // namespace
}  // namespace quorvane
