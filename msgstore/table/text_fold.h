// msgstore/table/text_fold.h: text as tables and restrictions compare it without regard to case.
#ifndef QUORVANE_MSGSTORE_TABLE_TEXT_FOLD_H_
#define QUORVANE_MSGSTORE_TABLE_TEXT_FOLD_H_

#include <string>
#include <string_view>

#include "msgstore/props/large_value.h"

namespace quorvane {

// Letter by letter, of every script that has cases; the number of characters stays. A lone surrogate, and
// each byte that belongs to no character, becomes U+FFFD. May throw std::bad_alloc.
OleString Fold(OleStringView text);
// The same in UTF-8, whose bytes order as the characters do.
std::string FoldUtf8(std::string_view text);

// Without the marks above, below and across letters, whether they follow their letter or are part of it.
// May throw std::bad_alloc.
OleString WithoutMarks(OleStringView text);

// Byte by byte, a prefix first.
int CompareBytes(const Bytes& a, const Bytes& b) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_TABLE_TEXT_FOLD_H_
