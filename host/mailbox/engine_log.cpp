#include "host/mailbox/engine_log.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

#include "host/base/errors.h"
#include "host/base/output.h"

namespace quorvane::host {

namespace {

using std::chrono::days;
using std::chrono::seconds;
using std::chrono::sys_days;

constexpr std::string_view kStarted = "Log Started: ";
constexpr std::string_view kCompiled = "Library Compiled: ";

// The numbers of a text, between which anything may stand.
std::vector<unsigned> NumbersIn(std::string_view text)
{
    constexpr std::size_t kMost = 8;
    std::vector<unsigned> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end && numbers.size() < kMost) {
        unsigned number = 0;
        const auto read = std::from_chars(at, end, number);
        if (read.ec == std::errc() && read.ptr != at)
            numbers.push_back(number);
        at = read.ptr == at ? at + 1 : read.ptr;
    }
    return numbers;
}

std::optional<sys_days> DayFrom(unsigned year, unsigned month, unsigned day)
{
    if (year > 9999 || month > 12 || day > 31)
        return std::nullopt;
    const std::chrono::year_month_day date{
        std::chrono::year(static_cast<int>(year < 100 ? 2000 + year : year)), std::chrono::month(month),
        std::chrono::day(day)};
    return date.ok() ? std::optional<sys_days>(date) : std::nullopt;
}

// "7:55:14"
std::optional<seconds> TimeOfDayIn(std::string_view word)
{
    if (word.size() < 7 || word.size() > 8 || word[word.size() - 3] != ':' || word[word.size() - 6] != ':')
        return std::nullopt;
    const std::vector<unsigned> parts = NumbersIn(word);
    if (parts.size() != 3 || parts[0] > 23 || parts[1] > 59 || parts[2] > 60)
        return std::nullopt;
    return seconds(parts[0] * 3600 + parts[1] * 60 + parts[2]);
}

// "0x80004005"
std::optional<HRESULT> CodeIn(std::string_view message)
{
    if (!message.starts_with("0x"))
        return std::nullopt;
    std::uint32_t code = 0;
    const char* const end = message.data() + message.size();
    const auto read = std::from_chars(message.data() + 2, end, code, 16);
    if (read.ec != std::errc() || read.ptr != end)
        return std::nullopt;
    return static_cast<HRESULT>(code);
}

// "operation(line) message"
bool ReadCall(std::string_view text, LogEntry& entry)
{
    const std::size_t open = text.find('('), close = text.find(") ");
    if (open == 0 || open == std::string_view::npos || close == std::string_view::npos || close < open ||
        text.substr(0, open).find(' ') != std::string_view::npos)
        return false;
    const auto read = std::from_chars(text.data() + open + 1, text.data() + close, entry.line);
    if (read.ec != std::errc() || read.ptr != text.data() + close)
        return false;
    entry.operation = Printable(text.substr(0, open));
    entry.message = Printable(text.substr(close + 2));
    entry.code = CodeIn(entry.message);
    return true;
}

}  // namespace

std::string LogEntry::Result() const
{
    return code ? Describe(*code) : message;
}

void EngineLogReader::Take(std::string_view bytes, const Visit& visit)
{
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const std::string_view piece = bytes.substr(0, end);
        unfinished_.append(piece.substr(0, kMostOfALine - unfinished_.size()));
        if (end == std::string_view::npos)
            return;
        bytes.remove_prefix(end + 1);
        const std::string line = std::exchange(unfinished_, {});
        TakeLine(std::string_view(line).substr(0, line.find_last_not_of('\r') + 1), visit);
    }
}

void EngineLogReader::TakeLine(std::string_view line, const Visit& visit)
{
    if (line.find_first_not_of(' ') == std::string_view::npos || IsOfHeader(line))
        return;
    std::optional<LogEntry> entry = Traced(line);
    if (!entry)
        entry = Detail(line);
    if (!entry) {
        entry.emplace();
        entry->time = time_;
        entry->message = Printable(line);
    }
    time_ = entry->time;
    visit(*entry);
}

bool EngineLogReader::IsOfHeader(std::string_view line)
{
    if (line.starts_with(kCompiled) || line.find_first_not_of('=') == std::string_view::npos)
        return true;
    if (!line.starts_with(kStarted))
        return false;
    const std::vector<unsigned> numbers = NumbersIn(line);
    const auto day = numbers.size() == 5 ? DayFrom(numbers[2], numbers[0], numbers[1]) : std::nullopt;
    if (!day || numbers[3] > 23 || numbers[4] > 59)
        return false;
    day_ = *day;
    time_ = FileTimeOf(day_ + seconds(numbers[3] * 3600 + numbers[4] * 60));
    return true;
}

std::optional<LogEntry> EngineLogReader::Traced(std::string_view line)
{
    constexpr std::size_t kMostOfADate = 64;
    for (std::size_t begin = line.find(' '); begin != std::string_view::npos && begin < kMostOfADate;
         begin = line.find(' ', begin + 1)) {
        const std::size_t end = std::min(line.find(' ', begin + 1), line.size());
        const auto time = TimeOfDayIn(line.substr(begin + 1, end - begin - 1));
        if (!time || end == line.size())
            continue;
        const auto day = DayOf(line.substr(0, begin));
        LogEntry entry;
        if (!ReadCall(line.substr(end + 1), entry))
            return std::nullopt;
        day_ = day.value_or(day_);
        entry.time = day ? FileTimeOf(*day + *time) : time_;
        return entry;
    }
    return std::nullopt;
}

std::optional<sys_days> EngineLogReader::DayOf(std::string_view date) const
{
    const std::vector<unsigned> numbers = NumbersIn(date);
    if (numbers.size() != 3)
        return std::nullopt;
    std::optional<sys_days> nearest;
    // Year, month and day in the orders that there are.
    for (const auto& order : {std::array{2, 0, 1}, std::array{2, 1, 0}, std::array{0, 1, 2}}) {
        const auto day = DayFrom(numbers[order[0]], numbers[order[1]], numbers[order[2]]);
        if (day && (!nearest || std::chrono::abs(*day - day_) < std::chrono::abs(*nearest - day_)))
            nearest = day;
    }
    return nearest;
}

// Hours are told on a 12-hour clock on which noon and midnight are AM.
std::optional<LogEntry> EngineLogReader::Detail(std::string_view line) const
{
    const std::size_t text = line.find(": ");
    if (!line.starts_with("0x") || text == std::string_view::npos)
        return std::nullopt;
    const std::size_t time = line.find(' ') + 1, date = line.find("  ");
    if (time == 0 || date == std::string_view::npos || date < time || date > text)
        return std::nullopt;
    const std::string_view clock = line.substr(time, date - time);
    const auto timeOfDay = TimeOfDayIn(clock.substr(0, 8));
    const std::vector<unsigned> numbers = NumbersIn(line.substr(date, text - date));
    const auto day = numbers.size() >= 3 ? DayFrom(numbers[2], numbers[0], numbers[1]) : std::nullopt;
    if (!timeOfDay || !day || *timeOfDay >= std::chrono::hours(13))
        return std::nullopt;
    LogEntry entry;
    entry.time =
        FileTimeOf(*day + *timeOfDay + (clock.ends_with("PM") ? std::chrono::hours(12) : seconds(0)));
    entry.message = Printable(line.substr(text + 2));
    return entry;
}

}  // namespace quorvane::host
