#include <algorithm>
#include <chrono>
#include <optional>
#include <sstream>

#include "host/base/change_watch.h"
#include "host/base/screen.h"
#include "host/base/terminal.h"
#include "host/commands/readings.h"

namespace quorvane::host {

namespace {

using Clock = std::chrono::steady_clock;

// Whatever happens, it isn't read again before that.
constexpr auto kBetweenLooks = std::chrono::milliseconds(300);
// What isn't told, as a time that goes by, is seen then.
constexpr auto kLongestRest = std::chrono::seconds(5);

// Tells whether others have changed what a mailbox keeps, without a trace on the disk.
class MailboxVersion {
public:
    explicit MailboxVersion(const Mailbox& mailbox)
        : records_(mailbox.HostDatabasePath().string(), Database::Mode::kOpen),
          sharing_(mailbox.OpenSharingDatabase())
    {}

    std::pair<std::int64_t, std::int64_t> Now() { return {VersionOf(records_), VersionOf(sharing_)}; }

private:
    static std::int64_t VersionOf(Database& database)
    {
        Statement version(database, "PRAGMA data_version");
        return version.Step() ? version.Number(0) : 0;
    }

    Database records_;
    Database sharing_;
};

// Where each state is shown: on a screen, as a value a line, or as lines that come and go.
class Display {
public:
    explicit Display(bool asJson) : asJson_(asJson)
    {
        if (!asJson && OutputWidth() > 0)
            screen_.emplace();
    }

    std::intptr_t Handle() const noexcept { return screen_ ? screen_->Handle() : -1; }
    bool TakeKeys() { return screen_ && screen_->TakeKeys(); }
    // `report`: another one than before, or the same on a screen of another size.
    void Show(const StatusReport& report)
    {
        if (screen_)
            return screen_->Draw(FoldedLines(report.text, OutputWidth()));
        if (asJson_ ? report.json == last_.json : report.text == last_.text)
            return;
        Print(asJson_, report.json, Changes(last_.text, report.text));
        last_ = report;
    }

private:
    static std::vector<std::string> LinesOf(const std::string& text)
    {
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }
    static void Add(std::string& text, const std::vector<std::string>& lines,
                    const std::vector<std::string>& others, const std::string& mark)
    {
        for (const std::string& line : lines)
            if (std::find(others.begin(), others.end(), line) == others.end())
                text += mark + line + "\n";
    }
    static std::string Changes(const std::string& before, const std::string& now)
    {
        const std::string time = TimeText(FileTimeNow());
        std::string text;
        Add(text, LinesOf(before), LinesOf(now), time + " - ");
        Add(text, LinesOf(now), LinesOf(before), time + " + ");
        return text;
    }

    const bool asJson_;
    std::optional<Screen> screen_;
    StatusReport last_;
};

}  // namespace

ExitCode WatchStatus(const std::string& directory, bool asJson)
{
    const Mailbox mailbox = Mailbox::Open(directory);
    MailboxVersion version(mailbox);
    Display display(asJson);
    const StopSignals signals;
    ChangeWatch watch;
    watch.Watch(mailbox.Directory());
    watch.AlsoWaitFor(display.Handle());
    for (;;) {
        const auto known = version.Now();
        const auto begun = Clock::now();
        const StatusReport report = ReadStatus(mailbox);
        display.Show(report);
        // Reading leaves traces too, which aren't to wake it; what was changed meanwhile is seen by its
        // version.
        watch.Forget();
        auto woken = version.Now() == known ? watch.Wait(signals, kLongestRest) : ChangeWatch::Woken::kChange;
        for (; woken == ChangeWatch::Woken::kOther; woken = watch.Wait(signals, kLongestRest)) {
            if (display.TakeKeys())
                return ExitCode::kDone;
            display.Show(ReadStatus(mailbox));
            watch.Forget();
        }
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(begun + kBetweenLooks - Clock::now());
        if (woken == ChangeWatch::Woken::kStop ||
            (rest.count() > 0 && signals.Wait(std::chrono::milliseconds(rest))))
            return ExitCode::kDone;
    }
}

}  // namespace quorvane::host
