// tests/sdk/command.h: other programs, run as a user's shell would.
#ifndef QUORVANE_TESTS_SDK_COMMAND_H_
#define QUORVANE_TESTS_SDK_COMMAND_H_

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace quorvane::test {

std::string ReadFile(const std::filesystem::path& path);

// A shell command that runs, with its output in a file. It is killed with all that it started when this goes.
class Command {
public:
    // line    what the shell runs, in `directory`.
    // output  receives standard output and standard error.
    Command(const std::string& line, const std::filesystem::path& directory, std::filesystem::path output);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    ~Command();

    std::string Output() const { return ReadFile(output_); }
    // Waits until the output holds a text so many times; false when a minute passes first, or the
    // command ends without.
    bool Says(const std::string& text, size_t times = 1);
    void Terminate() const;
    // Waits for the end; the exit code, or 128 plus the number of the signal that ended it.
    int Wait();

private:
    bool HasEnded();

    std::filesystem::path output_;
    pid_t process_ = -1;
    int exitCode_ = -1;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SDK_COMMAND_H_
