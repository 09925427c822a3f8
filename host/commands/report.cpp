#include <chrono>
#include <fstream>
#include <utility>

#include "host/base/files.h"
#include "host/base/path_text.h"
#include "host/commands/command.h"
#include "host/commands/export_files.h"
#include "host/commands/readings.h"
#include "host/mailbox/traffic.h"
#include "host/report/page.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

// So many of the trash and of the log are told one by one.
constexpr std::size_t kMostTrash = 100;
constexpr std::size_t kMostErrors = 20;

struct ReportOptions {
    bool json = false;
    std::string mailbox;
    std::string file;
    std::int64_t days = 30;
};

Json TrafficJson(const Traffic& traffic)
{
    return {{"packages", traffic.packages}, {"items", traffic.items}, {"bytes", traffic.bytes}};
}

// Each of the days, those on which nothing passed too.
Json DaysOf(Database& records, std::int64_t first, std::int64_t last)
{
    Json days = Json::array();
    const std::vector<TrafficOfADay> known = ReadTraffic(records, first);
    auto next = known.begin();
    for (std::int64_t day = first; day <= last; ++day) {
        TrafficOfADay traffic{day, {}, {}};
        if (next != known.end() && next->day == day)
            traffic = *next++;
        days.push_back({{"day", TimeText(static_cast<std::uint64_t>(day) * kTrafficDay).substr(0, 10)},
                        {"sent", TrafficJson(traffic.sent)},
                        {"received", TrafficJson(traffic.received)}});
    }
    return days;
}

Json AppliedOf(Database& records, std::int64_t first)
{
    Json applied = Json::array();
    for (const AppliedWithin& one : ReadAppliedWithin(records, first))
        applied.push_back(
            {{"seconds", one.seconds == kLonger ? Json() : Json(one.seconds)}, {"items", one.items}});
    return applied;
}

Json TrashOf(const Mailbox& mailbox)
{
    Json trash = ReadTrash(mailbox);
    Json& entries = trash.at("entries");
    const std::size_t count = entries.size();
    while (entries.size() > kMostTrash)
        entries.erase(entries.size() - 1);
    return {{"days", trash.at("days")}, {"count", count}, {"entries", entries}};
}

Json ReadReport(const Mailbox& mailbox, std::int64_t days)
{
    const std::uint64_t now = FileTimeNow();
    const auto today = static_cast<std::int64_t>(now / kTrafficDay);
    const Json status = ReadStatus(mailbox).json;
    Json report = {{"mailbox", status.at("mailbox")}, {"name", status.at("name")}, {"made", TimeText(now)}};
    for (const char* const name :
         {"running", "shares", "members", "resends", "unsent", "incoming", "strangers", "folders", "refusals",
          "awaited", "mirrors", "packagesFilling", "packagesToDeliver", "packagesToApply", "rejected"})
        report[name] = status.at(name);
    report["conflicts"] = ReadConflicts(mailbox);
    report["trash"] = TrashOf(mailbox);
    Database records(mailbox.HostDatabasePath().string(), Database::Mode::kReadOnly);
    report["traffic"] = DaysOf(records, today - days + 1, today);
    report["applied"] = AppliedOf(records, today - days + 1);
    report["errors"] = LogJson(mailbox, ReadLog(mailbox, {0, true}, kMostErrors));
    return report;
}

// What has the name already and isn't a report stays.
bool LiesThere(const fs::path& file)
{
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file, error);
    if (!fs::exists(status))
        return false;
    std::string beginning(kTellingBytes, '\0');
    if (fs::is_regular_file(status)) {
        std::ifstream in(file, std::ios::binary);
        in.read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
        beginning.resize(static_cast<std::size_t>(in.gcount()));
        if (IsPage(beginning))
            return true;
    }
    Fail("write", file.string(), "there is something else of that name, which is no report");
}

// Nobody but the user may read it: it tells subjects.
void WritePage(const fs::path& file, const std::string& page)
{
    if (LiesThere(file))
        return WriteDurably(file, page);
    const ExportFiles files(file.has_parent_path() ? file.parent_path() : fs::path("."));
    WriteDurably(files.Aside(), page);
    files.Keep(file.filename().string());
}

ExitCode Report(const ReportOptions& options)
{
    if (options.file.empty() && !options.json)
        throw HostError("name the file by -o, or say --json", ExitCode::kUsage);
    // The mailbox may have the process work in other directories.
    const fs::path file = options.file.empty() ? fs::path() : fs::absolute(PathOf(options.file));
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const Json report = ReadReport(mailbox, options.days);
    if (!file.empty())
        WritePage(file, PageOf(report));
    Print(options.json, report, "wrote " + Printable(options.file) + "\n");
    return ExitCode::kDone;
}

}  // namespace

void AddReportCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<ReportOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "report",
        "Write a page that shows who shares what, what passed, what waits and what failed", options, Report);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("-o,--output", options->file,
                        "File to write, for any browser; one that is there is replaced if it is a report");
    command->add_option("--days", options->days, "How many days back what passed is shown")
        ->check(CLI::Range(std::int64_t{1}, kTrafficDays))
        ->capture_default_str();
}

}  // namespace quorvane::host
