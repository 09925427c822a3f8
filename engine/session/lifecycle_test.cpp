// A logon and the end of a session, step by step, against a MAPI library that tells of each call.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <regex>
#include <thread>

#include "engine/monitor/advise_sink.h"
#include "engine/session/context/addin.h"
#include "engine/session/testing/logon_test_base.h"
#include "engine/transfer/pool/pool_jobs_for_test.h"
#include "platform/com/error_text.h"
#include "platform/registry/registry.h"
#include "platform/testing/console.h"
#include "platform/testing/open_files.h"

namespace quorvane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::Surroundings;

class LifecycleTest : public testing::LogonTest {};

// An extended regular expression of POSIX, on every system.
MATCHER_P(ContainsPattern, pattern, "")
{
    return std::regex_search(arg, std::regex(pattern, std::regex::extended));
}

constexpr char kInitialize[] = "MAPIInitialize 0 1";
constexpr char kMapiLogon[] = "MAPILogonEx 0 null null 0x60";
constexpr char kMapiRelease[] = "release of the MAPI session";
constexpr char kUninitialize[] = "MAPIUninitialize";

// What a logon does with MAPI and the host, in its order. The host's product code is asked for once a
// setting.
const std::vector<std::string> kLogonSteps = {"ProductCode", "ProductCode", kInitialize, kMapiLogon,
                                              "DatabasePath"};

// A job that tells when it is asked to stop, and whether the host can still be reached then.
class StoppedJob final : public IWorkingThread {
public:
    StoppedJob(std::string name, CSession2& session, Surroundings& around, Event& started)
        : name_(std::move(name)), session_(session), around_(around), started_(started)
    {}
    DWORD ThreadProc(Event& stop) override
    {
        started_.Set();
        stop.Wait();
        ComPtr<IQuorvaneExt> host;
        static_cast<void>(
            around_.Take(name_ + (SUCCEEDED(session_.GetAddin(host)) ? " with" : " without") + " the host"));
        return 0;
    }

private:
    const std::string name_;
    CSession2& session_;
    Surroundings& around_;
    Event& started_;
};

TEST_F(LifecycleTest, ALogonTakesItsStepsInOrder)
{
    EXPECT_EQ(Logon(), S_OK);

    EXPECT_EQ(around.TakeSteps(), kLogonSteps);
    EXPECT_TRUE(HostIsHeld());
    EXPECT_TRUE(test::IsOpen(files.DatabasePath()));
}

// As a host's thread has it that shows windows: its own apartment, which MAPI enters once more.
TEST_F(LifecycleTest, NoThreadHasBecomeAFreeOneBeforeItStartsMapi)
{
    around.mapiEntersApartments = true;
    std::atomic<bool> apartmentsStay{true};
    around.whenMapiIsCalled = [&](const std::string& call) {
        if (call == kUninitialize && !IsApartmentThread())
            apartmentsStay = false;
    };
    std::thread([this] {
        const ApartmentScope apartment;
        ASSERT_EQ(Logon(), S_OK);
        around.TakeSteps();
        const auto sink = MakeComObject<CAdviseSink>();
        sink->SetSession(&Inner());
        NOTIFICATION none{};
        EXPECT_EQ(sink->OnNotify(1, &none), static_cast<ULONG>(S_OK));
        Inner().Notifications()->CloseAndWait();
        EXPECT_THAT(around.TakeSteps(), ElementsAre(kInitialize, kUninitialize));
        End();
    }).join();
    EXPECT_TRUE(apartmentsStay);
}

// MAPI's thread is free at once, and nobody is called; the log tells.
TEST_F(LifecycleTest, ABatchWhoseThreadCantStartMapiIsLost)
{
    ASSERT_EQ(Logon(), S_OK);
    const auto sink = MakeComObject<CAdviseSink>();
    sink->SetSession(&Inner());
    around.Fail(kInitialize, E_ACCESSDENIED);
    around.TakeSteps();
    NOTIFICATION none{};
    const std::string lines = testing::TracedLines([&] {
        EXPECT_EQ(sink->OnNotify(1, &none), static_cast<ULONG>(S_OK));
        Inner().Notifications()->CloseAndWait();
    });

    EXPECT_THAT(lines, ContainsPattern("CMAPIThreadInit::Init[(][0-9]+[)] 0x80070005\r\n"));
    EXPECT_THAT(lines, ContainsPattern("NotifyThreadProc[(][0-9]+[)] 0x80070005\r\n"));
    EXPECT_THAT(around.TakeSteps(), ElementsAre(kInitialize));
}

