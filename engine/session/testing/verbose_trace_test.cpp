// What a build with the verbose trace points writes while it works.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/items/item.h"
#include "engine/items/testing/noting_packages.h"
#include "engine/items/testing/test_mailbox.h"
#include "engine/monitor/event_classifier.h"
#include "engine/monitor/notification_worker.h"
#include "engine/monitor/test_doubles.h"
#include "engine/persist/hash_db.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "engine/session/trace/verbose_trace.h"
#include "engine/storeaccess/hex.h"
#include "engine/transfer/storage_processor.h"
#include "platform/cfb/stg.h"

namespace quorvane::testing {
namespace {

using ::testing::HasSubstr;

static_assert(kVerboseTrace, "this program is compiled with the trace points");

// One "%s" or "%u" after the other filled in, as it stands in the log.
std::string Line(const std::string& function, const std::string& message)
{
    return function + "(%) " + message + "\r\n";
}

// The log with the numbers of source lines taken out.
std::string WithoutPlaces(const std::string& log)
{
    std::string text;
    for (size_t i = 0; i < log.size(); ++i) {
        text += log[i];
        if (log[i] != '(')
            continue;
        size_t end = i + 1;
        while (end < log.size() && std::isdigit(static_cast<unsigned char>(log[end])))
            ++end;
        if (end > i + 1 && end < log.size() && log[end] == ')') {
            text += '%';
            i = end - 1;
        }
    }
    return text;
}

class VerboseTraceTest : public ::testing::Test {
protected:
    VerboseTraceTest()
    {
        session.mapiSession = mailbox.Session();
        session.folders = ComPtr<IFolders>(folders.Get());
        session.storageFiles = ComPtr<IStorageFiles>(packages.Get());
    }
    Bstr AddKnown()
    {
        const ComPtr<IMessage> message = mailbox.AddMessage(*shared.Get(), {"Hello", "body", {}, {}});
        const auto item = MakeComObject<CItem>(&session);
        item->m_bstrID = Bstr(OLESTR("{A}"));
        EXPECT_EQ(item->put_Raw(message.Get()), S_OK);
        EXPECT_EQ(item->DBAppend(), S_OK);
        return TestMailbox::IdOf(*message);
    }
    template <class Work>
    static std::string Traced(Work work)
    {
        return WithoutPlaces(TracedLines(work));
    }

