#include "msgstore/store/notification_hub.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "msgstore/store/table_events.h"
#include "msgstore/store/test_mailbox.h"
#include "msgstore/store/test_switches.h"
#include "quorvane3/message_store.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;
using Event = CTestSink::Event;

// A sink that does what a test wants.
class CActingSink final : public ComObject<CActingSink, IMAPIAdviseSink> {
public:
    explicit CActingSink(std::function<void()> action) : m_action(std::move(action)) {}
    ULONG STDMETHODCALLTYPE OnNotify(ULONG, LPNOTIFICATION) override
    {
        m_action();
        return S_OK;
    }

private:
    const std::function<void()> m_action;
};

// A source that counts what it is asked.
class CountingSource final : public EventSource {
public:
    explicit CountingSource(std::shared_ptr<StoreCore> core) : core_(std::move(core)) {}

    const std::shared_ptr<StoreCore>& Core() const noexcept override { return core_; }
    HRESULT Collect(NotificationBatch& batch) noexcept override
    {
        const std::lock_guard lock(lock_);
        ++asked;
        if (failures > 0) {
            --failures;
            return MAPI_E_BUSY;
        }
        if (const int told = events.exchange(0); told > 0)
            batch.AddTableEvent(TABLE_CHANGED, {}, {}, {});
        return S_OK;
    }

    // No call sees the one without the other.
    void FailBeforeAnEvent(int times)
    {
        const std::lock_guard lock(lock_);
        failures = times;
        events = 1;
    }

    std::atomic<int> asked{0};
    std::atomic<int> failures{0};
    std::atomic<int> events{0};

private:
    const std::shared_ptr<StoreCore> core_;
    std::mutex lock_;
};

// What the thread asks of its sources.
class NotificationThreadTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK); }
    void TearDown() override { hub->Stop(); }

    std::shared_ptr<CountingSource> Advise()
    {
        auto source = std::make_shared<CountingSource>(core);
        ULONG connection = 0;
        EXPECT_EQ(hub->Advise(source, *sink, connection), S_OK);
        return source;
    }
    template <class Condition>
    static bool Eventually(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        return condition();
    }
    // A source in another store that fails, and so is asked in each round of the thread.
    std::shared_ptr<CountingSource> AdviseElsewhere()
    {
        std::shared_ptr<StoreCore> elsewhere;
        EXPECT_EQ(StoreCore::Open((mailbox.Directory() / "other.qvs").string(), true, elsewhere), S_OK);
        auto source = std::make_shared<CountingSource>(elsewhere);
        source->failures = INT32_MAX;
        ULONG connection = 0;
        EXPECT_EQ(hub->Advise(source, *sink, connection), S_OK);
        return source;
    }

    static void AwaitRounds(const CountingSource& witness)
    {
        const int before = witness.asked;
        EXPECT_TRUE(Eventually([&] { return witness.asked > before + 3; }));
    }

    TestMailbox mailbox;
    std::shared_ptr<StoreCore> core;
    const std::shared_ptr<NotificationHub> hub = std::make_shared<NotificationHub>();
    const ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
};

TEST_F(NotificationThreadTest, WhileNothingChangesTheSourcesAreNotAsked)
{
    const std::shared_ptr<CountingSource> source = Advise();
    const std::shared_ptr<CountingSource> witness = AdviseElsewhere();
    AwaitRounds(*witness);
    ASSERT_GT(source->asked, 0);
    const int asked = source->asked;
    AwaitRounds(*witness);
    EXPECT_EQ(source->asked, asked);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    EXPECT_TRUE(Eventually([&] { return source->asked > asked; }));
}

TEST_F(NotificationThreadTest, WhoKnowsOfAChangeHasTheSourcesAsked)
{
    const std::shared_ptr<CountingSource> source = Advise();
    const std::shared_ptr<CountingSource> witness = AdviseElsewhere();
    AwaitRounds(*witness);
    const int asked = source->asked;
    ComPtr<IChangesOfOthers> changes;
    ASSERT_EQ(mailbox.Store().QueryInterface(IID_IChangesOfOthers, changes.PutVoid()), S_OK);

    EXPECT_EQ(changes->LookForChanges(), S_OK);

    EXPECT_TRUE(Eventually([&] { return source->asked > asked; }));
}

TEST_F(NotificationThreadTest, AStoreOfWhichAQuestionFailedIsAskedOnceMore)
{
    const std::shared_ptr<CountingSource> source = Advise();
    ASSERT_TRUE(Eventually([&] { return source->asked > 0; }));
    source->FailBeforeAnEvent(2);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    EXPECT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(source->failures, 0);
}

