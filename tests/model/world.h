// tests/model/world.h: the engine at work on a mailbox, with every step under
// the test's control: changes are made one at a time, the engine hears of them
// when it is told to, and all that it remembers can be read.
#ifndef QUORVANE_TESTS_MODEL_WORLD_H_
#define QUORVANE_TESTS_MODEL_WORLD_H_

#include <functional>
#include <memory>

#include "tests/model/reference.h"
#include "tests/support/test_host.h"

struct IStoreTestSwitches;
struct sqlite3;
struct sqlite3_stmt;

namespace quorvane::model {

// A row of tblItem.
struct Row {
    Id id;
    std::string storeId;
    double lastModified = 0;
    double version = 0;
};

// Everything throws std::runtime_error. One thread.
class World {
public:
    // dropped  columns that contents tables lack.
    World(bool shortTermIds, bool tellsOfTablesOnly, const std::vector<ULONG>& dropped);
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    // The columns of a contents table as it is opened, of any store.
    static std::vector<ULONG> AllColumns();
    static std::array<std::string, kFolders> FolderIds() { return {"{left}", "{right}"}; }

    EntryId Add(unsigned folder, const std::string& subject);
    void Edit(const EntryId& entryId, const std::string& subject);
    void MarkRead(const EntryId& entryId, unsigned folder, bool read);
    void Move(const EntryId& entryId, unsigned from, unsigned to);
    EntryId Copy(const EntryId& entryId, unsigned from, unsigned to);
    void Delete(const EntryId& entryId, unsigned folder);
    // Sets what the store gives a mail: time and flags.
    void Describe(const EntryId& entryId, Mail& mail);

    void Lock(const EntryId& entryId, bool autoUnlock);
    HRESULT Unlock(const EntryId& entryId);
    bool IsLocked(const EntryId& entryId);
    void Suspend(unsigned folder, bool suspended);
    // Gives the folder a restriction, which changes nothing: only a resend takes
    // one.
    void Restrict(unsigned folder);
    void AnswerNext(const EntryId& entryId, Answer answer);
    // The session ends, and another begins. Between them the hash files may be
    // lost.
    void EndSession(bool forgets);

    // Tells the engine what happened in a folder, in an order drawn by the seed,
    // and waits until it has dealt with that. Gives the number of notifications.
    unsigned Deliver(unsigned folder, unsigned seed);
    // Resends a folder and waits for the end. Gives what its progress showed.
    std::vector<std::pair<long, long>> RunResend(const Resend& resend);
    void CancelResends();
    std::vector<Job> Jobs();
    // What the host heard since the last call.
    std::vector<Call> TakeCalls();

    std::map<EntryId, Row> Rows();
    // From the folder's file.
    std::map<EntryId, std::string> Hashes(unsigned folder) const;
    // Takes the package for these recipients as a transport does; a folder's ID
    // stands for its members.
    std::optional<Package> TakePackage(const std::string& recipients);
    // What recipients are called in the engine: a folder's members by its entry
    // identifier.
    std::string Address(const std::string& recipients) const;
    const std::string& StoreId() const { return folders_[0].StoreId(); }

private:
    void LogOn();
    void Select(const char* sql, const std::function<void(sqlite3_stmt*)>& read);
    std::filesystem::path HashFile(unsigned folder) const;
    const test::TestFolder& FolderOf(unsigned folder) const { return folders_.at(folder); }

    test::TestMailbox mailbox_;
    ComPtr<IStoreTestSwitches> switches_;
    std::vector<test::TestFolder> folders_;
    sqlite3* database_ = nullptr;
    std::map<EntryId, Answer> answers_;
    unsigned cancelAt_ = 0;
    unsigned resent_ = 0;
    std::unique_ptr<test::TestLogon> logon_;
    std::array<ComPtr<IFolder>, kFolders> shared_;
};

}  // namespace quorvane::model

#endif  // QUORVANE_TESTS_MODEL_WORLD_H_
