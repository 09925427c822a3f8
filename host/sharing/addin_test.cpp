#include "host/sharing/addin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <mutex>

#include "host/sharing/inbox.h"
#include "host/sharing/sender.h"
#include "host/sharing/test_mailbox.h"

namespace quorvane::host {

namespace {

constexpr char kApplied[] = "{APPLIED}";
constexpr char kStray[] = "{STRAY}";
constexpr auto kDeadline = std::chrono::seconds(30);

class AddinTest : public ::testing::Test {
protected:
    // alice's item, applied to the end.
    std::string AddApplied()
    {
        const std::string entryId = here.AddMessage("from alice");
        here.AddRow(kApplied, entryId);
        NoteApplied(entryId);
        return entryId;
    }

    void NoteApplied(const std::string& entryId)
    {
        const std::uint64_t modified = here.ModifiedOf(entryId);
        const ItemRecord record{kApplied, "{F}", {100, "alice"}, false, modified};
        here.records.PutItem(record);
    }

    // An item as the engine reports it when its message has been moved out of the folder.
    ComPtr<IItem> ItemThatLeaves(const std::string& id, const std::string& entryId)
    {
        const ComPtr<IItem> item = here.ItemOf(id);
        ComPtr<IFolder> folder;
        EXPECT_EQ(item->get_Folder(folder.Put()), S_OK);  // the item keeps it
        here.MoveMessage(entryId, *here.folder, *EnsureFolder(here.mail, "Another"));
        return item;
    }

    // As a job of the engine does before it applies alice's item.
    void TellOf(const std::string& id)
    {
        ComPtr<IItem> item;
        Variant stream;
        stream.Raw().parray = SafeArrayCreateVector(VT_UI1, 0, 0);
        stream.Raw().vt = VT_ARRAY | VT_UI1;
        Check(here.engine.FindFolder("{F}")->CreateItem(stream.Raw(), Variant::Text(FromUtf8(id)).Raw(),
                                                        item.Put()),
              "make an item", id);
        Check(item->put_Action(qv_ac_Added), "make an item", id);
        Check(item->put_CustomInfo(BstrOf(R"({"stamp": 100, "member": "alice"})").Get()), "make an item", id);
        bool ignore = false;
        EXPECT_EQ(here.addin.OnItemReceived(item.Get(), BstrOf("alice").Get(), ignore), S_OK);
        EXPECT_FALSE(ignore);
    }

    void TellOfTheEnd(const std::string& entryId)
    {
        EXPECT_EQ(here.addin.OnPostprocess(BstrOf(entryId).Get(), BstrOf(here.share.storeId).Get()), S_OK);
    }

    // Whether the program takes an addition for one that isn't to be sent.
    bool IsIgnored(const std::string& id)
    {
        bool ignore = false;
        EXPECT_EQ(here.addin.OnItemAdded(here.ItemOf(id).Get(), ignore), S_OK);
        return ignore;
    }

