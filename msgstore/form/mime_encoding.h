// msgstore/form/mime_encoding.h: text and bytes as MIME writes them: 7-bit lines of at most 76 characters.
//
// Texts are UTF-8. All throw std::bad_alloc.
#ifndef QUORVANE_MSGSTORE_FORM_MIME_ENCODING_H_
#define QUORVANE_MSGSTORE_FORM_MIME_ENCODING_H_

#include <string>
#include <string_view>

namespace quorvane {

// Base64 in lines that end in CR LF; of nothing, nothing.
std::string Base64Lines(std::string_view bytes);

// The text of a header field: as it is if it is short and plain, else in encoded words, folded. Characters
// that steer are blanks.
std::string HeaderText(std::string_view text);

// A parameter of a field, with the "; " before it: `name="value"`, or the extended form for what doesn't go
// so.
std::string Parameter(std::string_view name, std::string_view value);

// The text as one line for a person, or as several if `lines`: what steers a terminal, or turns the direction
// of writing, is taken out.
std::string Harmless(std::string_view text, bool lines);

}  // namespace quorvane

#endif  // QUORVANE_MSGSTORE_FORM_MIME_ENCODING_H_
