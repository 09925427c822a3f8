// msgstore/store/identity.h: the properties that the store's objects have by what they are.
#ifndef QUORVANE_MSGSTORE_STORE_IDENTITY_H_
#define QUORVANE_MSGSTORE_STORE_IDENTITY_H_

#include "msgstore/props/property_bag.h"
#include "msgstore/store/folder_rows.h"
#include "msgstore/store/message_rows.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {

// What identifies the kind of store: PR_MDB_PROVIDER of all stores of this project.
extern const ObjectGuid kStoreProvider;

// PR_STORE_SUPPORT_MASK.
extern const LONG kStoreSupport;

Bytes StoreEntryId(const ObjectGuid& store);
PropertyValue TimeProperty(ULONG tag, std::int64_t ticks);
PropertyValue BinaryProperty(ULONG tag, const Bytes& bytes);
PropertyValue GuidProperty(ULONG tag, const ObjectGuid& guid);

// All throw std::bad_alloc.

// Those that every object of a store has: of the store itself.
void PutStoreIdentity(const ObjectGuid& store, PropertyBag& bag);
// Of a folder.
void PutFolderIdentity(const ObjectGuid& store, const FolderRow& row, PropertyBag& bag);
// Of a message; those that it gets at its first save are left out before.
void PutMessageIdentity(const ObjectGuid& store, const MessageRow& row, PropertyBag& bag);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_IDENTITY_H_
