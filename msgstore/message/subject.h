// msgstore/message/subject.h: a subject's prefix and what it says without it.
#ifndef QUORVANE_MSGSTORE_MESSAGE_SUBJECT_H_
#define QUORVANE_MSGSTORE_MESSAGE_SUBJECT_H_

#include "platform/com/com.h"

namespace quorvane {

// The length of a subject's prefix: one to three characters, no digit among them, with the colon and the
// space that follow ("RE: ", "FW: ", "AW: "). 0 if it has none.
std::size_t SubjectPrefixLength(OleStringView subject) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_MESSAGE_SUBJECT_H_
