#include "msgstore/store/object_events.h"

#include <algorithm>

#include "msgstore/store/change_log.h"
#include "msgstore/store/folder_rows.h"
#include "msgstore/store/object_event_queue.h"

namespace quorvane {
namespace {

// The most notifications of one call, and the most changes that are read at once.
constexpr std::size_t kMostObjectEvents = 256;
constexpr std::size_t kChangesAtOnce = 1000;

constexpr ULONG kKinds[] = {fnevObjectCreated, fnevObjectCopied, fnevObjectMoved, fnevObjectModified,
                            fnevObjectDeleted};

// Where a subscription stands in the change log.
struct Position {
    std::int64_t lastChange = 0;
    std::int64_t lastMessage = 0;  // the number of the newest message at that time
};

HRESULT ReadPosition(SqliteConnection& connection, Position& position)
{
    QV_RETURN_IF_FAILED(ReadLastChange(connection, position.lastChange));
    SqliteRows rows = connection.Query("SELECT max(id) FROM message");
    position.lastMessage = rows.Next() ? rows.Int64(0) : 0;
    return rows.Result();
}

class ObjectEvents final : public EventSource {
public:
    ObjectEvents(std::shared_ptr<StoreCore> core, const std::optional<ObjectGuid>& object, ULONG mask,
                 const Position& position)
        : core_(std::move(core)), object_(object), mask_(mask), position_(position)
    {}

    const std::shared_ptr<StoreCore>& Core() const noexcept override { return core_; }

    HRESULT Gather() noexcept override
    {
        return core_->Read([&](SqliteConnection& connection) {
            const MutexLock lock(lock_);
            return GatherFrom(connection);
        });
    }

    HRESULT Collect(NotificationBatch& batch) noexcept override
    {
        return core_->Read([&](SqliteConnection& connection) -> HRESULT {
            const MutexLock lock(lock_);
            QV_RETURN_IF_FAILED(GatherFrom(connection));
            while (!queue_.empty() && batch.size() < kMostObjectEvents) {
                const Change& change = queue_.Front();
                const HRESULT hr = Guarded([&] { return Add(connection, change, batch); });
                if (FAILED(hr))  // those before it are told, and then it's tried again
                    return batch.empty() ? hr : S_FALSE;
                queue_.PopFront();
            }
            return queue_.empty() ? S_OK : S_FALSE;
        });
    }

private:
    // Takes over what the log has, and so keeps it when the log no longer does.
    HRESULT GatherFrom(SqliteConnection& connection) QV_REQUIRES(lock_)
    {
        std::vector<Change> changes;
        do {
            changes.clear();
            const HRESULT read = ReadChanges(connection, position_.lastChange, kChangesAtOnce, changes);
            QV_RETURN_IF_FAILED(read);
            if (read == S_FALSE)
                return GatherAll(connection);
            for (const Change& change : changes) {
                Take(change);
                position_.lastChange = change.number;
                if (change.kind == MAPI_MESSAGE)
                    position_.lastMessage = std::max(position_.lastMessage, change.objectId);
            }
        } while (changes.size() == kChangesAtOnce);
        return S_OK;
    }

    void Take(const Change& change) QV_REQUIRES(lock_)
    {
        if ((change.event & mask_) != 0 && (!object_ || *object_ == change.objectGuid))
            queue_.Add(change);
    }

    // The log has dropped what came next: this process stood still while others wrote. Everything that is
    // there is told, folders first, as whoever looks at those again finds out what is gone.
    HRESULT GatherAll(SqliteConnection& connection) QV_REQUIRES(lock_)
    {
        Position now;
        QV_RETURN_IF_FAILED(ReadPosition(connection, now));
        QV_RETURN_IF_FAILED(TakeEach(connection, MAPI_FOLDER,
                                     "SELECT id, guid, coalesce(parent_id, 0), 0 FROM folder ORDER BY id"));
        QV_RETURN_IF_FAILED(TakeEach(connection, MAPI_MESSAGE,
                                     "SELECT id, guid, folder_id, associated FROM message ORDER BY id"));
        position_ = now;
        return S_OK;
    }

    HRESULT TakeEach(SqliteConnection& connection, ULONG kind, std::string_view sql) QV_REQUIRES(lock_)
    {
        SqliteRows rows = connection.Query(sql);
        while (rows.Next()) {
            Change change;
            change.kind = kind;
            change.objectId = rows.Int64(0);
            change.objectGuid = ObjectGuidOf(rows.Bytes(1));
            change.parentId = rows.Int64(2);
            change.isAssociated = rows.Int64(3) != 0;
            const bool isNew = kind == MAPI_MESSAGE && change.objectId > position_.lastMessage;
            change.event = isNew ? fnevObjectCreated : fnevObjectModified;
            Take(change);
        }
        return rows.Result();
    }

    HRESULT Add(SqliteConnection& connection, const Change& change, NotificationBatch& batch) const
    {
        for (const ULONG event : kKinds) {
            if ((change.event & event) != 0)
                QV_RETURN_IF_FAILED(AddOne(connection, change, event, batch));
        }
        return S_OK;
    }

    HRESULT AddOne(SqliteConnection& connection, const Change& change, ULONG event,
                   NotificationBatch& batch) const
    {
        Bytes parent;
        Bytes oldParent;
        QV_RETURN_IF_FAILED(FolderId(connection, change.parentId, parent));
        QV_RETURN_IF_FAILED(FolderId(connection, change.oldParentId, oldParent));
        batch.AddObjectEvent(event, change.kind, LongTermId(core_->Guid(), change.kind, change.objectGuid),
                             std::move(parent), std::move(oldParent));
        return S_OK;
    }

    // Empty for a folder that is gone.
    HRESULT FolderId(SqliteConnection& connection, std::int64_t folderId, Bytes& id) const
    {
        if (folderId == 0)
            return S_OK;
        FolderRow row;
        const HRESULT found = FindFolder(connection, folderId, row);
        if (found == MAPI_E_NOT_FOUND)
            return S_OK;
        QV_RETURN_IF_FAILED(found);
        id = LongTermId(core_->Guid(), MAPI_FOLDER, row.guid);
        return S_OK;
    }

    const std::shared_ptr<StoreCore> core_;
    const std::optional<ObjectGuid> object_;
    const ULONG mask_;
    Mutex lock_;
    Position position_ QV_GUARDED_BY(lock_);
    ObjectEventQueue queue_ QV_GUARDED_BY(lock_);
};

}  // namespace

HRESULT MakeObjectEvents(const std::shared_ptr<StoreCore>& core, const std::optional<ObjectGuid>& object,
                         ULONG mask, std::shared_ptr<EventSource>& events)
{
    Position position;
    QV_RETURN_IF_FAILED(
        core->Read([&](SqliteConnection& connection) { return ReadPosition(connection, position); }));
    events = std::make_shared<ObjectEvents>(core, object, mask, position);
    return S_OK;
}

}  // namespace quorvane
