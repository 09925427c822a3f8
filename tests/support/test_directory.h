// tests/support/test_directory.h: what tests of whole roads lean on: a directory, texts, checks, waiting.
#ifndef QUORVANE_TESTS_SUPPORT_TEST_DIRECTORY_H_
#define QUORVANE_TESTS_SUPPORT_TEST_DIRECTORY_H_

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

#include "platform/testing/test_directory.h"
#include "quorvane3/com.h"

namespace quorvane::test {

// Throws a std::runtime_error that names the step and the code.
void Check(HRESULT hr, const char* step);

// How long a test waits for what must come.
inline constexpr std::chrono::seconds kDeadline{60};

// True as soon as `condition` is, which is asked again and again; false when the deadline passes first. For
// what nobody signals.
bool Eventually(const std::function<bool()>& condition);

// Of narrow text, for arguments.
inline Bstr Text(const std::string& text)
{
    return Bstr(FromUtf8(text));
}
inline std::string Utf8(const Bstr& text)
{
    return ToUtf8(text.View());
}

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_TEST_DIRECTORY_H_
