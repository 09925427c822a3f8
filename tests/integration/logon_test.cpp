// Logging on and off: what a host may do, and what is left behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/test_host.h"

namespace quorvane::test {
namespace {

class LogonTest : public testing::Test {
protected:
    LogonTest() { Check(CreateLibrary(library), "make the library"); }

    HRESULT Logon(ISession2** place) { return library->Logon(callback.Get(), place); }

    TestMailbox mailbox;
    TestHost host{mailbox};
    const ComPtr<ExtCallback> callback = MakeComObject<ExtCallback>(host);
    ComPtr<ILibrary> library;
    ComPtr<ISession2> session;
};

TEST_F(LogonTest, ALogonGivesASession)
{
    EXPECT_EQ(Logon(session.Put()), S_OK);
    ComPtr<ISession2> same;
    EXPECT_EQ(library->get_Session(same.Put()), S_OK);

    EXPECT_EQ(same, session);
}

TEST_F(LogonTest, BeforeALogonTheSessionIsAnErrorWithAText)
{
    EXPECT_EQ(library->get_Session(session.Put()), DISP_E_EXCEPTION);

    EXPECT_EQ(TakeErrorDescription().View(), OLESTR("Please login first."));
    EXPECT_FALSE(session);
}

TEST_F(LogonTest, TheSessionTellsTheDatabaseThatTheHostNamed)
{
    ASSERT_EQ(Logon(session.Put()), S_OK);
    Bstr path;
    EXPECT_EQ(session->get_DBPath(path.Put()), S_OK);

    EXPECT_EQ(Utf8(path), mailbox.DatabasePath().string());
}

TEST_F(LogonTest, TheRawSessionIsMapis)
{
    ASSERT_EQ(Logon(session.Put()), S_OK);
    ComPtr<IUnknown> raw;
    ASSERT_EQ(session->get_Raw(raw.Put()), S_OK);
    ComPtr<IMAPISession> mapi;

    EXPECT_EQ(raw.As(mapi), S_OK);
}

TEST_F(LogonTest, ForceLogoffAndTestChangeNothing)
{
    ASSERT_EQ(Logon(session.Put()), S_OK);
    EXPECT_EQ(library->ForceLogoff(), S_OK);
    EXPECT_EQ(library->Test(), S_OK);

    LONG count = -1;
    ComPtr<IFolders> folders;
    ASSERT_EQ(session->get_Folders(folders.Put()), S_OK);
    EXPECT_EQ(folders->get_Count(&count), S_OK);
    EXPECT_EQ(count, 0);
}

TEST_F(LogonTest, WithoutAHostThereIsNoLogon)
{
    EXPECT_EQ(library->Logon(nullptr, session.Put()), E_POINTER);
    EXPECT_FALSE(session);
    EXPECT_EQ(library->get_Session(session.Put()), DISP_E_EXCEPTION);
}

TEST_F(LogonTest, AMissingDatabaseFailsAndAGoodLogonMayFollow)
{
    const auto hidden = mailbox.Directory() / "hidden.mdb";
    std::filesystem::rename(mailbox.DatabasePath(), hidden);
    EXPECT_EQ(Logon(session.Put()), STG_E_FILENOTFOUND);
    EXPECT_FALSE(session);
    EXPECT_FALSE(std::filesystem::exists(mailbox.DatabasePath()));
    EXPECT_EQ(library->get_Session(session.Put()), DISP_E_EXCEPTION);

    std::filesystem::rename(hidden, mailbox.DatabasePath());
    EXPECT_EQ(Logon(session.Put()), S_OK);
}

TEST_F(LogonTest, AFailureIsTracedAtEachHop)
{
    std::filesystem::remove(mailbox.DatabasePath());
    EXPECT_EQ(Logon(session.Put()), STG_E_FILENOTFOUND);

    const std::string log = mailbox.Log();
    const size_t inner = log.find("CSession2::OpenDataSource(");
    const size_t outer = log.find("CLibrary::Logon(", inner);
    EXPECT_NE(log.find("Startup"), std::string::npos);
    EXPECT_NE(inner, std::string::npos);
    EXPECT_NE(outer, std::string::npos);
    EXPECT_NE(log.find("0x80030002"), std::string::npos);
}

TEST_F(LogonTest, AProfileThatIsMissingFailsTheLogon)
{
    mailbox.DeleteProfile();

    EXPECT_TRUE(FAILED(Logon(session.Put())));
    EXPECT_FALSE(session);
}

TEST_F(LogonTest, AnOldDatabaseIsUpgradedOnce)
{
    mailbox.Execute(
        "DROP TABLE tblItem; CREATE TABLE tblItem (ID TEXT, EntryID TEXT, StoreID TEXT, LastModified REAL);"
        "INSERT INTO tblItem VALUES ('a', 'AA', 'BB', 1.0);");
    ASSERT_EQ(Logon(session.Put()), S_OK);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE Version = 2.0"), 1);

    mailbox.Execute("UPDATE tblItem SET Version = NULL");
    session.Reset();
    ASSERT_EQ(Logon(session.Put()), S_OK);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE Version IS NULL"), 1);
}

TEST_F(LogonTest, TheHostIsLetGoOfAtTheEnd)
{
    ASSERT_EQ(Logon(session.Put()), S_OK);
    callback->AddRef();
    EXPECT_GT(callback->Release(), 1u);
    session.Reset();
    library.Reset();

    callback->AddRef();
    EXPECT_EQ(callback->Release(), 1u);
}

TEST_F(LogonTest, ASessionOutlivesItsLibrary)
{
    ASSERT_EQ(Logon(session.Put()), S_OK);
    library.Reset();

    Bstr path;
    EXPECT_EQ(session->get_DBPath(path.Put()), S_OK);
}

TEST_F(LogonTest, ASecondLogonLeavesTheFirstSessionAlone)
{
    ASSERT_EQ(Logon(session.Put()), S_OK);
    ComPtr<ISession2> second;
    ASSERT_EQ(Logon(second.Put()), S_OK);
    EXPECT_FALSE(second == session);

    library.Reset();
    Bstr path;
    EXPECT_EQ(session->get_DBPath(path.Put()), S_OK);
}

class SessionTest : public testing::Test {
protected:
    TestMailbox mailbox;
    TestLogon logon{mailbox};
    ISession2& session = logon.Session();
};

TEST_F(SessionTest, CollectionsAreMadeOnce)
{
    ComPtr<IFolders> folders;
    ComPtr<IFolders> sameFolders;
    ASSERT_EQ(session.get_Folders(folders.Put()), S_OK);
    ASSERT_EQ(session.get_Folders(sameFolders.Put()), S_OK);

    EXPECT_EQ(folders, sameFolders);
    EXPECT_EQ(logon.StorageFiles(), logon.StorageFiles());
    EXPECT_EQ(logon.Options(), logon.Options());
}

TEST_F(SessionTest, ErrorInfoIsOfferedForTheSessionsInterfaceAlone)
{
    ComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(session.QueryInterface(IID_ISupportErrorInfo, support.PutVoid()), S_OK);

    EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_ISession2), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_IFolders), S_FALSE);
}

