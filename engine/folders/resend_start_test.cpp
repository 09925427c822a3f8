// Sending a folder's announcement, and starting the jobs that send its items.
#include <future>

#include "engine/folders/resend_for_test.h"
#include "engine/items/arguments.h"

namespace quorvane {
namespace {

using testing::Number;
using testing::ProgressNotes;
using testing::SubjectRestriction;
using testing::Text;
using testing::TracedLines;
using Strings = std::vector<std::string>;

constexpr std::chrono::seconds kDeadline{30};

class ResendStartTest : public testing::ResendFixture {
protected:
    ResendStartTest()
    {
        EXPECT_EQ(pool->Init(2), S_OK);
        session.resendPool = pool.get();
    }

    // Waits until the jobs that were started have ended.
    void Finish()
    {
        ASSERT_TRUE(told.WaitFor(expectedEnd)) << told.Text();
        pool.reset();
    }

    static VARIANT Missing() { return Variant::Missing().Raw(); }

    HRESULT Resend(const std::string& recipients, VARIANT jobId = Missing(), VARIANT all = Missing(),
                   VARIANT bar = Missing())
    {
        return folder->Resend(Bstr(Widen(recipients)).Get(), jobId, all, bar);
    }

    // One text for each row, sorted.
    std::string Jobs()
    {
        return session.Ask(
            "SELECT group_concat(row, ' ') FROM (SELECT JobID||','||FolderID||','||Recipients "
            "AS row FROM tblUnfinishedResendJob ORDER BY 1)");
    }
    std::string Files() { return session.Ask("SELECT COUNT(*) FROM tblStorageFiles"); }

    // What the progress of a job says, from its thread.
    class Told {
    public:
        bool WaitFor(const std::string& end)
        {
            std::unique_lock lock(mutex_);
            return changed_.wait_for(lock, kDeadline, [&] { return text_.ends_with(end); });
        }
        std::string Text() const
        {
            const std::lock_guard lock(mutex_);
            return text_;
        }
        void Add(const std::string& text)
        {
            const std::lock_guard lock(mutex_);
            text_ += text;
            changed_.notify_all();
        }

    private:
        mutable std::mutex mutex_;
        std::condition_variable changed_;
        std::string text_;
    };

