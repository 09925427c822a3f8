// Eight threads change ten shared folders while packages arrive. At the end every hash store knows every mail
// as its table shows it, and the host has heard of every change or of one that came after it.
//
// QUORVANE_STORM_SECONDS says how long (five), QUORVANE_STORM_SEED what is done.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "engine/persist/hash_db.h"
#include "engine/session/context/notification_gate.h"
#include "engine/session/library.h"
#include "engine/session/session.h"
#include "engine/storeaccess/item_hash.h"
#include "platform/clock/clock.h"
#include "platform/testing/surroundings.h"
#include "tests/support/packages.h"

namespace quorvane::model {
namespace {

using test::Check;
using test::HexOf;
using test::HostEvent;
using test::Text;

constexpr unsigned kFolders = 10;
constexpr unsigned kThreads = 8;
constexpr unsigned kMailsInAPackage = 4;
// So many mails are there at most; more are deleted.
constexpr size_t kMostMails = 400;
constexpr char kStormed[] = "storm ";

unsigned long NumberFrom(const char* variable, unsigned long otherwise)
{
    const char* const text = std::getenv(variable);
    return text && *text ? std::strtoul(text, nullptr, 10) : otherwise;
}

std::string FolderId(unsigned folder)
{
    return "{folder " + std::to_string(folder) + "}";
}

ComPtr<ILibrary> MakeLibrary()
{
    ComPtr<ILibrary> library;
    Check(MakeComObject<CLibrary>().As(library), "make the library");
    return library;
}

// A mailbox whose ten folders are shared.
struct Member {
    test::TestMailbox mailbox;
    std::vector<test::TestFolder> folders = MakeFolders(mailbox);
    test::TestLogon logon{mailbox, MakeLibrary()};
    std::vector<ComPtr<IFolder>> shared;

    Member()
    {
        for (unsigned folder = 0; folder < kFolders; ++folder)
            shared.push_back(logon.Share(folders[folder], FolderId(folder)));
    }
    static std::vector<test::TestFolder> MakeFolders(const test::TestMailbox& mailbox)
    {
        std::vector<test::TestFolder> made;
        for (unsigned folder = 0; folder < kFolders; ++folder)
            made.push_back(mailbox.MakeFolder("Folder " + std::to_string(folder)));
        return made;
    }
};

std::string TextOf(IMAPIProp& object, ULONG tag)
{
    SPropValue* value = nullptr;
    if (FAILED(HrGetOneProp(&object, tag, &value)))
        return {};
    const std::string text = ToUtf8(OleStringView(value->Value.lpszW));
    MAPIFreeBuffer(value);
    return text;
}

// A mail as its folder's table shows it.
struct Shown {
    std::string subject;
    FILETIME modified{};
    LONG flags = 0;
};

std::map<std::string, Shown> ReadTable(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    LPSRowSet rows = nullptr;
    Check(folder.GetContentsTable(0, table.Put()), "open a table");
    SizedSPropTagArray(4, columns) = {
        4, {PR_ENTRYID, PR_SUBJECT_W, PR_LAST_MODIFICATION_TIME, PR_MESSAGE_FLAGS}};
    Check(
        HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows),
        "read a table");
    std::map<std::string, Shown> shown;
    for (ULONG i = 0; i < rows->cRows; ++i) {
        const SPropValue* const values = rows->aRow[i].lpProps;
        shown[HexOf(values[0].Value.bin)] = {ToUtf8(OleStringView(values[1].Value.lpszW)), values[2].Value.ft,
                                             values[3].Value.l};
    }
    FreeProws(rows);
    return shown;
}

// What the host heard last about each mail.
class Heard {
public:
    void Note(const std::string& entryId, const std::string& subject)
    {
        const std::lock_guard lock(mutex_);
        subjects_[entryId] = subject;
        ++count_;
    }
    std::string About(const std::string& entryId) const
    {
        const std::lock_guard lock(mutex_);
        const auto found = subjects_.find(entryId);
        return found == subjects_.end() ? "nothing" : found->second;
    }
    size_t Count() const
    {
        const std::lock_guard lock(mutex_);
        return count_;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> subjects_;
    size_t count_ = 0;
};

// The mails that the storm knows of, wherever they are by now.
class Mails {
public:
    struct Mail {
        std::string entryId;
        unsigned folder = 0;
    };
    void Add(Mail mail)
    {
        const std::lock_guard lock(mutex_);
        mails_.push_back(std::move(mail));
    }
    void AddOnce(Mail mail)
    {
        const std::lock_guard lock(mutex_);
        if (arrived_.insert(mail.entryId).second)
            mails_.push_back(std::move(mail));
    }
    // Takes one away: what a thread works on is its own.
    bool Take(std::mt19937_64& random, Mail& mail)
    {
        const std::lock_guard lock(mutex_);
        if (mails_.empty())
            return false;
        std::swap(mails_[random() % mails_.size()], mails_.back());
        mail = std::move(mails_.back());
        mails_.pop_back();
        return true;
    }
    size_t Count() const
    {
        const std::lock_guard lock(mutex_);
        return mails_.size();
    }

private:
    mutable std::mutex mutex_;
    std::vector<Mail> mails_;
    std::set<std::string> arrived_;
};

// A mail that a package has brought is changed like any other, beside the packages that bring it again.
void AddArrived(const Member& member, const std::string& entryId, Mails& mails)
{
    SPropValue* parent = nullptr;
    try {
        const ComPtr<IMessage> mail = member.folders[0].Open(entryId);
        Check(HrGetOneProp(mail.Get(), PR_PARENT_ENTRYID, &parent), "find a mail's folder");
    } catch (const std::runtime_error&) {
        return;  // it's gone again
    }
    const std::string folderId = HexOf(parent->Value.bin);
    MAPIFreeBuffer(parent);
    for (unsigned folder = 0; folder < kFolders; ++folder) {
        if (member.folders[folder].EntryId() == folderId)
            mails.AddOnce({entryId, folder});
    }
}

// One of the threads that change things.
class Changer {
public:
    Changer(Member& member, Mails& mails, unsigned long seed)
        : member_(member), mails_(mails), random_(seed), name_(kStormed + std::to_string(seed) + " ")
    {}

