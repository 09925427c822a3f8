// The message store on a disk that goes wrong at every change that it makes, one after the other: each call
// has happened or hasn't, never by half, and the next attempt on a whole disk succeeds.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>

#include "quorvane3/commit_groups.h"
#include "quorvane3/message_store.h"
#include "quorvane3/storage.h"
#include "tests/fault/disk.h"
#include "tests/fault/sqlite_file.h"
#include "tests/fault/whole_mail.h"
#include "tests/support/test_mailbox.h"

namespace quorvane::test {
namespace {

constexpr char kStoreFile[] = "store.sqlite";
constexpr char kBelow[] = "Below";

// Two folders, "first" and "second", and maybe a third one below the first. What is in them is told in a
// text: the letters of the mails in the first, a bar, those in the second, and, if there is a folder below,
// its letters in parentheses.
class StoreDiskTest : public testing::TestWithParam<DiskTrouble> {
protected:
    using Change = std::function<HRESULT()>;

    StoreDiskTest() { OpenFolders(); }

    void OpenFolders()
    {
        first.emplace(firstId.empty() ? mailbox.MakeFolder("first") : mailbox.OpenFolder(firstId));
        second.emplace(secondId.empty() ? mailbox.MakeFolder("second") : mailbox.OpenFolder(secondId));
        firstId = first->EntryId();
        secondId = second->EntryId();
    }

    void LogOff()
    {
        first.reset();
        second.reset();
        mailbox.LogOff();
    }
    void LogOn()
    {
        mailbox.LogOn();
        OpenFolders();
    }

    ComPtr<IMAPIFolder> FolderBelow()
    {
        ComPtr<IMAPITable> table;
        Check(first->Folder().GetHierarchyTable(0, table.Put()), "list folders");
        SizedSPropTagArray(1, columns) = {1, {PR_ENTRYID}};
        SRowSet* rows = nullptr;
        Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                             &rows),
              "list folders");
        const std::string id = rows->cRows > 0 ? HexOf(rows->aRow[0].lpProps[0].Value.bin) : "";
        FreeProws(rows);
        return id.empty() ? nullptr : ComPtr<IMAPIFolder>(&mailbox.OpenFolder(id).Folder());
    }

    std::string State()
    {
        std::string state = LettersOf(first->Folder()) + "|" + LettersOf(second->Folder());
        if (const ComPtr<IMAPIFolder> below = FolderBelow())
            state += "(" + LettersOf(*below.Get()) + ")";
        return state;
    }

    static HRESULT Add(IMAPIFolder& folder, char letter, ULONG flags = 0)
    {
        ComPtr<IMessage> message;
        Check(folder.CreateMessage(nullptr, 0, message.Put()), "make a mail");
        FillWhole(*message.Get(), letter);
        return message->SaveChanges(flags);
    }

    void SetState(const std::string& state)
    {
        Check(first->Folder().EmptyFolder(0, nullptr, 0), "empty a folder");
        Check(second->Folder().EmptyFolder(0, nullptr, 0), "empty a folder");
        IMAPIFolder* place = &first->Folder();
        ComPtr<IMAPIFolder> below;
        for (const char letter : state) {
            if (letter == '|') {
                place = &second->Folder();
            } else if (letter == '(') {
                Check(MakeBelow(below), "make a folder");
                place = below.Get();
            } else if (letter != ')') {
                Check(Add(*place, letter), "save a mail");
            }
        }
        ASSERT_EQ(State(), state);
    }

