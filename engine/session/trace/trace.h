// session/trace/trace.h: the process-wide trace log, and the one idiom by which a failure travels.
//
// A function names itself once and passes every failure through that name:
//
//     HRESULT CFolder::OpenStore(ULONG flags, IUnknown** result) noexcept
//     {
//         const Traced traced{"CFolder::OpenStore"};
//         HR_TRY(traced, BinaryFromHex(m_bstrStoreID, identifier));
//         return traced(Session().OpenMsgStore(...));
//     }
//
// so that the log reads as a stack of failures from the innermost call outward. Lines written while the
// log isn't started are dropped. Any thread may call; a line is written whole.
#ifndef QUORVANE_ENGINE_SESSION_TRACE_TRACE_H_
#define QUORVANE_ENGINE_SESSION_TRACE_TRACE_H_

#include "platform/com/com.h"

namespace quorvane {

// Channels of the log.
inline constexpr DWORD kTraceToConsole = 1;
inline constexpr DWORD kTraceToFile = 2;

// Starts the log: takes the path, makes its folder, empties the detail file beside it (the path with ".info"
// added) and opens the console if it is wanted. Does nothing while the log is started. Reports nothing: what
// can't be opened is a channel less.
//
// flags  [in]  the channels. A value without any known bit leaves the channels as they were, none at first.
// path   [in]  full path of the log file; null for "Quorvane3/quorvane3.log" in the user's local application
//              data. A path that can't be opened, such as an empty one, loses the lines.
//
// The log file is opened by the first line and is kept open, under its first path, until the process ends.
// It is only ever appended to, and gets one header a process.
void StartTrace(DWORD flags, const char* path) noexcept;

// Ends the log: lines are dropped until the next start. Does nothing while the log isn't started.
void ShutdownTrace() noexcept;

// Writes one line to the log: "date time function(line) message". The message is printf-formatted.
void Trace(const char* function, unsigned line, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

// Writes one line to the debugger, the detail file and, if it is on, the console.
void TraceDetail(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

// The name under which a function traces. The line is the caller's: __builtin_LINE and not
// std::source_location, which would leave the names of source files in the library.
class Traced {
public:
    explicit constexpr Traced(const char* function) noexcept : function_(function) {}

    // Passes a result on; a failure is traced as "0x%X" first.
    HRESULT operator()(HRESULT hr, unsigned line = __builtin_LINE()) const noexcept
    {
        if (FAILED(hr))
            Write(hr, line);
        return hr;
    }

    // Writes a line with a text of its own under this name.
    void Line(const char* text, unsigned line = __builtin_LINE()) const noexcept
    {
        Trace(function_, line, "%s", text);
    }

    const char* Function() const noexcept { return function_; }

private:
    void Write(HRESULT hr, unsigned line) const noexcept
    {
        Trace(function_, line, "0x%X", static_cast<unsigned>(hr));
    }

    const char* function_;
};

}  // namespace quorvane

// Returns from the function with a failure of `expression`, traced.
#define HR_TRY(traced, expression)                               \
    do {                                                         \
        if (const HRESULT hrTry_ = (expression); FAILED(hrTry_)) \
            return (traced)(hrTry_);                             \
    } while (false)

// The same without a trace: for a failure that is expected.
#define HR_TRY_QUIET(expression)                                 \
    do {                                                         \
        if (const HRESULT hrTry_ = (expression); FAILED(hrTry_)) \
            return hrTry_;                                       \
    } while (false)

// Runs an operation whose result is ignored on purpose; `why` says in words what makes that right.
#define HR_IGNORE(expression, why) static_cast<void>(expression)

#endif  // QUORVANE_ENGINE_SESSION_TRACE_TRACE_H_
