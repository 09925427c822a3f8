// msgstore/table/text_fold.h: text as tables and restrictions compare it without regard to case.
#ifndef QUORVANE_MSGSTORE_TABLE_TEXT_FOLD_H_
#define QUORVANE_MSGSTORE_TABLE_TEXT_FOLD_H_

#include <string>
#include <string_view>

#include "msgstore/props/large_value.h"

namespace quorvane {

// Lower case, letter by letter, of the Latin, Greek, Cyrillic and Armenian alphabets; everything else stays.
// May throw std::bad_alloc.
OleString Fold(OleStringView text);
// The same in UTF-8, whose bytes order as the text does. Of what isn't UTF-8 something.
std::string FoldUtf8(std::string_view text);
OLECHAR FoldUnit(OLECHAR unit) noexcept;

// Without the combining marks that follow letters, and with the letters of Latin-1 and Latin Extended-A
// reduced to those they're made of. May throw std::bad_alloc.
OleString WithoutMarks(OleStringView text);

// Byte by byte, a prefix first.
int CompareBytes(const Bytes& a, const Bytes& b) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_TABLE_TEXT_FOLD_H_
