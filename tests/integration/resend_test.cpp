// A folder is resent to a new member, by a host that lives on one thread and by one that doesn't.
#include <gtest/gtest.h>

#include <future>
#include <set>

#include "tests/support/apartments.h"
#include "tests/support/date_restriction.h"
#include "tests/support/packages.h"

namespace quorvane::test {
namespace {

// Notes what it hears, and on which threads.
class ProgressNotes final : public ProgressHandler {
public:
    HRESULT SetLimits(LONG min, LONG max) override { return Note(min == 0 ? 0 : -1, max); }
    HRESULT Progress(LONG count, LONG total) override { return Note(count, total); }

    bool IsAtTheEnd() const
    {
        const std::lock_guard lock(mutex_);
        return !counts_.empty() && counts_.back() == total_;
    }
    std::vector<LONG> Counts() const
    {
        const std::lock_guard lock(mutex_);
        return counts_;
    }
    std::set<std::thread::id> Threads() const
    {
        const std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    HRESULT Note(LONG count, LONG total)
    {
        const std::lock_guard lock(mutex_);
        threads_.insert(std::this_thread::get_id());
        counts_.push_back(count);
        total_ = total;
        return S_OK;
    }

    mutable std::mutex mutex_;
    std::vector<LONG> counts_;
    LONG total_ = -1;
    std::set<std::thread::id> threads_;
};

// Gives a mail its date.
void SetDate(const TestFolder& folder, const std::string& id, const FILETIME& date)
{
    const ComPtr<IMessage> message = folder.Open(id, MAPI_MODIFY);
    SPropValue value{};
    value.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
    value.Value.ft = date;
    Check(message->SetProps(1, &value, nullptr), "set a date");
    Check(message->SaveChanges(0), "set a date");
}

class ResendRoad {
protected:
    void AddMails(int count)
    {
        for (int i = 0; i < count; ++i)
            folder.Add("Mail " + std::to_string(i), "body");
    }

    static HRESULT ResendAll(IFolder& shared, const std::string& recipients, IDispatch* progress = nullptr)
    {
        const Variant bar = progress ? Variant::Dispatch(progress) : Variant::Missing();
        return shared.Resend(Text(recipients).Get(), Variant::Missing().Raw(), Variant::Bool(true).Raw(),
                             bar.Raw());
    }

    // What a member makes of the package.
    static std::vector<std::string> Received(const std::filesystem::path& package, TestMailbox& mailbox)
    {
        std::vector<std::string> subjects;
        std::thread([&] {
            const FreeThreadScope freeThread;
            const TestFolder theirs = mailbox.MakeFolder("Shared too");
            TestLogon to(mailbox);
            const auto shared = to.Share(theirs, "shared");
            Process(to, package, "tag");
            to.EndWithLateCalls();
            subjects = theirs.Subjects();
        }).join();
        return subjects;
    }

    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("Shared");
};

// The host on this thread, which is an apartment.
class ApartmentOfHost {
protected:
    const ApartmentScope apartment;
};

class ResendTest : public RegisteredTest, protected ApartmentOfHost, protected ResendRoad {
protected:
    // A job has ended when it has let go of its progress object.
    static bool HasEnded(ProgressCallback& bar)
    {
        return Pumped([&] {
            bar.AddRef();
            return bar.Release() == 1;
        });
    }
};

TEST_F(ResendTest, ANewMemberGetsTheWholeFolderAndNobodyElseAnything)
{
    constexpr int kMails = 12;
    AddMails(kMails);
    TestMailbox theirMailbox;
    std::filesystem::path package;
    Callers callers;
    ProgressNotes progress;
    const auto bar = MakeComObject<ProgressCallback>(progress);
    {
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        logon.Host().AnswerWith([&](const HostEvent&, bool&) { return callers.Note(); });

        ASSERT_EQ(ResendAll(*shared, "carol", bar.Get()), S_OK);
        ASSERT_TRUE(HasEnded(*bar));
        package = TakePackage(logon, "carol", kMails, theirMailbox);
        EXPECT_FALSE(FindPackage(logon, folder.EntryId())) << "the usual members get nothing";
        EXPECT_EQ(logon.Host().Events().size(), size_t{kMails});
        EXPECT_EQ(logon.Host().Events("resend").front().tag, logon.Host().Events("resend").back().tag);
        EXPECT_EQ(logon.Host().Events("resend").front().tag.size(), 38u);
    }

    EXPECT_EQ(callers.Threads(), std::set{std::this_thread::get_id()});
    EXPECT_EQ(progress.Threads(), std::set{std::this_thread::get_id()});
    std::vector<LONG> expected(kMails + 1);
    for (LONG i = 0; i <= kMails; ++i)
        expected[static_cast<size_t>(i)] = i;
    EXPECT_EQ(progress.Counts(), expected);
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 1);
    EXPECT_EQ(Received(package, theirMailbox), folder.Subjects());
}

class ResendByDateTest : public ResendTest {
protected:
    ResendByDateTest()
    {
        constexpr FILETIME kThisYear{0, 0x01DC8000};
        SetDate(folder, folder.Add("Old", "body"), kLastYear);
        SetDate(folder, folder.Add("New", "body"), kThisYear);
        SetDate(folder, folder.Add("Newer", "body"), FILETIME{1, kThisYear.dwHighDateTime});
    }

