#include <gtest/gtest.h>

#include "engine/items/item.h"
#include "engine/items/new_id.h"
#include "engine/items/testing/test_session.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane {
namespace {

class ItemDatabaseTest : public ::testing::Test {
protected:
    ComPtr<CItem> MakeItem(OleStringView id, OleStringView entryId = {})
    {
        ComPtr<CItem> made = MakeComObject<CItem>(&session);
        made->m_bstrID = Bstr(id);
        made->m_bstrEntryID = Bstr(entryId);
        made->m_bstrStoreID = Bstr(OLESTR("5707"));
        made->m_dblLastModified = 45000.25;
        return made;
    }

    testing::TestSession session;
    ComPtr<CItem> item = MakeItem(OLESTR("{A}"), OLESTR("00AB"));
};

TEST_F(ItemDatabaseTest, AppendWritesARowOfTheThirdGeneration)
{
    ASSERT_EQ(item->DBAppend(), S_OK);

    EXPECT_EQ(session.Ask("SELECT ID||' '||EntryID||' '||StoreID||' '||LastModified||' '||Version "
                          "FROM tblItem"),
              "{A} 00AB 5707 45000.25 3.0");
}

TEST_F(ItemDatabaseTest, AppendGivesAnItemWithoutAnIdAGuidInBraces)
{
    item->m_bstrID = Bstr();

    ASSERT_EQ(item->DBAppend(), S_OK);

    ASSERT_EQ(item->m_bstrID.Length(), 38u);
    EXPECT_EQ(item->m_bstrID.View().front(), OLECHAR{'{'});
    EXPECT_EQ(session.Ask("SELECT ID FROM tblItem"), Narrow(item->m_bstrID.View()));
}

TEST_F(ItemDatabaseTest, AppendOfAnIdThatHasARowFails)
{
    ASSERT_EQ(item->DBAppend(), S_OK);

    EXPECT_EQ(item->DBAppend(), kIntegrityViolation);
}

TEST_F(ItemDatabaseTest, AppendRefusesAnIdOfFiftyCharacters)
{
    item->m_bstrID = Bstr(OleString(50, OLECHAR{'x'}));

    EXPECT_EQ(item->DBAppend(), E_INVALIDARG);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
}

TEST_F(ItemDatabaseTest, ReadFindsTheRowOfTheEntryIdentifier)
{
    ASSERT_EQ(item->DBAppend(), S_OK);
    const ComPtr<CItem> other = MakeItem(OLESTR(""), OLESTR("00AB"));
    other->m_bstrStoreID = Bstr();
    other->m_dblLastModified = 0;

    ASSERT_EQ(other->DBRead(), S_OK);

    EXPECT_EQ(other->m_bstrID.View(), OLESTR("{A}"));
    EXPECT_EQ(other->m_bstrStoreID.View(), OLESTR("5707"));
    EXPECT_EQ(other->m_dblLastModified, 45000.25);
    EXPECT_EQ(other->m_dblVersion, 3.0);
}

TEST_F(ItemDatabaseTest, ReadByIdFindsTheRowOfTheId)
{
    ASSERT_EQ(item->DBAppend(), S_OK);
    const ComPtr<CItem> other = MakeItem(OLESTR("{A}"));

    ASSERT_EQ(other->DBReadByID(), S_OK);

    EXPECT_EQ(other->m_bstrEntryID.View(), OLESTR("00AB"));
    EXPECT_EQ(other->m_dblVersion, 3.0);
}

TEST_F(ItemDatabaseTest, ReadOfAnUnknownEntryIdentifierLeavesTheFields)
{
    EXPECT_EQ(item->DBRead(), kEndOfRowset);
    EXPECT_EQ(item->DBReadByID(), kEndOfRowset);

    EXPECT_EQ(item->m_bstrID.View(), OLESTR("{A}"));
    EXPECT_EQ(item->m_bstrEntryID.View(), OLESTR("00AB"));
    EXPECT_EQ(item->m_dblVersion, 2.0);
}

TEST_F(ItemDatabaseTest, UpdateFollowsAChangeOfTheId)
{
    ASSERT_EQ(item->DBAppend(), S_OK);
    ASSERT_EQ(item->put_ID(Bstr(OLESTR("{B}")).Get()), S_OK);
    item->m_bstrEntryID = Bstr(OLESTR("00CD"));

    ASSERT_EQ(item->DBUpdate(), S_OK);

    EXPECT_EQ(session.Ask("SELECT ID||' '||EntryID||' '||COUNT(*) FROM tblItem"), "{B} 00CD 1");
    EXPECT_TRUE(item->m_bstrPreviousID.IsEmpty());
}

TEST_F(ItemDatabaseTest, UpdateWithoutARowChangesNothing)
{
    EXPECT_EQ(item->DBUpdate(), S_OK);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
}

TEST_F(ItemDatabaseTest, AFailedUpdateKeepsThePreviousId)
{
    ASSERT_EQ(item->DBAppend(), S_OK);
    ASSERT_EQ(MakeItem(OLESTR("{B}"))->DBAppend(), S_OK);
    ASSERT_EQ(item->put_ID(Bstr(OLESTR("{B}")).Get()), S_OK);

    EXPECT_EQ(item->DBUpdate(), kIntegrityViolation);

    EXPECT_EQ(item->m_bstrPreviousID.View(), OLESTR("{A}"));
}

TEST_F(ItemDatabaseTest, DeleteRemovesTheRowAndSucceedsWithoutOne)
{
    ASSERT_EQ(item->DBAppend(), S_OK);

    EXPECT_EQ(item->DBDelete(), S_OK);
    EXPECT_EQ(session.Ask("SELECT COUNT(*) FROM tblItem"), "0");
    EXPECT_EQ(item->DBDelete(), S_OK);
}

TEST_F(ItemDatabaseTest, CheckModifiedComparesTheRecordedTime)
{
    EXPECT_EQ(item->DBCheckModified(), kEndOfRowset);
    ASSERT_EQ(item->DBAppend(), S_OK);
    EXPECT_EQ(item->DBCheckModified(), E_FAIL);

    item->m_dblLastModified += 1.0 / 86400;
    EXPECT_EQ(item->DBCheckModified(), S_OK);
}

TEST_F(ItemDatabaseTest, ARowWithoutATimeIsNotModified)
{
    ASSERT_EQ(item->DBAppend(), S_OK);
    session.Execute("UPDATE tblItem SET LastModified=NULL");

    EXPECT_EQ(item->DBCheckModified(), E_FAIL);
}

TEST_F(ItemDatabaseTest, EachOperationTracesThatItGetsNoSession)
{
    session.CloseDatabase();
    const std::string lines = testing::TracedLines([this] {
        for (const HRESULT hr : {item->DBRead(), item->DBReadByID(), item->DBAppend(), item->DBUpdate(),
                                 item->DBDelete(), item->DBCheckModified()})
            EXPECT_EQ(hr, kNotOpen);
    });

    for (const char* name : {"DBRead", "DBReadByID", "DBAppend", "DBUpdate", "DBDelete", "DBCheckModified"})
        EXPECT_NE(lines.find(std::string("CItem::") + name + '('), std::string::npos) << name;
}

TEST_F(ItemDatabaseTest, EveryOperationTellsThatTheDatabaseIsGone)
{
    session.CloseDatabase();

    EXPECT_EQ(item->DBRead(), kNotOpen);
    EXPECT_EQ(item->DBReadByID(), kNotOpen);
    EXPECT_EQ(item->DBAppend(), kNotOpen);
    EXPECT_EQ(item->DBUpdate(), kNotOpen);
    EXPECT_EQ(item->DBDelete(), kNotOpen);
    EXPECT_EQ(item->DBCheckModified(), kNotOpen);
}

TEST_F(ItemDatabaseTest, PutIdRemembersOnlyTheValueBeforeIt)
{
    const ComPtr<CItem> fresh = MakeItem(OLESTR(""));
    ASSERT_EQ(fresh->put_ID(Bstr(OLESTR("one")).Get()), S_OK);
    EXPECT_TRUE(fresh->m_bstrPreviousID.IsNull());

    ASSERT_EQ(fresh->put_ID(Bstr(OLESTR("two")).Get()), S_OK);
    ASSERT_EQ(fresh->put_ID(Bstr(OLESTR("three")).Get()), S_OK);

    EXPECT_EQ(fresh->m_bstrPreviousID.View(), OLESTR("two"));
}

TEST(NewIdTest, TwoIdsDiffer)
{
    Bstr first;
    Bstr second;

    ASSERT_EQ(MakeNewId(first), S_OK);
    ASSERT_EQ(MakeNewId(second), S_OK);

    EXPECT_EQ(first.Length(), 38u);
    EXPECT_NE(first.View(), second.View());
}

TEST(NewIdTest, OnlyATextIsTakenAsItStands)
{
    Bstr id;
    VARIANT number;
    VariantInit(&number);
    number.vt = VT_I4;
    number.lVal = 5;

    ASSERT_EQ(TakeOrMakeId(number, id), S_OK);

    EXPECT_EQ(id.Length(), 38u);
}

}  // namespace
}  // namespace quorvane