    SharedTestMailbox here;
};

TEST_F(AddinTest, AMessageMadeHereIsSentUnderItsRowsId)
{
    const std::string entryId = here.AddMessage("mine");
    here.AddRow("{MINE}", entryId);

    EXPECT_FALSE(IsIgnored("{MINE}"));

    EXPECT_EQ(here.statistics.itemsSent, 1U);
    EXPECT_EQ(here.records.FindItem("{MINE}")->version.member, "bob");
}

TEST_F(AddinTest, ARowThatAScanMadeForAnAppliedMessageIsntSentAndGoes)
{
    here.AddRow(kStray, AddApplied());

    EXPECT_TRUE(IsIgnored(kStray));

    EXPECT_EQ(here.statistics.itemsSent, 0U);
    EXPECT_FALSE(here.state.RowOfId(kStray));
    EXPECT_TRUE(here.state.RowOfId(kApplied));
}

TEST_F(AddinTest, AStrayRowIsToldWhicheverOfTheTwoCameFirst)
{
    const std::string entryId = here.AddMessage("from alice");
    here.AddRow(kStray, entryId);
    here.AddRow(kApplied, entryId);
    NoteApplied(entryId);

    EXPECT_EQ(here.state.RowOfEntry(entryId)->id, kApplied);
    here.state.DropStrayRows();

    EXPECT_EQ(here.Ask("SELECT count(*) FROM tblItem"), 1);
    EXPECT_TRUE(here.state.RowOfId(kApplied));
}

TEST_F(AddinTest, OfTwoRowsThatNobodyKnowsNoneGoes)
{
    const std::string entryId = here.AddMessage("mine");
    here.AddRow("{ONE}", entryId);
    here.AddRow("{TWO}", entryId);

    here.state.DropStrayRows();

    EXPECT_EQ(here.Ask("SELECT count(*) FROM tblItem"), 2);
}

// The engine takes it for a message that was moved here, and gives it a new ID.
TEST_F(AddinTest, AnAppliedMessageThatIsChangedBeforeItsAdditionIsReportedStaysTheSameItem)
{
    const std::string entryId = AddApplied();
    const ComPtr<IMessage> message = OpenMessage(here.mail, entryId, true);
    ASSERT_EQ(SetText(*message, PR_SUBJECT_W, "changed by bob"), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    const ComPtr<IItem> item = here.ItemOf(kApplied);
    ASSERT_EQ(item->put_ID(BstrOf("{NEW}").Get()), S_OK);

    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemAdded(item.Get(), ignore), S_OK);

    EXPECT_FALSE(ignore);
    EXPECT_EQ(ReadText(*item, &IItem::get_ID), kApplied);
    EXPECT_EQ(here.records.FindItem(kApplied)->version.member, "bob");
    EXPECT_FALSE(here.records.FindItem("{NEW}"));
}

TEST_F(AddinTest, AMessageThatWasMovedHereGetsTheNewIdThatTheEngineGivesIt)
{
    const std::string entryId = here.AddMessage("moved");
    here.AddRow("{OLD}", entryId);
    const ItemRecord elsewhere{"{OLD}", "{ANOTHER FOLDER}", {100, "alice"}, false, 1};
    here.records.PutItem(elsewhere);
    const ComPtr<IItem> item = here.ItemOf("{OLD}");
    ASSERT_EQ(item->put_ID(BstrOf("{NEW}").Get()), S_OK);

    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemAdded(item.Get(), ignore), S_OK);

    EXPECT_FALSE(ignore);
    EXPECT_EQ(ReadText(*item, &IItem::get_ID), "{NEW}");
    EXPECT_TRUE(here.records.FindItem("{NEW}"));
}

// Nothing else tells of it once its row has the new ID.
TEST_F(AddinTest, TheItemThatAMovedMessageWasInAnotherSharedFolderIsNotedAsDeletedThere)
{
    here.transport.folders.Found(
        {"{G}", HexOf(*EnsureFolder(here.mail, "Another"), PR_ENTRYID), here.mail.StoreId(), "Another"});
    const std::string entryId = here.AddMessage("moved");
    here.AddRow("{OLD}", entryId);
    here.records.PutItem({"{OLD}", "{G}", {100, "alice"}, false, 1});
    const ComPtr<IItem> item = here.ItemOf("{OLD}");
    ASSERT_EQ(item->put_ID(BstrOf("{NEW}").Get()), S_OK);

    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemAdded(item.Get(), ignore), S_OK);

    const auto old = here.records.FindItem("{OLD}");
    EXPECT_EQ(old->folderId, "{G}");
    EXPECT_TRUE(old->deleted && old->isPending);
    EXPECT_FALSE(here.records.FindItem("{NEW}")->deleted);
}

