// Two mirrors, and somebody who does anything at any moment on both sides, beside a plain model of what is to
// become of each mail: none is lost, and none is there twice.
//
// QUORVANE_MIRROR_STEPS and QUORVANE_MIRROR_SEED make it longer, and another one.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <set>

#include "host/mirror/mirrored_mailbox_for_test.h"

namespace quorvane::host {

namespace {

constexpr int kSteps = 20'000;
constexpr std::size_t kMostMails = 40;
constexpr std::size_t kFewMails = 12;
constexpr int kMostRemoved = 4;  // of a round: more at once would have to be confirmed
constexpr int kRoundsBetweenChecks = 8;
const std::string kFolders[] = {"A", "B"};

// A side of one mail: what it says by its subject, and where it is.
struct Side {
    std::string subject;
    std::string folder;
    Marks marks = 0;
    bool isThere = true;

    bool operator==(const Side&) const = default;
};

// What is known of one mail.
struct Mail {
    Side file, item, agreed;
    bool isFileTouched = false;  // its content, its place or whether it is there, in this round
    bool isItemTouched = false;
};

int FromEnvironment(const char* name, int otherwise)
{
    const char* const value = std::getenv(name);
    return value ? std::atoi(value) : otherwise;
}

class MirrorAdversary : public ::testing::Test, protected MirroredMailbox {
protected:
    void SetUp() override
    {
        TieBoth();
        Restart();
        random_.seed(static_cast<unsigned>(FromEnvironment("QUORVANE_MIRROR_SEED", 20261123)));
    }

    std::size_t Below(std::size_t limit) { return random_() % limit; }
    const std::string& AnyFolder() { return kFolders[Below(2)]; }
    static const std::string& Other(const std::string& folder) { return kFolders[folder == "A" ? 1 : 0]; }
    std::string NewSubject() { return "subject " + std::to_string(++number_); }
    Marks AnyMarks() { return static_cast<Marks>(Below(kAllMarks + 1)); }

    // Mails lie on the disk as the adversary left them; found by their subjects.
    std::optional<SeenFile> FileOf(const Mail& mail)
    {
        for (const char* const part : {"new", "cur"})
            for (const auto& entry : fs::directory_iterator(PathTo(mail.file.folder) / part))
                if (fs::is_regular_file(entry.symlink_status()) &&
                    SubjectIn(entry.path()) == mail.file.subject)
                    return SeenFile{entry.path(), {}, {}};
        return std::nullopt;
    }
    const std::string& SubjectIn(const fs::path& path)
    {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0);
        const auto [known, isNew] = subjects_.try_emplace(
            std::to_string(status.st_ino) + " " + std::to_string(status.st_size) + " " +
            std::to_string(status.st_mtim.tv_sec) + " " + std::to_string(status.st_mtim.tv_nsec));
        if (isNew) {
            const std::string bytes = BytesOf(path);
            if (bytes.find("Subject: ") != std::string::npos)
                known->second = SubjectOf(bytes);
        }
        return known->second;
    }
    std::string ItemOf(const Mail& mail)
    {
        for (const auto& [id, subject] : SubjectsIn(mail.item.folder))
            if (subject == mail.item.subject)
                return id;
        ADD_FAILURE() << "no item says '" << mail.item.subject << "' in " << mail.item.folder;
        return {};
    }
    std::vector<std::pair<std::string, std::string>> SubjectsIn(const std::string& folder)
    {
        std::vector<std::pair<std::string, std::string>> found;
        ForEachItem(*folders[folder],
                    [&](const ItemInfo& info) { found.emplace_back(info.entryId, info.subject); });
        return found;
    }

    // A name with anything that programs put into it.
    std::string AnyName(Marks marks)
    {
        std::string base = std::to_string(1'000'000 + Below(1'000'000)) + ".N" + std::to_string(++number_);
        if (Below(3) == 0)
            base += ",U=" + std::to_string(Below(100));
        return base + ":2," + InfoWith(Below(4) == 0 ? "ab" : "", marks);
    }

