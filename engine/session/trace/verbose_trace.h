// session/trace/verbose_trace.h: trace points that follow the work itself, and not its failures.
//
// They are compiled in only where QUORVANE_VERBOSE_TRACE is defined, which the build's option of that name
// does:
//
//     TraceVerbose(kTraced, "Processing Item: %s\n", entryId);
#ifndef QUORVANE_ENGINE_SESSION_TRACE_VERBOSE_TRACE_H_
#define QUORVANE_ENGINE_SESSION_TRACE_VERBOSE_TRACE_H_

#include <new>
#include <string>

#include "engine/session/trace/trace.h"
#include "platform/com/bstr.h"

namespace quorvane {

// Each unit's own: one compiled with the trace points may stand beside others without.
#ifdef QUORVANE_VERBOSE_TRACE
constexpr bool kVerboseTrace = true;
#else
constexpr bool kVerboseTrace = false;
#endif

namespace detail {

// A format with the line that it stands in.
struct VerboseFormat {
    VerboseFormat(const char* format, unsigned place = __builtin_LINE()) noexcept : text(format), line(place)
    {}
    const char* text;
    unsigned line;
};

// What the format's "%s" and "%u" take. Throw std::bad_alloc.
class VerboseText {
public:
    explicit VerboseText(OleStringView text) : narrow_(Narrow(text)) {}
    const char* Get() const noexcept { return narrow_.c_str(); }

private:
    const std::string narrow_;
};
class VerboseNumber {
public:
    explicit VerboseNumber(ULONG number) noexcept : number_(number) {}
    unsigned Get() const noexcept { return number_; }

private:
    const ULONG number_;
};
inline VerboseText VerboseArgument(const Bstr& text)
{
    return VerboseText(text.View());
}
inline VerboseText VerboseArgument(BSTR text)
{
    return VerboseText(ViewOf(text));
}
inline VerboseNumber VerboseArgument(ULONG number) noexcept
{
    return VerboseNumber(number);
}

}  // namespace detail

// A line under that name. Arguments are texts ("%s") and numbers ("%u").
template <bool kOn = kVerboseTrace, class... Arguments>
void TraceVerbose([[maybe_unused]] const Traced& traced, [[maybe_unused]] detail::VerboseFormat format,
                  [[maybe_unused]] const Arguments&... arguments) noexcept
{
    if constexpr (kOn && sizeof...(Arguments) == 0) {
        traced.Line(format.text, format.line);
    } else if constexpr (kOn) {
        try {
            Trace(traced.Function(), format.line, format.text, detail::VerboseArgument(arguments).Get()...);
        } catch (const std::bad_alloc&) {
            return;  // a line of the log is all that is lost
        }
    }
}

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_TRACE_VERBOSE_TRACE_H_
