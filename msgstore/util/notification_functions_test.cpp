#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "msgstore/util/memory.h"
#include "platform/com/com_object.h"

namespace quorvane {
namespace {

// A table notification with a key before, a key after and a row of two values.
class NotificationTest : public ::testing::Test {
protected:
    NotificationTest()
    {
        row_[0].ulPropTag = PR_ENTRYID;
        row_[0].Value.bin = SBinary{4, id_};
        row_[1].ulPropTag = PR_SUBJECT_W;
        row_[1].Value.lpszW = subject_;
        table_.ulEventType = fnevTableModified;
        table_.info.tab.ulTableEvent = TABLE_ROW_ADDED;
        table_.info.tab.propIndex.ulPropTag = PR_INSTANCE_KEY;
        table_.info.tab.propIndex.Value.bin = SBinary{2, key_};
        table_.info.tab.propPrior.ulPropTag = PR_NULL;
        table_.info.tab.row = SRow{0, 2, row_};
    }

    BYTE id_[4] = {1, 2, 3, 4};
    BYTE key_[2] = {8, 9};
    WCHAR subject_[6] = OLESTR("hello");
    SPropValue row_[2] = {};
    NOTIFICATION table_{};
};

TEST_F(NotificationTest, ACopyIsOneBlockOfTheCountedSize)
{
    NOTIFICATION pair[2] = {table_, table_};
    ULONG size = 0;
    ULONG copied = 0;
    ASSERT_EQ(ScCountNotifications(2, pair, &size), S_OK);
    std::vector<BYTE> block(size);
    ASSERT_EQ(ScCopyNotifications(2, pair, block.data(), &copied), S_OK);
    EXPECT_EQ(copied, size);
    std::memset(id_, 0, sizeof(id_));
    std::memset(key_, 0, sizeof(key_));
    subject_[0] = OLESTR('x');
    const auto* const copy = reinterpret_cast<const NOTIFICATION*>(block.data());
    EXPECT_EQ(copy[1].info.tab.propIndex.Value.bin.lpb[1], 9);
    EXPECT_EQ(copy[1].info.tab.row.lpProps[0].Value.bin.lpb[3], 4);
    EXPECT_EQ(OleString(copy[0].info.tab.row.lpProps[1].Value.lpszW), OLESTR("hello"));
}

TEST_F(NotificationTest, AnObjectNotificationKeepsItsIdentifiers)
{
    NOTIFICATION moved{};
    moved.ulEventType = fnevObjectMoved;
    moved.info.obj.cbEntryID = 4;
    moved.info.obj.lpEntryID = reinterpret_cast<LPENTRYID>(id_);
    moved.info.obj.cbOldParentID = 2;
    moved.info.obj.lpOldParentID = reinterpret_cast<LPENTRYID>(key_);
    ULONG size = 0;
    ASSERT_EQ(ScCountNotifications(1, &moved, &size), S_OK);
    std::vector<BYTE> block(size);
    ASSERT_EQ(ScCopyNotifications(1, &moved, block.data(), nullptr), S_OK);
    const auto* const copy = reinterpret_cast<const NOTIFICATION*>(block.data());
    EXPECT_EQ(std::memcmp(copy->info.obj.lpEntryID, id_, 4), 0);
    EXPECT_EQ(copy->info.obj.lpParentID, nullptr);
    EXPECT_EQ(std::memcmp(copy->info.obj.lpOldParentID, key_, 2), 0);
}

TEST_F(NotificationTest, AnUnknownEventIsRefused)
{
    NOTIFICATION odd{};
    odd.ulEventType = 3;
    ULONG size = 0;
    EXPECT_EQ(ScCountNotifications(1, &odd, &size), MAPI_E_INVALID_PARAMETER);
}

class CCountingSink final : public ComObject<CCountingSink, IMAPIAdviseSink> {
public:
    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        total += count;
        subject = notifications->info.tab.row.lpProps[1].Value.lpszW;
        thread = std::this_thread::get_id();
        return 0;
    }
    std::atomic<ULONG> total{0};
    OleString subject;
    std::thread::id thread;
};

TEST_F(NotificationTest, AThreadSinkIsCalledAtOnceOnItsOwnThread)
{
    auto sink = MakeComObject<CCountingSink>();
    ComPtr<IMAPIAdviseSink> wrapped;
    ASSERT_EQ(HrThisThreadAdviseSink(sink.Get(), wrapped.Put()), S_OK);
    wrapped->OnNotify(1, &table_);
    EXPECT_EQ(sink->total, 1u);
}

TEST_F(NotificationTest, AThreadSinkWaitsForItsThreadToDispatch)
{
    auto sink = MakeComObject<CCountingSink>();
    ComPtr<IMAPIAdviseSink> wrapped;
    ASSERT_EQ(HrThisThreadAdviseSink(sink.Get(), wrapped.Put()), S_OK);
    std::thread([&] { wrapped->OnNotify(1, &table_); }).join();
    subject_[0] = OLESTR('x');
    EXPECT_EQ(sink->total, 0u);
    ASSERT_EQ(HrDispatchNotifications(0), S_OK);
    EXPECT_EQ(sink->total, 1u);
    EXPECT_EQ(sink->subject, OLESTR("hello"));
    EXPECT_EQ(sink->thread, std::this_thread::get_id());
}

}  // namespace
}  // namespace quorvane
