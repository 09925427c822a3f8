// msgstore/util/guarded.h: keeps exceptions inside a COM method.
#ifndef QUORVANE_MSGSTORE_UTIL_GUARDED_H_
#define QUORVANE_MSGSTORE_UTIL_GUARDED_H_

#include <new>

#include "platform/com/com.h"

namespace quorvane {

// Runs `body` and gives its result; std::bad_alloc becomes E_OUTOFMEMORY, any other exception E_FAIL.
template <class Body>
[[nodiscard]] HRESULT Guarded(Body&& body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

}  // namespace quorvane

// Leaves the function with the result when `expression` fails.
#define QV_RETURN_IF_FAILED(expression)                        \
    do {                                                       \
        if (const HRESULT qv_hr = (expression); FAILED(qv_hr)) \
            return qv_hr;                                      \
    } while (false)

#endif  // QUORVANE_MSGSTORE_UTIL_GUARDED_H_