    TestMailbox mailbox;
    MonitorSession session;
    const ComPtr<SharedFolders> folders = MakeComObject<SharedFolders>();
    const ComPtr<NotingPackages> packages = MakeComObject<NotingPackages>();
    const ComPtr<IMAPIFolder> shared = mailbox.MakeFolder("Shared");
    const ComPtr<IMAPIFolder> other = mailbox.MakeFolder("Other");
    SharedFolder& folder = folders->Share(OLESTR("{F}"), TestMailbox::IdOf(*shared), mailbox.StoreId());
};

TEST_F(VerboseTraceTest, TheWorkerTellsEachItemAndEachMove)
{
    const Bstr id = AddKnown();
    const auto sink = MakeComObject<CAdviseSink>();
    sink->SetSession(&session);
    sink->m_bstrEntryID = TestMailbox::IdOf(*shared);
    sink->m_bstrStoreID = mailbox.StoreId();
    sink->m_bstrFolderID = Bstr(OLESTR("{F}"));
    CHashDB hashes(OLESTR("F"));
    ScanResult found;
    ASSERT_EQ(found.AddChanged(id.View(), OLESTR("hash"), 1, false), S_OK);
    ASSERT_EQ(found.deleted.Append(id.View()), S_OK);
    const std::string lines = Traced(
        [&] { EXPECT_EQ(NotificationWorker(*sink.Get(), hashes, TABLE_ROW_ADDED).Process(found), S_OK); });

    const std::string key = Narrow(id.View());
    EXPECT_THAT(lines, HasSubstr(Line("NotifyThreadProc", "Changed 1. Deleted 1\n")));
    EXPECT_THAT(lines, HasSubstr(Line("NotifyThreadProc", "Processing Item: " + key + "\n")));
    EXPECT_THAT(lines,
                HasSubstr(Line("NotifyThreadProc", "Adding Item Exception: " + key + ". old ID:{A}\n")));
    EXPECT_THAT(lines, HasSubstr(Line("NotifyThreadProc", "Processing Item Delete: " + key + "\n")));
    EXPECT_THAT(lines, HasSubstr(Line("NotifyThreadProc", "Item Exception: " + key + ". old ID:{A}\n")));
}

TEST_F(VerboseTraceTest, TheClassifierTellsWhatItFindsOut)
{
    const Bstr id = AddKnown();
    BinaryId message, from, to;
    ASSERT_EQ(BinaryFromHex(id.Get(), message), S_OK);
    ASSERT_EQ(BinaryFromHex(TestMailbox::IdOf(*shared).Get(), from), S_OK);
    ASSERT_EQ(BinaryFromHex(TestMailbox::IdOf(*other).Get(), to), S_OK);
    Addin addin;
    ASSERT_EQ(addin.Connect(session), S_OK);
    const auto told = [&](ULONG event) {
        NOTIFICATION notification{};
        notification.ulEventType = event;
        OBJECT_NOTIFICATION& object = notification.info.obj;
        object = {message.Size(), message.EntryId(), MAPI_MESSAGE, from.Size(), from.EntryId(), 0,
                  nullptr,        to.Size(),         to.EntryId(), nullptr};
        return Traced([&] { EXPECT_EQ(EventClassifier(session, addin).Classify(notification), S_OK); });
    };
    const auto line = [](const std::string& text) { return Line("CMsgStores::OnNotify", text); };
    const std::string sharedId = Narrow(TestMailbox::IdOf(*shared).View());
    const std::string otherId = Narrow(TestMailbox::IdOf(*other).View());

    const std::string moved = told(fnevObjectMoved);
    EXPECT_THAT(moved, HasSubstr(line("EntryID: " + Narrow(id.View()))));
    EXPECT_THAT(moved, HasSubstr(line("fnevObjectMoved")));
    EXPECT_THAT(moved, HasSubstr(line("Old Folder EntryID: " + otherId)));
    EXPECT_THAT(moved, HasSubstr(line("Folder EntryID: " + sharedId)));
    EXPECT_THAT(moved, HasSubstr(line("FolderID: {F}")));
    EXPECT_THAT(told(fnevObjectCreated), HasSubstr(line("fnevObjectCreated")));
    EXPECT_THAT(told(fnevObjectCopied), HasSubstr(line("fnevObjectCopied")));
    EXPECT_THAT(told(fnevObjectModified), HasSubstr(line("fnevObjectModified")));
    std::swap(from, to);
    EXPECT_THAT(told(fnevObjectMoved), HasSubstr(line("OldFolderID: {F}")));
    std::swap(from, to);
    EXPECT_THAT(told(fnevObjectDeleted), HasSubstr(line("fnevObjectDeleted")));
}

TEST_F(VerboseTraceTest, AReceivedFilesJobTellsItsBeginningItsItemsAndItsEnd)
{
    const std::string path = session.directory.File("received.qvt");
    {
        ComPtr<IStorage> root, version, items, element;
        ASSERT_EQ(StgCreateDocfile(Bstr(Widen(path)).Get(), kCreateMode, 0, root.Put()), S_OK);
        ASSERT_EQ(root->CreateStorage(OLESTR("1.0"), kCreateMode, 0, 0, version.Put()), S_OK);
        ASSERT_EQ(version->CreateStorage(OLESTR("Items"), kCreateMode, 0, 0, items.Put()), S_OK);
        ASSERT_EQ(items->CreateStorage(OLESTR("one"), kCreateMode, 0, 0, element.Put()), S_OK);
        const auto item = MakeComObject<CItem>(&session);
        item->m_bstrID = Bstr(OLESTR("{A}"));
        item->m_bstrFolderID = Bstr(OLESTR("{F}"));
        ASSERT_EQ(item->Save(element.Get(), TRUE), S_OK);
    }
    Event stop;
    ASSERT_EQ(stop.Create(false), S_OK);
    CStorageProcessor job(Bstr(Widen(path)), Bstr(OLESTR("tag")), &session);
    const std::string lines = Traced([&] { job.ThreadProc(stop); });

    const std::string rule = Line("CStorageProcessor::ThreadProc", "-------------------------------\n");
    const size_t begin = lines.find(Line("CStorageProcessor::ThreadProc", "Processing new storage file\n"));
    const size_t received = lines.find(Line("CStorageProcessor::DoItems", "Receiving Item: {A}\n"));
    const size_t end = lines.find(Line("CStorageProcessor::ThreadProc", "Processing ended\n"));
    ASSERT_NE(end, std::string::npos) << lines;
    EXPECT_LT(begin, received);
    EXPECT_LT(received, end);
    EXPECT_LT(lines.find(rule), begin);
    EXPECT_NE(lines.find(rule, end), std::string::npos);
}

}  // namespace
}  // namespace quorvane::testing