    HRESULT MakeBelow(ComPtr<IMAPIFolder>& below)
    {
        return first->Folder().CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(kBelow), nullptr, nullptr, 0,
                                            below.Put());
    }

    // Calls `use` with the identifiers of the mails in the first folder that have one of these letters.
    HRESULT WithIds(const std::string& letters, const std::function<HRESULT(ENTRYLIST&)>& use)
    {
        std::vector<std::vector<BYTE>> ids;
        for (const char letter : letters)
            ids.push_back(IdOf(letter));
        std::vector<SBinary> binaries;
        for (auto& id : ids)
            binaries.push_back({static_cast<ULONG>(id.size()), id.data()});
        ENTRYLIST list{static_cast<ULONG>(binaries.size()), binaries.data()};
        return use(list);
    }

    std::vector<BYTE> IdOf(char letter)
    {
        const auto id = first->Find(std::string(1, letter));
        if (!id)
            throw std::runtime_error("no such mail");
        std::vector<BYTE> bytes(id->size() / 2);
        FBinFromHex(const_cast<LPTSTR>(id->c_str()), bytes.data());
        return bytes;
    }
    ComPtr<IMessage> Open(char letter)
    {
        return first->Open(*first->Find(std::string(1, letter)), MAPI_MODIFY);
    }

    // The file by itself: sound, and without rows that belong to nothing.
    void ExpectSound()
    {
        const std::string path = mailbox.StorePath().string();
        EXPECT_EQ(AskSqlite(path, "PRAGMA integrity_check"), "ok");
        EXPECT_EQ(AskSqlite(path, "SELECT id FROM part WHERE message_id NOT IN (SELECT id FROM message)"),
                  "");
        EXPECT_EQ(AskSqlite(path, "SELECT id FROM large_value WHERE part_id NOT IN (SELECT id FROM part)"),
                  "");
        EXPECT_EQ(
            AskSqlite(path, "SELECT value_id FROM chunk WHERE value_id NOT IN (SELECT id FROM large_value)"),
            "");
    }

    // Makes the change with the trouble at the first change of the disk, the second, and so on until none is
    // met; the store is closed and opened again each time.
    //
    // between  what may be left, too, by a change that comes in steps: each is then one mail's.
    void FailEverywhere(const std::string& before, const std::string& after, const Change& change,
                        const std::set<std::string>& between = {})
    {
        for (unsigned at = 1;; ++at) {
            SCOPED_TRACE("change " + std::to_string(at));
            SetState(before);
            LogOff();
            LogOn();
            if (!between.empty())
                Check(mailbox.StoreSwitches()->HurrySteps(TRUE), "hurry");
            Disk::Break(GetParam(), at, kStoreFile);
            const HRESULT hr = change();
            LogOff();
            const unsigned changes = Disk::Repair();
            ExpectSound();
            LogOn();
            std::set<std::string> afterFailure = between;
            afterFailure.insert(before);
            ExpectOneOf(afterFailure, after, hr);
            if (State() != after) {
                EXPECT_EQ(change(), S_OK);
            }
            EXPECT_EQ(State(), after);
            if (HasFailure() || changes < at) {
                EXPECT_GT(at, 5u);
                return;
            }
        }
    }

    // What is in the first folder when the disk is whole again: sound, and whole mails alone.
    std::string LettersOnTheWholeDisk(unsigned& changes)
    {
        LogOff();
        changes = Disk::Repair();
        ExpectSound();
        LogOn();
        std::string there = LettersOf(first->Folder());
        EXPECT_EQ(there.find('?'), std::string::npos) << there;
        return there;
    }

    void ExpectOneOf(const std::set<std::string>& afterFailure, const std::string& after, HRESULT hr)
    {
        const std::string state = State();
        EXPECT_TRUE(state == after || (FAILED(hr) && afterFailure.contains(state)))
            << state << " after " << std::hex << static_cast<unsigned>(hr);
    }

    TestMailbox mailbox;
    std::string firstId;
    std::string secondId;
    std::optional<TestFolder> first;
    std::optional<TestFolder> second;
};

TEST_P(StoreDiskTest, ANewMailIsThereOrNot)
{
    FailEverywhere("a|", "ab|", [&] { return Add(first->Folder(), 'b'); });
}

TEST_P(StoreDiskTest, AChangedMailIsTheOldOneOrTheNewOne)
{
    FailEverywhere("a|", "b|", [&] {
        const ComPtr<IMessage> message = Open('a');
        FillWhole(*message.Get(), 'b');
        return message->SaveChanges(KEEP_OPEN_READWRITE);
    });
}

TEST_P(StoreDiskTest, AMailCopiedIntoAnotherIsThereOrNot)
{
    FailEverywhere("a|", "a|a", [&] {
        ComPtr<IMessage> copy;
        Check(second->Folder().CreateMessage(nullptr, 0, copy.Put()), "make a mail");
        const HRESULT hr =
            Open('a')->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, copy.Get(), 0, nullptr);
        return FAILED(hr) ? hr : copy->SaveChanges(0);
    });
}

