// quorvane3/quorvane3.h: everything that a host of the sharing engine includes.
#ifndef QUORVANE3_QUORVANE3_H_
#define QUORVANE3_QUORVANE3_H_

#include "quorvane3/callbacks.h"
#include "quorvane3/com.h"
#include "quorvane3/entry_points.h"
#include "quorvane3/library.h"
#include "quorvane3/mapi.h"
#include "quorvane3/object_model.h"

#endif  // QUORVANE3_QUORVANE3_H_
