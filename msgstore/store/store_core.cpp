#include "msgstore/store/store_core.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>
#include <thread>

#include "msgstore/store/change_log.h"
#include "msgstore/store/schema.h"
#include "msgstore/store/store_names.h"

namespace quorvane {
namespace {

constexpr std::size_t kIdleReaders = 8;

// Between two steps of a long work: others that wait try more often.
constexpr std::chrono::milliseconds kGap{5};

// Free space is kept for what comes up to a MB, or to an eighth of the file.
constexpr std::int64_t kFreePagesKept = 256;
constexpr std::int64_t kFreePartKept = 8;
constexpr std::int64_t kIncrementalVacuum = 2;

HRESULT ReadPragma(SqliteConnection& connection, std::string_view sql, std::int64_t& number)
{
    SqliteRows rows = connection.Query(sql);
    if (rows.Next())
        number = rows.Int64(0);
    return rows.Result();
}

// The stores that are open in this process, by the true path of their files.
struct OpenStores {
    Mutex lock;
    std::map<std::string, std::weak_ptr<StoreCore>> byPath QV_GUARDED_BY(lock);
    // By each path that was given for one.
    std::map<std::string, std::weak_ptr<StoreCore>> byGivenPath QV_GUARDED_BY(lock);
};

OpenStores& AllOpenStores()
{
    static OpenStores stores;
    return stores;
}

HRESULT Run(const StoreCore::Work& work, SqliteConnection& connection) noexcept
{
    return Guarded([&] { return work(connection); });
}

HRESULT Commit(SqliteTransaction& transaction) noexcept
{
    return Guarded([&] { return transaction.Commit(); });
}

HRESULT FindTruePath(const std::string& path, bool create, std::string& truePath)
{
    std::error_code failure;
    // As UTF-8: a path of plain characters would be taken letter by letter on Windows.
    const std::filesystem::path given(std::u8string(path.begin(), path.end()));
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(given, failure);
    if (failure || path.empty())
        return MAPI_E_NOT_FOUND;
    const bool isThere = std::filesystem::exists(resolved, failure);
    if (!isThere && !(create && std::filesystem::is_directory(resolved.parent_path(), failure)))
        return MAPI_E_NOT_FOUND;
    if (isThere && std::filesystem::is_directory(resolved, failure))
        return MAPI_E_CORRUPT_STORE;
    truePath = resolved.string();
    return S_OK;
}

}  // namespace

HRESULT StoreCore::Open(const std::string& path, bool create, std::shared_ptr<StoreCore>& core) noexcept
{
    return Guarded([&] {
        OpenStores& stores = AllOpenStores();
        const MutexLock lock(stores.lock);
        std::weak_ptr<StoreCore>& given = stores.byGivenPath[path];
        if (auto opened = given.lock(); opened && opened->LiesAt(path)) {
            core = std::move(opened);
            return S_OK;
        }
        std::string truePath;
        QV_RETURN_IF_FAILED(FindTruePath(path, create, truePath));
        std::weak_ptr<StoreCore>& known = stores.byPath[truePath];
        std::shared_ptr<StoreCore> opened = known.lock();
        if (!opened) {
            opened.reset(new StoreCore(truePath));
            QV_RETURN_IF_FAILED(opened->Start(create));
            known = opened;
        }
        given = opened;
        core = std::move(opened);
        return S_OK;
    });
}

StoreCore::~StoreCore()
{
    // It works on this object.
    std::unique_ptr<DeadlineThread> committer;
    {
        const MutexLock lock(writerLock_);
        committer = std::move(committer_);
    }
}

bool StoreCore::LiesAt(const std::string& path) const noexcept
{
    FileStamp stamp;
    return SUCCEEDED(GetPathStamp(path, stamp)) && file_.volume != 0 && stamp.IsSameFile(file_);
}

HRESULT StoreCore::Start(bool create)
{
    const MutexLock lock(writerLock_);
    QV_RETURN_IF_FAILED(writer_.Open(path_, create ? SqliteAccess::CreateNew : SqliteAccess::Write));
    if (!create)
        QV_RETURN_IF_FAILED(CheckSchema(writer_));
    QV_RETURN_IF_FAILED(ConfigureWriter(writer_));
    QV_RETURN_IF_FAILED(create ? CreateSchema(writer_) : UpgradeSchema(writer_));
    SqliteRows rows = writer_.Query("SELECT guid FROM store");
    if (!rows.Next() || rows.Bytes(0).size() != guid_.size())
        return FAILED(rows.Result()) ? rows.Result() : MAPI_E_CORRUPT_STORE;
    std::copy_n(rows.Bytes(0).begin(), guid_.size(), guid_.begin());
    names_ = std::make_shared<StoreNames>(*this);
    if (FAILED(GetPathStamp(path_, file_)))
        file_ = {};  // it is looked for again each time that it is opened
    return S_OK;
}

PropertyNames& StoreCore::Names() noexcept
{
    return *names_;
}

HRESULT StoreCore::TakeReader(std::unique_ptr<SqliteConnection>& reader)
{
    {
        const MutexLock lock(lock_);
        if (!readers_.empty()) {
            reader = std::move(readers_.back());
            readers_.pop_back();
            return S_OK;
        }
    }
    reader = std::make_unique<SqliteConnection>();
    return reader->Open(path_, SqliteAccess::Read);
}

void StoreCore::GiveReader(std::unique_ptr<SqliteConnection> reader) noexcept
{
    const MutexLock lock(lock_);
    if (readers_.size() >= kIdleReaders)
        return;
    try {
        readers_.push_back(std::move(reader));
    } catch (...) {
        // It is closed instead; the next reader opens another.
    }
}

HRESULT StoreCore::Read(const Work& work) noexcept
{
    return Guarded([&]() -> HRESULT {
        QV_RETURN_IF_FAILED(lost_.load());
        if (isGathering_) {
            bool done = false;
            const HRESULT result = ReadByWriter(work, done);
            if (done)
                return result;
        }
        return ReadByReader(work);
    });
}

HRESULT StoreCore::ReadByReader(const Work& work)
{
    std::unique_ptr<SqliteConnection> reader;
    QV_RETURN_IF_FAILED(TakeReader(reader));
    HRESULT result;
    {
        SqliteTransaction transaction(*reader, SqliteTransaction::Kind::Read);
        QV_RETURN_IF_FAILED(transaction.Result());
        result = Guarded([&] { return work(*reader); });
    }
    GiveReader(std::move(reader));
    return result;
}

// What was gathered is there for this process. Whoever works on the writing connection already holds its
// lock.
HRESULT StoreCore::ReadByWriter(const Work& work, bool& done)
{
    const bool isOurs = writingThread_ == std::this_thread::get_id();
    std::optional<MutexLock> lock;
    if (!isOurs)
        lock.emplace(writerLock_);
    done = gathered_.has_value();
    return !done ? S_OK : isOurs ? work(writer_) : RunAsWriter(work);
}

HRESULT StoreCore::RunAsWriter(const Work& work)
{
    writingThread_ = std::this_thread::get_id();
    const HRESULT result = Run(work, writer_);
    writingThread_ = std::thread::id();
    return result;
}

HRESULT StoreCore::Write(Durability durability, const Work& work) noexcept
{
    if (gatherers_ > 0 && durability == Durability::Deferred && !isGathering_)
        LetOthersWrite();
    bool isCommitted = false;
    const HRESULT result = Guarded([&] {
        const MutexLock lock(writerLock_);
        const HRESULT written = WriteLocked(durability, work);
        isCommitted = !gathered_;
        return written;
    });
    if (SUCCEEDED(result) && isCommitted)
        TellListeners();
    return result;
}

// A lock that others wait for is tried for once in a while: between two groups it is free for as long as
// that.
void StoreCore::LetOthersWrite() const
{
    std::this_thread::sleep_until(lastCommit_.load() + kGap);
}

HRESULT StoreCore::Gather(bool one) noexcept
{
    gatherers_ += one ? 1 : -1;
    if (one || gatherers_ > 0)
        return lost_;
    const HRESULT result = Guarded([&] {
        const MutexLock lock(writerLock_);
        return CommitGathered();
    });
    TellListeners();
    return result;
}

HRESULT StoreCore::WriteInSteps(const Step& step) noexcept
{
    for (;;) {
        const HRESULT done = Write(Durability::AtReturn, [&](SqliteConnection& connection) {
            return step(connection,
                        StepTime(switches_.hurriesSteps ? std::chrono::milliseconds(0) : kLongestStep));
        });
        if (done != S_FALSE)
            return done;
        std::this_thread::sleep_for(kGap);
    }
}

HRESULT StoreCore::GiveSpaceBack() noexcept
{
    return WriteInSteps([](SqliteConnection& connection, const StepTime&) -> HRESULT {
        std::int64_t free = 0;
        std::int64_t all = 0;
        std::int64_t kind = 0;
        QV_RETURN_IF_FAILED(ReadPragma(connection, "PRAGMA freelist_count", free));
        QV_RETURN_IF_FAILED(ReadPragma(connection, "PRAGMA page_count", all));
        QV_RETURN_IF_FAILED(ReadPragma(connection, "PRAGMA auto_vacuum", kind));
        if (kind != kIncrementalVacuum || free <= std::max(kFreePagesKept, all / kFreePartKept))
            return S_OK;
        QV_RETURN_IF_FAILED(connection.RunScript("PRAGMA incremental_vacuum(256)"));
        return S_FALSE;
    });
}

HRESULT StoreCore::WriteLocked(Durability durability, const Work& work)
{
    if (durability == Durability::Deferred && (gatherers_ > 0 || gathered_))
        return WriteGathered(work);
    QV_RETURN_IF_FAILED(CommitGathered());
    QV_RETURN_IF_FAILED(SetDurability(durability));
    SqliteTransaction transaction(writer_, SqliteTransaction::Kind::Write);
    QV_RETURN_IF_FAILED(transaction.Result());
    const HRESULT result = work(writer_);
    QV_RETURN_IF_FAILED(result);
    QV_RETURN_IF_FAILED(transaction.Commit());
    return result;
}

HRESULT StoreCore::WriteGathered(const Work& work)
{
    QV_RETURN_IF_FAILED(lost_.load());
    if (!gathered_)
        QV_RETURN_IF_FAILED(BeginGathering());
    QV_RETURN_IF_FAILED(writer_.Run("SAVEPOINT one"));
    const HRESULT result = RunAsWriter(work);
    // Some failures undo all of it by themselves; and none of it may be committed with half of a write.
    if ((FAILED(result) && FAILED(writer_.Run("ROLLBACK TO one"))) || FAILED(writer_.Run("RELEASE one"))) {
        EndGathering(FAILED(result) ? result : MAPI_E_CALL_FAILED);
        return lost_;
    }
    if (StepTime::Clock::now() >= groupEnd_)
        QV_RETURN_IF_FAILED(CommitGathered());
    return result;
}

HRESULT StoreCore::BeginGathering()
{
    QV_RETURN_IF_FAILED(SetDurability(Durability::Deferred));
    if (!committer_)
        committer_ = std::make_unique<DeadlineThread>([this] { CommitInTime(); });
    gathered_.emplace(writer_, SqliteTransaction::Kind::Write);
    if (const HRESULT begun = gathered_->Result(); FAILED(begun)) {
        gathered_.reset();
        return begun;
    }
    isGathering_ = true;
    groupEnd_ = StepTime().End();
    committer_->Set(groupEnd_);
    return S_OK;
}

// Who saved last may do something else for long.
void StoreCore::CommitInTime() noexcept
{
    const HRESULT result = Guarded([&]() -> HRESULT {
        const MutexLock lock(writerLock_);
        const bool isDue = gathered_ && StepTime::Clock::now() >= groupEnd_;
        return isDue ? CommitGathered() : S_FALSE;
    });
    if (result == S_OK)
        TellListeners();
}

HRESULT StoreCore::CommitGathered()
{
    QV_RETURN_IF_FAILED(lost_.load());
    if (!gathered_)
        return S_OK;
    const HRESULT result = Commit(*gathered_);
    EndGathering(result);
    return result;
}

// What isn't committed is undone.
void StoreCore::EndGathering(HRESULT result)
{
    if (FAILED(result))
        lost_ = result;
    gathered_.reset();
    isGathering_ = false;
    lastCommit_ = StepTime::Clock::now();
    committer_->Set(std::nullopt);
}

HRESULT StoreCore::SetDurability(Durability durability)
{
    if (durability == durability_)
        return S_OK;
    // In a write-ahead log, NORMAL commits without a wait for the disk; the next FULL commit waits for all of
    // the log, and so for those before it.
    QV_RETURN_IF_FAILED(writer_.RunScript(durability == Durability::AtReturn ? "PRAGMA synchronous=FULL"
                                                                             : "PRAGMA synchronous=NORMAL"));
    durability_ = durability;
    return S_OK;
}

HRESULT StoreCore::LastChange(std::int64_t& number) noexcept
{
    return Read([&](SqliteConnection& connection) { return ReadLastChange(connection, number); });
}

void StoreCore::AddListener(std::weak_ptr<CommitListener> listener)
{
    const MutexLock lock(lock_);
    std::erase_if(listeners_, [](const auto& known) { return known.expired(); });
    listeners_.push_back(std::move(listener));
}

std::vector<std::weak_ptr<CommitListener>> StoreCore::Listeners()
{
    const MutexLock lock(lock_);
    return listeners_;
}

HRESULT StoreCore::Deliver(ULONG number, ULONG& told) noexcept
{
    return Guarded([&]() -> HRESULT {
        for (const auto& known : Listeners()) {
            const auto listener = known.lock();
            const HRESULT result = listener ? listener->Deliver(*this, number, told) : S_FALSE;
            if (result != S_FALSE)
                return result;
        }
        return MAPI_E_NOT_FOUND;
    });
}

void StoreCore::TellListeners() noexcept
{
    (void)Guarded([&] {
        for (const auto& known : Listeners()) {
            if (const auto listener = known.lock())
                listener->Committed();
        }
        // Without memory for the list they find the change when they look by themselves.
        return S_OK;
    });
}

}  // namespace quorvane
