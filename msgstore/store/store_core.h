// msgstore/store/store_core.h: one open store file, shared by everything in the process that uses it.
//
// There is one connection that writes, under one lock, and as many that read as threads read at once; a
// reader sees the last committed state throughout its transaction and never waits for the writer.
//
// Deferred writes may be gathered: those of some time are one transaction, which everyone in this process
// reads in, on its connection and under its lock, and nobody else until it is committed. Where that fails the
// store is lost to this process until it is opened anew: what was written there isn't, and others rest on it.
#ifndef QUORVANE_MSGSTORE_STORE_STORE_CORE_H_
#define QUORVANE_MSGSTORE_STORE_STORE_CORE_H_

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "msgstore/props/property_names.h"
#include "msgstore/store/deadline_thread.h"
#include "msgstore/store/entry_id.h"
#include "msgstore/store/sqlite_connection.h"
#include "msgstore/store/test_switches.h"
#include "platform/com/mutex.h"
#include "platform/file/file_stamp.h"

namespace quorvane {

// When a write is on the disk.
enum class Durability {
    AtReturn,  // the write and all deferred ones before it
    Deferred,  // with the next write that is not; until then a power failure may take it back as a whole
};

// How long a step of a long work goes on.
inline constexpr std::chrono::milliseconds kLongestStep{40};

// The time of one step, from its making on.
class StepTime {
public:
    using Clock = std::chrono::steady_clock;

    explicit StepTime(std::chrono::milliseconds longest = kLongestStep) : end_(Clock::now() + longest) {}
    Clock::time_point End() const noexcept { return end_; }
    bool IsOver() const noexcept { return Clock::now() >= end_; }

private:
    const Clock::time_point end_;
};

class StoreCore;

// Told that something was committed to the store by this process.
class CommitListener {
public:
    virtual ~CommitListener() = default;
    // Any thread that writes, holding no lock of the store. Must return soon.
    virtual void Committed() noexcept = 0;
    // IStoreTestSwitches::Deliver. S_FALSE: this listener has no such subscription on the store; `number` has
    // become less by those that it has.
    [[nodiscard]] virtual HRESULT Deliver(const StoreCore& core, ULONG& number, ULONG& told) noexcept = 0;
};

// Threading: any thread may call.
class StoreCore : public std::enable_shared_from_this<StoreCore> {
public:
    using Work = std::function<HRESULT(SqliteConnection&)>;

    // Opens a store, or joins those in this process that have it open.
    //
    // path    [in]   of the file, UTF-8.
    // create  [in]   whether to make the file if there is none.
    // core    [out]  untouched on failure.
    //
    // S_OK; MAPI_E_NOT_FOUND: there is no such file; MAPI_E_CORRUPT_STORE: it's no store; MAPI_E_VERSION: it
    // is of a later version; MAPI_E_NO_ACCESS; others of SQLite's.
    [[nodiscard]] static HRESULT Open(const std::string& path, bool create,
                                      std::shared_ptr<StoreCore>& core) noexcept;
    ~StoreCore();

    const std::string& Path() const noexcept { return path_; }
    const ObjectGuid& Guid() const noexcept { return guid_; }

    // Runs `work` in a transaction that reads. It must not write, nor call Write.
    [[nodiscard]] HRESULT Read(const Work& work) noexcept;
    // Runs `work` in a transaction that writes, commits if it succeeds, and undoes all of it if anything
    // fails. It must not call Write in turn; a Read within it sees what stood before.
    [[nodiscard]] HRESULT Write(Durability durability, const Work& work) noexcept;

    // One more, or one less, who wants saves of messages not to wait for the disk.
    void PutOffSaves(bool one) noexcept { putOffs_ += one ? 1 : -1; }
    // One more, or one less, who wants deferred writes gathered. With the last what was gathered is
    // committed.
    //
    // S_OK; what the commit of what was gathered so far gives, now or before; E_OUTOFMEMORY: nothing is
    // gathered.
    [[nodiscard]] HRESULT Gather(bool one) noexcept;
    // How a message is saved that nobody wants deferred by itself.
    Durability OfSaves() const noexcept { return putOffs_ > 0 ? Durability::Deferred : Durability::AtReturn; }

