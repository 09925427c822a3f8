// msgstore/imsg/property_reader.h: the properties of one object on a storage.
#ifndef QUORVANE_MSGSTORE_IMSG_PROPERTY_READER_H_
#define QUORVANE_MSGSTORE_IMSG_PROPERTY_READER_H_

#include "msgstore/imsg/storage_folder.h"
#include "msgstore/props/property_bag.h"

namespace quorvane {

// Reads what a folder's properties stream lists. Values up to a few kilobytes are read at once, longer ones
// stay in their streams. A property whose value is missing, malformed or of an unknown type is left out;
// of two with one identifier Unicode text wins, else the later one. PT_OBJECT isn't read.
//
// headerSize  bytes before the first entry, by the kind of object.
//
// S_OK; MAPI_E_CORRUPT_DATA: there's no properties stream, or it's shorter than its header or absurdly
// long; failures of the storage.
[[nodiscard]] HRESULT ReadStorageProperties(const std::shared_ptr<StorageFolder>& folder,
                                            std::size_t headerSize, PropertyBag& properties);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_PROPERTY_READER_H_
