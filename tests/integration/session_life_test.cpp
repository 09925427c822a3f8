// What lasts as long as a session, and how it ends while there is work.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>

#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

class SessionLifeTest : public testing::Test {
protected:
    ComPtr<IOption> OptionAt(const Variant& index)
    {
        Variant item;
        ComPtr<IOption> option;
        EXPECT_EQ(logon->Options()->get_Item(index.Raw(), item.Put()), S_OK);
        EXPECT_TRUE(item.Is(VT_DISPATCH));
        EXPECT_EQ(QueryFor(item.Raw().pdispVal, option), S_OK);
        return option;
    }
    std::string NameAt(LONG position)
    {
        Bstr name;
        EXPECT_EQ(OptionAt(Variant::Long(position))->get_Name(name.Put()), S_OK);
        return Utf8(name);
    }
    Variant ValueOf(const OLECHAR* name)
    {
        Variant value;
        EXPECT_EQ(OptionAt(Variant::Text(name))->get_Value(value.Put()), S_OK);
        return value;
    }

    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
    std::optional<TestLogon> logon{mailbox};
};

TEST_F(SessionLifeTest, TheSessionsOptionsAreReachedByNumberAndByName)
{
    EXPECT_EQ(NameAt(1), "IgnoreModificationTimeChanges");
    EXPECT_EQ(NameAt(2), "NoListeners");
    LONG count = 0;
    EXPECT_EQ(logon->Options()->get_Count(&count), S_OK);
    EXPECT_EQ(count, 2);

    EXPECT_TRUE(ValueOf(OLESTR("IgnoreModificationTimeChanges")).Is(VT_BOOL));
    EXPECT_EQ(ValueOf(OLESTR("IgnoreModificationTimeChanges")).Raw().boolVal, VARIANT_TRUE);
    EXPECT_TRUE(ValueOf(OLESTR("NoListeners")).Is(VT_I4));
    EXPECT_EQ(ValueOf(OLESTR("NoListeners")).Raw().lVal, 0);
}

TEST_F(SessionLifeTest, AnOptionThatIsntThereFails)
{
    Variant item;
    EXPECT_EQ(logon->Options()->get_Item(Variant::Text(OLESTR("UpdateReadStatus")).Raw(), item.Put()),
              E_FAIL);
    EXPECT_EQ(logon->Options()->get_Item(Variant::Long(3).Raw(), item.Put()), E_FAIL);
    EXPECT_TRUE(FAILED(logon->Options()->get_Item(Variant::Long(0).Raw(), item.Put())));
}

TEST_F(SessionLifeTest, AnOptionsValueOfAnotherTypeLastsAsLongAsTheSession)
{
    EXPECT_EQ(OptionAt(Variant::Text(OLESTR("NoListeners")))->put_Value(Variant::Text(OLESTR("True")).Raw()),
              S_OK);
    EXPECT_TRUE(ValueOf(OLESTR("NoListeners")).Is(VT_BSTR));

    logon.reset();
    logon.emplace(mailbox);
    EXPECT_TRUE(ValueOf(OLESTR("NoListeners")).Is(VT_I4));
}

TEST_F(SessionLifeTest, AnOptionThatChangesToTrueCountsAsSet)
{
    logon->SetOption(OLESTR("NoListeners"), Variant::Text(OLESTR("True")));
    ComPtr<IFolder> shared = logon->Share(folder, "{deaf}");
    const TestFolder heard = mailbox.MakeFolder("Heard");
    logon->SetOption(OLESTR("NoListeners"), Variant::Long(0));
    const ComPtr<IFolder> listening = logon->Share(heard, "{listening}");
    folder.Add("unheard", "text");
    heard.Add("heard", "text");

    EXPECT_TRUE(logon->Host().Heard("added"));
    EXPECT_EQ(logon->Host().Events("added").size(), 1u);
    EXPECT_EQ(logon->Host().Events("added").front().entryId, *heard.Find("heard"));
}

TEST_F(SessionLifeTest, ObjectsThatAHostKeepsTooLongMayStillBeReleased)
{
    const ComPtr<IFolder> shared = logon->Share(folder, "{folder}");
    const std::string entryId = folder.Add("Hello", "text");
    ASSERT_TRUE(logon->Host().Heard("added"));
    ASSERT_TRUE(Eventually([this] { return mailbox.Query("SELECT count(*) FROM tblItem") == 1; }));
    ComPtr<IFolders> folders;
    ComPtr<IItem> item;
    ASSERT_EQ(logon->Session().get_Folders(folders.Put()), S_OK);
    ASSERT_EQ(logon->Session().GetItemFromID(Variant::Missing().Raw(), Variant::Text(FromUtf8(entryId)).Raw(),
                                             Variant::Missing().Raw(), item.Put()),
              S_OK);
    const ComPtr<IStorageFiles> files = logon->StorageFiles();
    const ComPtr<IOption> option = OptionAt(Variant::Long(1));
    ComPtr<IUnknown> raw;
    ASSERT_EQ(logon->Session().get_Raw(raw.Put()), S_OK);
    logon.reset();

    folder.Add("unheard", "text");
    EXPECT_EQ(folders.Detach()->Release(), 0u);
    EXPECT_EQ(item.Detach()->Release(), 0u);
}

