// quorvane3/com.h: COM for a host. On Windows the SDK; elsewhere the project's own, under the same names.
#ifndef QUORVANE3_COM_H_
#define QUORVANE3_COM_H_

#include "platform/com/apartment.h"
#include "platform/com/bstr.h"
#include "platform/com/com.h"
#include "platform/com/com_object.h"
#include "platform/com/com_ptr.h"
#include "platform/com/error_text.h"
#include "platform/com/safe_array.h"
#include "platform/com/utf8.h"
#include "platform/com/variant.h"

#endif  // QUORVANE3_COM_H_
