// An item on its way into a package: the order of the calls, and every one of them failing.
#include <functional>

#include "engine/items/contents_stream.h"
#include "engine/items/package.h"
#include "engine/items/testing/send_test.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/cfb/stg.h"

namespace quorvane {
namespace {

using testing::kRefused;
using testing::MakeDetachedMessage;
using testing::Number;
using testing::TestMail;
using testing::TestMailbox;

class ItemSendTest : public testing::SendTest {};

TEST_F(ItemSendTest, APackageThatIsThereIsWrittenUnderItsLock)
{
    EXPECT_EQ(Send(), S_OK);

    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Lock", "OpenItem {A}", "Unlock"}));
}

TEST_F(ItemSendTest, APackageThatIsntThereIsAdded)
{
    files->isThere = false;

    EXPECT_EQ(Send(), S_OK);

    EXPECT_EQ(calls.made,
              (std::vector<std::string>{"Item ann", "Add ann", "Lock", "OpenItem {A}", "Unlock"}));
}

TEST_F(ItemSendTest, TheElementHoldsContentsAndMessage)
{
    ASSERT_EQ(Send(), S_OK);

    DatabaseSession database;
    ASSERT_EQ(session.Database().OpenSession(database), S_OK);
    const ComPtr<IStorage> element = files->file->Element();
    ASSERT_TRUE(element);
    const ComPtr<CItem> loaded = MakeComObject<CItem>(&session);
    ASSERT_EQ(loaded->Load(element.Get(), database), S_OK);
    EXPECT_EQ(loaded->m_bstrID.View(), OLESTR("{A}"));
    const TestMail mail = TestMailbox::Read(*loaded->Message());
    EXPECT_EQ(mail.subject, "Sent");
    EXPECT_EQ(mail.recipients, (std::vector<std::string>{"ann", "bob"}));
    EXPECT_EQ(mail.attachments, std::vector<std::string>{"a.txt"});
}

TEST_F(ItemSendTest, AnItemWithoutAMessageSendsItsContentsAlone)
{
    item = MakeItem();
    ASSERT_EQ(Send(), S_OK);

    const ComPtr<IStorage> element = files->file->Element();
    ComPtr<IStream> contents;
    EXPECT_EQ(OpenContents(*element, contents), S_OK);
    ComPtr<IStorage> data;
    EXPECT_EQ(element->OpenStorage(kMessageDataName, nullptr, kOpenMode, nullptr, 0, data.Put()),
              STG_E_FILENOTFOUND);
}

TEST_F(ItemSendTest, APackageThatCantBeAddedIsReported)
{
    files->isThere = false;
    calls.failing = "Add ann";
    ExpectFailure(kRefused);
    // Another writer may have added it meanwhile.
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Add ann", "Item ann"}));
}

TEST_F(ItemSendTest, WhatIsNoStorageFileIsReportedAndNothingIsAdded)
{
    files->otherAnswer = [this](VARIANT* found) {
        return Variant::Dispatch(static_cast<IDispatch*>(files.Get())).CopyTo(found);
    };
    ExpectFailure(E_NOINTERFACE);
    files->otherAnswer = [](VARIANT* found) {
        *found = Number(1);
        return S_OK;
    };
    ExpectFailure(E_FAIL);
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Item ann"}));
}

TEST_F(ItemSendTest, APackageThatCantBeLockedIsUnlockedAllTheSame)
{
    calls.failing = "Lock";
    ExpectFailure(kRefused);
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Lock", "Unlock"}));
}

TEST_F(ItemSendTest, APackageIsUnlockedAfterAnElementThatCouldntBeOpened)
{
    calls.failing = "OpenItem {A}";
    ExpectFailure(kRefused);
    EXPECT_EQ(calls.made, (std::vector<std::string>{"Item ann", "Lock", "OpenItem {A}", "Unlock"}));
}

TEST_F(ItemSendTest, AnElementThatIsNoStorageIsReported)
{
    files->file->answersNoStorage = true;
    ExpectFailure(E_FAIL);
    EXPECT_EQ(calls.made.back(), "Unlock");
}

TEST_F(ItemSendTest, AnUnlockThatFailsIsIgnored)
{
    calls.failing = "Unlock";
    EXPECT_EQ(Send(), S_OK);
    EXPECT_TRUE(files->file->Element());
}

}  // namespace
}  // namespace quorvane
