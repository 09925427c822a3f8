// platform/com/error_text.h: failures with a text, carried by error info on the thread.
#ifndef QUORVANE_PLATFORM_COM_ERROR_TEXT_H_
#define QUORVANE_PLATFORM_COM_ERROR_TEXT_H_

#include "platform/com/bstr.h"

namespace quorvane {

// Sets the thread's error info and returns `code`, for `return RaiseError(...)` in an operation.
//
// interfaceId  [in]  the interface whose operation fails.
// source       [in]  who fails: the class's program identifier. May be empty.
// description  [in]  the text for the caller.
// code         [in]  returned as it is. When memory is short the text is left out.
HRESULT RaiseError(REFIID interfaceId, OleStringView source, OleStringView description,
                   HRESULT code) noexcept;

// Drops the thread's error info, if there is any.
void ClearErrorInfo() noexcept;

// Takes the thread's error info away and gives its description; null text when there is none.
Bstr TakeErrorDescription() noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_ERROR_TEXT_H_