// This MAPI counts and copies no notifications.
TEST_F(LifecycleTest, ABatchThatCantBeCopiedIsTracedAndMapiIsLeft)
{
    ASSERT_EQ(Logon(), S_OK);
    const auto sink = MakeComObject<CAdviseSink>();
    sink->SetSession(&Inner());
    around.TakeSteps();
    NOTIFICATION none{};
    const std::string lines = testing::TracedLines([&] {
        EXPECT_EQ(sink->OnNotify(1, &none), static_cast<ULONG>(S_OK));
        Inner().Notifications()->CloseAndWait();
    });

    EXPECT_THAT(lines, ContainsPattern("NotifyThreadProc[(][0-9]+[)] 0x80004005\r\n"));
    EXPECT_THAT(around.TakeSteps(), ElementsAre(kInitialize, kUninitialize));
}

TEST_F(LifecycleTest, WhileTheListOfPackagesIsReadTheOtherCollectionsAreThere)
{
    files.Execute(
        "DROP TABLE tblStorageFiles; CREATE VIEW tblStorageFiles (Recipients, Path, Status) AS WITH "
        "RECURSIVE slow(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM slow LIMIT 500000) SELECT 'a', 'b', "
        "0 FROM slow WHERE x < 0");
    ASSERT_EQ(Logon(), S_OK);
    using Clock = std::chrono::steady_clock;
    std::atomic<bool> isRead{false};
    std::thread reader([&] {
        ComPtr<IStorageFiles> packages;
        EXPECT_EQ(session->get_StorageFiles(packages.Put()), S_OK);
        isRead = true;
    });
    const auto begin = Clock::now();
    Clock::duration longest{};
    while (!isRead) {
        const auto asked = Clock::now();
        ComPtr<IFolders> folders;
        EXPECT_EQ(session->get_Folders(folders.Put()), S_OK);
        longest = std::max(longest, Clock::now() - asked);
        std::this_thread::yield();
    }
    reader.join();

    EXPECT_LT(longest, (Clock::now() - begin) / 2);
}

TEST_F(LifecycleTest, TheLogStartsBeforeMapiAndEndsAfterTheSession)
{
    const std::string lines = testing::TracedLines([&] {
        ShutdownTrace();
        around.Fail(kInitialize, E_ACCESSDENIED);
        EXPECT_EQ(Logon(), E_ACCESSDENIED);
        around.FailNothing();
        EXPECT_EQ(Logon(), S_OK);
        End();
        Trace("Test", 1, "lost");
    });

    EXPECT_THAT(lines,
                ContainsPattern("CLibrary::Logon[(][0-9]+[)] Startup\r\n.*CSession2::Logon[(][0-9]+[)] "
                                "0x80070005\r\n.*CLibrary::Logon[(][0-9]+[)] 0x80070005\r\n"));
    EXPECT_THAT(lines, ContainsPattern("~CLibrary[(][0-9]+[)] Session shutdown\r\n.*"
                                       "~CSession2[(][0-9]+[)] Shutdown\r\n$"));
}

TEST_F(LifecycleTest, AnEndTakesItsStepsInOrder)
{
    ASSERT_EQ(Logon(), S_OK);
    std::array<Event, 2> started;
    for (Event& event : started)
        ASSERT_EQ(event.Create(false), S_OK);
    ASSERT_EQ(
        Inner().ReceivePool()->Add(std::make_unique<StoppedJob>("receive job", Inner(), around, started[0])),
        S_OK);
    ASSERT_EQ(
        Inner().ResendPool()->Add(std::make_unique<StoppedJob>("resend job", Inner(), around, started[1])),
        S_OK);
    for (Event& event : started)
        event.Wait();
    around.TakeSteps();
    End();

    EXPECT_THAT(around.TakeSteps(), ElementsAre("receive job with the host", "resend job with the host",
                                                kMapiRelease, kUninitialize));
}

TEST_F(LifecycleTest, TheHostGoesBeforeMapiAndTheDatabaseBehindIt)
{
    ASSERT_EQ(Logon(), S_OK);
    const Bstr text(OLESTR("AB"));
    ASSERT_EQ(session->ImportItem(text.Get(), text.Get(), text.Get()), S_OK);
    std::map<std::string, std::pair<bool, bool>> hostAndDatabase;
    around.whenMapiIsCalled = [&](const std::string& call) {
        hostAndDatabase[call] = {HostIsHeld(), test::IsOpen(files.DatabasePath())};
    };
    End();

    EXPECT_EQ(hostAndDatabase[kMapiRelease], (std::pair{false, true}));
    EXPECT_EQ(hostAndDatabase[kUninitialize], (std::pair{false, true}));
    EXPECT_FALSE(test::IsOpen(files.DatabasePath()));
}

TEST_F(LifecycleTest, NoSubscriptionToTheMapiSessionIsEndedWhenThereIsNone)
{
    ASSERT_EQ(Logon(), S_OK);
    around.TakeSteps();
    End();

    EXPECT_THAT(around.TakeSteps(), ElementsAre(kMapiRelease, kUninitialize));
}