TEST_F(SessionTest, TheSessionHasOneConnectionPoint)
{
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(session.QueryInterface(IID_IConnectionPointContainer, container.PutVoid()), S_OK);
    ComPtr<IConnectionPoint> point;

    EXPECT_EQ(container->FindConnectionPoint(DIID__ISession2Events, point.Put()), S_OK);
    EXPECT_EQ(container->FindConnectionPoint(DIID__IFolderEvents, point.Put()), CONNECT_E_NOCONNECTION);
}

TEST_F(SessionTest, ItsSinkOnlyWritesALine)
{
    ComPtr<IMAPIAdviseSink> sink;
    ASSERT_EQ(session.QueryInterface(IID_IMAPIAdviseSink, sink.PutVoid()), S_OK);

    EXPECT_EQ(sink->OnNotify(0, nullptr), 0u);
    EXPECT_NE(mailbox.Log().find(") CSession2::OnNotify"), std::string::npos);
}

TEST_F(SessionTest, AnIdThatIsTooLongIsNotImported)
{
    EXPECT_EQ(session.ImportItem(Bstr(OleString(50, u'x')).Get(), Text("AB").Get(), Text("CD").Get()),
              E_INVALIDARG);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem"), 0);
}

TEST_F(SessionTest, DeletingAnItemRemovesItsRowAlone)
{
    ASSERT_EQ(session.ImportItem(Text("{a}").Get(), Text("AA").Get(), Text("CD").Get()), S_OK);
    ASSERT_EQ(session.ImportItem(Text("{b}").Get(), Text("BB").Get(), Text("CD").Get()), S_OK);
    EXPECT_EQ(session.DeleteItem(Text("{a}").Get()), S_OK);
    EXPECT_EQ(session.DeleteItem(Text("{unknown}").Get()), S_OK);

    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem WHERE ID = '{b}'"), 1);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblItem"), 1);
}

TEST_F(SessionTest, CancellingResendsForgetsThemAll)
{
    mailbox.Execute("INSERT INTO tblUnfinishedResendJob VALUES ('1', 'f', 'r'), ('2', 'f', 'r')");

    EXPECT_EQ(session.CancelResend(Variant::Text(OLESTR("1")).Raw()), S_OK);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 0);
}

TEST_F(SessionTest, LocksAnswerLateBoundCallersToo)
{
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(session.QueryInterface(IID_IDispatch, dispatch.PutVoid()), S_OK);
    VARIANT arguments[2];
    const Variant store = Variant::Text(OLESTR("CD"));
    const Variant item = Variant::Text(OLESTR("AB"));
    arguments[0] = store.Raw();
    arguments[1] = item.Raw();
    DISPPARAMS params{arguments, nullptr, 2, 0};
    EXPECT_EQ(dispatch->Invoke(5, IID_NULL, 0, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr), S_OK);
    VARIANT_BOOL locked = VARIANT_FALSE;
    EXPECT_EQ(session.IsItemLocked(Text("AB").Get(), Text("CD").Get(), &locked), S_OK);
    EXPECT_EQ(locked, VARIANT_TRUE);

    EXPECT_EQ(session.DropLock(Text("AB").Get(), Text("CD").Get()), S_OK);
    EXPECT_EQ(session.IsItemLocked(Text("AB").Get(), Text("CD").Get(), &locked), S_OK);
    EXPECT_EQ(locked, VARIANT_FALSE);
}

TEST(SettingsTest, WithALogAndNoConsoleTheLogIsWhereTheSettingSays)
{
    TestMailbox mailbox;
    // The log's own file is the process's, whatever a later logon says; this one each start makes anew. Where
    // an earlier start of this process holds it open against removal, it is there already.
    const std::filesystem::path details = TestMailbox::LogPath().string() + ".info";
    std::error_code held;
    std::filesystem::remove(details, held);
    const TestLogon logon(mailbox);

    EXPECT_NE(mailbox.Log().find("Startup"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(details));
}

}  // namespace
}  // namespace quorvane::test
