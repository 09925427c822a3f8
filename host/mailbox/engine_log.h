// host/mailbox/engine_log.h: the engine's trace log, read back.
//
// Each process that traces writes a header with the time (UTC, in a fixed form), then lines:
//
//     ======================================================
//     Library Compiled: Mon Nov 23 07:53:18 2026
//     Log Started: 11/23/2026 - 7:55
//     ======================================================
//     11/23/26 07:55:14 CSession2::Logon(123) 0x80040111
//
// A line's date stands as the user's locale writes it: of the ways to read its three numbers the one counts
// that is nearest to what was told before, the header at first. The detail file beside it has lines of its
// own:
//
//     0x1b2c 07:55:14.120AM  11-23-2026 0x00000001: Deleted item ({5F...}, 12) in folder 34
#ifndef QUORVANE_HOST_MAILBOX_ENGINE_LOG_H_
#define QUORVANE_HOST_MAILBOX_ENGINE_LOG_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "quorvane3/com.h"

namespace quorvane::host {

struct LogEntry {
    std::uint64_t time = 0;  // a FILETIME, to the second; that of the entry before where it can't be read
    std::string operation;   // empty of a detail, and of a line in no known form
    std::uint32_t line = 0;  // in the operation's source
    std::optional<HRESULT> code;  // of a failure that passed there
    std::string message;          // what stands there, in one line

    // What happened, in words.
    std::string Result() const;
};

// Makes entries of a log's bytes, whatever they are. For one thread.
class EngineLogReader {
public:
    using Visit = std::function<void(const LogEntry&)>;

    // What a line may have; the rest of a longer one is dropped.
    static constexpr std::size_t kMostOfALine = 8192;

    // Takes the bytes that follow those before, and gives the entries of the lines that are whole now.
    void Take(std::string_view bytes, const Visit& visit);

private:
    void TakeLine(std::string_view line, const Visit& visit);
    bool IsOfHeader(std::string_view line);
    std::optional<LogEntry> Traced(std::string_view line);
    std::optional<LogEntry> Detail(std::string_view line) const;
    std::optional<std::chrono::sys_days> DayOf(std::string_view date) const;

    std::string unfinished_;
    std::chrono::sys_days day_{};
    std::uint64_t time_ = 0;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_ENGINE_LOG_H_