TEST_F(LifecycleTest, ASubscriptionToTheMapiSessionIsEndedBeforeThat)
{
    ASSERT_EQ(Logon(), S_OK);
    Inner().AdoptSessionAdvise(5);
    around.TakeSteps();
    End();

    EXPECT_THAT(around.TakeSteps(), ElementsAre("Unadvise 5", kMapiRelease, kUninitialize));
}

TEST_F(LifecycleTest, EveryStepThatFailsLeavesNothingBehindAndAGoodLogonMayFollow)
{
    constexpr HRESULT kFailure = static_cast<HRESULT>(0x80040ABCu);
    for (const std::string step : {kInitialize, kMapiLogon, "DatabasePath"}) {
        SCOPED_TRACE(step);
        around.Fail(step, kFailure);
        EXPECT_EQ(Logon(), kFailure);
        EXPECT_FALSE(session);
        EXPECT_FALSE(HostIsHeld());
        EXPECT_EQ(library->get_Session(session.Put()), DISP_E_EXCEPTION);
        EXPECT_EQ(TakeErrorDescription().View(), OLESTR("Please login first."));
        const std::vector<std::string> steps = around.TakeSteps();
        EXPECT_EQ(steps.back() == kUninitialize, step != kInitialize);
        EXPECT_EQ(std::count(steps.begin(), steps.end(), kMapiRelease), step == "DatabasePath" ? 1 : 0);

        around.FailNothing();
        EXPECT_EQ(Logon(), S_OK);
        session.Reset();
        EXPECT_EQ(library->get_Session(session.Put()), S_OK);
        End();
        library = MakeComObject<CLibrary>();
        around.TakeSteps();
    }
}

TEST_F(LifecycleTest, AFailureOfMapiIsTracedBySessionAndLibrary)
{
    for (const char* const step : {kInitialize, kMapiLogon}) {
        around.Fail(step, MAPI_E_LOGON_FAILED);
        const std::string lines =
            testing::TracedLines([&] { EXPECT_EQ(Logon(), MAPI_E_LOGON_FAILED) << step; });
        around.FailNothing();

        EXPECT_THAT(lines, ContainsPattern(" CSession2::Logon[(][0-9]+[)] 0x80040111\r\n[^\n]*"
                                           " CLibrary::Logon[(][0-9]+[)] 0x80040111\r\n"));
    }
}

TEST_F(LifecycleTest, AHostWithoutAProductCodeHasNoSettings)
{
    around.Fail("ProductCode", E_NOTIMPL);

    EXPECT_EQ(Logon(), S_OK);
    EXPECT_EQ(around.TakeSteps(), kLogonSteps);
}

TEST_F(LifecycleTest, WithoutAHostNothingIsStarted)
{
    EXPECT_EQ(library->Logon(nullptr, session.Put()), E_POINTER);
    EXPECT_FALSE(session);
    EXPECT_TRUE(around.TakeSteps().empty());
}

TEST_F(LifecycleTest, WithoutAPlaceForTheSessionAllIsStartedAndEnded)
{
    EXPECT_EQ(library->Logon(callback.Get(), nullptr), E_POINTER);

    std::vector<std::string> steps = kLogonSteps;
    steps.insert(steps.end(), {kMapiRelease, kUninitialize});
    EXPECT_EQ(around.TakeSteps(), steps);
    EXPECT_FALSE(HostIsHeld());
}

TEST_F(LifecycleTest, ASessionThatTheHostKeepsEndsWithTheHostsReferenceAndInSilence)
{
    const std::string lines = testing::TracedLines([&] {
        ASSERT_EQ(Logon(), S_OK);
        around.TakeSteps();
        library.Reset();
        EXPECT_TRUE(around.TakeSteps().empty());
        session.Reset();
    });

    EXPECT_THAT(around.TakeSteps(), ElementsAre(kMapiRelease, kUninitialize));
    EXPECT_THAT(lines, HasSubstr("Session shutdown"));
    EXPECT_THAT(lines, Not(HasSubstr("~CSession2")));
}

TEST_F(LifecycleTest, ASecondLogonStartsAllAnewAndLeavesTheFirstSessionRunning)
{
    ASSERT_EQ(Logon(), S_OK);
    session.Reset();
    around.TakeSteps();
    EXPECT_EQ(Logon(), S_OK);
    EXPECT_EQ(around.TakeSteps(), kLogonSteps);
    End();

    EXPECT_THAT(around.TakeSteps(), ElementsAre(kMapiRelease, kUninitialize));
    EXPECT_TRUE(HostIsHeld());
}

