// msgstore/message/message.h: IMessage and IAttach over a backend.
//
// What callers change stays in the opened objects until it's saved: an attachment's changes show in its
// message at the attachment's SaveChanges, an embedded message's in its attachment at its own, and all
// of it becomes permanent, in one transaction, at the SaveChanges of the outermost message.
//
// Threading: any thread may call any of these objects; a message, its attachments and the messages
// embedded in it share one lock, which no call out to another message holds.
#ifndef QUORVANE_MSGSTORE_MESSAGE_MESSAGE_H_
#define QUORVANE_MSGSTORE_MESSAGE_MESSAGE_H_

#include <functional>
#include <memory>

#include "msgstore/message/message_backend.h"

namespace quorvane {

// Opens the message that a backend stands for.
//
// backend   kept until the last object over the message is released.
// writable  false: everything that writes gives E_ACCESSDENIED.
// released  called once, without a lock, when the message object itself ends; may be empty.
// message   [out]  null on failure.
//
// S_OK; E_OUTOFMEMORY. Nothing is read yet.
[[nodiscard]] HRESULT MakeMessage(std::shared_ptr<MessageBackend> backend, bool writable,
                                  std::function<void()> released, IMessage** message) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_MESSAGE_H_
