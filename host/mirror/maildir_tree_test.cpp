#include "host/mirror/maildir_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/base/errors.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class MaildirTreeTest : public ::testing::Test {
protected:
    void MakeMaildir(const std::string& path) const { fs::create_directories(root / path / "cur"); }

    test::TestDirectory root;
};

TEST_F(MaildirTreeTest, NamesStandInModifiedUtf7)
{
    EXPECT_EQ(ToModifiedUtf7("Plans & more"), "Plans &- more");
    EXPECT_EQ(ToModifiedUtf7("Entw\xc3\xbcrfe"), "Entw&APw-rfe");
    EXPECT_EQ(ToModifiedUtf7("\xe5\x8f\xb0\xe5\x8c\x97"), "&U,BTFw-");
    EXPECT_EQ(ToModifiedUtf7("\xf0\x9f\x93\xac!"), "&2D3c7A-!");
    for (const char* const name :
         {"", "a", "&", "a&b-", "Entw\xc3\xbcrfe", "\xc3\xbc\xc3\xbc", "\xf0\x9f\x93\xac"})
        EXPECT_EQ(FromModifiedUtf7(ToModifiedUtf7(name)), name);
}

TEST_F(MaildirTreeTest, WhatWouldBeWrittenInAnotherWayIsNoName)
{
    for (const char* const text :
         {"&", "&APw", "&A-", "&APx-", "&!!-", "&AGE-", "\xc3\xbc", "&2D0-", "&APw-&APw-"})
        EXPECT_EQ(FromModifiedUtf7(text), std::nullopt) << text;
}

TEST_F(MaildirTreeTest, EachFolderHasAPlace)
{
    EXPECT_EQ(PlaceInTree("/m", "Plans/2026", TreeLayout::kNested), "/m/Plans/2026");
    EXPECT_EQ(PlaceInTree("/m", "Plans/Entw\xc3\xbcrfe", TreeLayout::kMaildirPlusPlus),
              "/m/.Plans.Entw&APw-rfe");
}

TEST_F(MaildirTreeTest, WhatHasNoPlaceIsTold)
{
    for (const char* const folder : {"cur", "Plans/new", ".Plans", "Plans/..", ""})
        EXPECT_THROW(PlaceInTree("/m", folder, TreeLayout::kNested), HostError) << folder;
    for (const char* const folder : {"a.b", "Plans/..", "", "Plans//2026"})
        EXPECT_THROW(PlaceInTree("/m", folder, TreeLayout::kMaildirPlusPlus), HostError) << folder;
}

TEST_F(MaildirTreeTest, MaildirsInMaildirsAreFolders)
{
    MakeMaildir("cur/Hidden");  // in a part of a Maildir, where there are no folders
    for (const char* const path : {"", "Plans", "Plans/2026", "Deep/down", ".Hidden"})
        MakeMaildir(path);
    fs::create_directory(root / "no Maildir");
    fs::create_directory_symlink(root / "Plans", root / "link");
    EXPECT_THAT(FoldersInTree(root.Path(), TreeLayout::kNested),
                ElementsAre("Deep", "Deep/down", "Plans", "Plans/2026"));
}

TEST_F(MaildirTreeTest, DottedMaildirsAreFolders)
{
    for (const char* const path : {"", ".Plans", ".Deep.down", ".Entw&APw-rfe", ".bad&", ".a..b", "Nested"})
        MakeMaildir(path);
    fs::create_directory(root / ".no Maildir");
    EXPECT_THAT(FoldersInTree(root.Path(), TreeLayout::kMaildirPlusPlus),
                ElementsAre("Deep", "Deep/down", "Entw\xc3\xbcrfe", "Plans"));
}

}  // namespace

}  // namespace quorvane::host
