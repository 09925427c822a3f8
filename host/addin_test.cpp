#include "host/addin.h"

#include <gtest/gtest.h>

#include <future>

#include "host/test_mailbox.h"

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
        Check(item->put_CustomInfo(BstrOf(FormatVersion({100, "alice"})).Get()), "make an item", id);
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

// The scan comes upon the message while the engine is yet to write its row.
TEST_F(AddinTest, AnAdditionIsJudgedAfterTheEndOfTheItemThatIsBeingApplied)
{
    here.Execute("INSERT INTO tblUnfinishedReceiveJob (Path, Tag) VALUES ('package.qvt', 'alice')");
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

TEST_F(AddinTest, AnItemThatFailedKeepsNoAdditionFromBeingSent)
{
    TellOf(kApplied);
    here.AddRow("{MINE}", here.AddMessage("mine"));

    auto ignored = std::async(std::launch::async, [&] { return IsIgnored("{MINE}"); });

    ASSERT_EQ(ignored.wait_for(kDeadline), std::future_status::ready);
    EXPECT_FALSE(ignored.get());
}

}  // namespace

}  // namespace quorvane::host