// The engine reports it as a change while it doesn't know of the move: under the ID of the item that left
// elsewhere.
TEST_F(AddinTest, AMovedMessageThatKeepsItsIdIsLeftToTheComparison)
{
    const std::string entryId = here.AddMessage("moved");
    here.AddRow("{OLD}", entryId);
    here.records.PutItem({"{OLD}", "{ANOTHER FOLDER}", {100, "alice"}, false, 1});

    EXPECT_TRUE(IsIgnored("{OLD}"));

    EXPECT_EQ(here.statistics.itemsSent, 0U);
    EXPECT_EQ(here.records.FindItem("{OLD}")->folderId, "{ANOTHER FOLDER}");
}

// A move leaves the time as it was: nothing but the folder tells.
TEST_F(AddinTest, AMovedMessageThatDidntChangeIsSentAsTheNewItemThatItIs)
{
    const std::string entryId = here.AddMessage("moved");
    here.AddRow("{OLD}", entryId);
    here.records.PutItem({"{OLD}", "{ANOTHER FOLDER}", {100, "alice"}, false, here.ModifiedOf(entryId)});
    const ComPtr<IItem> item = here.ItemOf("{OLD}");
    ASSERT_EQ(item->put_ID(BstrOf("{NEW}").Get()), S_OK);

    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemAdded(item.Get(), ignore), S_OK);

    EXPECT_FALSE(ignore);
    ASSERT_TRUE(here.records.FindItem("{NEW}"));
    EXPECT_EQ(here.records.FindItem("{NEW}")->folderId, "{F}");
}

TEST_F(AddinTest, ADeletionFromAFolderThatAnItemHasLeftForAnotherIsntSentAndCostsItNoRow)
{
    const std::string entryId = here.AddMessage("moved on");
    here.AddRow("{MOVED}", entryId);
    here.records.PutItem({"{MOVED}", "{ANOTHER FOLDER}", {100, "alice"}, false, 1});
    const ComPtr<IItem> item = ItemThatLeaves("{MOVED}", entryId);

    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemDeleted(item.Get(), ignore), S_OK);

    EXPECT_TRUE(ignore);
    EXPECT_NE(ReadText(*item, &IItem::get_ID), "{MOVED}");
    EXPECT_FALSE(here.records.FindItem("{MOVED}")->deleted);
}

// A table that couldn't be read to its end hides messages: the engine takes them for deleted.
TEST_F(AddinTest, ADeletionOfAMessageThatIsStillInItsFolderIsDeclined)
{
    const std::string entryId = AddApplied();
    const ComPtr<IItem> item = here.ItemOf(kApplied);

    bool ignore = false;
    EXPECT_TRUE(FAILED(here.addin.OnItemDeleted(item.Get(), ignore)));
    EXPECT_FALSE(here.records.FindItem(kApplied)->deleted);
    EXPECT_EQ(here.statistics.deletionsSent, 0U);

    here.DeleteMessage(entryId);
    EXPECT_EQ(here.addin.OnItemDeleted(item.Get(), ignore), S_OK);
    EXPECT_FALSE(ignore);
    EXPECT_TRUE(here.records.FindItem(kApplied)->deleted);
}

TEST_F(AddinTest, ADeletionOfAMessageThatWasMovedOutOfAllSharedFoldersIsSent)
{
    const std::string entryId = AddApplied();
    const ComPtr<IItem> item = ItemThatLeaves(kApplied, entryId);

    bool ignore = false;
    EXPECT_EQ(here.addin.OnItemDeleted(item.Get(), ignore), S_OK);
    EXPECT_FALSE(ignore);
    EXPECT_TRUE(here.records.FindItem(kApplied)->deleted);
}