TEST_P(StoreDiskTest, AMailBroughtInFromAFileIsThereOrNot)
{
    ComPtr<ILockBytes> bytes;
    ComPtr<IStorage> storage;
    ComPtr<IMessage> outside;
    ASSERT_EQ(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Put()), S_OK);
    ASSERT_EQ(StgCreateDocfileOnILockBytes(bytes.Get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE,
                                           0, storage.Put()),
              S_OK);
    ASSERT_EQ(OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                             MAPIGetDefaultMalloc(), nullptr, storage.Get(), nullptr, 0, 0, outside.Put()),
              S_OK);
    FillWhole(*outside.Get(), 'x');
    ASSERT_EQ(outside->SaveChanges(KEEP_OPEN_READWRITE), S_OK);

    FailEverywhere("a|", "ax|", [&] {
        ComPtr<IMessage> message;
        Check(first->Folder().CreateMessage(nullptr, 0, message.Put()), "make a mail");
        const HRESULT hr =
            outside->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, message.Get(), 0, nullptr);
        return FAILED(hr) ? hr : message->SaveChanges(0);
    });
}

TEST_P(StoreDiskTest, OfMailsThatAreDeletedEachIsThereOrNot)
{
    const Change deleteBoth = [&] {
        const std::string there = LettersOf(first->Folder());
        return WithIds(there.substr(0, there.find('c')),
                       [&](ENTRYLIST& list) { return first->Folder().DeleteMessages(&list, 0, nullptr, 0); });
    };
    FailEverywhere("abc|", "c|", deleteBoth, {"bc|"});
}

TEST_P(StoreDiskTest, OfMailsThatAreMovedEachIsHereOrThere)
{
    const Change moveThose = [&] {
        const std::string there = LettersOf(first->Folder());
        return WithIds(there.substr(0, there.find('c')), [&](ENTRYLIST& list) {
            return first->Folder().CopyMessages(&list, nullptr, &second->Folder(), 0, nullptr, MESSAGE_MOVE);
        });
    };
    FailEverywhere("abc|", "c|ab", moveThose, {"bc|a"});
}

TEST_P(StoreDiskTest, OfMailsThatAreCopiedEachCopyIsThereOrNot)
{
    const Change copyWhatLacks = [&] {
        return WithIds(LettersOf(second->Folder()).empty() ? "ab" : "b", [&](ENTRYLIST& list) {
            return first->Folder().CopyMessages(&list, nullptr, &second->Folder(), 0, nullptr, 0);
        });
    };
    FailEverywhere("ab|", "ab|ab", copyWhatLacks, {"ab|a"});
}

TEST_P(StoreDiskTest, OfMailsThatAreMarkedAsReadEachIsOrNot)
{
    FailEverywhere("ab|", "AB|", [&] { return first->Folder().SetReadFlags(nullptr, 0, nullptr, 0); },
                   {"Ab|"});
}

TEST_P(StoreDiskTest, AFolderIsMadeOrNot)
{
    FailEverywhere("a|", "a|()", [&] {
        ComPtr<IMAPIFolder> made;
        return MakeBelow(made);
    });
}

TEST_P(StoreDiskTest, AFolderGoesBehindItsMailsOrStaysWithWhatIsLeftOfThem)
{
    const Change deleteFolder = [&] {
        std::vector<BYTE> id;
        {
            const ComPtr<IMAPIFolder> below = FolderBelow();
            SPropValue* value = nullptr;
            Check(HrGetOneProp(below.Get(), PR_ENTRYID, &value), "read an identifier");
            id.assign(value->Value.bin.lpb, value->Value.bin.lpb + value->Value.bin.cb);
            MAPIFreeBuffer(value);
        }
        return first->Folder().DeleteFolder(static_cast<ULONG>(id.size()),
                                            reinterpret_cast<LPENTRYID>(id.data()), 0, nullptr, DEL_MESSAGES);
    };
    FailEverywhere("a|(bc)", "a|", deleteFolder, {"a|(c)", "a|()"});
}

using StorePowerCutTest = StoreDiskTest;

// As a run applies many: none waits for the disk until they are to.
TEST_P(StorePowerCutTest, SavesThatArePutOffAreOnTheDiskWithTheNextThatIsNot)
{
    bool isAnyTakenBack = false;
    for (unsigned at = 1;; at += 2) {
        SCOPED_TRACE("change " + std::to_string(at));
        SetState("a|");
        LogOff();
        LogOn();
        ComPtr<ICommitGroups> groups;
        ASSERT_EQ(mailbox.Store().QueryInterface(IID_ICommitGroups, groups.PutVoid()), S_OK);
        Disk::Break(GetParam(), at, kStoreFile);
        ASSERT_EQ(groups->PutOffWaiting(TRUE), S_OK);
        std::string saved = "a";
        for (const char letter : std::string("bc"))
            saved += SUCCEEDED(Add(first->Folder(), letter)) ? std::string(1, letter) : "";
        ASSERT_EQ(groups->PutOffWaiting(FALSE), S_OK);
        const HRESULT ended = Add(first->Folder(), 'd');
        saved += SUCCEEDED(ended) ? "d" : "";
        groups.Reset();
        unsigned changes = 0;
        const std::string there = LettersOnTheWholeDisk(changes);
        const bool isAllThere = std::includes(there.begin(), there.end(), saved.begin(), saved.end());
        EXPECT_TRUE(FAILED(ended) || isAllThere) << there << " of " << saved;
        isAnyTakenBack = isAnyTakenBack || !isAllThere;
        if (HasFailure() || changes < at)
            break;
    }
    EXPECT_TRUE(isAnyTakenBack);
}

