// A hash file whose system tells who else writes it and lets others do with it what Windows refuses; its
// permissions.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "engine/persist/testing/shared_hash_file_fixture.h"

namespace quorvane {
namespace {

using testing::HashFileTest;
using testing::Keys;
using testing::Number;
using testing::Packed;
using testing::SharedHashFileTest;
using testing::ToldRecord;

TEST_F(HashFileTest, AFileThatIsWrittenAnewKeepsItsPermissions)
{
    auto file = Load();
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    for (const auto& key : Keys(100))
        file->Set(Packed(key), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    EXPECT_TRUE(Beside().empty());
}

TEST_F(HashFileTest, ADirectoryThatTakesNoNewFileHasItsFileWrittenInPlace)
{
    // No name is left for a file beside it.
    path = (directory / (std::string(251, 'F') + ".dat")).string();
    auto file = Load();
    for (const auto& key : Keys(100))
        file->Set(Packed(key), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told().size(), 100u);
    file->Remove(Packed(Number(100000)));
    EXPECT_TRUE(FAILED(file->Save())) << "there is no place for the record of the overwrite";
    EXPECT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told().size(), 99u);
}

TEST_F(SharedHashFileTest, AFileThatWasReplacedOrRemovedIsThereAgainAfterTheNextSave)
{
    std::ofstream(path + ".other", std::ios::binary) << ToldRecord(u"X", u"stranger");
    std::filesystem::rename(path + ".other", path);
    Set(*mine, u"A1", u"two");
    model[u"A1"] = u"two";
    EXPECT_EQ(Told(), model);

    std::filesystem::remove(path);
    Set(*mine, u"A1", u"three");
    model[u"A1"] = u"three";
    EXPECT_EQ(Told(), model);
}

TEST_F(SharedHashFileTest, WhatStandsBesideAFileThatAnotherWritesIsLeftAlone)
{
    std::ofstream(path + ".new") << "theirs";
    std::ofstream(path + ".redo") << "theirs";
    const auto theirs = Load();
    EXPECT_EQ(Beside().size(), 2u);
}

TEST_F(SharedHashFileTest, WhileAnotherHoldsItNothingIsPutBeside)
{
    const auto theirs = Load();
    Set(*theirs, u"B1", u"theirs");
    mine->Remove(Packed(u"A2"));
    ASSERT_EQ(mine->Save(), S_OK);
    EXPECT_TRUE(Beside().empty());
}

}  // namespace
}  // namespace quorvane
