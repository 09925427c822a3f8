// platform/com/result.h: one line a step for calls that return a result code.
#ifndef QUORVANE_PLATFORM_COM_RESULT_H_
#define QUORVANE_PLATFORM_COM_RESULT_H_

#include "platform/com/com.h"

// Leaves the calling function with the result of `expression` when that is a failure.
#define QV_TRY(expression)                                                         \
    do {                                                                           \
        if (const HRESULT result_of_step_ = (expression); FAILED(result_of_step_)) \
            return result_of_step_;                                                \
    } while (false)

#endif  // QUORVANE_PLATFORM_COM_RESULT_H_
