#include "msgstore/store/object_events.h"

#include "msgstore/store/change_log.h"
#include "msgstore/store/folder_rows.h"

namespace quorvane {
namespace {

// The most notifications of one call.
constexpr std::size_t kMostObjectEvents = 256;

// One thread at a time: the session's notification thread.
class ObjectEvents final : public EventSource {
public:
    ObjectEvents(std::shared_ptr<StoreCore> core, const std::optional<ObjectGuid>& object, ULONG mask,
                 std::int64_t lastChange) noexcept
        : core_(std::move(core)), object_(object), mask_(mask), lastChange_(lastChange)
    {}

    const std::shared_ptr<StoreCore>& Core() const noexcept override { return core_; }

    HRESULT Collect(NotificationBatch& batch) noexcept override
    {
        return core_->Read([&](SqliteConnection& connection) {
            std::vector<Change> changes;
            do {
                changes.clear();
                const HRESULT read = ReadChanges(connection, lastChange_, kMostObjectEvents, changes);
                QV_RETURN_IF_FAILED(read);
                // So far behind, there is nothing left to tell one by one.
                if (read == S_FALSE)
                    return ReadLastChange(connection, lastChange_);
                for (const Change& change : changes) {
                    if ((change.event & mask_) != 0 && (!object_ || *object_ == change.objectGuid))
                        QV_RETURN_IF_FAILED(Add(connection, change, batch));
                }
                if (!changes.empty())
                    lastChange_ = changes.back().number;
            } while (changes.size() == kMostObjectEvents && batch.empty());
            return S_OK;
        });
    }

private:
    HRESULT Add(SqliteConnection& connection, const Change& change, NotificationBatch& batch) const
    {
        Bytes parent;
        Bytes oldParent;
        QV_RETURN_IF_FAILED(FolderId(connection, change.parentId, parent));
        QV_RETURN_IF_FAILED(FolderId(connection, change.oldParentId, oldParent));
        batch.AddObjectEvent(change.event, change.kind,
                             LongTermId(core_->Guid(), change.kind, change.objectGuid), std::move(parent),
                             std::move(oldParent));
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
    std::int64_t lastChange_;
};

}  // namespace

HRESULT MakeObjectEvents(const std::shared_ptr<StoreCore>& core, const std::optional<ObjectGuid>& object,
                         ULONG mask, std::shared_ptr<EventSource>& events)
{
    std::int64_t last = 0;
    QV_RETURN_IF_FAILED(core->LastChange(last));
    events = std::make_shared<ObjectEvents>(core, object, mask, last);
    return S_OK;
}

}  // namespace quorvane
