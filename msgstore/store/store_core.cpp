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

StoreCore::~StoreCore() = default;

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
    return Guarded([&] {
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
    });
}

HRESULT StoreCore::Write(Durability durability, const Work& work) noexcept
{
    const HRESULT result = Guarded([&] {
        const MutexLock lock(writerLock_);
        return WriteLocked(durability, work);
    });
    if (SUCCEEDED(result))
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
    QV_RETURN_IF_FAILED(SetDurability(durability));
    SqliteTransaction transaction(writer_, SqliteTransaction::Kind::Write);
    QV_RETURN_IF_FAILED(transaction.Result());
    const HRESULT result = work(writer_);
    QV_RETURN_IF_FAILED(result);
    QV_RETURN_IF_FAILED(transaction.Commit());
    return result;
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