TEST_F(NotificationThreadTest, AStoreIsAskedUntilNothingIsLeft)
{
    const std::shared_ptr<CountingSource> source = Advise();
    ASSERT_TRUE(Eventually([&] { return source->asked > 0; }));
    source->events = 1;
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    ASSERT_TRUE(sink->WaitForCount(1));
    const int asked = source->asked;

    EXPECT_TRUE(Eventually([&] { return source->asked > asked; }));
}

TEST_F(NotificationThreadTest, ASubscriptionAfterAChangeThatWasServedIsAsked)
{
    const std::shared_ptr<CountingSource> first = Advise();
    const std::shared_ptr<CountingSource> witness = AdviseElsewhere();
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    ASSERT_TRUE(Eventually([&] { return first->asked > 0; }));
    AwaitRounds(*witness);

    const std::shared_ptr<CountingSource> second = Advise();

    EXPECT_TRUE(Eventually([&] { return second->asked > 0; }));
}

class NotificationTest : public ::testing::Test {
protected:
    ComPtr<CTestSink> AdviseTable(IMAPITable& table, ULONG* connection = nullptr)
    {
        ComPtr<CTestSink> sink = MakeComObject<CTestSink>();
        ULONG made = 0;
        EXPECT_EQ(table.Advise(fnevTableModified, sink.Get(), &made), S_OK);
        EXPECT_NE(made, 0u);
        if (connection)
            *connection = made;
        return sink;
    }

    TestMailbox mailbox;
};

TEST_F(NotificationTest, ANewMessageIsARowAddedWithTheTablesColumns)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> sink = AdviseTable(*table);

    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    ASSERT_TRUE(sink->WaitForCount(1));
    const Event event = sink->Events()[0];
    EXPECT_EQ(event.tableEvent, static_cast<ULONG>(TABLE_ROW_ADDED));
    EXPECT_EQ(event.entryId, id);
    EXPECT_GE(event.columns, 5u);
    EXPECT_EQ(event.key.size(), 8u);
}

TEST_F(NotificationTest, ASavedChangeIsARowModified)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> sink = AdviseTable(*table);

    mailbox.ChangeSubject(id, OLESTR("Other"));

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_ROW_MODIFIED));
    EXPECT_EQ(sink->Events()[0].entryId, id);
}

TEST_F(NotificationTest, AChangeOfTheReadStateIsARowModified)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> sink = AdviseTable(*table);

    ASSERT_EQ(mailbox.Inbox().SetReadFlags(nullptr, 0, nullptr, 0), S_OK);

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_ROW_MODIFIED));
    EXPECT_EQ(sink->Events()[0].entryId, id);
}

TEST_F(NotificationTest, ADeletedMessageIsARowDeletedUnderItsInstanceKey)
{
    const BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    RowSet rows;
    ASSERT_EQ(table->QueryRows(1, TBL_NOADVANCE, rows.Put()), S_OK);
    const ComPtr<CTestSink> sink = AdviseTable(*table);

    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), S_OK);

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_ROW_DELETED));
    EXPECT_EQ(sink->Events()[0].key, BinaryOf(rows[0], PR_INSTANCE_KEY));
}

TEST_F(NotificationTest, AMoveIsADeletionHereAndAnAdditionThere)
{
    const ComPtr<IMAPIFolder> other = mailbox.MakeFolder(mailbox.Inbox(), "Other");
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const ComPtr<IMAPITable> here = ContentsOf(mailbox.Inbox());
    const ComPtr<IMAPITable> there = ContentsOf(*other);
    const ComPtr<CTestSink> hereSink = AdviseTable(*here);
    const ComPtr<CTestSink> thereSink = AdviseTable(*there);
    SBinary one{static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list{1, &one};

    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, other.Get(), 0, nullptr, MESSAGE_MOVE), S_OK);

    ASSERT_TRUE(hereSink->WaitForCount(1));
    ASSERT_TRUE(thereSink->WaitForCount(1));
    EXPECT_EQ(hereSink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_ROW_DELETED));
    EXPECT_EQ(thereSink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_ROW_ADDED));
    EXPECT_EQ(thereSink->Events()[0].entryId, id);
}

