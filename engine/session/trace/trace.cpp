#include "engine/session/trace/trace.h"

#include <cstdarg>
#include <new>

#include "engine/session/trace/trace_log.h"

namespace quorvane {
namespace {

// Never destroyed, so that threads which outlive main may still trace.
TraceLog& ProcessLog() noexcept
{
    alignas(TraceLog) static unsigned char place[sizeof(TraceLog)];
    static TraceLog* const log = new (place) TraceLog;
    return *log;
}

}  // namespace

void StartTrace(DWORD flags, const char* path) noexcept
{
    ProcessLog().Start(flags, path);
}

void ShutdownTrace() noexcept
{
    ProcessLog().Shutdown();
}

void Trace(const char* function, unsigned line, const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    ProcessLog().Line(function, line, format, arguments);
    va_end(arguments);
}

void TraceDetail(const char* format, ...) noexcept
{
    va_list arguments;
    va_start(arguments, format);
    ProcessLog().Detail(format, arguments);
    va_end(arguments);
}

}  // namespace quorvane
