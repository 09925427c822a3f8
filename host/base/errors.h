// host/base/errors.h: how a command fails: one line that says what, with which object, and why.
#ifndef QUORVANE_HOST_BASE_ERRORS_H_
#define QUORVANE_HOST_BASE_ERRORS_H_

#include <stdexcept>
#include <string>
#include <string_view>

#include "quorvane3/com.h"

namespace quorvane::host {

// What a process of the program ends with.
enum class ExitCode { kDone = 0, kFailed = 1, kUsage = 2, kOpen = 3 /* the answer isn't known yet */ };

// A failure on its way to standard error. Its text is the whole line, without the program's name.
class HostError : public std::runtime_error {
public:
    explicit HostError(const std::string& line, ExitCode code = ExitCode::kFailed, bool isPassing = false)
        : std::runtime_error(line), code_(code), isPassing_(isPassing)
    {}
    ExitCode Code() const noexcept { return code_; }
    // Whether it was told that the machine lacked something just now (handles, memory, room), and nothing of
    // the object.
    bool IsPassing() const noexcept { return isPassing_; }

private:
    ExitCode code_;
    bool isPassing_;
};

// Throws a HostError: "cannot <what> '<object>': <why>".
[[noreturn]] void Fail(std::string_view what, std::string_view object, std::string_view why);

// Throws the same with the text of a result code when `hr` is a failure.
void Check(HRESULT hr, std::string_view what, std::string_view object);

// A result code in words, with its number: "not found (0x8004010F)".
std::string Describe(HRESULT hr);

// The text of an errno value, and of one of the system's own error numbers.
std::string DescribeErrno(int error);
std::string DescribeSystemError(unsigned long error);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_ERRORS_H_