TEST_F(NotificationTest, AFloodOfChangesIsOneTableChanged)
{
    std::vector<SBinary> binaries;
    std::vector<BinaryValue> ids;
    for (std::size_t i = 0; i <= kMostRowEvents; ++i)
        ids.push_back(mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"), MAPI_DEFERRED_ERRORS));
    for (BinaryValue& id : ids)
        binaries.push_back({static_cast<ULONG>(id.size()), id.data()});
    ENTRYLIST list{static_cast<ULONG>(binaries.size()), binaries.data()};
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> sink = AdviseTable(*table);
    ComPtr<IStoreTestSwitches> switches;
    ASSERT_EQ(
        mailbox.Store().OpenProperty(kPrTestSwitches, &IID_IStoreTestSwitches, 0, 0, switches.PutUnknown()),
        S_OK);

    // A slow machine deletes them in steps, between which others would be told.
    ASSERT_EQ(switches->HoldNotifications(TRUE), S_OK);
    ASSERT_EQ(mailbox.Inbox().DeleteMessages(&list, 0, nullptr, 0), S_OK);
    ASSERT_EQ(switches->HoldNotifications(FALSE), S_OK);

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events().size(), 1u);
    EXPECT_EQ(sink->Events()[0].tableEvent, static_cast<ULONG>(TABLE_CHANGED));
}

TEST_F(NotificationTest, ARowThatComesAndGoesBetweenTwoCallsIsNotTold)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    std::mutex blocked;
    std::atomic<int> calls{0};
    const auto blocking = MakeComObject<CActingSink>([&] {
        ++calls;
        const std::lock_guard wait(blocked);
    });
    ULONG connection = 0;
    ASSERT_EQ(mailbox.Store().Advise(0, nullptr, fnevObjectCreated, blocking.Get(), &connection), S_OK);
    std::unique_lock hold(blocked);
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("First"));
    while (calls == 0)
        std::this_thread::yield();
    // The thread stands still: what comes now gathers.
    const ComPtr<CTestSink> sink = AdviseTable(*table);
    const BinaryValue gone = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Gone"));
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), gone), S_OK);
    const BinaryValue stays = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Stays"));
    hold.unlock();

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].entryId, stays);
    EXPECT_EQ(mailbox.Store().Unadvise(connection), S_OK);
}

TEST_F(NotificationTest, NoCallComesAfterUnadvise)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    ULONG connection = 0;
    const ComPtr<CTestSink> ended = AdviseTable(*table, &connection);
    ASSERT_EQ(table->Unadvise(connection), S_OK);
    const ComPtr<CTestSink> witness = AdviseTable(*table);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    ASSERT_TRUE(witness->WaitForCount(1));
    EXPECT_EQ(ended->Calls(), 0u);
    EXPECT_EQ(table->Unadvise(connection), MAPI_E_INVALID_PARAMETER);
}

TEST_F(NotificationTest, UnadviseWaitsForTheCallThatGoesOn)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    std::promise<void> entered, go;
    const auto sink = MakeComObject<CActingSink>([&] {
        entered.set_value();
        go.get_future().wait();
    });
    ULONG connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    entered.get_future().wait();

    auto ended = std::async(std::launch::async, [&] { return table->Unadvise(connection); });
    EXPECT_EQ(ended.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    go.set_value();

    EXPECT_EQ(ended.get(), S_OK);
}

TEST_F(NotificationTest, ASinkMayEndItsOwnSubscription)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    std::atomic<ULONG> connection{0};
    std::atomic<HRESULT> result{E_UNEXPECTED};
    const auto sink = MakeComObject<CActingSink>([&] { result = table->Unadvise(connection); });
    ULONG made = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &made), S_OK);
    connection = made;
    const ComPtr<CTestSink> witness = AdviseTable(*table);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    ASSERT_TRUE(witness->WaitForCount(1));
    EXPECT_EQ(result, S_OK);
}

TEST_F(NotificationTest, ASinkMayBlockUntilAnotherThreadHasUsedTheStore)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    std::atomic<bool> done{false};
    const auto sink = MakeComObject<CActingSink>([&] {
        std::thread worker([&] {
            ULONG count = 0;
            EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
            mailbox.AddMessage(mailbox.Inbox(), OLESTR("From a sink"));
        });
        worker.join();
        done = true;
    });
    ULONG connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    const ComPtr<CTestSink> witness = AdviseTable(*table);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    ASSERT_TRUE(witness->WaitForCount(2));
    EXPECT_TRUE(done);
    EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(NotificationTest, ATableThatIsReleasedTakesItsSubscriptionsAlong)
{
    ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> sink = AdviseTable(*table);
    table.Reset();
    const ComPtr<IMAPITable> other = ContentsOf(mailbox.Inbox());
    const ComPtr<CTestSink> witness = AdviseTable(*other);

    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    ASSERT_TRUE(witness->WaitForCount(1));
    EXPECT_EQ(sink->Calls(), 0u);
}

