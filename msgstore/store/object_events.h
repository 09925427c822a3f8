// msgstore/store/object_events.h: what happened to a store's objects, for one subscription.
#ifndef QUORVANE_MSGSTORE_STORE_OBJECT_EVENTS_H_
#define QUORVANE_MSGSTORE_STORE_OBJECT_EVENTS_H_

#include <optional>

#include "msgstore/store/notification_hub.h"

namespace quorvane {

// Makes a source of object notifications, from now on.
//
// object  the object that they are about; none: every object of the store.
// mask    fnevObject... bits.
[[nodiscard]] HRESULT MakeObjectEvents(const std::shared_ptr<StoreCore>& core,
                                       const std::optional<ObjectGuid>& object, ULONG mask,
                                       std::shared_ptr<EventSource>& events);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_STORE_OBJECT_EVENTS_H_