// The scan comes upon the message while the engine is yet to write its row.
TEST_F(AddinTest, AnAdditionIsJudgedAfterTheEndOfTheItemThatIsBeingApplied)
{
    TellOf(kApplied);
    const std::string entryId = here.AddMessage("from alice");
    here.AddRow(kStray, entryId);
    std::promise<void> begun;
    auto ignored = std::async(std::launch::async, [&] {
        begun.set_value();
        return IsIgnored(kStray);
    });
    begun.get_future().wait();

    here.AddRow(kApplied, entryId);
    TellOfTheEnd(entryId);

    ASSERT_EQ(ignored.wait_for(kDeadline), std::future_status::ready);
    EXPECT_TRUE(ignored.get());
    EXPECT_EQ(here.statistics.itemsSent, 0U);
    EXPECT_FALSE(here.state.RowOfId(kStray));
}

TEST_F(AddinTest, AChangeOfAnotherFolderOrOfAKnownItemDoesntWaitForTheItemInHand)
{
    const std::string entryId = AddApplied();
    here.applying.Begin("{ANOTHER}", "{F}");
    EXPECT_TRUE(IsIgnored(kApplied));

    here.applying.Begin("{ANOTHER}", "{ANOTHER FOLDER}");
    here.AddRow("{MINE}", here.AddMessage("mine"));
    EXPECT_FALSE(IsIgnored("{MINE}"));

    EXPECT_EQ(here.applying.InHand().id, "{ANOTHER}");
}

// Nothing is told of the end of an item that fails, but that the engine works nothing off any more.
TEST_F(AddinTest, TheEndOfTheLastPackageIsTheEndOfAnItemThatFailed)
{
    Matcher matcher(here.parts, here.engine);
    Inbox inbox(here.parts, here.engine, matcher, [](const std::string&) {});
    TellOf(kApplied);
    here.AddRow("{MINE}", here.AddMessage("mine"));
    auto ignored = std::async(std::launch::async, [&] { return IsIgnored("{MINE}"); });

    EXPECT_FALSE(inbox.IsBusy());

    ASSERT_EQ(ignored.wait_for(kDeadline), std::future_status::ready);
    EXPECT_FALSE(ignored.get());
    EXPECT_TRUE(here.applying.InHand().id.empty());
}

// What the engine's own threads report, in a folder that it watches.
class WatchedFolderTest : public AddinTest {
protected:
    WatchedFolderTest()
    {
        here.callbacks.afterChange = [this](const std::string& entryId, bool ignored) {
            const std::lock_guard lock(mutex_);
            reports_.emplace_back(entryId, ignored);
            reported_.notify_all();
        };
    }
    ~WatchedFolderTest() { here.Watch(false); }

    // Waits for the report of a message's change, whether the program lets it be sent or not.
    bool AwaitReport(const std::string& entryId, bool ignored, std::chrono::milliseconds time = kDeadline)
    {
        std::unique_lock lock(mutex_);
        return reported_.wait_for(lock, time, [&] {
            return std::find(reports_.begin(), reports_.end(), std::pair(entryId, ignored)) != reports_.end();
        });
    }

    // Waits until the engine is done with all that it has reported so far: one batch comes after the other.
    void AwaitRecords() { EXPECT_TRUE(AwaitReport(here.AddMessage("the last one"), false)); }

    // A package of messages that aren't here any more, nor known.
    std::string MakePackage(const std::vector<std::string>& subjects)
    {
        Sender sender(here.addin, here.parts, here.engine);
        for (const std::string& subject : subjects) {
            const std::string entryId = here.AddMessage(subject);
            EXPECT_TRUE(sender.SendItem(here.share, entryId, "package"));
            here.DeleteMessage(entryId);
        }
        here.Execute("DELETE FROM tblItem");
        Statement(here.hostRecords, "DELETE FROM item").Run();
        const std::string received = (here.directory / "received.qvt").string();
        std::filesystem::copy_file(ReadText(*here.PackageFor("package"), &IStorageFile::get_Path), received);
        return received;
    }

    void Receive(const std::string& path)
    {
        Check(here.engine.Session().ProcessStorageFile(BstrOf(path).Get(), BstrOf("alice").Get()), "receive",
              path);
    }