TEST_F(NotificationTest, TheStoreTellsWhatHappensToItsObjects)
{
    const auto sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    constexpr ULONG mask =
        fnevObjectCreated | fnevObjectDeleted | fnevObjectModified | fnevObjectMoved | fnevObjectCopied;
    ASSERT_EQ(mailbox.Store().Advise(0, nullptr, mask, sink.Get(), &connection), S_OK);
    const ComPtr<IMAPIFolder> other = mailbox.MakeFolder(mailbox.Inbox(), "Other");
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    SBinary one{static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list{1, &one};
    mailbox.ChangeSubject(id, OLESTR("Other"));
    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, other.Get(), 0, nullptr, 0), S_OK);
    ASSERT_EQ(mailbox.Inbox().CopyMessages(&list, nullptr, other.Get(), 0, nullptr, MESSAGE_MOVE), S_OK);
    ASSERT_EQ(TestMailbox::Delete(*other, id), S_OK);

    ASSERT_TRUE(sink->WaitForCount(6));
    const std::vector<Event> events = sink->Events();
    std::vector<ULONG> types;
    for (const Event& event : events)
        types.push_back(event.type);
    EXPECT_EQ(types, (std::vector<ULONG>{fnevObjectCreated, fnevObjectCreated, fnevObjectModified,
                                         fnevObjectCopied, fnevObjectMoved, fnevObjectDeleted}));
    EXPECT_EQ(events[0].key, BinaryOf(*other, PR_ENTRYID));
    EXPECT_EQ(events[4].key, id);
    EXPECT_EQ(events[4].parent, BinaryOf(*other, PR_ENTRYID));
    EXPECT_EQ(events[4].oldParent, BinaryOf(mailbox.Inbox(), PR_ENTRYID));
    EXPECT_EQ(mailbox.Store().Unadvise(connection), S_OK);
}

TEST_F(NotificationTest, ASubscriptionToOneObjectHearsOfNoOther)
{
    const BinaryValue other = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Other"));
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const auto sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    ASSERT_EQ(mailbox.Store().Advise(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                     fnevObjectModified, sink.Get(), &connection),
              S_OK);

    mailbox.ChangeSubject(other, OLESTR("1"));
    mailbox.ChangeSubject(id, OLESTR("2"));

    ASSERT_TRUE(sink->WaitForCount(1));
    EXPECT_EQ(sink->Events()[0].key, id);
}

TEST_F(NotificationTest, ASubscriptionToOneObjectHearsOfItBehindManyChangesOfOthers)
{
    constexpr int kMoreThanOneRead = 300;
    ComPtr<IStoreTestSwitches> switches;
    ASSERT_EQ(
        mailbox.Store().OpenProperty(kPrTestSwitches, &IID_IStoreTestSwitches, 0, 0, switches.PutUnknown()),
        S_OK);
    BinaryValue id = mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
    const auto sink = MakeComObject<CTestSink>();
    ULONG connection = 0;
    ASSERT_EQ(mailbox.Store().Advise(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                     fnevObjectModified, sink.Get(), &connection),
              S_OK);
    ASSERT_EQ(switches->HoldNotifications(TRUE), S_OK);
    for (int i = 0; i < kMoreThanOneRead; ++i)
        mailbox.AddMessage(mailbox.Inbox(), OLESTR("Other"), MAPI_DEFERRED_ERRORS);
    mailbox.ChangeSubject(id, OLESTR("2"));
    ULONG told = 0;
    ASSERT_EQ(switches->Deliver(0, &told), S_OK);

    EXPECT_EQ(told, 1u);
    ASSERT_EQ(sink->Events().size(), 1u);
    EXPECT_EQ(sink->Events()[0].key, id);
}

TEST_F(NotificationTest, AfterLogoffNothingIsToldAndNothingCanBeSubscribedTo)
{
    const ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
    ULONG connection = 0;
    const ComPtr<CTestSink> sink = AdviseTable(*table, &connection);

    ASSERT_EQ(mailbox.Session().Logoff(0, 0, 0), S_OK);
    mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));

    EXPECT_EQ(table->Unadvise(connection), S_OK);
    EXPECT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), MAPI_E_END_OF_SESSION);
    EXPECT_EQ(sink->Calls(), 0u);
}

TEST_F(NotificationTest, ASessionMayEndWithinACallOfItsSink)
{
    std::atomic<bool> ended{false};
    {
        ComPtr<IMAPITable> table = ContentsOf(mailbox.Inbox());
        const auto sink = MakeComObject<CActingSink>([&mailbox = mailbox, &ended] {
            (void)mailbox.Session().Logoff(0, 0, 0);
            ended = true;
        });
        ULONG connection = 0;
        ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
        mailbox.AddMessage(mailbox.Inbox(), OLESTR("Hello"));
        while (!ended)
            std::this_thread::yield();
    }
    mailbox.LogOff();
}

}  // namespace
}  // namespace quorvane
