#include "host/mirror/mail_places.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MailPlacesTest : public ::testing::Test {
protected:
    void MakeMaildir(const std::string& path) const
    {
        for (const char* const part : {"cur", "new", "tmp"})
            fs::create_directories(home / path / part);
        std::ofstream(home / path / "new" / "1.host");
    }
    // "Inbox=.": folders, and their Maildirs from the place's root on.
    std::vector<std::string> Told(const std::string& path) const
    {
        std::vector<std::string> told;
        if (const auto place = LookForMail(home / path))
            for (const auto& [folder, maildir] : place->maildirs)
                told.push_back(folder + "=" + maildir.lexically_relative(home / path).string());
        return told;
    }

    test::TestDirectory home;
};

TEST_F(MailPlacesTest, OneMaildirIsTheInbox)
{
    MakeMaildir("Maildir");
    EXPECT_THAT(Told("Maildir"), ElementsAre("Inbox=."));
    EXPECT_EQ(LookForMail(home / "Maildir")->mails, 1U);
}

TEST_F(MailPlacesTest, FoldersBehindDotsAreTheOthers)
{
    MakeMaildir("Maildir");
    MakeMaildir("Maildir/.Plans.2026");
    MakeMaildir("Maildir/.Entw&APw-rfe");
    EXPECT_THAT(Told("Maildir"),
                ElementsAre("Entw\xc3\xbcrfe=.Entw&APw-rfe", "Inbox=.", "Plans/2026=.Plans.2026"));
}

TEST_F(MailPlacesTest, NestedOnesAreFoldersAndTheDirectoryAroundThemNone)
{
    MakeMaildir("Mail/INBOX");
    MakeMaildir("Mail/INBOX/Old");
    MakeMaildir("Mail/Work/2026");
    EXPECT_THAT(Told("Mail"), ElementsAre("Inbox=INBOX", "Inbox/Old=INBOX/Old", "Work/2026=Work/2026"));
}

TEST_F(MailPlacesTest, NoTwoAreTheSameFolder)
{
    MakeMaildir("Mail");
    MakeMaildir("Mail/INBOX");
    MakeMaildir("Mail/Inbox");
    MakeMaildir("Mail/inbox");
    EXPECT_THAT(Told("Mail"), ElementsAre("INBOX=INBOX", "Inbox=Inbox", "Mail=.", "inbox=inbox"));
}

TEST_F(MailPlacesTest, WhatHoldsNoMailIsNone)
{
    fs::create_directories(home / "Mail" / "half" / "cur");
    EXPECT_THAT(Told("Mail"), IsEmpty());
    EXPECT_THAT(Told("nowhere"), IsEmpty());
}

TEST_F(MailPlacesTest, ThePlacesOfCustomAreFoundOnce)
{
    MakeMaildir("Mail/In");
    MakeMaildir(".mail");
    MakeMaildir("elsewhere");
    std::vector<fs::path> roots;
    for (const MailPlace& place : FindMailPlaces(home.Path(), home / "elsewhere"))
        roots.push_back(place.root.filename());
    EXPECT_THAT(roots, ElementsAre("elsewhere", "Mail", ".mail"));
    fs::create_directory_symlink(home / "Mail", home / "mail");
    EXPECT_EQ(FindMailPlaces(home.Path(), home / "Mail").size(), 2U);
    EXPECT_EQ(FindMailPlaces(home.Path(), {}).size(), 2U);
}

}  // namespace

}  // namespace quorvane::host