    // Runs a job under the restriction; the counts that it tells.
    std::vector<LONG> ResendUnder(IQuorvaneRestrict* callback)
    {
        ProgressNotes progress;
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        const auto bar = MakeComObject<ProgressCallback>(progress);
        EXPECT_EQ(shared->ResendEx(Text("carol").Get(), callback, Variant::Bool(true).Raw(),
                                   Variant::Text(OLESTR("mine")).Raw(), Variant::Dispatch(bar.Get()).Raw()),
                  S_OK);
        EXPECT_TRUE(HasEnded(*bar));
        const auto resent = logon.Host().Events("resend");
        EXPECT_TRUE(!resent.empty() && resent.front().tag == "mine");
        EXPECT_EQ(progress.Counts().size(), resent.size() + 1);
        return progress.Counts();
    }

    static constexpr FILETIME kLastYear{0, 0x01DC0000};
    DateRestriction restriction{kLastYear};
};

// Wine carries what a call from another apartment gives as if it went to another process: the table arrives
// there as a proxy without IMAPITable.
TEST_F(ResendByDateTest, TheHostIsAskedOnItsOwnThread)
{
    const auto callback = MakeComObject<RestrictCallback>(restriction);

    const std::vector<LONG> counts = ResendUnder(callback.Get());

    EXPECT_EQ(restriction.thread, std::this_thread::get_id());
    EXPECT_EQ(counts,
              restriction.reachedTable ? (std::vector<LONG>{0, 1, 2}) : (std::vector<LONG>{0, 1, 2, 3}));
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 0);
}

TEST_F(ResendByDateTest, ARestrictionOfNoApartmentIsAskedOnTheJobsThread)
{
    ComPtr<IQuorvaneRestrict> callback;
    std::thread([&] {
        const FreeThreadScope freeThread;
        callback = MakeComObject<RestrictCallback>(restriction);
    }).join();

    EXPECT_EQ(ResendUnder(callback.Get()), (std::vector<LONG>{0, 1, 2}));

    EXPECT_NE(restriction.thread, std::this_thread::get_id());
    EXPECT_TRUE(restriction.reachedTable);
}

TEST_F(ResendTest, ACancelledJobEndsAndTheNextOneRuns)
{
    constexpr int kMails = 100;
    AddMails(kMails);
    TestLogon logon(mailbox);
    const auto shared = logon.Share(folder, "shared");
    bool cancelled = false;
    logon.Host().AnswerWith([&](const HostEvent&, bool&) {
        return std::exchange(cancelled, true) ? S_OK : logon.Session().CancelResend(Variant::Missing().Raw());
    });
    ProgressNotes progress;
    const auto bar = MakeComObject<ProgressCallback>(progress);
    ASSERT_EQ(ResendAll(*shared, "carol", bar.Get()), S_OK);
    ASSERT_TRUE(HasEnded(*bar));

    EXPECT_TRUE(cancelled);
    EXPECT_LT(logon.Host().Events("resend").size(), size_t{kMails});
    EXPECT_FALSE(progress.IsAtTheEnd());
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 0);
    ProgressNotes next;
    const auto nextBar = MakeComObject<ProgressCallback>(next);
    ASSERT_EQ(ResendAll(*shared, "dave", nextBar.Get()), S_OK);
    ASSERT_TRUE(HasEnded(*nextBar));
    EXPECT_TRUE(next.IsAtTheEnd());
}