    void DeliverFile()
    {
        Mail mail;
        mail.file = {NewSubject(), AnyFolder(), 0, true};
        const bool isNew = Below(2) == 0;
        const bool hasInfo = !isNew || Below(2) == 0;  // some programs write it in new/ too
        mail.file.marks = hasInfo ? AnyMarks() : Marks{0};
        std::string name = AnyName(mail.file.marks);
        if (!hasInfo)
            name = MaildirName(name).base;
        const fs::path aside = PathTo(mail.file.folder) / "tmp" / name;
        WriteFile(aside, TextOf(mail.file.subject));
        fs::rename(aside, isNew ? New(mail.file.folder, name) : Cur(mail.file.folder, name));
        mail.item.isThere = mail.agreed.isThere = false;
        mail.isFileTouched = mail.isItemTouched = true;
        mails_.push_back(mail);
    }
    void MakeItem()
    {
        Mail mail;
        mail.item = {NewSubject(), AnyFolder(), AnyMarks(), true};
        AddItem(mail.item.folder, TextOf(mail.item.subject), mail.item.marks);
        mail.file.isThere = mail.agreed.isThere = false;
        mail.isFileTouched = mail.isItemTouched = true;
        mails_.push_back(mail);
    }
    std::string TextOf(const std::string& subject)
    {
        return MailText(std::to_string(++number_), subject, std::string(Below(200), 'x'));
    }

    // One that is there on that side, and wasn't touched there in this round.
    Mail* AnyMail(bool ofFiles)
    {
        for (int i = 0; i < 20 && !mails_.empty(); ++i) {
            Mail& mail = mails_[Below(mails_.size())];
            if (ofFiles ? mail.file.isThere && !mail.isFileTouched : mail.item.isThere && !mail.isItemTouched)
                return &mail;
        }
        return nullptr;
    }

    void ChangeFile(Mail& mail)
    {
        const auto file = FileOf(mail);
        ASSERT_TRUE(file) << "no file says '" << mail.file.subject << "' in " << mail.file.folder;
        const std::string name = file->path.filename().string();
        const fs::path directory = file->path.parent_path();
        switch (Below(7)) {
            case 0: {  // edited in place, to another length; at times in two steps
                mail.file.subject = NewSubject();
                const std::string text =
                    TextOf(mail.file.subject) + std::string(1 + Below(900) + ++longer_, 'y') + "\n";
                const bool isHalf = Below(3) == 0;
                WriteFile(file->path, text.substr(0, text.size() - (isHalf ? 20 : 0)));
                mail.isFileTouched = true;
                if (isHalf)
                    unfinished_ = text;
                return;
            }
            case 1: {  // another file in its place
                mail.file.subject = NewSubject();
                const fs::path aside = PathTo(mail.file.folder) / "tmp" / "aside";
                WriteFile(aside, TextOf(mail.file.subject) + std::string(++longer_, 'z') + "\n");
                fs::rename(aside, file->path);
                mail.isFileTouched = true;
                return;
            }
            case 2:
            case 3: {  // moved, by a rename or by a copy
                mail.file.folder = Other(mail.file.folder);
                mail.file.marks = AnyMarks();
                const fs::path target = Cur(mail.file.folder, AnyName(mail.file.marks));
                if (Below(2) == 0) {
                    fs::rename(file->path, target);
                } else {
                    fs::copy_file(file->path, target);
                    fs::remove(file->path);
                }
                mail.isFileTouched = true;
                return;
            }
            case 4: {  // a program gives it another unique name
                const fs::path target = directory / (std::to_string(++number_) + ".other" +
                                                     name.substr(std::min(name.size(), name.rfind(":2,"))));
                fs::rename(file->path, target);
                mail.isFileTouched = true;
                return;
            }
            default:  // marked
                MarkFile(mail, file->path);
        }
    }
    void MarkFile(Mail& mail, const fs::path& path)
    {
        mail.file.marks = AnyMarks();
        const MaildirName name(path.filename().string());
        fs::rename(path, Cur(mail.file.folder, name.base + ":2," + InfoWith(name.info, mail.file.marks)));
    }
    void RemoveFile()
    {
        Mail* const mail = MayRemove() ? AnyMail(true) : nullptr;
        if (!mail)
            return;
        const auto file = FileOf(*mail);
        ASSERT_TRUE(file) << mail->file.subject;
        fs::remove(file->path);
        mail->file.isThere = false;
        mail->isFileTouched = true;
    }
    bool MayRemove() { return mails_.size() > kFewMails && removed_ < kMostRemoved && ++removed_ > 0; }

