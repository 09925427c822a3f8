// Items sent and received with memory that runs short at each allocation in turn, and with each call of the
// store failing: afterwards the receiver has the old item or the new one, whole.
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/items/arguments.h"
#include "engine/items/testing/failing_mailbox.h"
#include "engine/items/testing/submit_test.h"
#include "engine/session/testing/failing_memory.h"
#include "engine/transfer/storage_files.h"
#include "engine/transfer/storage_processor.h"

namespace quorvane {
namespace {

using testing::FailingCall;
using testing::kNewMail;
using testing::kOldMail;
using testing::MakeDetachedMessage;
using testing::TestMailbox;

// Far more than there are; a loop that comes here doesn't end by itself.
constexpr long kTooMany = 100000;

class SendMemoryTest : public testing::SubmitTest {
protected:
    SendMemoryTest()
    {
        EXPECT_EQ(stop.Create(false), S_OK);
        test::KeepTemporaryFilesIn(packages.Path());
        session.storageFiles = ComPtr<IStorageFiles>(files.Get());
        Prepare(true);
    }

    // Whether there were so many allocations.
    template <class Work>
    static bool FailAllocation(long number, Work work)
    {
        const testing::FailingAllocation failure(number);
        work();
        return failure.HasCome();
    }

    // Has the package taken apart, and removes it.
    DWORD Receive()
    {
        Variant value;
        ComPtr<IStorageFile> file;
        Bstr path;
        if (FAILED(files->get_Item(TextArgument(recipients.Get()), value.Put())) ||
            FAILED(QueryFor(value.Raw().pdispVal, file)) || FAILED(file->get_Path(path.Put())))
            return 0;
        CStorageProcessor processor(Bstr(path), Bstr(OLESTR("tag")), &session);
        const DWORD undone = processor.ThreadProc(stop);
        EXPECT_EQ(files->Remove(TextArgument(recipients.Get())), S_OK);
        return undone;
    }

    void ExpectOldOrNew(bool isNew)
    {
        ExpectOnly(isNew ? kNewMail : kOldMail);
        if (isNew)
            Prepare(true);
    }
    const test::TestDirectory packages;
    const Bstr recipients{OLESTR("us")};
    ComPtr<CStorageFiles> files = MakeComObject<CStorageFiles>(&session);
    Event stop;
};

TEST_F(SendMemoryTest, AnItemThatMemoryRunsShortForArrivesWholeOrNotAtAll)
{
    bool failed = true;
    for (long number = 0; failed && !HasFailure(); ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        ASSERT_LT(number, kTooMany);
        const ComPtr<CItem> item = MakeItem(OLESTR("{A}"), *MakeDetachedMessage(kNewMail));
        HRESULT hr = E_FAIL;
        failed = FailAllocation(number, [&] { hr = item->Send(recipients.Get()); });
        const DWORD undone = Receive();
        // A message that couldn't be copied is found out by who receives it.
        ExpectOldOrNew(SUCCEEDED(hr) && undone == 0);
        if (!failed) {
            EXPECT_EQ(hr, S_OK);
            EXPECT_EQ(undone, 0u);
            EXPECT_GT(number, 100);
        }
    }
}

TEST_F(SendMemoryTest, AMessageOfAStoreThatFailsArrivesWholeOrNotAtAll)
{
    const auto call = std::make_shared<FailingCall>();
    const ComPtr<IMessage> real = mailbox.AddMessage(*mailbox.MakeFolder("Sent"), kNewMail);
    const Bstr entryId = TestMailbox::IdOf(*real);
    session.mapiSession = testing::MakeFailingSession(mailbox.Session(), call);
    for (unsigned at = 1;; ++at) {
        call->SetAt(at);
        const ComPtr<CItem> item = MakeItem(OLESTR("{A}"));
        item->m_bstrEntryID = entryId;
        item->m_bstrStoreID = mailbox.StoreId();
        ComPtr<IUnknown> raw;
        HRESULT hr = item->get_Raw(raw.Put());
        if (SUCCEEDED(hr))
            hr = item->Send(recipients.Get());
        call->Clear();
        SCOPED_TRACE("call " + std::to_string(at) + ", " + call->Failed());
        const DWORD undone = Receive();
        ExpectOldOrNew(SUCCEEDED(hr) && undone == 0);
        if (HasFailure() || call->Failed().empty()) {
            EXPECT_EQ(hr, S_OK);
            EXPECT_EQ(undone, 0u);
            EXPECT_GT(at, 2u);
            return;
        }
    }
}

}  // namespace
}  // namespace quorvane
