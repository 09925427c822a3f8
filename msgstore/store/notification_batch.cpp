#include "msgstore/store/notification_batch.h"

namespace quorvane {
namespace {

SPropValue KeyProperty(const SBinary& key) noexcept
{
    SPropValue property{};
    property.ulPropTag = key.cb != 0 ? PR_INSTANCE_KEY : PR_NULL;
    property.Value.bin = key;
    return property;
}

}  // namespace

NotificationBatch::~NotificationBatch()
{
    Clear();
}

void NotificationBatch::Clear() noexcept
{
    for (const LPSPropValue row : rows_)
        MAPIFreeBuffer(row);
    rows_.clear();
    notifications_.clear();
    bytes_.clear();
}

SBinary NotificationBatch::Keep(Bytes bytes)
{
    if (bytes.empty())
        return {0, nullptr};
    Bytes& kept = bytes_.emplace_back(std::move(bytes));
    return {static_cast<ULONG>(kept.size()), kept.data()};
}

void NotificationBatch::AddTableEvent(ULONG event, Bytes key, Bytes prior, SRow row)
{
    try {
        rows_.push_back(row.lpProps);
    } catch (...) {
        MAPIFreeBuffer(row.lpProps);
        throw;
    }
    NOTIFICATION notification{};
    notification.ulEventType = fnevTableModified;
    TABLE_NOTIFICATION& table = notification.info.tab;
    table.ulTableEvent = event;
    table.propIndex = KeyProperty(Keep(std::move(key)));
    table.propPrior = KeyProperty(Keep(std::move(prior)));
    table.row = row;
    notifications_.push_back(notification);
}

void NotificationBatch::AddObjectEvent(ULONG event, ULONG kind, Bytes id, Bytes parent, Bytes oldParent)
{
    const SBinary entry = Keep(std::move(id));
    const SBinary parentEntry = Keep(std::move(parent));
    const SBinary oldParentEntry = Keep(std::move(oldParent));
    NOTIFICATION notification{};
    notification.ulEventType = event;
    OBJECT_NOTIFICATION& object = notification.info.obj;
    object.ulObjType = kind;
    object.cbEntryID = entry.cb;
    object.lpEntryID = reinterpret_cast<LPENTRYID>(entry.lpb);
    object.cbParentID = parentEntry.cb;
    object.lpParentID = reinterpret_cast<LPENTRYID>(parentEntry.lpb);
    object.cbOldParentID = oldParentEntry.cb;
    object.lpOldParentID = reinterpret_cast<LPENTRYID>(oldParentEntry.lpb);
    notifications_.push_back(notification);
}

}  // namespace quorvane