    // As the row of an item that was applied ten seconds ago.
    void MakeRowOlder(const std::string& id, const std::string& entryId)
    {
        constexpr std::uint64_t kTenSeconds = 100'000'000;
        here.state.SetRowTime(id, here.ModifiedOf(entryId) - kTenSeconds);
    }

private:
    std::mutex mutex_;
    std::condition_variable reported_;
    std::vector<std::pair<std::string, bool>> reports_;
};

TEST_F(WatchedFolderTest, ALocalMailIsSentWhileAPackageIsStillBeingWorkedOff)
{
    const std::string package = MakePackage({"one", "two"});
    std::promise<void> second, go;
    std::atomic<int> items{0};
    here.callbacks.beforeReceived = [&] {
        if (++items == 2) {
            second.set_value();
            go.get_future().wait();
        }
    };
    here.Watch(true);
    Receive(package);
    ASSERT_EQ(second.get_future().wait_for(kDeadline), std::future_status::ready);

    const std::string mine = here.AddMessage("mine");

    EXPECT_TRUE(AwaitReport(mine, false, std::chrono::seconds(5)));
    EXPECT_TRUE(here.applying.InHand().id.empty());
    go.set_value();
}

// The job writes its row while the change is on its way to the program.
TEST_F(WatchedFolderTest, AnIgnoredReportLeavesTheRowWithTheTimeOfTheMessage)
{
    const std::string entryId = AddApplied();
    MakeRowOlder(kApplied, entryId);
    here.callbacks.beforeChange = [&](const std::string& changed) {
        if (changed != entryId)
            return;
        here.state.SetRowTime(kApplied, here.ModifiedOf(entryId));
        NoteApplied(entryId);
    };
    here.Watch(true);

    here.ChangeMessage(entryId, "applied once more");

    EXPECT_TRUE(AwaitReport(entryId, true));
    AwaitRecords();
    EXPECT_EQ(here.state.RowOfId(kApplied)->lastModified, RowTimeOf(here.ModifiedOf(entryId)));
}

TEST_F(WatchedFolderTest, AnItemThatKeepsItsIdHasItsRowBroughtUpToDate)
{
    const ComPtr<IMAPIFolder> elsewhere = EnsureFolder(here.mail, "Elsewhere");
    const std::string entryId = here.AddMessage(*elsewhere, "from alice");
    here.AddRow(kApplied, entryId);
    NoteApplied(entryId);
    here.ChangeMessage(entryId, "changed by bob");
    MakeRowOlder(kApplied, entryId);
    here.Watch(true);

    here.MoveMessage(entryId, *elsewhere, *here.folder);

    EXPECT_TRUE(AwaitReport(entryId, false));
    AwaitRecords();
    EXPECT_EQ(here.state.RowOfEntry(entryId)->id, kApplied);
    EXPECT_EQ(here.state.RowOfId(kApplied)->lastModified, RowTimeOf(here.ModifiedOf(entryId)));
}

TEST_F(WatchedFolderTest, TheRowOfAMovedMessageGetsTheIdThatItIsSentUnder)
{
    const ComPtr<IMAPIFolder> elsewhere = EnsureFolder(here.mail, "Elsewhere");
    const std::string entryId = here.AddMessage(*elsewhere, "moved");
    here.AddRow("{OLD}", entryId);
    here.records.PutItem({"{OLD}", "{ANOTHER FOLDER}", {100, "alice"}, false, here.ModifiedOf(entryId)});
    here.Watch(true);

    here.MoveMessage(entryId, *elsewhere, *here.folder);

    EXPECT_TRUE(AwaitReport(entryId, false));
    AwaitRecords();
    const auto row = here.state.RowOfEntry(entryId);
    ASSERT_TRUE(row);
    EXPECT_NE(row->id, "{OLD}");
    ASSERT_TRUE(here.records.FindItem(row->id));
    EXPECT_EQ(here.records.FindItem(row->id)->folderId, "{F}");
}

}  // namespace

}  // namespace quorvane::host