TEST_F(LifecycleTest, ASecondLogonKeepsTheChannelsOfTheLog)
{
    ASSERT_EQ(Logon(), S_OK);
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\Brindlemoor\\Quorvane\\1.0\\Tests\\Settings"),
              S_OK);
    ASSERT_EQ(key.Set("EnableConsole", RegistryValue::OfNumber(1)), S_OK);
    const test::ConsoleForTest console;
    EXPECT_EQ(Logon(), S_OK);

    EXPECT_EQ(console.Text(), "");
}

TEST_F(LifecycleTest, TheProcessIsMarkedAsShuttingDownFromALibrarysEndToALogon)
{
    ASSERT_EQ(Logon(), S_OK);
    EXPECT_FALSE(CSession2::g_bShuttingDown);
    End();
    EXPECT_TRUE(CSession2::g_bShuttingDown);
}

TEST_F(LifecycleTest, WhileNoItemIsWrittenTheSubmitEventIsSetForAllSessions)
{
    ASSERT_EQ(Logon(), S_OK);
    EXPECT_TRUE(Inner().ItemSubmitEvent().IsSet());
    Event named;
    ASSERT_EQ(named.Create(false, "ItemSubmitEvent"), S_OK);
    EXPECT_TRUE(named.IsSet());
    Inner().ItemSubmitEvent().Reset();

    EXPECT_FALSE(named.IsSet());
    Inner().ItemSubmitEvent().Set();
}

// Runs until it may end; tells how many run beside it.
class CountedJob final : public IWorkingThread {
public:
    CountedJob(testing::Counter& running, Event& mayEnd) : running_(running), mayEnd_(mayEnd) {}
    DWORD ThreadProc(Event&) override
    {
        running_.Add();
        mayEnd_.Wait();
        running_.Add(-1);
        return 0;
    }

private:
    testing::Counter& running_;
    Event& mayEnd_;
};

TEST_F(LifecycleTest, OneReceivedFileAndTwoResendsAreWorkedOnAtOnce)
{
    testing::Counter receiving;
    testing::Counter resending;
    Event mayEnd;
    ASSERT_EQ(mayEnd.Create(false), S_OK);
    ASSERT_EQ(Logon(), S_OK);
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(Inner().ReceivePool()->Add(std::make_unique<CountedJob>(receiving, mayEnd)), S_OK);
        ASSERT_EQ(Inner().ResendPool()->Add(std::make_unique<CountedJob>(resending, mayEnd)), S_OK);
    }
    EXPECT_TRUE(receiving.WaitFor(1));
    EXPECT_TRUE(resending.WaitFor(2));
    mayEnd.Set();
    End();

    EXPECT_EQ(receiving.Highest(), 1);
    EXPECT_EQ(resending.Highest(), 2);
}

TEST_F(LifecycleTest, AHalfMadeSessionMayEndAtAnyPoint)
{
    const auto make = [] { return MakeComObject<CSession2>(); };
    ComPtr<CSession2> made = make();
    made.Reset();
    made = make();
    EXPECT_EQ(made->RegisterAddin(callback.Get()), S_OK);
    made.Reset();
    EXPECT_FALSE(HostIsHeld());
    made = make();
    EXPECT_EQ(made->Logon(), S_OK);
    made.Reset();
    EXPECT_THAT(around.TakeSteps(), ElementsAre(kInitialize, kMapiLogon, kMapiRelease, kUninitialize));
    made = make();
    EXPECT_TRUE(FAILED(made->OpenDataSource()));
}

TEST_F(LifecycleTest, ASessionThatWasNeverLoggedOnSharesNoFolder)
{
    const auto lonely = MakeComObject<CSession2>();
    ComPtr<IFolders> folders;
    ASSERT_EQ(lonely->get_Folders(folders.Put()), S_OK);
    const Bstr id(OLESTR("00"));
    const Variant missing = Variant::Missing();
    ComPtr<IFolder> folder;

    EXPECT_TRUE(FAILED(folders->Add(id.Get(), id.Get(), missing.Raw(), missing.Raw(), folder.Put())));
    EXPECT_EQ(lonely->QueueStorageFile(id.Get(), id.Get()), E_UNEXPECTED);
}

#if defined(__GXX_ABI_VERSION) && defined(__x86_64__)
// A pointer to a virtual function holds one more than the place of its slot.
TEST_F(LifecycleTest, QueueStorageFileIsTheFifthOperationOfTheFirstBase)
{
    HRESULT (CSession2::*const queue)(BSTR, BSTR) noexcept = &CSession2::QueueStorageFile;
    std::array<std::ptrdiff_t, 2> parts;
    static_assert(sizeof parts == sizeof queue);
    std::memcpy(parts.data(), &queue, sizeof queue);

    EXPECT_EQ(parts, (std::array<std::ptrdiff_t, 2>{1 + 4 * sizeof(void*), 0}));
}
#endif

}  // namespace
}  // namespace quorvane
