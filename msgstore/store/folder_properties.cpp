#include "msgstore/store/folder_properties.h"

#include "msgstore/store/identity.h"
#include "msgstore/store/table_source.h"
#include "platform/com/bstr.h"

namespace quorvane {

void PutFixedFolderProperties(const ObjectGuid& store, const FolderRow& row, PropertyBag& bag)
{
    PutFolderIdentity(store, row, bag);
    bag.Put(PropertyValue::Long(PR_ACCESS, kFolderAccess));
}

namespace {

HRESULT CountFound(SqliteConnection& connection, const ObjectGuid& store, const FolderRow& row,
                   FolderCounts& counts)
{
    SRestriction isUnread{};
    isUnread.rt = RES_BITMASK;
    isUnread.res.resBitMask = {BMR_EQZ, PR_MESSAGE_FLAGS, MSGFLAG_READ};
    TableQuery unread;
    QV_RETURN_IF_FAILED(Restriction::Make(&isUnread, unread.restriction));
    const std::unique_ptr<TableSource> source = MakeContentsSource(store, row, false, false);
    std::vector<std::int64_t> ids;
    QV_RETURN_IF_FAILED(source->ListRows(connection, {}, ids));
    counts.messages = static_cast<std::int64_t>(ids.size());
    ids.clear();
    QV_RETURN_IF_FAILED(source->ListRows(connection, unread, ids));
    counts.unread = static_cast<std::int64_t>(ids.size());
    return S_OK;
}

}  // namespace

HRESULT PutFolderCounts(SqliteConnection& connection, const ObjectGuid& store, const FolderRow& row,
                        PropertyBag& bag)
{
    FolderCounts counts;
    QV_RETURN_IF_FAILED(CountFolder(connection, row.id, counts));
    if (row.isSearch) {
        const HRESULT counted = CountFound(connection, store, row, counts);
        if (counted != MAPI_E_CORRUPT_DATA)  // what it looks for isn't known: the folders beside it are
            QV_RETURN_IF_FAILED(counted);
    }
    bag.Put(PropertyValue::Long(PR_CONTENT_COUNT, static_cast<LONG>(counts.messages)));
    bag.Put(PropertyValue::Long(PR_CONTENT_UNREAD, static_cast<LONG>(counts.unread)));
    bag.Put(PropertyValue::Boolean(PR_SUBFOLDERS, counts.subfolders != 0));
    return S_OK;
}

bool IsFolderCount(ULONG id) noexcept
{
    return id == PROP_ID(PR_CONTENT_COUNT) || id == PROP_ID(PR_CONTENT_UNREAD) ||
           id == PROP_ID(PR_SUBFOLDERS);
}

HRESULT PutKeptFolderProperties(SqliteConnection& connection, const FolderRow& row, PropertyBag& bag)
{
    QV_RETURN_IF_FAILED(ReadFolderProperties(connection, row.id, bag));
    bag.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, FromUtf8(row.name)));
    return S_OK;
}

}  // namespace quorvane
