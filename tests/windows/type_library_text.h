// tests/windows/type_library_text.h: a type library, put into the words of docs/object-model.txt.
#ifndef QUORVANE_TESTS_WINDOWS_TYPE_LIBRARY_TEXT_H_
#define QUORVANE_TESTS_WINDOWS_TYPE_LIBRARY_TEXT_H_

#include "tests/windows/object_model_page.h"

namespace quorvane::test {

// Every type of the library, and what the page has no word for in words that it doesn't have. Throws
// std::runtime_error.
Blocks TextOf(ITypeLib& library);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_WINDOWS_TYPE_LIBRARY_TEXT_H_
