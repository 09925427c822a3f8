// A hash store on a disk that refuses.
#include <gtest/gtest.h>

#include "engine/persist/debug_timer.h"
#include "engine/persist/testing/file_faults.h"
#include "engine/persist/testing/hash_db_fixture.h"
#include "engine/session/trace/testing/traced_lines.h"

namespace quorvane {
namespace {

using testing::HashDbTest;
using testing::ReadBytes;
using testing::ReadTold;
using testing::ToldMap;
using testing::ToldRecord;

TEST_F(HashDbTest, AFileThatCannotBeReadFailsTheInitAndStaysAsItIs)
{
    const std::string bytes = ToldRecord(u"AB", u"h1\t1");
    Write(bytes);
    const std::string log = testing::TracedLines([&] {
        testing::ArmFault(testing::Fault::NoRead, 1);
        EXPECT_TRUE(FAILED(Init()));
        testing::DisarmFault();
    });
    EXPECT_LT(log.find("CHashDB::FillMap("), log.find("CHashDB::Init("));
    EXPECT_NE(log.find("CHashDB::Init("), std::string::npos);
    EXPECT_TRUE(FAILED(Set("CD", "h2", 2)));
    EXPECT_EQ(Get("CD"), "h2/2");
    EXPECT_EQ(ReadBytes(path), bytes);
}

TEST_F(HashDbTest, AFullDiskIsToldAndTheNextSaveMakesUpForIt)
{
    ASSERT_EQ(Init(), S_OK);
    const std::string log = testing::TracedLines([&] {
        // A debug build's line comes first.
        testing::ArmFault(testing::Fault::DiskFull, kDebugBuild ? 2 : 1);
        EXPECT_EQ(Set("AB", "h1", 1), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
        testing::DisarmFault();
    });
    EXPECT_NE(log.find("CHashDB::SaveMap("), std::string::npos);
    EXPECT_EQ(Get("AB"), "h1/1");
    EXPECT_EQ(store.SaveMap(), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"AB", u"h1\t1"}}));
}

}  // namespace
}  // namespace quorvane