// As the program imports.
TEST_P(StoreDiskTest, AnImportWhoseSavesAreGatheredLeavesWholeMailsOrFails)
{
    for (unsigned at = 1;; at += 5) {
        SCOPED_TRACE("change " + std::to_string(at));
        SetState("a|");
        LogOff();
        LogOn();
        ComPtr<IGatheredSaves> saves;
        ASSERT_EQ(mailbox.Store().QueryInterface(IID_IGatheredSaves, saves.PutVoid()), S_OK);
        Disk::Break(GetParam(), at, kStoreFile);
        ASSERT_EQ(saves->Gather(TRUE), S_OK);
        std::string saved = "a";
        for (const char letter : std::string("bcd"))
            saved +=
                SUCCEEDED(Add(first->Folder(), letter, MAPI_DEFERRED_ERRORS)) ? std::string(1, letter) : "";
        const HRESULT ended = mailbox.Store().SaveChanges(0);
        saves.Reset();
        unsigned changes = 0;
        const std::string there = LettersOnTheWholeDisk(changes);
        const bool isAllThere = std::includes(there.begin(), there.end(), saved.begin(), saved.end());
        EXPECT_TRUE(FAILED(ended) || isAllThere) << there << " of " << saved;
        if (HasFailure() || changes < at)
            break;
    }
}

// As an import saves: none of the mails waits for the disk, and the store is saved at the end.
TEST_P(StoreDiskTest, AnImportLeavesWholeMailsAndAllThatItAcknowledged)
{
    const std::string all = "bc";
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        SetState("a|");
        LogOff();
        LogOn();
        Disk::Break(GetParam(), at, kStoreFile);
        std::string saved = "a";
        for (const char letter : all)
            saved +=
                SUCCEEDED(Add(first->Folder(), letter, MAPI_DEFERRED_ERRORS)) ? std::string(1, letter) : "";
        const HRESULT ended = mailbox.Store().SaveChanges(0);
        unsigned changes = 0;
        const std::string there = LettersOnTheWholeDisk(changes);
        // Each no more than once. Only what a power cut takes back is missing.
        EXPECT_EQ(std::adjacent_find(there.begin(), there.end()), there.end()) << there;
        const bool mayMiss = GetParam() == DiskTrouble::kPowerCut && FAILED(ended);
        EXPECT_TRUE(mayMiss || std::includes(there.begin(), there.end(), saved.begin(), saved.end()))
            << there << " of " << saved;
        for (const char letter : all) {
            if (there.find(letter) == std::string::npos) {
                EXPECT_EQ(Add(first->Folder(), letter), S_OK);
            }
        }
        EXPECT_EQ(State(), "abc|");
        if (HasFailure() || changes < at) {
            EXPECT_EQ(saved, "abc");
            EXPECT_EQ(ended, S_OK);
            return;
        }
    }
}

// The names of properties are rows as well, made at their first use.
TEST_P(StoreDiskTest, APropertyNameThatCouldntBeMadeIsMadeLater)
{
    GUID set{0x4D3C1B5A, 0x2F6E, 0x4E21, {0x9A, 0x10, 0x77, 0x00, 0x3C, 0x51, 0xE2, 0x08}};
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        MAPINAMEID name{&set, MNID_ID, {static_cast<LONG>(at)}};
        MAPINAMEID* names = &name;
        const auto idOf = [&](ULONG flags) {
            SPropTagArray* tags = nullptr;
            const HRESULT hr = mailbox.Store().GetIDsFromNames(1, &names, flags, &tags);
            const ULONG id = hr == S_OK && tags ? PROP_ID(tags->aulPropTag[0]) : 0;
            MAPIFreeBuffer(tags);
            return id;
        };
        Disk::Break(GetParam(), at, kStoreFile);
        const ULONG tried = idOf(MAPI_CREATE);
        LogOff();
        const unsigned changes = Disk::Repair();
        ExpectSound();
        LogOn();
        const ULONG given = idOf(MAPI_CREATE);
        EXPECT_NE(given, 0u);
        EXPECT_TRUE(tried == 0 || tried == given);
        EXPECT_EQ(idOf(0), given);
        if (HasFailure() || changes < at)
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, StoreDiskTest,
                         testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull,
                                         DiskTrouble::kPowerCut),
                         [](const auto& trouble) { return NameOf(trouble.param); });

