#include "host/mailbox/engine_log_file.h"

#include <algorithm>
#include <string>
#include <system_error>

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlock = std::size_t{64} << 10;
constexpr std::uintmax_t kFirstLook = std::uintmax_t{256} << 10;
constexpr unsigned kGrowth = 4;  // of a look that found too little
constexpr std::string_view kHeader = "\nLog Started: ";

const EngineLogReader::Visit kNobody = [](const LogEntry&) {};

}  // namespace

LogEntries EngineLogFile::ReadOn(const LogWish& wish, std::size_t most)
{
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path_, error);
    if (file_ && (error || size < read_))
        file_.reset();  // another one has its name, or none
    if (error || !fs::is_regular_file(path_, error))
        return {};
    if (file_)
        return ReadToTheEnd(wish, most);
    file_ = std::make_unique<SystemFile>(path_, SystemFile::Use::kRead);
    for (std::uintmax_t look = kFirstLook;; look *= kGrowth) {
        const std::uintmax_t begin = size > look ? size - look : 0;
        LogEntries entries = ReadFrom(begin, wish, most);
        const bool isEnough = (most > 0 && entries.size() >= most) || (first_ > 0 && first_ < wish.since);
        if (begin == 0 || isEnough)
            return entries;
    }
}

// What stands before the first whole line belongs to a look before.
LogEntries EngineLogFile::ReadFrom(std::uintmax_t begin, const LogWish& wish, std::size_t most)
{
    reader_ = {};
    first_ = 0;
    read_ = begin;
    if (begin > 0) {
        LearnTheDay(begin);
        const std::string piece = Piece(begin, begin + EngineLogReader::kMostOfALine);
        const std::size_t end = piece.find('\n');
        read_ = begin + (end == std::string::npos ? 0 : end + 1);
    }
    file_->Seek(read_);
    return ReadToTheEnd(wish, most);
}

LogEntries EngineLogFile::ReadToTheEnd(const LogWish& wish, std::size_t most)
{
    LogEntries entries;
    const auto visit = [&](const LogEntry& entry) {
        first_ = first_ == 0 ? entry.time : first_;
        if (entry.time < wish.since || (wish.failures && !entry.code))
            return;
        entries.push_back(entry);
        if (most > 0 && entries.size() > most)
            entries.pop_front();
    };
    std::string buffer(kBlock, '\0');
    while (const std::size_t count = file_->Read(buffer.data(), buffer.size())) {
        read_ += count;
        counted_ += count;
        reader_.Take(std::string_view(buffer).substr(0, count), visit);
    }
    return entries;
}

// In which order a line's date is written the lines before it tell: the header of its part, and some on the
// way from there.
void EngineLogFile::LearnTheDay(std::uintmax_t begin)
{
    constexpr std::uintmax_t kOnTheWay = 64;
    const std::uintmax_t header = HeaderBefore(begin);
    TakeLineAt(header);
    for (std::uintmax_t i = 1; i < kOnTheWay; ++i)
        TakeLineAt(header + (begin - header) / kOnTheWay * i);
}

// Where the line before the last header stands that begins before `end`; 0 where there is none.
std::uintmax_t EngineLogFile::HeaderBefore(std::uintmax_t end)
{
    while (end > 0) {
        const std::uintmax_t begin = end > kBlock ? end - kBlock : 0;
        const std::size_t found = Piece(begin, end + kHeader.size()).rfind(kHeader);
        if (found != std::string::npos)
            return begin + found;
        end = begin;
    }
    return 0;
}

// The first line that begins behind that place, where that isn't at the end.
void EngineLogFile::TakeLineAt(std::uintmax_t begin)
{
    const std::string piece = Piece(begin, begin + EngineLogReader::kMostOfALine);
    const std::size_t line = piece.find('\n');
    const std::size_t end = line == std::string::npos ? line : piece.find('\n', line + 1);
    if (end != std::string::npos)
        reader_.Take(std::string_view(piece).substr(line + 1, end - line), kNobody);
}

std::string EngineLogFile::Piece(std::uintmax_t begin, std::uintmax_t end)
{
    std::string piece(static_cast<std::size_t>(end - begin), '\0');
    file_->Seek(begin);
    std::size_t filled = 0;
    while (const std::size_t count = file_->Read(piece.data() + filled, piece.size() - filled))
        filled += count;
    counted_ += filled;
    piece.resize(filled);
    return piece;
}

}  // namespace quorvane::host
