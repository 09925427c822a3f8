// quorvane3/storage.h: structured storage for a host. On Windows the system's; elsewhere the project's own.
#ifndef QUORVANE3_STORAGE_H_
#define QUORVANE3_STORAGE_H_

#include "platform/cfb/stg.h"

#endif  // QUORVANE3_STORAGE_H_
