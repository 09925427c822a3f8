// session/trace/testing/traced_lines.h: what the process's log receives while something runs.
#ifndef QUORVANE_ENGINE_SESSION_TRACE_TESTING_TRACED_LINES_H_
#define QUORVANE_ENGINE_SESSION_TRACE_TESTING_TRACED_LINES_H_

#include <fstream>
#include <sstream>
#include <string>

#include "engine/session/trace/trace.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

// The process's log stands in one file from its first line on: all tests of a program share it.
class ProcessLogFile {
public:
    static const ProcessLogFile& Get()
    {
        static const ProcessLogFile file;
        return file;
    }

    void Start() const { StartTrace(kTraceToFile, path_.c_str()); }
    std::string Text() const
    {
        std::ifstream file(path_, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

private:
    ProcessLogFile() = default;

    const test::TestDirectory directory_;
    const std::string path_ = directory_.File("traced.log");
};

// The lines that `work` writes to the log. One thread at a time.
template <class Work>
std::string TracedLines(Work work)
{
    const ProcessLogFile& file = ProcessLogFile::Get();
    file.Start();
    const size_t before = file.Text().size();
    work();
    ShutdownTrace();
    return file.Text().substr(before);
}

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_SESSION_TRACE_TESTING_TRACED_LINES_H_