    Told told;
    std::string expectedEnd;
    std::unique_ptr<CCustomThreadPool> pool = std::make_unique<CCustomThreadPool>();
};

// The announcement.

class FolderSendTest : public testing::ResendFixture {
protected:
    std::string Announced(const std::string& recipients)
    {
        const std::string path =
            session.Ask("SELECT Path FROM tblStorageFiles WHERE Recipients='" + recipients + "'");
        ComPtr<IStorage> root;
        ComPtr<IStorage> version;
        ComPtr<IStorage> announced;
        EXPECT_EQ(StgOpenStorage(Widen(path).c_str(), nullptr, kOpenMode, nullptr, 0, root.Put()), S_OK);
        EXPECT_EQ(root->OpenStorage(kVersionName, nullptr, kOpenMode, nullptr, 0, version.Put()), S_OK);
        EXPECT_EQ(version->OpenStorage(kFoldersName, nullptr, kOpenMode, nullptr, 0, announced.Put()), S_OK);
        ComPtr<IEnumSTATSTG> elements;
        EXPECT_EQ(announced->EnumElements(0, nullptr, 0, elements.Put()), S_OK);
        std::string ids;
        STATSTG stat{};
        for (; elements->Next(1, &stat, nullptr) == S_OK; CoTaskMemFree(stat.pwcsName)) {
            ComPtr<IStorage> element;
            EXPECT_EQ(announced->OpenStorage(stat.pwcsName, nullptr, kOpenMode, nullptr, 0, element.Put()),
                      S_OK);
            const ComPtr<CFolder> read = MakeComObject<CFolder>(nullptr);
            EXPECT_EQ(read->Load(element.Get()), S_OK);
            Bstr id;
            EXPECT_EQ(read->get_ID(id.Put()), S_OK);
            ids += Narrow(id.View());
        }
        return ids;
    }
    std::string Files() { return session.Ask("SELECT COUNT(*) FROM tblStorageFiles"); }
    bool IsLocked(const std::string& recipients)
    {
        Variant value;
        const Bstr text(Widen(recipients));
        EXPECT_EQ(session.storageFiles->get_Item(TextArgument(text.Get()), value.Put()), S_OK);
        ComPtr<IStorageFile> file;
        EXPECT_EQ(QueryFor(value.Raw().pdispVal, file), S_OK);
        VARIANT_BOOL locked = VARIANT_TRUE;
        EXPECT_EQ(file->get_isLocked(&locked), S_OK);
        return locked != VARIANT_FALSE;
    }
};

TEST_F(FolderSendTest, WithoutAnArgumentItGoesToTheFoldersUsualMembersInANewPackage)
{
    EXPECT_EQ(folder->Send(Variant::Missing().Raw()), S_OK);

    EXPECT_EQ(Announced(Narrow(folderEntryId.View())), "{F}");
    EXPECT_EQ(Files(), "1");
    EXPECT_FALSE(IsLocked(Narrow(folderEntryId.View())));
}

TEST_F(FolderSendTest, ThePackageOfTheRecipientsIsUsedAgain)
{
    EXPECT_EQ(folder->Send(Text(Bstr(OLESTR("bob")))), S_OK);
    EXPECT_EQ(folder->Send(Text(Bstr(OLESTR("bob")))), S_OK);

    EXPECT_EQ(Announced("bob"), "{F}");
    EXPECT_EQ(Files(), "1");
}

TEST_F(FolderSendTest, AnotherKindOfArgumentTouchesNoFile)
{
    EXPECT_EQ(folder->Send(Number(5)), E_INVALIDARG);

    EXPECT_EQ(Files(), "0");
}

TEST_F(FolderSendTest, WithoutPackagesTheFailureIsTraced)
{
    session.storageFiles.Reset();
    HRESULT hr = S_OK;

    const std::string lines = TracedLines([&] { hr = folder->Send(Text(Bstr(OLESTR("bob")))); });

    EXPECT_EQ(hr, E_POINTER);
    EXPECT_NE(lines.find("CFolder::Send("), std::string::npos);
}

TEST_F(FolderSendTest, AfterAFailureThePackageIsUnlocked)
{
    ASSERT_EQ(folder->Send(Text(Bstr(OLESTR("bob")))), S_OK);
    const std::string path = session.Ask("SELECT Path FROM tblStorageFiles");
    std::filesystem::remove(path);
    std::filesystem::create_directories(path + "/occupied");
    HRESULT hr = S_OK;

    const std::string lines = TracedLines([&] { hr = folder->Send(Text(Bstr(OLESTR("bob")))); });

    EXPECT_LT(hr, 0);
    EXPECT_NE(lines.find("CFolder::Send("), std::string::npos);
    EXPECT_FALSE(IsLocked("bob"));
    std::filesystem::remove_all(path);
}

// The start of a job. Its progress tells when it has come to its end.
class ResendJobTest : public ResendStartTest, public ProgressHandler {
protected:
    HRESULT SetLimits(LONG, LONG) override { return S_OK; }
    HRESULT Progress(LONG count, LONG total) override
    {
        told.Add(std::to_string(count) + "/" + std::to_string(total) + " ");
        return S_OK;
    }

    VARIANT Bar() const
    {
        VARIANT value = NoArgument();
        value.vt = VT_DISPATCH;
        value.pdispVal = bar.Get();
        return value;
    }

