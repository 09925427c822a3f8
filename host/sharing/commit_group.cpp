#include "host/sharing/commit_group.h"

#include <filesystem>
#include <system_error>

#include "host/base/files.h"
#include "host/base/path_text.h"

namespace quorvane::host {

namespace {

constexpr auto kLongestGroup = std::chrono::seconds(1);

// What was committed to a database with a write-ahead log. What isn't in the log any more is in the database,
// where SQLite has had it written to the disk before it was given up there.
void SyncLogOf(const std::filesystem::path& database)
{
    const std::filesystem::path log = PathOf(database.string() + "-wal");
    std::error_code error;
    if (std::filesystem::exists(log, error))
        SyncFile(log);
}

}  // namespace

CommitGroup::CommitGroup(const Addin::Parts& parts, const EngineSession& engine, bool each) : parts_(parts)
{
    std::error_code error;
    wasOpen_ = std::filesystem::exists(MarkPath(), error);
    // Another message store, or a database of another kind, may have none.
    if (each || FAILED(engine.Session().QueryInterface(IID_ICommitGroups, rows_.PutVoid())) ||
        FAILED(parts.mail.Store().QueryInterface(IID_ICommitGroups, messages_.PutVoid())))
        rows_.Reset();
    if (!rows_ || FAILED(parts.mail.Store().QueryInterface(IID_IGatheredSaves, saves_.PutVoid())))
        saves_.Reset();
    // Another engine may have none.
    if (FAILED(engine.StorageFiles()->QueryInterface(IID_IKeptPackages, packages_.PutVoid())))
        packages_.Reset();
}

CommitGroup::~CommitGroup()
{
    try {
        End();
    } catch (const HostError&) {
        // The mark stays.
    }
}

std::filesystem::path CommitGroup::MarkPath() const
{
    return parts_.mailbox.Directory() / "unsynced";
}

// The mark is on the disk before anything that it tells of.
void CommitGroup::Begin(bool alsoMessages)
{
    if (wasOpen_)
        return;
    if (!isOpen_) {
        WriteDurably(MarkPath(), {});
        if (rows_ && FAILED(rows_->PutOffWaiting(TRUE)))
            rows_.Reset();
        isOpen_ = true;
        last_ = std::chrono::steady_clock::now();
        parts_.state.WaitForDisk(!rows_);
    }
    if (!alsoMessages && packages_)
        Check(packages_->KeepOpen(TRUE), "keep open packages of", parts_.mailbox.Name());
    if (!alsoMessages || !rows_)
        return;
    Check(messages_->PutOffWaiting(TRUE), "save messages of", parts_.mailbox.Name());
    if (saves_ && !isGathering_) {
        isGathering_ = true;
        CommitMessages(true);
    }
}

// Those that were gathered, and where it goes on others are.
void CommitGroup::CommitMessages(bool goOn)
{
    if (!isGathering_)
        return;
    if (SUCCEEDED(gathered_))
        gathered_ = saves_->Gather(FALSE);
    if (SUCCEEDED(gathered_) && goOn)
        gathered_ = saves_->Gather(TRUE);
    if (FAILED(gathered_))
        throw MessagesLost("cannot save messages of '" + parts_.mailbox.Name() + "': " + Describe(gathered_) +
                           "; what was applied of the package in hand is applied again by the next run");
    isGathering_ = goOn;
}

void CommitGroup::End()
{
    if (!isOpen_)
        return;
    CommitMessages(false);
    if (packages_)
        Check(packages_->KeepOpen(FALSE), "close packages of", parts_.mailbox.Name());
    if (rows_) {
        Check(messages_->PutOffWaiting(FALSE), "save messages of", parts_.mailbox.Name());
        Check(rows_->PutOffWaiting(FALSE), "write the rows of", parts_.mailbox.Name());
        parts_.state.WaitForDisk(true);
    }
    Sync();
    isOpen_ = false;
    std::error_code ignored;  // the next run looks through what is right
    std::filesystem::remove(MarkPath(), ignored);
}

void CommitGroup::NotePutRight()
{
    Sync();
    wasOpen_ = false;
    std::error_code ignored;  // as above
    std::filesystem::remove(MarkPath(), ignored);
}

// In this order: what a later one tells of is mostly in the one before.
void CommitGroup::Sync()
{
    CommitMessages(true);
    SyncLogOf(parts_.mailbox.StorePath());
    SyncLogOf(parts_.mailbox.SharingDatabasePath());
    SyncLogOf(parts_.mailbox.HostDatabasePath());
    last_ = std::chrono::steady_clock::now();
}

void CommitGroup::Synchronize()
{
    if (isOpen_)
        Sync();
}

void CommitGroup::SynchronizeNowAndThen()
{
    if (isOpen_ && std::chrono::steady_clock::now() - last_ >= kLongestGroup)
        Sync();
}

}  // namespace quorvane::host
