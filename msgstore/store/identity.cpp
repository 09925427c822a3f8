#include "msgstore/store/identity.h"

#include "platform/clock/clock.h"

namespace quorvane {

const ObjectGuid kStoreProvider = {0x51, 0x9E, 0x0B, 0xD4, 0x36, 0x7A, 0x4F, 0x48,
                                   0xA1, 0x5C, 0x27, 0xE8, 0x90, 0x6D, 0x13, 0xBF};

const LONG kStoreSupport = static_cast<LONG>(
    STORE_ENTRYID_UNIQUE | STORE_SEARCH_OK | STORE_MODIFY_OK | STORE_CREATE_OK | STORE_ATTACH_OK |
    STORE_OLE_OK | STORE_NOTIFY_OK | STORE_MV_PROPS_OK | STORE_RTF_OK | STORE_RESTRICTION_OK |
    STORE_CATEGORIZE_OK | STORE_SORT_OK | STORE_SUBMIT_OK | kStoreUnicodeOk);

Bytes StoreEntryId(const ObjectGuid& store)
{
    return LongTermId(store, MAPI_STORE, store);
}

PropertyValue TimeProperty(ULONG tag, std::int64_t ticks)
{
    return PropertyValue::Time(tag, FromTicks(static_cast<std::uint64_t>(ticks)));
}

PropertyValue BinaryProperty(ULONG tag, const Bytes& bytes)
{
    return PropertyValue::Binary(tag, bytes.data(), bytes.size());
}

PropertyValue GuidProperty(ULONG tag, const ObjectGuid& guid)
{
    return PropertyValue::Binary(tag, guid.data(), guid.size());
}

void PutStoreIdentity(const ObjectGuid& store, PropertyBag& bag)
{
    bag.Put(BinaryProperty(PR_STORE_ENTRYID, StoreEntryId(store)));
    bag.Put(GuidProperty(PR_STORE_RECORD_KEY, store));
    bag.Put(GuidProperty(PR_MAPPING_SIGNATURE, store));
    bag.Put(GuidProperty(PR_MDB_PROVIDER, kStoreProvider));
    bag.Put(PropertyValue::Long(PR_STORE_SUPPORT_MASK, kStoreSupport));
}

void PutFolderIdentity(const ObjectGuid& store, const FolderRow& row, PropertyBag& bag)
{
    PutStoreIdentity(store, bag);
    bag.Put(BinaryProperty(PR_ENTRYID, LongTermId(store, MAPI_FOLDER, row.guid)));
    bag.Put(GuidProperty(PR_RECORD_KEY, row.guid));
    bag.Put(BinaryProperty(PR_PARENT_ENTRYID, LongTermId(store, MAPI_FOLDER, row.parentGuid)));
    bag.Put(TimeProperty(PR_CREATION_TIME, row.created));
    bag.Put(TimeProperty(PR_LAST_MODIFICATION_TIME, row.modified));
    bag.Put(PropertyValue::Long(PR_OBJECT_TYPE, MAPI_FOLDER));
    const LONG generic = row.isSearch ? FOLDER_SEARCH : FOLDER_GENERIC;
    bag.Put(PropertyValue::Long(PR_FOLDER_TYPE, row.parentId == 0 ? LONG{FOLDER_ROOT} : generic));
}

void PutMessageIdentity(const ObjectGuid& store, const MessageRow& row, PropertyBag& bag)
{
    PutStoreIdentity(store, bag);
    bag.Put(BinaryProperty(PR_PARENT_ENTRYID, LongTermId(store, MAPI_FOLDER, row.folderGuid)));
    if (row.id == 0)
        return;
    bag.Put(BinaryProperty(PR_ENTRYID, LongTermId(store, MAPI_MESSAGE, row.guid)));
    bag.Put(GuidProperty(PR_RECORD_KEY, row.guid));
    bag.Put(TimeProperty(PR_CREATION_TIME, row.created));
    bag.Put(TimeProperty(PR_LAST_MODIFICATION_TIME, row.modified));
    Bytes changeKey(store.begin(), store.end());
    for (int shift = 0; shift < 64; shift += 8)
        changeKey.push_back(static_cast<BYTE>(row.version >> shift));
    changeKey.insert(changeKey.end(), row.guid.begin(), row.guid.end());
    bag.Put(BinaryProperty(kPrChangeKey, changeKey));
}

}  // namespace quorvane
