// Folders and Maildirs in step, with a real message store and real directories.
#include "host/mirror/mirrors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/mirror/mirror_steps.h"
#include "host/mirror/mirrored_mailbox_for_test.h"

namespace quorvane::host {

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

class MirrorsTest : public ::testing::Test, protected MirroredMailbox {};

TEST_F(MirrorsTest, ANewFileBecomesAnItemOfTheSameBytes)
{
    TieBoth();
    const std::string text = MailText("1", "one");
    WriteFile(New("A", "1.x"), text);
    WriteFile(Cur("B", "2.x,U=7:2,FSab"), MailText("2", "two"));

    Settle();

    const auto a = Items("A");
    ASSERT_THAT(a, SizeIs(1));
    EXPECT_EQ(a[0].bytes, text);
    EXPECT_EQ(a[0].marks, 0);
    const auto b = Items("B");
    ASSERT_THAT(b, SizeIs(1));
    EXPECT_EQ(b[0].marks, kMarkRead | kMarkFlagged);
    EXPECT_THAT(FileNames("A"), UnorderedElementsAre("new/1.x"));
    EXPECT_THAT(FileNames("B"), UnorderedElementsAre("cur/2.x,U=7:2,FSab"));
}

TEST_F(MirrorsTest, AnItemBecomesAFileOfTheSameBytes)
{
    TieBoth();
    AddItem("A", MailText("1", "one"));
    AddItem("B", MailText("2", "two"), kMarkRead | kMarkAnswered);

    Settle();

    const auto a = Files("A");
    ASSERT_THAT(a, SizeIs(1));
    EXPECT_EQ(a[0].bytes, MailText("1", "one"));
    EXPECT_EQ(a[0].path.parent_path().filename(), "new");
    const auto b = Files("B");
    ASSERT_THAT(b, SizeIs(1));
    EXPECT_TRUE(b[0].path.filename().string().ends_with(":2,RS"));
    EXPECT_TRUE(fs::is_empty(PathTo("A") / "tmp"));
}

TEST_F(MirrorsTest, AFirstTieOfTwoThatBothHaveMailDoublesNone)
{
    for (int i = 0; i < 6; ++i) {
        AddItem("A", MailText(std::to_string(i), "same"), i == 2 ? kMarkRead : Marks{0});
        WriteFile(Cur("A", std::to_string(i) + ".x:2,F"), MailText(std::to_string(i), "same"));
    }
    AddItem("A", MailText("7", "item alone"));
    WriteFile(New("A", "8.x"), MailText("8", "file alone"));
    TieBoth();

    Settle();

    EXPECT_THAT(Items("A"), SizeIs(8));
    EXPECT_THAT(Files("A"), SizeIs(8));
    // What either side tells holds.
    EXPECT_THAT(FileNames("A"), Contains("cur/2.x:2,FS"));
    for (const SeenItem& item : Items("A"))
        EXPECT_EQ((item.marks & kMarkFlagged) != 0, SubjectOf(item.bytes) == "same");
}

TEST_F(MirrorsTest, MarksGoBothWaysAndOtherLettersStay)
{
    TieBoth();
    WriteFile(Cur("A", "1.x,U=3:2,DXbc"), MailText("1", "one"));
    Settle();
    const std::string id = Items("A")[0].id;
    EXPECT_EQ(Items("A")[0].marks, kMarkDraft);

    ASSERT_TRUE(SetMarks(session, id, kMarkRead | kMarkForwarded | kMarkForDeletion, kAllMarks));
    Settle();
    EXPECT_THAT(FileNames("A"), UnorderedElementsAre("cur/1.x,U=3:2,PSTXbc"));

    // Each side changes another one at the same time.
    fs::rename(Cur("A", "1.x,U=3:2,PSTXbc"), Cur("A", "1.x,U=3:2,FPSTXb"));
    ASSERT_TRUE(SetMarks(session, id, 0, kMarkForwarded));
    Settle();
    EXPECT_THAT(FileNames("A"), UnorderedElementsAre("cur/1.x,U=3:2,FSTXb"));
    EXPECT_EQ(Items("A")[0].marks, kMarkRead | kMarkFlagged | kMarkForDeletion);
}

TEST_F(MirrorsTest, AMoveBetweenMirrorsKeepsTheItem)
{
    TieBoth();
    WriteFile(New("A", "1.x"), MailText("1", "one"));
    WriteFile(New("A", "2.x,U=4"), MailText("2", "two"));
    Settle();
    std::map<std::string, std::string> before;
    for (const SeenItem& item : Items("A"))
        before[SubjectOf(item.bytes)] = item.id;

    fs::rename(New("A", "1.x"), Cur("B", "other-name:2,S"));
    MoveItem("A", "B", before["two"]);
    Settle();

    std::map<std::string, std::string> after;
    for (const SeenItem& item : Items("B"))
        after[SubjectOf(item.bytes)] = item.id;
    EXPECT_EQ(after, before);
    EXPECT_THAT(FileNames("A"), IsEmpty());
    EXPECT_THAT(FileNames("B"), UnorderedElementsAre("cur/other-name:2,S", "new/2.x"));
    EXPECT_THAT(Trash(mailbox).Entries(), IsEmpty());
}

TEST_F(MirrorsTest, WhatGoesOnOneSideGoesOnTheOtherAndLiesInTheTrash)
{
    TieBoth();
    for (int i = 0; i < 5; ++i)
        WriteFile(New("A", std::to_string(i) + ".x"),
                  MailText(std::to_string(i), "mail " + std::to_string(i)));
    Settle();
    fs::remove(New("A", "3.x"));
    for (const SeenItem& item : Items("A"))
        if (SubjectOf(item.bytes) == "mail 4")
            DeleteItem("A", item.id);

    Settle();

    EXPECT_THAT(FileNames("A"), UnorderedElementsAre("new/0.x", "new/1.x", "new/2.x"));
    EXPECT_THAT(Items("A"), SizeIs(3));
    const auto kept = Trash(mailbox).Entries();
    ASSERT_THAT(kept, SizeIs(1));
    EXPECT_EQ(kept[0].subject, "mail 3");
    EXPECT_EQ(kept[0].folder, "A");
}

TEST_F(MirrorsTest, AnEditedFileChangesItsItem)
{
    TieBoth();
    WriteFile(Cur("A", "1.x:2,S"), MailText("1", "one"));
    Settle();
    const std::string id = Items("A")[0].id;
    const std::string text = MailText("1", "edited", "another text\nof two lines");
    WriteFile(Cur("A", "1.x:2,S"), text);

    Settle();

    const auto items = Items("A");
    ASSERT_THAT(items, SizeIs(1));
    EXPECT_EQ(items[0].id, id);
    EXPECT_EQ(items[0].bytes, text);
    EXPECT_EQ(items[0].marks, kMarkRead);
    EXPECT_THAT(FileNames("A"), UnorderedElementsAre("cur/1.x:2,S"));
}

TEST_F(MirrorsTest, AnEditedItemBecomesAFileOfAnotherName)
{
    TieBoth();
    WriteFile(Cur("A", "1.x,U=5:2,STa"), MailText("1", "one"));
    Settle();
    EditItem(Items("A")[0].id, "edited");

    Settle();

    const auto files = Files("A");
    ASSERT_THAT(files, SizeIs(1));
    EXPECT_EQ(SubjectOf(files[0].bytes), "edited");
    EXPECT_EQ(files[0].bytes, Items("A")[0].bytes);
    EXPECT_TRUE(files[0].path.filename().string().ends_with(".quorvane:2,STa")) << files[0].path;
}

TEST_F(MirrorsTest, MarksOfAFileThatIsBeingReplacedStay)
{
    TieBoth();
    WriteFile(Cur("A", "1.x:2,S"), MailText("1", "one"));
    Settle();
    EditItem(Items("A")[0].id, "edited");
    mirrors->Look();  // the next one is beside it now
    ASSERT_THAT(Files("A"), SizeIs(2));
    fs::rename(Cur("A", "1.x:2,S"), Cur("A", "1.x:2,F"));

    Settle();

    const auto files = Files("A");
    ASSERT_THAT(files, SizeIs(1));
    EXPECT_EQ(SubjectOf(files[0].bytes), "edited");
    EXPECT_EQ(files[0].marks, kMarkFlagged);
    EXPECT_EQ(Items("A")[0].marks, kMarkFlagged);
}

TEST_F(MirrorsTest, WhatBothEditedIsThereTwice)
{
    TieBoth();
    WriteFile(Cur("A", "1.x:2,S"), MailText("1", "one"));
    Settle();
    EditItem(Items("A")[0].id, "edited here");
    WriteFile(Cur("A", "1.x:2,S"), MailText("1", "edited there", "longer"));

    Settle();

    std::vector<std::string> subjects;
    for (const SeenItem& item : Items("A"))
        subjects.push_back(SubjectOf(item.bytes));
    EXPECT_THAT(subjects, UnorderedElementsAre("edited here", "edited there"));
    EXPECT_THAT(Files("A"), SizeIs(2));
}

TEST_F(MirrorsTest, AMaildirThatIsMissingOrEmptyStopsItsMirrorAlone)
{
    TieBoth();
    for (int i = 0; i < 3; ++i)
        WriteFile(New("A", std::to_string(i) + ".x"), MailText(std::to_string(i), "mail"));
    Settle();

    fs::rename(PathTo("A"), root / "away");
    WriteFile(New("B", "9.x"), MailText("9", "nine"));
    Settle();
    EXPECT_THAT(Items("A"), SizeIs(3));
    EXPECT_THAT(Items("B"), SizeIs(1));
    EXPECT_THAT(records.All()[0].problem, HasSubstr("maildir-A"));

    // Another directory in its place, as where nothing is mounted.
    Maildir::Make(PathTo("A"));
    Settle();
    EXPECT_THAT(Items("A"), SizeIs(3));
    EXPECT_THAT(records.All()[0].problem, HasSubstr("is empty"));
    EXPECT_EQ(records.All()[0].held, 3);

    fs::remove_all(PathTo("A"));
    fs::rename(root / "away", PathTo("A"));
    Settle();
    EXPECT_THAT(Items("A"), SizeIs(3));
    EXPECT_THAT(Files("A"), SizeIs(3));
    EXPECT_EQ(records.All()[0].problem, "");
    EXPECT_EQ(records.All()[0].held, 0);
}

TEST_F(MirrorsTest, ManyDeletionsAtOnceWaitUntilTheyAreConfirmed)
{
    TieBoth();
    for (int i = 0; i < 10; ++i)
        WriteFile(New("A", std::to_string(i) + ".x"), MailText(std::to_string(i), "mail"));
    Settle();
    for (int i = 0; i < 7; ++i)
        fs::remove(New("A", std::to_string(i) + ".x"));
    WriteFile(New("A", "new.x"), MailText("new", "new"));

    Settle();
    EXPECT_THAT(Items("A"), SizeIs(11));
    EXPECT_EQ(records.All()[0].held, 7);

    MirrorRecords(mailbox.HostDatabasePath().string()).Confirm(records.All()[0].number);
    Settle();
    EXPECT_THAT(Items("A"), SizeIs(4));
    EXPECT_THAT(Trash(mailbox).Entries(), SizeIs(7));
    EXPECT_EQ(records.All()[0].held, 0);
    EXPECT_EQ(records.All()[0].confirmed, 0);
}

TEST_F(MirrorsTest, WhatIsNoMailIsLeftAloneAndTold)
{
    TieBoth();
    WriteFile(root / "target", MailText("t", "target"));
    fs::create_symlink(root / "target", Cur("A", "link:2,"));
    fs::create_directory(Cur("A", "directory"));
    ASSERT_EQ(mkfifo(Cur("A", "pipe").c_str(), 0600), 0);
    WriteFile(Cur("A", "empty"), "");
    WriteFile(Cur("A", "no mail"), "\x01\x02\x03");
    WriteFile(Cur("A", ".hidden"), MailText("h", "hidden"));

    Settle();

    EXPECT_THAT(Items("A"), IsEmpty());
    for (const char* const name : {"link:2,", "directory", "pipe", "empty", "no mail"}) {
        EXPECT_TRUE(fs::exists(fs::symlink_status(Cur("A", name)))) << name;
        EXPECT_THAT(said, Contains(HasSubstr(std::string("cur/") + name + ": "))) << name;
    }
    EXPECT_EQ(records.All()[0].leftAlone, 5);
}

// That a file is about to be written is noted before it, so that one that isn't there yet isn't taken for one
// that was deleted.
TEST_F(MirrorsTest, ADeliveryThatWasCutShortIsDoneByTheNextRun)
{
    TieBoth();
    AddItem("A", MailText("1", "one"));
    AddItem("A", MailText("2", "two"));
    const Mirror mirror = records.All()[0];
    Maildir maildir(PathTo("A"));
    maildir.Open();
    Trash trash(mailbox);
    MirrorFolder folder(session, trash, mirror, "alice");
    MirrorPlan plan;
    for (const MailItem& item : folder.Items()) {
        plan.steps.emplace_back().kind = MirrorStep::Kind::kDeliver;
        plan.steps.back().mirror = mirror.number;
        plan.steps.back().item = item;
    }
    int asked = 0;
    MirrorSteps steps(
        records, session, {{mirror.number, {&mirror, &maildir, &folder}}},
        [](const MirrorStep&, const std::string& line) { ADD_FAILURE() << line; },
        [&] { return ++asked > 3; });
    steps.Run(plan);
    EXPECT_THAT(Files("A"), SizeIs(1));
    EXPECT_THAT(records.PairsOf(mirror.number), SizeIs(2));

    Settle();

    EXPECT_THAT(Files("A"), SizeIs(2));
    EXPECT_THAT(Items("A"), SizeIs(2));
    EXPECT_THAT(trash.Entries(), IsEmpty());
}

TEST_F(MirrorsTest, AnotherRunGoesOnWhereOneEnded)
{
    TieBoth();
    WriteFile(New("A", "1.x"), MailText("1", "one"));
    AddItem("B", MailText("2", "two"));
    Settle();
    const auto names = FileNames("B");
    Restart();

    EXPECT_TRUE(mirrors->Look());
    EXPECT_EQ(FileNames("B"), names);
    EXPECT_THAT(Items("A"), SizeIs(1));
}

}  // namespace

}  // namespace quorvane::host
