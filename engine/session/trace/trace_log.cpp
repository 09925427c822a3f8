#include "engine/session/trace/trace_log.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/clock/clock.h"
#include "platform/com/bstr.h"
#include "platform/file/path.h"
#include "platform/file/system_error.h"

namespace quorvane {
namespace {

constexpr DWORD kConsole = 1;
constexpr DWORD kLogFile = 2;
constexpr DWORD kKnownChannels = 0x17;

constexpr size_t kLineBuffer = 4096;        // a line with its end and a terminator
constexpr size_t kDetailBuffer = 4096 + 1;  // a detail's message and a terminator; likewise below
constexpr size_t kPrefixBuffer = 260 + 1;
constexpr size_t kDebuggerBuffer = 256 + 1;

constexpr char kLineEnd[] = "\r\n";
constexpr size_t kLineEndLength = sizeof(kLineEnd) - 1;
constexpr char kRule[] = "======================================================\r\n";

// What a printf function has written into a buffer, given what it returned.
size_t WrittenLength(int result, size_t capacity) noexcept
{
    return result < 0 ? 0 : std::min(static_cast<size_t>(result), capacity - 1);
}

// Cuts a text so that no UTF-8 sequence at its end is torn.
size_t WholeCharacters(const char* text, size_t length) noexcept
{
    size_t start = length;
    while (start > 0 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80)
        --start;
    if (start == 0 || static_cast<unsigned char>(text[start - 1]) < 0xC0)
        return length;
    const auto lead = static_cast<unsigned char>(text[start - 1]);
    const size_t wanted = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return length - (start - 1) < wanted ? start - 1 : length;
}

// Formats a text that is cut between two characters where it has no room. Its length.
size_t Format(char* buffer, size_t capacity, const char* format, va_list arguments) noexcept
{
    const int result = std::vsnprintf(buffer, capacity, format, arguments);
    const size_t length = WrittenLength(result, capacity);
    const bool cut = result >= 0 && static_cast<size_t>(result) >= capacity;
    return cut ? WholeCharacters(buffer, length) : length;
}

// The compiler's date and time in the form of asctime, such as "Thu Sep 30 10:33:11 2010".
std::string BuildStamp()
{
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    const std::string_view date = __DATE__;  // "Sep 30 2010"
    const auto month = static_cast<unsigned>(kMonths.find(date.substr(0, 3)) / 3 + 1);
    const auto day = static_cast<unsigned>(std::atoi(date.data() + 4));
    const int year = std::atoi(date.data() + 7);
    using namespace std::chrono;
    const weekday dayOfWeek{sys_days{std::chrono::year{year} / month / day}};
    std::string stamp = kDays[dayOfWeek.c_encoding()];
    stamp += ' ';
    stamp += date.substr(0, 7);
    stamp += __TIME__ " ";
    stamp += date.substr(7);
    return stamp;
}

bool DefaultLogPath(std::string& path)
{
    std::string directory;
    if (FAILED(LocalAppDataDirectory(directory)))
        return false;
    directory = JoinPath(directory, "Quorvane3");
    static_cast<void>(MakeDirectories(directory));
    path = JoinPath(directory, "quorvane3.log");
    return true;
}

void TellDebuggerOfDetailFile(HRESULT hr) noexcept
{
    try {
        const DWORD error = static_cast<DWORD>(HRESULT_CODE(hr));
        std::array<char, kDebuggerBuffer> text;
        std::snprintf(text.data(), text.size(), "_tfopen failed, hRes = 0x%08X, dwErr = 0x%08X = \"%s\"\n",
                      static_cast<unsigned>(hr), static_cast<unsigned>(error),
                      SystemErrorText(error).c_str());
        WriteToDebugger(text.data());
    } catch (...) {
        WriteToDebugger("_tfopen failed\n");
    }
}

}  // namespace

std::string TraceHeader(const SYSTEMTIME& time)
{
    std::array<char, 128> started;
    std::snprintf(started.data(), started.size(), "Log Started: %d/%d/%d - %d:%d\r\n", time.wMonth, time.wDay,
                  time.wYear, time.wHour, time.wMinute);
    return kRule + ("Library Compiled: " + BuildStamp()) + kLineEnd + started.data() + kRule;
}

std::string DetailPrefix(DWORD thread, const SYSTEMTIME& time)
{
    const int hour = time.wHour > 12 ? time.wHour - 12 : time.wHour;
    std::array<char, kPrefixBuffer> prefix;
    std::snprintf(prefix.data(), prefix.size(),
                  "0x%04x %02d:%02d:%02d.%03d%s  %02d-%02d-%4d 0x%08X: ", static_cast<unsigned>(thread), hour,
                  time.wMinute, time.wSecond, time.wMilliseconds, time.wHour > 12 ? "PM" : "AM", time.wMonth,
                  time.wDay, time.wYear, 1u);
    return prefix.data();
}

void TraceLog::Start(DWORD flags, const char* path) noexcept
{
    const MutexLock lock(mutex_);
    if (started_)
        return;
    try {
        path_.clear();
        if (path)
            path_ = path;
        else if (!DefaultLogPath(path_))
            path_.clear();
    } catch (...) {
        path_.clear();
    }
    OpenDetailFile();
    started_ = true;
    if (flags & kKnownChannels) {
        flags_ = flags;
        if (flags & kConsole)
            console_.Open();
    }
}

void TraceLog::Shutdown() noexcept
{
    const MutexLock lock(mutex_);
    if (!started_)
        return;
    path_.clear();
    started_ = false;
    if (flags_ & kConsole)
        console_.Close();
    // The log file stays open: a later start goes on writing where this one stopped, under no second header.
}

void TraceLog::Line(const char* function, unsigned line, const char* format, va_list arguments) noexcept
{
    if (!started_)
        return;
    try {
        const SYSTEMTIME now = UtcNow();
        const std::string when = ShortDate(now) + ' ' + TimeOfDay(now);
        std::array<char, kLineBuffer> text;
        const size_t room = text.size() - kLineEndLength;
        size_t length =
            WrittenLength(std::snprintf(text.data(), room, "%s %s(%u) ", when.c_str(), function, line), room);
        length += Format(text.data() + length, room - length, format, arguments);
        std::memcpy(text.data() + length, kLineEnd, kLineEndLength);

        const MutexLock lock(mutex_);
        WriteLine({text.data(), length + kLineEndLength});
    } catch (...) {
        // A line that there is no memory for is lost.
    }
}

void TraceLog::Detail(const char* format, va_list arguments) noexcept
{
    if (!started_)
        return;
    try {
        std::array<char, kDetailBuffer> message;
        const size_t length = Format(message.data(), message.size(), format, arguments);
        const std::string prefix = DetailPrefix(ThreadNumber(), UtcNow());
        const std::string_view text(message.data(), length);

        const MutexLock lock(mutex_);
        if (!started_)
            return;
        WriteToDebugger(prefix);
        WriteToDebugger(text);
        if (detailFile_.IsOpen()) {
            static_cast<void>(detailFile_.Write(prefix.data(), prefix.size()));
            static_cast<void>(detailFile_.Write(text.data(), text.size()));
        }
        if (ToConsole())
            console_.Write(text);
    } catch (...) {
        // As above.
    }
}

void TraceLog::OpenDetailFile() noexcept
{
    detailFile_.Close();
    if (path_.empty())
        return;
    HRESULT hr = E_OUTOFMEMORY;
    try {
        hr = detailFile_.Open(path_ + ".info", FileAccess::Write, FileMode::CreateAlways);
    } catch (...) {
        hr = E_OUTOFMEMORY;
    }
    if (FAILED(hr))
        TellDebuggerOfDetailFile(hr);
}

void TraceLog::OpenLogFile() noexcept
{
    // A failure loses the line, and the next line tries again.
    if (FAILED(file_.Open(path_, FileAccess::Append, FileMode::OpenAlways)) || headerWritten_)
        return;
    try {
        const std::string header = TraceHeader(UtcNow());
        static_cast<void>(file_.Write(header.data(), header.size()));
        headerWritten_ = true;
    } catch (...) {
        // The next process writes one.
    }
}

void TraceLog::WriteLine(std::string_view line) noexcept
{
    if (!started_)
        return;
    if ((flags_ & kLogFile) && !file_.IsOpen() && !path_.empty())
        OpenLogFile();
    if ((flags_ & kLogFile) && file_.IsOpen())
        static_cast<void>(file_.Write(line.data(), line.size()));
    if (ToConsole())
        console_.Write(line);
}

bool TraceLog::ToConsole() const noexcept
{
    return (flags_ & kConsole) && console_.IsOpen();
}

}  // namespace quorvane