TEST_F(SessionLifeTest, ALibraryThatGoesWaitsForTheJobThatRuns)
{
    const TestMailbox sender;
    std::filesystem::path package;
    {
        TestLogon from(sender);
        const TestFolder sent = sender.MakeFolder("Sent");
        ASSERT_EQ(from.Share(sent, "{sent}")->Send(Variant::Text(OLESTR("someone")).Raw()), S_OK);
        package = TakePackage(from, "someone", 0, mailbox);
    }
    mailbox.Select();
    logon.emplace(mailbox);
    std::atomic<bool> isEnding = false;
    std::atomic<bool> returned = false;
    logon->Host().AnswerWith([&](const HostEvent& event, bool&) -> HRESULT {
        if (event.what != "folder")
            return S_OK;
        isEnding =
            Eventually([this] { return mailbox.Log().find("CSession2::~CSession2(") != std::string::npos; });
        returned = true;
        return S_OK;
    });
    ASSERT_EQ(logon->Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()), S_OK);
    ASSERT_TRUE(logon->Host().Heard("folder"));
    logon.reset();

    EXPECT_TRUE(isEnding);
    EXPECT_TRUE(returned);
}

// What a host learns of an item that it was asked about before the logoff.
struct LateAnswers {
    HRESULT folder = S_OK;
    HRESULT sent = S_OK;
    HRESULT raw = S_OK;
    HRESULT submitted = S_OK;
    HRESULT displayed = S_OK;
    bool stillNamed = false;
};

LateAnswers AskLate(IItem& item)
{
    LateAnswers answers;
    ComPtr<IFolder> folder;
    answers.folder = item.get_Folder(folder.Put());
    answers.sent = item.Send(Text("someone").Get());
    ComPtr<IUnknown> message;
    answers.raw = item.get_Raw(message.Put());
    answers.submitted = item.Submit();
    answers.displayed = item.Display(VARIANT_FALSE, 0);
    Bstr id;
    answers.stillNamed = item.get_ID(id.Put()) == S_OK && !id.IsEmpty();
    return answers;
}

TEST_F(SessionLifeTest, AHostThatAnswersAfterTheLogoffFindsTheItemWithoutItsSession)
{
    const TestMailbox sender;
    std::filesystem::path package;
    {
        TestLogon from(sender);
        const TestFolder sent = sender.MakeFolder("Sent");
        const auto shared = from.Share(sent, "{folder}");
        sent.Add("Hello", "text");
        package = TakePackage(from, sent.EntryId(), 1, mailbox);
    }
    mailbox.Select();
    logon.emplace(mailbox);
    ComPtr<IFolder> shared = logon->Share(folder, "{folder}");
    std::promise<void> loggedOff;
    std::promise<LateAnswers> answers;
    logon->Host().AnswerWith([&](const HostEvent& event, bool&) -> HRESULT {
        if (event.what == "received") {
            loggedOff.get_future().wait();
            answers.set_value(AskLate(*event.item));
        }
        return S_OK;
    });
    ASSERT_EQ(logon->Session().ProcessStorageFile(Text(package.string()).Get(), Text("tag").Get()), S_OK);
    ASSERT_TRUE(logon->Host().Heard("received"));
    shared.Reset();
    logon->EndSession();
    loggedOff.set_value();
    const LateAnswers late = answers.get_future().get();
    logon->EndWithLateCalls();

    EXPECT_EQ(late.folder, E_UNEXPECTED);
    EXPECT_EQ(late.sent, E_UNEXPECTED);
    EXPECT_EQ(late.raw, E_UNEXPECTED);
    EXPECT_EQ(late.submitted, E_UNEXPECTED);
    EXPECT_EQ(late.displayed, E_UNEXPECTED);
    EXPECT_TRUE(late.stillNamed);
}

TEST_F(SessionLifeTest, AnEndInTheMidstOfABatchLetsItFinish)
{
    constexpr size_t kMails = 30;
    size_t offered = 0;
    logon->Share(folder, "{folder}");
    logon->Host().AnswerWith([&](const HostEvent&, bool&) -> HRESULT {
        ++offered;
        return S_OK;
    });
    for (size_t i = 0; i < kMails; ++i)
        folder.Add("Mail " + std::to_string(i), "text");
    ASSERT_TRUE(logon->Host().Heard("added"));
    logon.reset();
    const size_t offeredAtTheEnd = offered;

    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem"), static_cast<long>(offeredAtTheEnd));
    logon.emplace(mailbox);
    const ComPtr<IFolder> again = logon->Share(folder, "{folder}");
    logon->Host().Forget();
    folder.Add("fence", "text");
    EXPECT_TRUE(logon->Host().Heard("added"));
    EXPECT_EQ(offered, offeredAtTheEnd);
}

}  // namespace
}  // namespace quorvane::test
