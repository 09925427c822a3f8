#include "msgstore/store/object_events.h"

#include <gtest/gtest.h>

#include <future>
#include <set>

#include "msgstore/store/change_log.h"
#include "msgstore/store/test_mailbox.h"

namespace quorvane {
namespace {

using namespace quorvane::testing;
using Event = CTestSink::Event;

constexpr ULONG kEverything =
    fnevObjectCreated | fnevObjectDeleted | fnevObjectModified | fnevObjectMoved | fnevObjectCopied;
constexpr std::size_t kFlood = 30000;
constexpr std::size_t kSeen = 300;

// Keeps which messages there are by what it is told. Once it knows of so many it doesn't return until it is
// let go.
class CPictureSink final : public ComObject<CPictureSink, IMAPIAdviseSink> {
public:
    explicit CPictureSink(std::size_t stopsAt) : m_stopsAt(stopsAt) {}

    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        std::unique_lock lock(m_lock);
        for (ULONG i = 0; i < count; ++i)
            Hear(notifications[i]);
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_picture.size() < m_stopsAt || m_free; });
        return S_OK;
    }

    void LetGo()
    {
        const std::lock_guard lock(m_lock);
        m_free = true;
        m_changed.notify_all();
    }
    template <class Condition>
    bool WaitFor(Condition condition)
    {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return condition(m_picture); });
    }
    std::set<BinaryValue> Picture()
    {
        const std::lock_guard lock(m_lock);
        return m_picture;
    }
    std::size_t Heard()
    {
        const std::lock_guard lock(m_lock);
        return m_heard;
    }

private:
    void Hear(const NOTIFICATION& notification)
    {
        const OBJECT_NOTIFICATION& object = notification.info.obj;
        const auto* const id = reinterpret_cast<const BYTE*>(object.lpEntryID);
        const BinaryValue key(id, id + object.cbEntryID);
        ++m_heard;
        if (notification.ulEventType == fnevObjectCreated)
            m_picture.insert(key);
        else if (notification.ulEventType == fnevObjectDeleted)
            m_picture.erase(key);
    }

    const std::size_t m_stopsAt;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::set<BinaryValue> m_picture;
    std::size_t m_heard = 0;
    bool m_free = false;
};

class ObjectEventsTest : public ::testing::Test {
protected:
    ComPtr<CPictureSink> Advise(std::size_t stopsAt)
    {
        ComPtr<CPictureSink> sink = MakeComObject<CPictureSink>(stopsAt);
        ULONG connection = 0;
        EXPECT_EQ(mailbox.Store().Advise(0, nullptr, kEverything, sink.Get(), &connection), S_OK);
        return sink;
    }
    BinaryValue Add(IMAPIFolder& folder)
    {
        return mailbox.AddMessage(folder, OLESTR("Hello"), MAPI_DEFERRED_ERRORS);
    }
    std::set<BinaryValue> AddMany(std::size_t count)
    {
        std::set<BinaryValue> ids;
        while (ids.size() < count)
            ids.insert(Add(mailbox.Inbox()));
        return ids;
    }

    TestMailbox mailbox;
};

TEST_F(ObjectEventsTest, AFloodOfSavesIsToldToTheLastOne)
{
    const ComPtr<CPictureSink> sink = Advise(SIZE_MAX);

    const std::set<BinaryValue> ids = AddMany(kFlood);

    EXPECT_TRUE(sink->WaitFor([&](const auto& picture) { return picture.size() == ids.size(); }));
    EXPECT_EQ(sink->Picture(), ids);
    EXPECT_EQ(sink->Heard(), kFlood);
}

TEST_F(ObjectEventsTest, ASlowSinkStillHearsEverything)
{
    const ComPtr<CPictureSink> sink = Advise(kSeen);
    const std::set<BinaryValue> gone = AddMany(kSeen);
    ASSERT_TRUE(sink->WaitFor([](const auto& picture) { return picture.size() >= kSeen; }));

    // The sink stands still, and the log keeps less than what comes now.
    for (const BinaryValue& id : gone)
        EXPECT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), S_OK);
    const std::set<BinaryValue> ids = AddMany(kFlood - kSeen);
    sink->LetGo();

    EXPECT_TRUE(sink->WaitFor([&](const auto& picture) { return picture == ids; }));
    EXPECT_EQ(sink->Heard(), kFlood + kSeen);
}