    const ComPtr<IQuorvaneProgress> bar = MakeComObject<ProgressCallback>(*this);
};

TEST_F(ResendJobTest, WithoutAnIdTheRowAndTheHostGetANewOne)
{
    AddKnown(1);

    ASSERT_EQ(Resend("bob", Missing(), Variant::Bool(true).Raw(), Bar()), S_OK);
    expectedEnd = "1/1 ";
    Finish();

    const std::string id = session.Ask("SELECT JobID FROM tblUnfinishedResendJob");
    EXPECT_EQ(id.size(), 38u);
    EXPECT_EQ(id.front(), '{');
    EXPECT_EQ(session.host.Calls(), Strings{"resend {A} " + id});
    EXPECT_EQ(Jobs(), id + ",{F},bob") << "a completed job leaves its row";
    EXPECT_EQ(Sent("bob"), Strings{"{A} 20 A"});
}

TEST_F(ResendJobTest, TheCallersIdIsUsed)
{
    AddKnown(1);

    ASSERT_EQ(Resend("bob;carol", Text(Bstr(OLESTR("mine"))), Variant::Bool(true).Raw(), Bar()), S_OK);
    expectedEnd = "1/1 ";
    Finish();

    EXPECT_EQ(Jobs(), "mine,{F},bob;carol");
    EXPECT_EQ(session.host.Calls(), Strings{"resend {A} mine"});
}

TEST_F(ResendJobTest, ResendExWithoutAnIdTellsTheHostNoneAndWritesNoRow)
{
    AddKnown(1);

    ASSERT_EQ(
        folder->ResendEx(Bstr(OLESTR("bob")).Get(), nullptr, Variant::Bool(true).Raw(), Missing(), Bar()),
        S_OK);
    expectedEnd = "1/1 ";
    Finish();

    EXPECT_EQ(session.host.Calls(), Strings{"resend {A} null"});
    EXPECT_EQ(Jobs(), "NULL");
}

TEST_F(ResendJobTest, ResendExTakesItsArgumentsInAnotherOrderAndKeepsAReferenceOfTheRestriction)
{
    Know(Add("Wanted"), "{W}");
    Know(Add("Hidden"), "{H}");
    SubjectRestriction restriction("Wanted");
    const ComPtr<IQuorvaneRestrict> callback = restriction.Callback();

    ASSERT_EQ(folder->ResendEx(Bstr(OLESTR("bob")).Get(), callback.Get(), Variant::Bool(true).Raw(),
                               Text(Bstr(OLESTR("mine"))), Bar()),
              S_OK);
    expectedEnd = "1/1 ";
    Finish();

    EXPECT_EQ(session.host.Calls(), Strings{"resend {W} mine"});
    EXPECT_EQ(Jobs(), "NULL");
    callback->AddRef();
    EXPECT_EQ(callback->Release(), 2u);
    callback->Release();
}

struct AllCase {
    const char* name;
    VARIANT value;
    bool sendsAll;
};

class ResendAllTest : public ResendJobTest, public ::testing::WithParamInterface<AllCase> {};

TEST_P(ResendAllTest, WhatChangesIntoTrueSendsEverything)
{
    AddKnown(1);
    const Bstr changed = Add("Changed");
    Know(changed, "{Z}");

    ASSERT_EQ(Resend("bob", Missing(), GetParam().value, Bar()), S_OK);
    expectedEnd = GetParam().sendsAll ? "2/2 " : "1/1 ";
    Finish();

    EXPECT_EQ(Sent("bob").size(), GetParam().sendsAll ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Values, ResendAllTest,
                         ::testing::Values(AllCase{"Missing", Variant::Missing().Raw(), false},
                                           AllCase{"Empty", Variant().Raw(), false},
                                           AllCase{"True", Variant::Bool(true).Raw(), true},
                                           AllCase{"False", Variant::Bool(false).Raw(), false},
                                           AllCase{"One", Variant::Long(1).Raw(), true},
                                           AllCase{"Zero", Variant::Long(0).Raw(), false}),
                         [](const auto& value) { return value.param.name; });

TEST_F(ResendJobTest, ANumberByReferenceIsTakenToo)
{
    AddKnown(1);
    LONG one = 1;
    VARIANT all = NoArgument();
    all.vt = VT_I4 | VT_BYREF;
    all.plVal = &one;

    ASSERT_EQ(Resend("bob", Missing(), all, Bar()), S_OK);
    expectedEnd = "1/1 ";
    Finish();

    EXPECT_EQ(Sent("bob"), Strings{"{A} 20 A"});
}

TEST_F(ResendJobTest, AnObjectWithoutTheProgressInterfaceIsRefusedAfterTheRowWasWritten)
{
    AddKnown(1);
    HRESULT hr = S_OK;

    const std::string lines = TracedLines([&] {
        VARIANT other = NoArgument();
        other.vt = VT_DISPATCH;
        other.pdispVal = folder.Get();
        hr = Resend("bob", Text(Bstr(OLESTR("mine"))), Variant::Bool(true).Raw(), other);
    });
    pool.reset();

    EXPECT_EQ(hr, E_NOINTERFACE);
    EXPECT_NE(lines.find("CFolder::Resend("), std::string::npos);
    EXPECT_EQ(Jobs(), "mine,{F},bob");
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ResendJobTest, NoProgressObjectIsNone)
{
    AddKnown(1);
    std::promise<void> offered;
    session.host.whenItemResent = [&](IItem*, BSTR, bool&) {
        offered.set_value();
        return S_OK;
    };

    ASSERT_EQ(Resend("bob", Missing(), Variant::Bool(true).Raw(), Variant::Dispatch(nullptr).Raw()), S_OK);
    EXPECT_EQ(offered.get_future().wait_for(kDeadline), std::future_status::ready);
    pool.reset();

    EXPECT_EQ(told.Text(), "");
}

// Texts that don't fit.

TEST_F(ResendStartTest, TextsBeyondTheirColumnsAreRefusedBeforeAnythingIsDone)
{
    AddKnown(1);
    EXPECT_EQ(Resend(std::string(1024, 'r')), E_INVALIDARG);
    EXPECT_EQ(Resend("bob", Text(Bstr(Widen(std::string(50, 'j'))))), E_INVALIDARG);
    ASSERT_EQ(folder->put_ID(Bstr(Widen(std::string(50, 'f'))).Get()), S_OK);
    EXPECT_EQ(Resend("bob"), E_INVALIDARG);
    pool.reset();

    EXPECT_EQ(Jobs(), "NULL");
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ResendStartTest, TextsThatJustFitAreRecorded)
{
    ASSERT_EQ(folder->put_ID(Bstr(Widen(std::string(49, 'f'))).Get()), S_OK);
    EXPECT_EQ(Resend(std::string(1023, 'r'), Text(Bstr(Widen(std::string(49, 'j'))))), S_OK);

    EXPECT_EQ(session.Ask("SELECT length(JobID)||' '||length(FolderID)||' '||length(Recipients) "
                          "FROM tblUnfinishedResendJob"),
              "49 49 1023");
}

TEST_F(ResendStartTest, ARefusedTextIsTraced)
{
    const std::string lines = TracedLines([&] { EXPECT_EQ(Resend(std::string(1024, 'r')), E_INVALIDARG); });

    EXPECT_NE(lines.find("CFolder::Resend("), std::string::npos);
    EXPECT_NE(lines.find("0x80070057"), std::string::npos);
}

// Failures of the steps.

TEST_F(ResendStartTest, WithoutADatabaseNothingStarts)
{
    AddKnown(1);
    session.CloseDatabase();
    HRESULT hr = S_OK;

    const std::string lines = TracedLines([&] { hr = Resend("bob"); });
    pool.reset();

    EXPECT_EQ(hr, kNotOpen);
    EXPECT_NE(lines.find("CFolder::Resend("), std::string::npos);
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ResendStartTest, ARowThatCantBeWrittenIsDescribedAndStartsNoJob)
{
    AddKnown(1);
    session.Execute("DROP TABLE tblUnfinishedResendJob");
    HRESULT hr = S_OK;

    const std::string lines = TracedLines([&] { hr = Resend("bob", Missing(), Variant::Bool(true).Raw()); });
    pool.reset();

    EXPECT_EQ(hr, kNoTable);
    EXPECT_NE(lines.find("CFolder::Resend("), std::string::npos);
    EXPECT_NE(lines.find("TraceOLEDBError("), std::string::npos) << lines;
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ResendStartTest, AStoreThatDoesntOpenLeavesTheRowBehind)
{
    AddKnown(1);
    ASSERT_EQ(folder->put_StoreID(Bstr(OLESTR("not hex")).Get()), S_OK);
    HRESULT hr = S_OK;

    const std::string lines =
        TracedLines([&] { hr = Resend("bob", Text(Bstr(OLESTR("mine"))), Variant::Bool(true).Raw()); });
    pool.reset();

    EXPECT_EQ(hr, E_FAIL);
    EXPECT_NE(lines.find("CFolder::Resend("), std::string::npos);
    EXPECT_EQ(Jobs(), "mine,{F},bob");
    EXPECT_TRUE(session.host.Calls().empty());
}

TEST_F(ResendStartTest, WithoutAPoolTheStartFails)
{
    session.resendPool = nullptr;

    EXPECT_EQ(Resend("bob"), E_UNEXPECTED);
}

TEST_F(ResendJobTest, TheJobKeepsTheFolderWhenItsOwnerLetsGo)
{
    AddKnown(2);
    std::promise<void> released;
    std::shared_future<void> wait = released.get_future();
    session.host.whenItemResent = [wait](IItem*, BSTR, bool&) {
        wait.wait();
        return S_OK;
    };

    ASSERT_EQ(Resend("bob", Missing(), Variant::Bool(true).Raw(), Bar()), S_OK);
    folder.Reset();
    released.set_value();
    expectedEnd = "2/2 ";
    Finish();

    EXPECT_EQ(Sent("bob").size(), 2u);
}

}  // namespace
}  // namespace quorvane
