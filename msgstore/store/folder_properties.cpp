#include "msgstore/store/folder_properties.h"

#include "msgstore/store/identity.h"
#include "platform/com/bstr.h"

namespace quorvane {

void PutFixedFolderProperties(const ObjectGuid& store, const FolderRow& row, PropertyBag& bag)
{
    PutFolderIdentity(store, row, bag);
    bag.Put(PropertyValue::Long(PR_ACCESS, kFolderAccess));
}

HRESULT PutFolderCounts(SqliteConnection& connection, const FolderRow& row, PropertyBag& bag)
{
    FolderCounts counts;
    QV_RETURN_IF_FAILED(CountFolder(connection, row.id, counts));
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
