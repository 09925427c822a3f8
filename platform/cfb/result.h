// platform/cfb/result.h: one line a step for calls that return a result code.
#ifndef QUORVANE_PLATFORM_CFB_RESULT_H_
#define QUORVANE_PLATFORM_CFB_RESULT_H_

#include "platform/com/com.h"

// Leaves the calling function with the result of `expression` when that is a failure.
#define CFB_TRY(expression)                                                \
    do {                                                                   \
        if (const HRESULT cfb_result_ = (expression); FAILED(cfb_result_)) \
            return cfb_result_;                                            \
    } while (false)

#endif  // QUORVANE_PLATFORM_CFB_RESULT_H_
