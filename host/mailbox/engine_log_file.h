// host/mailbox/engine_log_file.h: one of the files that the engine traces to, read from its end.
#ifndef QUORVANE_HOST_MAILBOX_ENGINE_LOG_FILE_H_
#define QUORVANE_HOST_MAILBOX_ENGINE_LOG_FILE_H_

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>

#include "host/base/system_file.h"
#include "host/mailbox/engine_log.h"

namespace quorvane::host {

using LogEntries = std::deque<LogEntry>;

// Which entries of the engine's log are meant.
struct LogWish {
    std::uint64_t since = 0;  // a FILETIME: of that time or later
    bool failures = false;    // those alone
};

// A file that others go on writing. However long it is, no more of it is understood than its end, as far as
// it takes to find what is wanted; before that the header of its part is looked for, which tells in which
// order dates are written there (half a second for a part of 1 GB). For one thread. What can't be read throws
// a HostError.
class EngineLogFile {
public:
    explicit EngineLogFile(std::filesystem::path path) : path_(std::move(path)) {}

    // The latest `most` entries that are meant, or all (0): those that were written since the last time, or
    // at the first time those that are there. No more than that is kept in memory. None where there is no
    // file.
    LogEntries ReadOn(const LogWish& wish, std::size_t most);

    // Bytes that were read so far, some of them perhaps more than once.
    std::uintmax_t CountRead() const noexcept { return counted_; }

private:
    LogEntries ReadFrom(std::uintmax_t begin, const LogWish& wish, std::size_t most);
    LogEntries ReadToTheEnd(const LogWish& wish, std::size_t most);
    void LearnTheDay(std::uintmax_t begin);
    std::uintmax_t HeaderBefore(std::uintmax_t end);
    void TakeLineAt(std::uintmax_t begin);
    std::string Piece(std::uintmax_t begin, std::uintmax_t end);

    const std::filesystem::path path_;
    std::unique_ptr<SystemFile> file_;
    std::uintmax_t read_ = 0;  // where it is read on
    std::uint64_t first_ = 0;  // the time of the first entry that was come upon since the last beginning
    std::uintmax_t counted_ = 0;
    EngineLogReader reader_;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_MAILBOX_ENGINE_LOG_FILE_H_