INSTANTIATE_TEST_SUITE_P(Disk, StorePowerCutTest, testing::Values(DiskTrouble::kPowerCut),
                         [](const auto& trouble) { return NameOf(trouble.param); });

// While it is open.
class OpenStoreTest : public testing::Test {
protected:
    TestMailbox mailbox;
    TestFolder folder = mailbox.MakeFolder("folder");
};

TEST_F(OpenStoreTest, AMailWhoseSaveFailedIsSavedOnceByTheNext)
{
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        ASSERT_EQ(folder.Folder().EmptyFolder(0, nullptr, 0), S_OK);
        ComPtr<IMessage> message;
        ASSERT_EQ(folder.Folder().CreateMessage(nullptr, 0, message.Put()), S_OK);
        FillWhole(*message.Get(), 'a');
        Disk::Break(DiskTrouble::kHiccup, at, kStoreFile);
        const HRESULT hr = message->SaveChanges(KEEP_OPEN_READWRITE);
        const unsigned changes = Disk::Repair();
        EXPECT_EQ(LettersOf(folder.Folder()), SUCCEEDED(hr) ? "a" : "");
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_EQ(LettersOf(folder.Folder()), "a");
        if (HasFailure() || changes < at) {
            EXPECT_GT(at, 5u);
            return;
        }
    }
}

// A profile whose service is given one new store after another.
class NewStoreTest : public testing::TestWithParam<DiskTrouble> {
protected:
    NewStoreTest()
    {
        ComPtr<IProfAdmin> profiles;
        Check(MAPIAdminProfiles(0, profiles.Put()), "administer profiles");
        Check(profiles->CreateProfile(Narrow("New"), nullptr, 0, 0), "make a profile");
        Check(profiles->AdminServices(Narrow("New"), nullptr, 0, 0, services_.Put()), "administer services");
        Check(services_->CreateMsgService(Narrow(kMessageStoreService), Narrow("Store"), 0, 0),
              "make a service");
        ComPtr<IMAPITable> table;
        Check(services_->GetMsgServiceTable(0, table.Put()), "list the services");
        SizedSPropTagArray(1, columns) = {1, {PR_SERVICE_UID}};
        SRowSet* rows = nullptr;
        Check(HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0,
                             &rows),
              "list the services");
        std::copy_n(rows->aRow[0].lpProps[0].Value.bin.lpb, sizeof uid_.ab, uid_.ab);
        FreeProws(rows);
    }

    HRESULT MakeStore(const std::string& path)
    {
        SPropValue value{};
        value.ulPropTag = kPrMessageStorePath;
        value.Value.lpszA = const_cast<LPSTR>(path.c_str());
        return services_->ConfigureMsgService(&uid_, 0, 0, 1, &value);
    }

    TestMailbox mailbox;

private:
    static LPTSTR Narrow(const char* text) { return const_cast<LPTSTR>(text); }

    ComPtr<IMsgServiceAdmin> services_;
    MAPIUID uid_{};
};

TEST_P(NewStoreTest, OneThatCouldntBeMadeIsMadeByTheNextAttempt)
{
    for (unsigned at = 1;; ++at) {
        SCOPED_TRACE("change " + std::to_string(at));
        const std::string path = (mailbox.Directory() / ("new" + std::to_string(at) + ".")).string();
        Disk::Break(GetParam(), at, path);
        const HRESULT hr = MakeStore(path);
        const unsigned changes = Disk::Repair();
        if (FAILED(hr)) {
            EXPECT_EQ(MakeStore(path), S_OK);
        }
        EXPECT_EQ(AskSqlite(path, "PRAGMA integrity_check"), "ok");
        EXPECT_EQ(AskSqlite(path, "SELECT count(*) FROM folder"), "6");
        if (HasFailure() || changes < at) {
            EXPECT_EQ(hr, S_OK);
            EXPECT_GT(at, 5u);
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Disk, NewStoreTest,
                         testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull,
                                         DiskTrouble::kPowerCut),
                         [](const auto& trouble) { return NameOf(trouble.param); });

}  // namespace
}  // namespace quorvane::test
