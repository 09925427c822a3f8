// An item on its way into a package that has no room. On Windows the storages are the system's.
#include "engine/items/testing/send_test.h"
#include "platform/cfb/testing/series.h"

namespace quorvane {
namespace {

using testing::MakeDetachedMessage;
using testing::TestMail;
using testing::TestMailbox;

class ItemSendRoomTest : public testing::SendTest {};

// One write fails, and those behind it don't, as on a disk that is full for a moment. A message of this size
// is written before its element is finished.
TEST_F(ItemSendRoomTest, WhatThePackageHadNoRoomForIsntMissingFromAnElementThatWasSent)
{
    const TestMail large{"Large", std::string(1'200'000, 'x'), {"ann"}, {"a.txt"}};
    item = MakeItem(OLESTR("{A}"), *MakeDetachedMessage(large));
    DatabaseSession database;
    ASSERT_EQ(session.Database().OpenSession(database), S_OK);
    bool refused = true;
    std::size_t writes = 0;
    for (; refused && !HasFailure(); ++writes) {
        const auto bytes = MakeComObject<cfb::test::FaultyBytes>();
        ComPtr<IStorage> storage;
        ASSERT_EQ(StgCreateDocfileOnILockBytes(bytes.Get(), kCreateMode, 0, storage.Put()), S_OK);
        files->file->Use(storage);
        bytes->RefuseWrite(writes, false);
        const HRESULT sent = Send();
        refused = bytes->HasRefused();
        EXPECT_TRUE(refused || sent == S_OK);
        if (FAILED(sent))
            continue;
        const ComPtr<IStorage> element = files->file->Element();
        ASSERT_TRUE(element) << "write " << writes;
        const ComPtr<CItem> loaded = MakeComObject<CItem>(&session);
        ASSERT_EQ(loaded->Load(element.Get(), database), S_OK) << "write " << writes;
        ASSERT_NE(loaded->Message(), nullptr) << "write " << writes;
        const TestMail mail = TestMailbox::Read(*loaded->Message());
        ComPtr<IStream> body;
        STATSTG stat{};
        ASSERT_EQ(loaded->Message()->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, body.PutUnknown()), S_OK);
        EXPECT_EQ(body->Stat(&stat, STATFLAG_NONAME), S_OK);
        EXPECT_EQ(stat.cbSize.QuadPart, large.body.size()) << "write " << writes;
        EXPECT_EQ(mail.attachments, large.attachments) << "write " << writes;
    }
    EXPECT_GT(writes, 5U);
}

}  // namespace
}  // namespace quorvane
