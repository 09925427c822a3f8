// msgstore/form/shown_file.h: files for other programs to show.
#ifndef QUORVANE_MSGSTORE_FORM_SHOWN_FILE_H_
#define QUORVANE_MSGSTORE_FORM_SHOWN_FILE_H_

#include <string>
#include <string_view>

#include "platform/com/com.h"

namespace quorvane {

// Writes a new file "<GUID>.eml" for the user alone, and removes those that are older than a day: a program
// that was started may read its file at any moment after, so nobody can tell when it is done with.
//
// path  [out]  whole; untouched after a failure.
//
// Codes of platform/file. Throws std::bad_alloc.
[[nodiscard]] HRESULT WriteShownFile(std::string_view contents, std::string& path);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_FORM_SHOWN_FILE_H_
