// quorvane3/mapi.h: MAPI for a host. On Windows the SDK; elsewhere the project's own, under the same names.
#ifndef QUORVANE3_MAPI_H_
#define QUORVANE3_MAPI_H_

#include "platform/mapi/mapi.h"

#endif  // QUORVANE3_MAPI_H_
