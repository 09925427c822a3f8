// quorvane3/quorvane3.h: everything that a host of the sharing engine includes.
//
// A host that works with MAPI itself adds mapi_helpers.h, with structured storage storage.h, with what is in
// packages carried_message.h, and with the project's own message store message_store.h.
#ifndef QUORVANE3_QUORVANE3_H_
#define QUORVANE3_QUORVANE3_H_

#include "quorvane3/callbacks.h"
#include "quorvane3/collection.h"
#include "quorvane3/com.h"
#include "quorvane3/entry_points.h"
#include "quorvane3/host_session.h"
#include "quorvane3/library.h"
#include "quorvane3/mapi.h"
#include "quorvane3/object_model.h"

#endif  // QUORVANE3_QUORVANE3_H_
