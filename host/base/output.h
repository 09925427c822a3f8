// host/base/output.h: what a command prints: text for people, or one JSON value for programs.
#ifndef QUORVANE_HOST_BASE_OUTPUT_H_
#define QUORVANE_HOST_BASE_OUTPUT_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quorvane::host {

using Json = nlohmann::ordered_json;

// Valid UTF-8 without control characters, fit for one line of a terminal.
std::string Printable(std::string_view text);

// A table with aligned columns, printed at once.
class Table {
public:
    explicit Table(std::vector<std::string> head) : head_(std::move(head)) {}
    void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    // Nothing but the head when there are no rows.
    std::string Text() const;

private:
    std::vector<std::string> head_;
    std::vector<std::vector<std::string>> rows_;
};

// Prints to standard output: `json` as one line when `asJson`, otherwise `text`.
void Print(bool asJson, const Json& json, const std::string& text);

// The time of a FILETIME as "2026-11-21T06:16:47Z"; empty for zero.
std::string TimeText(std::uint64_t fileTime);
// The present time as a FILETIME.
std::uint64_t FileTimeNow();

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_BASE_OUTPUT_H_
