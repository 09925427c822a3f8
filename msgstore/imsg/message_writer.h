// msgstore/imsg/message_writer.h: writes messages into storages.
#ifndef QUORVANE_MSGSTORE_IMSG_MESSAGE_WRITER_H_
#define QUORVANE_MSGSTORE_IMSG_MESSAGE_WRITER_H_

#include "msgstore/imsg/storage_folder.h"
#include "msgstore/message/message_backend.h"

namespace quorvane {

// Makes a folder hold the message of an image: new parts first, then the properties stream that tells of
// them, then what's left over goes. Parts that stand there already (as their sources show) stay as they
// are. Elements of other names aren't touched.
//
// Failures of the sources and of the storage; MAPI_E_TOO_COMPLEX: messages embedded too deep. What was
// there before is then partly replaced.
[[nodiscard]] HRESULT WriteMessage(const std::shared_ptr<StorageFolder>& folder, const MessageImage& image);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_IMSG_MESSAGE_WRITER_H_
