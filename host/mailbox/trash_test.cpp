#include "host/mailbox/trash.h"

#include <gtest/gtest.h>

#include "host/base/errors.h"
#include "host/store/folders.h"
#include "host/store/msg_file.h"
#include "host/store/profile.h"
#include "host/store/properties.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host {

namespace {

constexpr std::uint64_t kNow = 134'000'000'000'000'000;
constexpr std::uint64_t kDay = 864'000'000'000;

class TrashTest : public ::testing::Test {
protected:
    ComPtr<IMessage> Message(const std::string& subject)
    {
        ComPtr<IMessage> message;
        Check(folder->CreateMessage(nullptr, 0, message.Put()), "make a message", subject);
        Check(SetText(*message, PR_SUBJECT_W, subject), "make a message", subject);
        Check(message->SaveChanges(KEEP_OPEN_READWRITE), "make a message", subject);
        return message;
    }
    void Keep(const std::string& item, const std::string& revision, const std::string& copy = {})
    {
        TrashEntry entry;
        entry.item = item;
        entry.folderId = "{F}";
        entry.folder = "Shared";
        entry.revision = revision;
        entry.subject = "the subject of " + item;
        entry.member = "alice";
        entry.since = kNow;
        entry.copy = copy;
        trash.Keep(entry, *Message(entry.subject));
    }
    std::ptrdiff_t Files() const
    {
        return std::distance(std::filesystem::directory_iterator(mailbox.Directory() / "trash"), {});
    }

    test::TestDirectory directory;
    const Mailbox made = Mailbox::Create((directory / "bob").string(), "bob");
    const Mailbox mailbox = Mailbox::Open((directory / "bob").string());
    MailSession mail{(directory / "bob").string()};
    ComPtr<IMAPIFolder> folder = EnsureFolder(mail, "Shared");
    Trash trash{mailbox};
};

TEST_F(TrashTest, WhatIsKeptIsTheWholeMessageInAFile)
{
    Keep("{1}", "00");

    ASSERT_EQ(trash.Entries().size(), 1U);
    const TrashEntry entry = trash.Entries()[0];
    EXPECT_EQ(entry.folder, "Shared");
    EXPECT_EQ(entry.member, "alice");
    MsgFile file;
    ASSERT_EQ(file.Open(trash.FileOf(entry)), S_OK);
    EXPECT_EQ(TextOf(file.Message(), PR_SUBJECT_W), "the subject of {1}");
    EXPECT_EQ(Files(), 1) << "nothing unfinished";
}

TEST_F(TrashTest, OneContentOfAnItemIsKeptOnceAndTwoAreKeptBoth)
{
    Keep("{1}", "00");
    Keep("{1}", "00");
    EXPECT_EQ(trash.Entries().size(), 1U);
    Keep("{1}", "01");
    Keep("{2}", "00");

    EXPECT_EQ(trash.Entries().size(), 3U);
    EXPECT_EQ(Files(), 3);
    EXPECT_EQ(trash.Entries()[0].item, "{2}") << "the latest first";
}

TEST_F(TrashTest, AContentOfAnItemIsFoundByWhichOneItIs)
{
    Keep("{1}", "00");
    Keep("{1}", "01");
    Keep("{2}", "01");

    ASSERT_TRUE(trash.FindContent("{1}", "01"));
    EXPECT_EQ(trash.FindContent("{1}", "01")->number, 2);
    EXPECT_FALSE(trash.FindContent("{1}", "02"));
    EXPECT_FALSE(trash.FindContent("{3}", "01"));
}

TEST_F(TrashTest, WhatIsOldGoesWithItsFileAndWhatIsToBecomeAnItemStays)
{
    Keep("{1}", "00");
    Keep("{2}", "00", "{COPY}");
    std::filesystem::copy_file(trash.FileOf(trash.Entries()[0]),
                               mailbox.Directory() / "trash" / "LEFT.msg.part");

    trash.Expire(kNow + Trash::kDays * kDay);
    EXPECT_EQ(trash.Entries().size(), 2U);
    EXPECT_EQ(Files(), 2) << "what a kill left is gone";

    trash.Expire(kNow + Trash::kDays * kDay + 1);
    ASSERT_EQ(trash.Entries().size(), 1U);
    EXPECT_EQ(trash.CopiesDue().at(0).copy, "{COPY}");

    trash.NoteCopied(trash.Entries()[0].number);
    EXPECT_TRUE(trash.CopiesDue().empty());
    trash.Expire(kNow + Trash::kDays * kDay + 1);
    EXPECT_TRUE(trash.Entries().empty());
    EXPECT_EQ(Files(), 0);
}

}  // namespace

}  // namespace quorvane::host