TEST_F(ResendTest, TheEndOfASessionAnswersAJobThatIsCallingTheHost)
{
    AddMails(20);
    for (int round = 0; round < 5; ++round) {
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        ASSERT_EQ(ResendAll(*shared, "carol"), S_OK);
        ASSERT_TRUE(Pumped([&] { return !logon.Host().Events("resend").empty(); }));
        logon.EndSession();
        EXPECT_FALSE(logon.Host().Events("resend").empty());
    }
    EXPECT_EQ(folder.Count(), 20u);
}

TEST_F(ResendTest, TheEndOfASessionAnswersACallOfAJobThatHasJustBegun)
{
    AddMails(3);
    for (int round = 0; round < 5; ++round) {
        TestLogon logon(mailbox);
        const auto shared = logon.Share(folder, "shared");
        ASSERT_EQ(ResendAll(*shared, "carol"), S_OK);
        ASSERT_EQ(ResendAll(*shared, "dave"), S_OK);
        ASSERT_EQ(ResendAll(*shared, "eve"), S_OK);
    }
    EXPECT_EQ(mailbox.Query("SELECT count(*) FROM tblUnfinishedResendJob"), 15);
}

// A host that is called on the engine's threads.
class ResendFreeThreadTest : public testing::Test, protected ResendRoad {};

TEST_F(ResendFreeThreadTest, TheEndOfASessionWaitsForTheCallUnderWayAndOffersNoMore)
{
    AddMails(10);
    TestLogon logon(mailbox);
    std::promise<void> called;
    std::promise<void> mayReturn;
    const std::shared_future<void> wait = mayReturn.get_future().share();
    std::atomic<int> returned{0};
    logon.Host().AnswerWith([&, wait](const HostEvent&, bool&) {
        if (returned == 0)
            called.set_value();
        wait.wait();
        ++returned;
        return S_OK;
    });
    auto shared = logon.Share(folder, "shared");
    ASSERT_EQ(ResendAll(*shared, "carol"), S_OK);
    called.get_future().wait();
    shared.Reset();

    auto ended = std::async(std::launch::async, [&] {
        logon.EndSession();
        return returned.load();
    });
    // It doesn't end before the call returns; when it has ended, there was that call alone.
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    mayReturn.set_value();

    EXPECT_EQ(ended.get(), 1);
    EXPECT_EQ(logon.Host().Events("resend").size(), 1u);
}

TEST_F(ResendFreeThreadTest, AFailedJobTellsTheLogAlone)
{
    AddMails(1);
    TestLogon logon(mailbox);
    logon.SetOption(OLESTR("NoListeners"), Variant::Bool(true));
    const auto shared = logon.Share(folder, "shared");

    ASSERT_EQ(ResendAll(*shared, "carol"), S_OK);

    EXPECT_TRUE(Eventually(
        [&] { return mailbox.Log().find("CResendFolder::ResendThreadProc(") != std::string::npos; }));
    EXPECT_TRUE(logon.Host().Events().empty());
}

}  // namespace
}  // namespace quorvane::test