// What a source has to tell, as pairs of event and identifier.
std::vector<std::pair<ULONG, BinaryValue>> CollectAll(EventSource& source)
{
    std::vector<std::pair<ULONG, BinaryValue>> all;
    HRESULT hr = S_FALSE;
    while (hr == S_FALSE) {
        NotificationBatch batch;
        hr = source.Collect(batch);
        EXPECT_TRUE(SUCCEEDED(hr));
        for (ULONG i = 0; i < batch.size(); ++i) {
            const NOTIFICATION& told = batch.Get()[i];
            const auto* const id = reinterpret_cast<const BYTE*>(told.info.obj.lpEntryID);
            all.emplace_back(told.ulEventType, BinaryValue(id, id + told.info.obj.cbEntryID));
        }
    }
    return all;
}

TEST_F(ObjectEventsTest, WhoMissedWhatTheLogDroppedIsToldOfAllThatIsThere)
{
    constexpr std::int64_t kMore = kKeptChanges + 2000;
    const BinaryValue old = Add(mailbox.Inbox());
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);
    std::shared_ptr<EventSource> source;
    ASSERT_EQ(MakeObjectEvents(core, std::nullopt, kEverything, source), S_OK);

    const BinaryValue added = Add(mailbox.Inbox());
    ASSERT_EQ(core->Write(Durability::Deferred,
                          [&](SqliteConnection& connection) -> HRESULT {
                              for (std::int64_t i = 0; i < kMore; ++i)
                                  QV_RETURN_IF_FAILED(AppendChange(connection, Change()));
                              return S_OK;
                          }),
              S_OK);

    const auto told = CollectAll(*source);
    constexpr std::size_t kFolders = 6;
    ASSERT_EQ(told.size(), kFolders + 2);
    EXPECT_EQ(told[0].first, static_cast<ULONG>(fnevObjectModified));
    EXPECT_EQ(told[kFolders], (std::pair<ULONG, BinaryValue>(fnevObjectModified, old)));
    EXPECT_EQ(told[kFolders + 1], (std::pair<ULONG, BinaryValue>(fnevObjectCreated, added)));
    EXPECT_TRUE(CollectAll(*source).empty());
}

TEST_F(ObjectEventsTest, WhatWasGatheredIsToldWhateverTheLogDrops)
{
    const BinaryValue id = Add(mailbox.Inbox());
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);
    std::shared_ptr<EventSource> source;
    ASSERT_EQ(MakeObjectEvents(core, std::nullopt, fnevObjectDeleted, source), S_OK);
    ASSERT_EQ(TestMailbox::Delete(mailbox.Inbox(), id), S_OK);

    ASSERT_EQ(source->Gather(), S_OK);
    ASSERT_EQ(core->Write(Durability::Deferred,
                          [](SqliteConnection& connection) {
                              return connection.Run("DELETE FROM change WHERE event=?",
                                                    std::int64_t{fnevObjectDeleted});
                          }),
              S_OK);

    EXPECT_EQ(CollectAll(*source), (std::vector<std::pair<ULONG, BinaryValue>>{{fnevObjectDeleted, id}}));
}

TEST_F(ObjectEventsTest, AFailureCostsNothingThatWasToBeToldBeforeItOrAfter)
{
    std::shared_ptr<StoreCore> core;
    ASSERT_EQ(StoreCore::Open(mailbox.StorePath(), false, core), S_OK);
    std::shared_ptr<EventSource> source;
    ASSERT_EQ(MakeObjectEvents(core, std::nullopt, kEverything, source), S_OK);
    const auto run = [&](const char* sql) {
        return core->Write(Durability::Deferred,
                           [&](SqliteConnection& connection) { return connection.Run(sql); });
    };
    Change parentless;
    parentless.kind = MAPI_FOLDER;
    parentless.event = fnevObjectModified;
    ASSERT_EQ(core->Write(Durability::Deferred,
                          [&](SqliteConnection& connection) { return AppendChange(connection, parentless); }),
              S_OK);
    const BinaryValue added = Add(mailbox.Inbox());

    ASSERT_EQ(run("ALTER TABLE folder RENAME TO away"), S_OK);
    NotificationBatch first;
    EXPECT_EQ(source->Collect(first), S_FALSE);
    EXPECT_EQ(first.size(), 1U);
    NotificationBatch second;
    EXPECT_TRUE(FAILED(source->Collect(second)));
    ASSERT_EQ(run("ALTER TABLE away RENAME TO folder"), S_OK);
    EXPECT_EQ(CollectAll(*source), (std::vector<std::pair<ULONG, BinaryValue>>{{fnevObjectCreated, added}}));
}

}  // namespace
}  // namespace quorvane
