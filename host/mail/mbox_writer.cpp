#include "host/mail/mbox_writer.h"

#include <array>
#include <string_view>

namespace quorvane {
namespace {

constexpr std::string_view kQuotedFrom = "From ";

// What the beginning of a line may become.
enum class Beginning { kOther, kMayBeFrom, kIsFrom };

Beginning Look(std::string_view held)
{
    const std::size_t quotes = held.find_first_not_of('>');
    const std::string_view rest = quotes == std::string_view::npos ? std::string_view() : held.substr(quotes);
    if (rest == kQuotedFrom)
        return Beginning::kIsFrom;
    return kQuotedFrom.starts_with(rest) ? Beginning::kMayBeFrom : Beginning::kOther;
}

// In the form of asctime, whatever the locale.
std::string DateOfSeparator(std::time_t time)
{
    constexpr std::array kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::tm* const parts = std::gmtime(&time);
    if (!parts)
        return "Thu Jan  1 00:00:00 1970";
    const auto two = [](int number, char fill) {
        return (number < 10 ? std::string(1, fill) : std::string()) + std::to_string(number);
    };
    return std::string(kDays[static_cast<std::size_t>(parts->tm_wday)]) + " " +
           kMonths[static_cast<std::size_t>(parts->tm_mon)] + " " + two(parts->tm_mday, ' ') + " " +
           two(parts->tm_hour, '0') + ":" + two(parts->tm_min, '0') + ":" + two(parts->tm_sec, '0') + " " +
           std::to_string(1900 + parts->tm_year);
}

}  // namespace

std::ostream& MboxWriter::Begin(std::time_t sent)
{
    quoting_.Out() << "From MAILER-DAEMON " << DateOfSeparator(sent) << '\n';
    mail_.clear();
    return mail_;
}

void MboxWriter::End()
{
    quoting_.EndMail();
    quoting_.Out().put('\n');
}

void MboxWriter::Quoting::EndMail()
{
    out_ << held_;
    if (!atStart_ || !held_.empty())
        out_.put('\n');
    held_.clear();
    atStart_ = true;
}

void MboxWriter::Quoting::Put(char c)
{
    if (!atStart_) {
        out_.put(c);
        atStart_ = c == '\n';
        return;
    }
    held_ += c;
    const Beginning beginning = Look(held_);
    if (beginning == Beginning::kMayBeFrom)
        return;
    if (beginning == Beginning::kIsFrom)
        out_.put('>');
    out_ << held_;
    held_.clear();
    atStart_ = c == '\n';
}

MboxWriter::Quoting::int_type MboxWriter::Quoting::overflow(int_type c)
{
    if (!traits_type::eq_int_type(c, traits_type::eof()))
        Put(traits_type::to_char_type(c));
    return out_ ? traits_type::not_eof(c) : traits_type::eof();
}

std::streamsize MboxWriter::Quoting::xsputn(const char* bytes, std::streamsize count)
{
    std::string_view rest(bytes, static_cast<std::size_t>(count));
    while (!rest.empty()) {
        if (atStart_) {
            Put(rest.front());
            rest.remove_prefix(1);
            continue;
        }
        const std::size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end == std::string_view::npos ? end : end + 1);
        out_.write(line.data(), static_cast<std::streamsize>(line.size()));
        atStart_ = end != std::string_view::npos;
        rest.remove_prefix(line.size());
    }
    return out_ ? count : 0;
}

}  // namespace quorvane
