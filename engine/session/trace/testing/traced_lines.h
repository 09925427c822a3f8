// session/trace/testing/traced_lines.h: what the process's log receives while something runs.
#ifndef QUORVANE_ENGINE_SESSION_TRACE_TESTING_TRACED_LINES_H_
#define QUORVANE_ENGINE_SESSION_TRACE_TESTING_TRACED_LINES_H_

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "engine/session/trace/trace.h"

namespace quorvane::testing {

// The process's log stands in one file from its first line on: all tests of a program share it.
class ProcessLogFile {
public:
    ProcessLogFile()
        : path_(std::filesystem::temp_directory_path() / ("qv_traced_" + std::to_string(getpid()) + ".log"))
    {}
    ~ProcessLogFile()
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
        std::filesystem::remove(path_.string() + ".info", ignored);
    }

    void Start() const { StartTrace(kTraceToFile, path_.string().c_str()); }
    std::string Text() const
    {
        std::ifstream file(path_, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

private:
    const std::filesystem::path path_;
};

// The lines that `work` writes to the log. One thread at a time.
template <class Work>
std::string TracedLines(Work work)
{
    static const ProcessLogFile file;
    file.Start();
    const size_t before = file.Text().size();
    work();
    ShutdownTrace();
    return file.Text().substr(before);
}

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_SESSION_TRACE_TESTING_TRACED_LINES_H_