    void ChangeUntil(const std::atomic<bool>& enough)
    {
        const FreeThreadScope thread;
        for (; !enough; ++changes_) {
            try {
                Change();
            } catch (const std::runtime_error&) {
                ++refused_;  // a package changed or deleted the mail meanwhile: the mail is left to it
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    unsigned long Changes() const { return changes_; }
    unsigned long Refused() const { return refused_; }

private:
    void Change()
    {
        const unsigned kind = static_cast<unsigned>(random_() % 100);
        Mails::Mail mail;
        if (kind < 25 && mails_.Count() < kMostMails)
            return Add();
        if (!mails_.Take(random_, mail))
            return;
        if (kind < 70)
            Edit(mail);
        else if (kind < 80)
            MarkRead(mail);
        else if (kind < 88)
            Move(mail);
        else
            return member_.folders[mail.folder].Delete(mail.entryId);
        mails_.Add(mail);
    }

    void Add()
    {
        const unsigned folder = static_cast<unsigned>(random_() % kFolders);
        mails_.Add({member_.folders[folder].Add(NewSubject(), "body"), folder});
    }
    void Edit(const Mails::Mail& mail)
    {
        member_.folders[mail.folder].SetSubject(mail.entryId, NewSubject());
    }
    void MarkRead(const Mails::Mail& mail)
    {
        const ComPtr<IMessage> message = member_.folders[mail.folder].Open(mail.entryId, MAPI_MODIFY);
        Check(message->SetReadFlag(random_() % 2 == 0 ? 0 : CLEAR_READ_FLAG), "mark a mail");
        Check(message->SaveChanges(0), "save a mail");
    }
    void Move(Mails::Mail& mail)
    {
        const unsigned to = static_cast<unsigned>(random_() % kFolders);
        std::vector<BYTE> bytes(mail.entryId.size() / 2);
        FBinFromHex(const_cast<char*>(mail.entryId.c_str()), bytes.data());
        SBinary id{static_cast<ULONG>(bytes.size()), bytes.data()};
        ENTRYLIST list{1, &id};
        Check(member_.folders[mail.folder].Folder().CopyMessages(
                  &list, nullptr, &member_.folders[to].Folder(), 0, nullptr, MESSAGE_MOVE),
              "move a mail");
        mail.folder = to;
    }
    std::string NewSubject() { return name_ + std::to_string(++subjects_); }

    Member& member_;
    Mails& mails_;
    std::mt19937_64 random_;
    const std::string name_;
    unsigned long subjects_ = 0;
    unsigned long changes_ = 0;
    unsigned long refused_ = 0;
};

class StormTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (std::filesystem::exists("/dev/shm"))
            test::KeepTemporaryFilesIn("/dev/shm");
        ReplacePauses([](std::chrono::microseconds) noexcept {});
    }
    void TearDown() override { ReplacePauses(nullptr); }

    // What another member has sent: a package a folder.
    static std::vector<std::filesystem::path> MakePackages(const test::TestDirectory& directory)
    {
        Member sender;
        for (const test::TestFolder& folder : sender.folders) {
            for (unsigned i = 0; i < kMailsInAPackage; ++i)
                folder.Add("arrived " + std::to_string(i), "body");
        }
        std::vector<std::filesystem::path> packages;
        for (const test::TestFolder& folder : sender.folders) {
            const auto taken =
                test::TakePackage(sender.logon, folder.EntryId(), kMailsInAPackage, sender.mailbox);
            packages.push_back(directory.Path() / std::to_string(packages.size()));
            std::filesystem::rename(taken, packages.back());
        }
        return packages;
    }
};

// Packages that arrive again and again, each a copy of one that was made before.
class Arrivals {
public:
    Arrivals(Member& member, std::vector<std::filesystem::path> packages)
        : member_(member), packages_(std::move(packages))
    {}

