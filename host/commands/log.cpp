#include <algorithm>
#include <optional>
#include <unordered_map>

#include "host/base/change_watch.h"
#include "host/base/stop_signals.h"
#include "host/commands/command.h"
#include "host/commands/readings.h"
#include "host/mailbox/engine_log_file.h"
#include "host/mailbox/sharing_rows.h"
#include "host/mailbox/trash.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

namespace fs = std::filesystem;

struct LogOptions {
    bool json = false;
    bool failures = false;
    bool follow = false;
    std::string mailbox;
    std::string since;
    std::size_t lines = 100;
};

// The items that lines name, by their sharing ID or entry identifier.
class ItemNames {
public:
    explicit ItemNames(const Mailbox& mailbox) : mailbox_(mailbox) {}

    // The subject of the first item that a line names; empty where it names none that is known.
    std::string SubjectIn(const std::string& line)
    {
        for (std::size_t begin = 0; begin < line.size();) {
            const std::size_t end = std::min(line.find_first_not_of(kOfAName, begin), line.size());
            if (end - begin >= kLeastOfAName)
                if (const std::string* const subject = Find(line.substr(begin, end - begin)))
                    return *subject;
            begin = end + 1;
        }
        return {};
    }

private:
    static constexpr char kOfAName[] = "0123456789ABCDEFabcdef{}-";
    static constexpr std::size_t kLeastOfAName = 16;

    const std::string* Find(const std::string& name)
    {
        if (!isRead_)
            Read();
        const auto item = entries_.find(name);
        const auto gone = subjects_.find(name);
        if (item == entries_.end() || gone != subjects_.end())
            return gone == subjects_.end() ? nullptr : &gone->second;
        const ComPtr<IMessage> message = OpenMessage(*session_, item->second, false);
        return &(subjects_[name] = message ? TextOf(*message, PR_SUBJECT_W) : std::string());
    }

    void Read()
    {
        isRead_ = true;
        session_.emplace(mailbox_.Directory().string());
        for (const auto& [entryId, row] : ReadSharingRows(mailbox_)) {
            entries_.emplace(row.id, entryId);
            entries_.emplace(entryId, entryId);
        }
        for (const TrashEntry& entry : Trash(mailbox_).Entries())
            if (!entries_.contains(entry.item))
                subjects_.emplace(entry.item, entry.subject);
    }

    const Mailbox& mailbox_;
    bool isRead_ = false;
    std::optional<MailSession> session_;
    std::unordered_map<std::string, std::string> entries_;   // entry identifiers by either
    std::unordered_map<std::string, std::string> subjects_;  // of items that are gone, and were found
};

// The log and the details beside it, in the order of their times; of them what was asked for.
class WholeLog {
public:
    WholeLog(const Mailbox& mailbox, const LogWish& wish)
        : log_(mailbox.LogPath()), details_(mailbox.LogPath().string() + ".info"), wish_(wish)
    {}

    // What was written since the last time; the latest `most` entries of it, or all of them (0).
    LogEntries ReadOn(std::size_t most)
    {
        LogEntries entries = log_.ReadOn(wish_, most), details = details_.ReadOn(wish_, most);
        if (details.empty())
            return entries;
        entries.insert(entries.end(), details.begin(), details.end());
        std::stable_sort(entries.begin(), entries.end(),
                         [](const LogEntry& one, const LogEntry& other) { return one.time < other.time; });
        if (most > 0 && entries.size() > most)
            entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(most));
        return entries;
    }

private:
    EngineLogFile log_;
    EngineLogFile details_;
    const LogWish wish_;
};

Json JsonOf(const LogEntry& entry, const std::string& subject)
{
    char code[16] = "";
    if (entry.code)
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(*entry.code));
    return {{"time", TimeText(entry.time)}, {"operation", entry.operation},
            {"line", entry.line},           {"code", code},
            {"result", entry.Result()},     {"subject", subject}};
}

void Show(const LogOptions& options, const Mailbox& mailbox, const LogEntries& entries, bool hasHead)
{
    ItemNames names(mailbox);
    Json json = Json::array();
    Table table(
        {"TIME", {"OPERATION", Fit::kShortened}, {"RESULT", Fit::kShortened}, {"ITEM", Fit::kShortened}});
    for (const LogEntry& entry : entries) {
        const std::string subject = names.SubjectIn(entry.message);
        json.push_back(JsonOf(entry, subject));
        table.Add({TimeText(entry.time), entry.operation, Printable(entry.Result()), Printable(subject)},
                  entry.code ? Table::Row::kAlarm : Table::Row::kPlain);
    }
    const std::string text = table.Text();
    Print(options.json, json, hasHead ? text : text.substr(text.find('\n') + 1));
}

// Where nothing tells of what is written there it is looked at so often.
constexpr auto kLook = std::chrono::seconds(1);

ExitCode ShowLog(const LogOptions& options)
{
    const std::uint64_t since = TimeNamed(options.since);
    std::optional<StopSignals> signals;
    if (options.follow)
        signals.emplace();
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    ChangeWatch watch;
    if (options.follow)
        watch.Watch(mailbox.LogPath().parent_path());
    WholeLog log(mailbox, {since, options.failures});
    Show(options, mailbox, log.ReadOn(options.lines), true);
    while (signals && watch.Wait(*signals, kLook) != ChangeWatch::Woken::kStop) {
        watch.Forget();
        watch.Watch(mailbox.LogPath().parent_path());
        if (const LogEntries entries = log.ReadOn(0); !entries.empty())
            Show(options, mailbox, entries, false);
    }
    return ExitCode::kDone;
}

}  // namespace

Json LogJson(const Mailbox& mailbox, const LogEntries& entries)
{
    ItemNames names(mailbox);
    Json json = Json::array();
    for (const LogEntry& entry : entries)
        json.push_back(JsonOf(entry, names.SubjectIn(entry.message)));
    return json;
}

LogEntries ReadLog(const Mailbox& mailbox, const LogWish& wish, std::size_t most)
{
    return WholeLog(mailbox, wish).ReadOn(most);
}

void AddLogCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<LogOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "log",
        "Show what the engine has traced: when, in which operation, what came of it, and of which item",
        options, ShowLog);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("--since", options->since,
                        "What was traced on that date, or at that time (UTC), or later");
    command->add_option("-n,--lines", options->lines, "How many of the latest lines; 0: all")
        ->check(CLI::Range(std::size_t{0}, std::size_t{10'000'000}))
        ->capture_default_str();
    command->add_flag("--failures", options->failures, "Failures alone, the innermost call first");
    command->add_flag(
        "--follow", options->follow,
        "Go on with what is traced from now on, until Ctrl-C; under --json one value for each time");
}

}  // namespace quorvane::host
