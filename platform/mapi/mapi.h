// platform/mapi/mapi.h: MAPI's published types, interfaces, tags and codes, from one place.
//
// On Windows this is the SDK, but for forms. Elsewhere, and for forms everywhere, sdk/ declares the same
// subset under the same names and with the same layouts and slot order. The functions are a MAPI
// implementation's: the engine finds them at run time (engine/storeaccess) and must not call the declarations
// here.
#ifndef QUORVANE_PLATFORM_MAPI_MAPI_H_
#define QUORVANE_PLATFORM_MAPI_MAPI_H_

#include "platform/com/com.h"

#ifdef _WIN32
#include <mapix.h>
// After mapix.h, which they rest on.
#include <imessage.h>
#include <mapiutil.h>
#else
#include "platform/mapi/sdk/mapi_functions.h"
#include "platform/mapi/sdk/mapi_interfaces.h"
#include "platform/mapi/sdk/mapicode.h"
#include "platform/mapi/sdk/mapidefs.h"
#include "platform/mapi/sdk/mapiguid.h"
#include "platform/mapi/sdk/mapitags.h"
#endif

#include "platform/com/iid.h"
#include "platform/mapi/more_tags.h"
#include "platform/mapi/sdk/mapiform.h"

QUORVANE_IID(IMAPISession, IID_IMAPISession);
QUORVANE_IID(IMAPITable, IID_IMAPITable);
QUORVANE_IID(IMAPIAdviseSink, IID_IMAPIAdviseSink);
QUORVANE_IID(IMAPIProp, IID_IMAPIProp);
QUORVANE_IID(IProfSect, IID_IProfSect);
QUORVANE_IID(IMsgStore, IID_IMsgStore);
QUORVANE_IID(IMessage, IID_IMessage);
QUORVANE_IID(IAttach, IID_IAttachment);
QUORVANE_IID(IMAPIContainer, IID_IMAPIContainer);
QUORVANE_IID(IMAPIFolder, IID_IMAPIFolder);
QUORVANE_IID(IProfAdmin, IID_IProfAdmin);
QUORVANE_IID(IMsgServiceAdmin, IID_IMsgServiceAdmin);
QUORVANE_IID(IMAPIProgress, IID_IMAPIProgress);
QUORVANE_IID(IMAPIFormMgr, IID_IMAPIFormMgr);
QUORVANE_IID(IMAPIForm, IID_IMAPIForm);
QUORVANE_IID(IPersistMessage, IID_IPersistMessage);
QUORVANE_IID(IMAPIMessageSite, IID_IMAPIMessageSite);
QUORVANE_IID(IMAPIViewContext, IID_IMAPIViewContext);
QUORVANE_IID(IMAPIViewAdviseSink, IID_IMAPIViewAdviseSink);
QUORVANE_IID(IMAPIFormAdviseSink, IID_IMAPIFormAdviseSink);

static_assert(sizeof(SPropValue) == 24 && sizeof(SRow) == 16 && sizeof(NOTIFICATION) == 88);
static_assert(offsetof(NOTIFICATION, info) == 8 && offsetof(TABLE_NOTIFICATION, row) == 56);

#endif  // QUORVANE_PLATFORM_MAPI_MAPI_H_