    void ChangeItem(Mail& mail)
    {
        const std::string id = ItemOf(mail);
        ASSERT_FALSE(id.empty());
        switch (Below(4)) {
            case 0:
                mail.item.subject = NewSubject();
                EditItem(id, mail.item.subject);
                mail.isItemTouched = true;
                return;
            case 1:
                MoveItem(mail.item.folder, Other(mail.item.folder), id);
                mail.item.folder = Other(mail.item.folder);
                mail.isItemTouched = true;
                return;
            default:
                mail.item.marks = AnyMarks();
                ASSERT_TRUE(SetMarks(session, id, mail.item.marks, kAllMarks));
        }
    }
    void RemoveItem()
    {
        Mail* const mail = MayRemove() ? AnyMail(false) : nullptr;
        if (!mail)
            return;
        DeleteItem(mail->item.folder, ItemOf(*mail));
        mail->item.isThere = false;
        mail->isItemTouched = true;
    }

    // What is no mail of anybody's, or not yet.
    void MakeJunk()
    {
        const fs::path path = Cur(AnyFolder(), "junk" + std::to_string(++number_) + ":2,S");
        switch (Below(5)) {
            case 0:
                WriteFile(path, "");
                break;
            case 1:
                WriteFile(path, std::string("\x00\xff\xfe", 3));
                break;
            case 2:
                fs::create_directory(path);
                break;
            case 3:
                ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
                break;
            default:
                fs::create_symlink(root / "box", path);
        }
        junk_.push_back(path);
        if (junk_.size() > 12) {
            fs::remove_all(junk_.front());
            junk_.erase(junk_.begin());
        }
    }
    // A file whose unique name another one has, of which a program makes a mail of its own later.
    void MakeDouble()
    {
        Mail* const mail = AnyMail(true);
        const auto file = mail ? FileOf(*mail) : std::nullopt;
        if (!file)
            return;
        const std::string base = MaildirName(file->path.filename().string()).base;
        const fs::path twin = file->path.parent_path().filename() == "cur"
                                  ? New(mail->file.folder, base)
                                  : Cur(mail->file.folder, base + ":2,S");
        const std::string text = TextOf(NewSubject());
        WriteFile(twin, text);
        mirrors->Look();
        const bool isStill = fs::exists(twin);
        EXPECT_TRUE(isStill) << twin;
        if (!isStill)
            return;
        Mail other;
        other.file = {SubjectOf(text), mail->file.folder, kMarkRead, true};
        fs::rename(twin, Cur(mail->file.folder, std::to_string(++number_) + ".single:2,S"));
        other.item.isThere = other.agreed.isThere = false;
        other.isFileTouched = other.isItemTouched = true;
        mail->isFileTouched = mail->isItemTouched = true;  // it was looked at in the midst of a round
        Agree();
        mails_.push_back(other);
    }
    // The Maildir isn't there for a while, and nothing is concluded from that.
    void Vanish()
    {
        const fs::path path = Below(2) == 0 ? PathTo(AnyFolder()) : PathTo(AnyFolder()) / "cur";
        fs::rename(path, root / "away");
        if (Below(2) == 0)
            Restart();
        mirrors->Look();
        fs::rename(root / "away", path);
    }

    void DoAnything()
    {
        const std::size_t what = Below(100);
        if (mails_.size() < kFewMails || (what < 8 && mails_.size() < kMostMails))
            return Below(2) == 0 ? DeliverFile() : MakeItem();
        if (what < 14)
            return RemoveFile();
        if (what < 20)
            return RemoveItem();
        if (what < 23)
            return MakeJunk();
        if (what < 24)
            return Restart();
        if (what < 62) {
            if (Mail* const mail = AnyMail(true))
                ChangeFile(*mail);
            return;
        }
        if (Mail* const mail = AnyMail(false))
            ChangeItem(*mail);
    }

    // What somebody wrote a half of was seen so, and is written to its end.
    void Finish()
    {
        const std::string text = std::exchange(unfinished_, {});
        if (text.empty())
            return;
        Settle();
        Agree();
        for (Mail& mail : mails_)
            if (mail.file.subject == SubjectOf(text)) {
                const auto file = FileOf(mail);
                ASSERT_TRUE(file);
                WriteFile(file->path, text);
                mail.isFileTouched = mail.isItemTouched = true;
            }
    }

