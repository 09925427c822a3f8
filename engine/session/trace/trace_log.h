// session/trace/trace_log.h: the log behind the functions of trace.h. A process has one; tests make others.
#ifndef QUORVANE_ENGINE_SESSION_TRACE_TRACE_LOG_H_
#define QUORVANE_ENGINE_SESSION_TRACE_TRACE_LOG_H_

#include <atomic>
#include <cstdarg>
#include <string>
#include <string_view>

#include "platform/com/com.h"
#include "platform/com/mutex.h"
#include "platform/file/console.h"
#include "platform/file/file.h"

namespace quorvane {

// Any thread may call anything at any time. Failures are not told.
class TraceLog {
public:
    TraceLog() noexcept = default;
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    // As StartTrace and ShutdownTrace.
    void Start(DWORD flags, const char* path) noexcept;
    void Shutdown() noexcept;

    // One line on the log file and the console: "date time function(line) message\r\n", at most 4095 bytes;
    // the message is cut where it has no room.
    void Line(const char* function, unsigned line, const char* format, va_list arguments) noexcept;

    // One line on the debugger, the detail file and the console (there without its prefix).
    void Detail(const char* format, va_list arguments) noexcept;

private:
    void OpenDetailFile() noexcept QV_REQUIRES(mutex_);
    void OpenLogFile() noexcept QV_REQUIRES(mutex_);
    void WriteLine(std::string_view line) noexcept QV_REQUIRES(mutex_);
    bool ToConsole() const noexcept QV_REQUIRES(mutex_);

    std::atomic<bool> started_{false};
    Mutex mutex_;
    bool headerWritten_ QV_GUARDED_BY(mutex_) = false;
    DWORD flags_ QV_GUARDED_BY(mutex_) = 0;
    std::string path_ QV_GUARDED_BY(mutex_);
    File file_ QV_GUARDED_BY(mutex_);
    File detailFile_ QV_GUARDED_BY(mutex_);
    Console console_ QV_GUARDED_BY(mutex_);
};

// The prefix of a detail line. `hour` is told on a 12-hour clock on which noon still counts as AM.
std::string DetailPrefix(DWORD thread, const SYSTEMTIME& time);

// What stands at the head of each process's part of the log file.
std::string TraceHeader(const SYSTEMTIME& time);

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_TRACE_TRACE_LOG_H_