    void ArriveUntil(const std::atomic<bool>& enough, unsigned long seed)
    {
        const FreeThreadScope thread;
        std::mt19937_64 random(seed);
        while (!enough) {
            const auto path = member_.mailbox.InboxPath() / std::to_string(arrived_.size());
            std::filesystem::copy_file(packages_[random() % packages_.size()], path);
            Check(member_.logon.Session().ProcessStorageFile(Text(path.string()).Get(), Text("tag").Get()),
                  "hand a package over");
            arrived_.push_back(path);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    bool AreAllApplied() const
    {
        return std::none_of(arrived_.begin(), arrived_.end(),
                            [](const auto& path) { return std::filesystem::exists(path); });
    }
    size_t Count() const { return arrived_.size(); }

private:
    Member& member_;
    const std::vector<std::filesystem::path> packages_;
    std::vector<std::filesystem::path> arrived_;
};

// The store at its worst.
void TroubleUntil(IStoreTestSwitches& switches, const std::atomic<bool>& enough, unsigned long seed)
{
    std::mt19937_64 random(seed);
    while (!enough) {
        switches.HoldNotifications(random() % 4 == 0);
        switches.TellOfTablesOnly(random() % 4 == 0);
        switches.ShuffleNotifications(static_cast<ULONG>(random() % 1000));
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 100));
    }
    switches.TellOfTablesOnly(FALSE);
}

// Until no folder has anything left to tell.
void TellEverything(Member& member, IStoreTestSwitches& switches)
{
    Check(switches.HoldNotifications(TRUE), "hold notifications");
    const auto gate = static_cast<CSession2&>(member.logon.Session()).Notifications();
    for (bool any = true; std::exchange(any, false);) {
        for (unsigned folder = 0; folder < kFolders; ++folder) {
            ULONG told = 0;
            Check(switches.Deliver(folder, &told), "deliver what a folder has to tell");
            gate->WaitUntilEmpty();
            any |= told > 0;
        }
    }
}

// The engine looks for deleted mails when one is deleted. The first look lets a moved mail pass.
void HaveDeletionsSought(Member& member, IStoreTestSwitches& switches)
{
    for (int i = 0; i < 2; ++i) {
        std::vector<std::string> mails;
        for (const test::TestFolder& folder : member.folders)
            mails.push_back(folder.Add("to be deleted", "body"));
        TellEverything(member, switches);
        for (unsigned folder = 0; folder < kFolders; ++folder)
            member.folders[folder].Delete(mails[folder]);
        TellEverything(member, switches);
    }
}

void ExpectEverythingKnown(Member& member, const Heard& heard)
{
    auto& session = static_cast<CSession2&>(member.logon.Session());
    std::set<std::string> there;
    for (unsigned folder = 0; folder < kFolders; ++folder) {
        CHashDB* const hashes = session.HashStores().Find(Text(FolderId(folder)).Get());
        ASSERT_TRUE(hashes);
        for (const auto& [entryId, shown] : ReadTable(member.folders[folder].Folder())) {
            there.insert(entryId);
            Bstr hash;
            LONG flags = 0;
            ASSERT_EQ(hashes->GetHash(Text(entryId).Get(), hash.Put(), &flags), S_OK);
            EXPECT_EQ(ToUtf8(hash.View()), ToUtf8(ItemHash(shown.modified)))
                << shown.subject << " in folder " << folder << " " << entryId;
            EXPECT_EQ(flags, shown.flags) << shown.subject;
            if (shown.subject.starts_with(kStormed)) {
                EXPECT_EQ(heard.About(entryId), shown.subject) << entryId << " in folder " << folder;
            }
        }
    }
    for (const std::string& entryId : there)
        member.mailbox.Execute("DELETE FROM tblItem WHERE EntryID = '" + entryId + "'");
    EXPECT_EQ(member.mailbox.Query("SELECT count(*) FROM tblItem"), 0) << "rows of mails that are gone";
}

TEST_F(StormTest, EveryChangeIsHeardOfOrSuperseded)
{
    const unsigned long seed = NumberFrom("QUORVANE_STORM_SEED", std::random_device()());
    const std::chrono::seconds length(NumberFrom("QUORVANE_STORM_SECONDS", 5));
    std::cout << "QUORVANE_STORM_SEED=" << seed << std::endl;
    const test::TestDirectory directory;
    const std::vector<std::filesystem::path> packages = MakePackages(directory);

    // They outlive the logon, which the engine's threads call until it ends.
    Heard heard;
    Mails mails;
    Member member;
    const ComPtr<IStoreTestSwitches> switches = member.mailbox.StoreSwitches();
    member.logon.Host().AnswerWith([&](const HostEvent& event, bool&) {
        if (event.what == "postprocess")
            AddArrived(member, event.id, mails);
        if (event.what != "added" && event.what != "changed")
            return S_OK;
        try {
            heard.Note(event.entryId, TextOf(*member.folders[0].Open(event.entryId).Get(), PR_SUBJECT_W));
        } catch (const std::runtime_error&) {
            heard.Note(event.entryId, "gone");
        }
        return S_OK;
    });

    std::atomic<bool> enough{false};
    Arrivals arrivals(member, packages);
    std::vector<Changer> changers;
    for (unsigned i = 0; i < kThreads; ++i)
        changers.emplace_back(member, mails, seed + i);
    std::vector<std::thread> threads;
    for (Changer& changer : changers)
        threads.emplace_back([&] { changer.ChangeUntil(enough); });
    threads.emplace_back([&] { arrivals.ArriveUntil(enough, seed + kThreads); });
    threads.emplace_back([&] { TroubleUntil(*switches.Get(), enough, seed + kThreads + 1); });
    std::this_thread::sleep_for(length);
    enough = true;
    for (std::thread& thread : threads)
        thread.join();

    ASSERT_TRUE(test::Eventually([&] { return arrivals.AreAllApplied(); }));
    TellEverything(member, *switches.Get());
    HaveDeletionsSought(member, *switches.Get());
    unsigned long changes = 0;
    unsigned long refused = 0;
    for (const Changer& changer : changers) {
        changes += changer.Changes();
        refused += changer.Refused();
    }
    std::cout << changes << " changes, " << refused << " refused, " << arrivals.Count() << " packages, "
              << heard.Count() << " calls" << std::endl;
    EXPECT_GT(changes, 100u);
    EXPECT_GT(heard.Count(), 50u);
    ExpectEverythingKnown(member, heard);
}

}  // namespace
}  // namespace quorvane::model