    // What becomes of a mail when both sides agree.
    void Agree()
    {
        std::vector<Mail> next;
        for (const Mail& mail : mails_) {
            const auto isChanged = [&](const Side& side) {
                return !side.isThere || side.subject != mail.agreed.subject ||
                       side.folder != mail.agreed.folder;
            };
            if (!mail.agreed.isThere) {
                AddAgreed(next, mail.file.isThere ? mail.file : mail.item);
            } else if (!mail.file.isThere || !mail.item.isThere) {
                const Side& left = mail.file.isThere ? mail.file : mail.item;
                if (left.isThere && isChanged(left))
                    AddAgreed(next, left);
            } else if (mail.file.subject != mail.agreed.subject && mail.item.subject != mail.agreed.subject) {
                AddAgreed(next, mail.file);
                AddAgreed(next, mail.item);
            } else {
                Side both = mail.file.subject != mail.agreed.subject ? mail.file : mail.item;
                both.folder = mail.file.folder != mail.agreed.folder ? mail.file.folder : mail.item.folder;
                both.marks = AgreeOnMarks(mail.agreed.marks, mail.file.marks, mail.item.marks);
                AddAgreed(next, both);
            }
        }
        mails_ = std::move(next);
        removed_ = 0;
    }
    static void AddAgreed(std::vector<Mail>& mails, const Side& side)
    {
        mails.emplace_back();
        mails.back().file = mails.back().item = mails.back().agreed = side;
    }

    // Both sides show the mails of the model, each once, with the same bytes.
    void Check(int step)
    {
        std::map<std::string, const Mail*> expected;
        for (const Mail& mail : mails_)
            EXPECT_TRUE(expected.emplace(mail.agreed.subject, &mail).second);
        std::size_t files = 0, items = 0;
        for (const std::string& folder : kFolders) {
            std::map<std::string, std::string> bytes;
            for (const SeenFile& file : Files(folder)) {
                if (file.bytes.find("Subject: ") == std::string::npos)
                    continue;  // junk
                const auto found = expected.find(SubjectOf(file.bytes));
                ASSERT_NE(found, expected.end())
                    << "in step " << step << ": " << file.path << ": " << SubjectOf(file.bytes);
                EXPECT_EQ(found->second->agreed.folder, folder) << "in step " << step << ": " << file.path;
                EXPECT_EQ(found->second->agreed.marks, file.marks) << "in step " << step << ": " << file.path;
                bytes[found->first] = file.bytes;
                ++files;
            }
            for (const SeenItem& item : Items(folder)) {
                const std::string subject = SubjectOf(item.bytes);
                const auto found = expected.find(subject);
                ASSERT_NE(found, expected.end()) << "in step " << step << ": the item '" << subject << "'";
                EXPECT_EQ(found->second->agreed.marks, item.marks) << "in step " << step << ": " << subject;
                EXPECT_EQ(bytes[subject], item.bytes) << "in step " << step;
                ++items;
            }
        }
        EXPECT_EQ(files, mails_.size()) << "in step " << step;
        EXPECT_EQ(items, mails_.size()) << "in step " << step;
        for (const fs::path& junk : junk_)
            EXPECT_TRUE(fs::exists(fs::symlink_status(junk))) << junk;
    }

    std::mt19937 random_;
    std::vector<Mail> mails_;
    std::vector<fs::path> junk_;
    std::map<std::string, std::string> subjects_;  // of files, by their looks
    std::string unfinished_;
    int number_ = 0;
    int removed_ = 0;
    std::size_t longer_ = 0;
};

TEST_F(MirrorAdversary, NoMailIsLostAndNoneIsThereTwice)
{
    const int steps = FromEnvironment("QUORVANE_MIRROR_STEPS", kSteps);
    int round = 0;
    for (int step = 0; step < steps && !HasFailure(); ++round) {
        for (std::size_t left = 1 + Below(14); left > 0; --left, ++step)
            DoAnything();
        Finish();
        Settle();
        Agree();
        if (Below(20) == 0)
            Vanish();
        if (Below(6) == 0)
            MakeDouble();
        if (round % kRoundsBetweenChecks == 0 || step >= steps) {
            Settle();
            Agree();
            Check(step);
        }
    }
}

}  // namespace

}  // namespace quorvane::host
