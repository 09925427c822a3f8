#include "host/sharing/store_changes.h"

#include <system_error>
#include <utility>

namespace quorvane::host {

namespace {

std::string LookOf(const std::filesystem::path& path)
{
    std::error_code error;  // one that isn't there looks like that
    const auto size = std::filesystem::file_size(path, error);
    const auto time = std::filesystem::last_write_time(path, error).time_since_epoch().count();
    return std::to_string(size) + " " + std::to_string(time) + "\n";
}

}  // namespace

StoreChanges::StoreChanges(std::filesystem::path path, IUnknown& store) : path_(std::move(path))
{
    if (FAILED(store.QueryInterface(IID_IChangesOfOthers, changes_.PutVoid())))
        changes_.Reset();
}

std::string StoreChanges::Look() const
{
    std::filesystem::path log = path_;
    log += "-wal";
    return LookOf(path_) + LookOf(log);
}

std::int64_t StoreChanges::Version()
{
    if (!versions_)
        versions_ = std::make_unique<Database>(path_.string(), Database::Mode::kReadOnly);
    Statement select(*versions_, "PRAGMA data_version");
    return select.Step() ? select.Number(0) : 0;
}

void StoreChanges::Follow(Clock::time_point now)
{
    std::string look = Look();
    if (look != look_) {
        if (now - moved_ >= kStillFor)
            freshUntil_ = now + kFreshTime;
        moved_ = now;
        look_ = std::move(look);
    }
    if (changes_ && now - moved_ < kCommitTime)
        (void)changes_->LookForChanges();  // else it is found a moment later
}

}  // namespace quorvane::host