    using Step = std::function<HRESULT(SqliteConnection&, const StepTime&)>;
    // Runs a long work in transactions of their own, each as short as `step` makes it, and lets others write
    // in between, also those of other processes. What is done when a step fails, or the process is killed,
    // stays done.
    //
    // step  gets the time that it has, and gives S_FALSE while there is more to do.
    [[nodiscard]] HRESULT WriteInSteps(const Step& step) noexcept;
    // Gives space that became free back to the file system once it is more than a small part of the file, a
    // MB a step. Does nothing in a file that was made before that could be done.
    [[nodiscard]] HRESULT GiveSpaceBack() noexcept;

    // The names of the store's properties from 0x8000 on. Lives as long as the core.
    PropertyNames& Names() noexcept;

    // The number of the last change that is in the file, whoever made it.
    [[nodiscard]] HRESULT LastChange(std::int64_t& number) noexcept;

    void AddListener(std::weak_ptr<CommitListener> listener);
    void TellListeners() noexcept;

    TestSwitches& Switches() noexcept { return switches_; }
    // As IStoreTestSwitches::Deliver.
    [[nodiscard]] HRESULT Deliver(ULONG number, ULONG& told) noexcept;

private:
    explicit StoreCore(std::string path) : path_(std::move(path)) {}
    [[nodiscard]] HRESULT Start(bool create);
    // Whether the path leads to the file that is open.
    bool LiesAt(const std::string& path) const noexcept;
    [[nodiscard]] HRESULT TakeReader(std::unique_ptr<SqliteConnection>& reader);
    void GiveReader(std::unique_ptr<SqliteConnection> reader) noexcept;
    [[nodiscard]] HRESULT ReadByReader(const Work& work);
    // done  [out]  false: nothing is gathered any more, and nothing was read.
    [[nodiscard]] HRESULT ReadByWriter(const Work& work, bool& done) QV_NO_THREAD_SAFETY_ANALYSIS;
    [[nodiscard]] HRESULT WriteLocked(Durability durability, const Work& work) QV_REQUIRES(writerLock_);
    [[nodiscard]] HRESULT WriteGathered(const Work& work) QV_REQUIRES(writerLock_);
    [[nodiscard]] HRESULT BeginGathering() QV_REQUIRES(writerLock_);
    [[nodiscard]] HRESULT CommitGathered() QV_REQUIRES(writerLock_);
    void EndGathering(HRESULT result) QV_REQUIRES(writerLock_);
    // Work on the writing connection, as the one that others of the same thread join.
    [[nodiscard]] HRESULT RunAsWriter(const Work& work) QV_REQUIRES(writerLock_);
    void LetOthersWrite() const;
    void CommitInTime() noexcept;
    [[nodiscard]] HRESULT SetDurability(Durability durability) QV_REQUIRES(writerLock_);
    std::vector<std::weak_ptr<CommitListener>> Listeners();

    const std::string path_;
    ObjectGuid guid_{};
    FileStamp file_{};  // as it was when it was opened

    Mutex writerLock_;
    SqliteConnection writer_ QV_GUARDED_BY(writerLock_);
    Durability durability_ QV_GUARDED_BY(writerLock_) = Durability::AtReturn;

    Mutex lock_;
    std::vector<std::unique_ptr<SqliteConnection>> readers_ QV_GUARDED_BY(lock_);
    std::vector<std::weak_ptr<CommitListener>> listeners_ QV_GUARDED_BY(lock_);

    std::atomic<int> putOffs_{0};

    std::atomic<int> gatherers_{0};
    std::optional<SqliteTransaction> gathered_ QV_GUARDED_BY(writerLock_);
    StepTime::Clock::time_point groupEnd_ QV_GUARDED_BY(writerLock_){};
    std::atomic<bool> isGathering_{false};                   // whether there is a `gathered_`
    std::atomic<std::thread::id> writingThread_{};           // which works on the writing connection
    std::atomic<StepTime::Clock::time_point> lastCommit_{};  // of what was gathered
    std::atomic<HRESULT> lost_{S_OK};                        // of the commit that failed
    std::unique_ptr<DeadlineThread> committer_ QV_GUARDED_BY(writerLock_);

    std::shared_ptr<PropertyNames> names_;
    TestSwitches switches_;
};

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_STORE_CORE_H_
