#include <chrono>
#include <cstdio>

#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/commands/mirroring.h"
#include "host/service/service_manager.h"
#include "host/sharing/pinning.h"
#include "host/sharing/runner.h"

namespace quorvane::host {

namespace {

Json CountsOf(const Statistics& counts)
{
    return {{"itemsSent", counts.itemsSent.load()},
            {"deletionsSent", counts.deletionsSent.load()},
            {"itemsApplied", counts.itemsApplied.load()},
            {"deletionsApplied", counts.deletionsApplied.load()},
            {"itemsIgnored", counts.itemsIgnored.load()},
            {"flagsSent", counts.flagsSent.load()},
            {"flagsTaken", counts.flagsTaken.load()},
            {"packagesSent", counts.packagesSent.load()},
            {"packagesReceived", counts.packagesReceived.load()},
            {"packagesRejected", counts.packagesRejected.load()},
            {"echoes", counts.echoes.load()}};
}

// "sent: 2 items, 1 deletion, in 1 package": the parts that there are any of.
std::string PartText(const char* what, const std::vector<std::pair<std::uint64_t, const char*>>& parts,
                     const char* how, std::uint64_t packages)
{
    std::string text;
    for (const auto& [number, thing] : parts)
        if (number > 0)
            text += (text.empty() ? "" : ", ") + Counted(number, thing);
    if (text.empty() && packages == 0)
        return std::string(what) + ": nothing\n";
    return std::string(what) + ": " + (text.empty() ? "no items" : text) + ", " + how + " " +
           Counted(packages, "package") + "\n";
}

std::string CountsText(const Statistics& counts)
{
    const std::uint64_t ignored = counts.itemsIgnored, rejected = counts.packagesRejected;
    return PartText(
               "sent",
               {{counts.itemsSent, "item"}, {counts.deletionsSent, "deletion"}, {counts.flagsSent, "mark"}},
               "in", counts.packagesSent) +
           PartText("applied",
                    {{counts.itemsApplied, "item"},
                     {counts.deletionsApplied, "deletion"},
                     {counts.flagsTaken, "mark"}},
                    "from", counts.packagesReceived) +
           (ignored > 0 ? "ignored: " + Counted(ignored, "item") + ", as what is here is newer\n" : "") +
           (rejected > 0 ? "rejected: " + Counted(rejected, "package") + "\n" : "");
}

// How long the orderly end may take after a signal.
constexpr auto kOrderlyEnd = std::chrono::milliseconds(700);

// Nothing hangs on an orderly end: what is under way is taken up by the next run, as after a kill.
void EndOverdue(const RunOptions& options, const Statistics& statistics)
{
    Tell("quorvane: what was under way is taken up by the next run");
    Print(options.json, CountsOf(statistics), CountsText(statistics));
    std::fflush(nullptr);
}

// Tells the service manager how the run is.
class ServedRun final : public RunObserver {
public:
    explicit ServedRun(ServiceManager& manager) : manager_(manager) {}

    void HasTurned(const std::string& state) override
    {
        manager_.TellReady();
        manager_.TellStatus(state);
        manager_.Pulse();
    }
    void GoesOn() override { manager_.Pulse(); }
    void IsEnding() override { manager_.TellStopping(); }
    std::chrono::milliseconds LongestRest() const override { return manager_.PulseInterval(); }

private:
    ServiceManager& manager_;
};

ExitCode Run(const RunOptions& given)
{
    RunOptions options = given;
    Statistics statistics;
    ServiceManager manager;
    StopSignals signals;
    signals.EndWithin(kOrderlyEnd, [&] { EndOverdue(given, statistics); });
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    options.exchange = ChosenExchange(mailbox, given.exchange);
    if (options.exchange.empty())
        throw HostError("no exchange is known yet: name it by --exchange", ExitCode::kUsage);
    const auto lock = mailbox.LockForRun();
    ChooseExchangeMode(mailbox, options.exchange, options.exchangeMode);
    ServedRun served(manager);
    Runner runner(options, mailbox, signals, statistics);
    runner.Use(MirrorsOfRun(mailbox, runner.Mail(), signals,
                            [](const std::string& line) { Tell("quorvane: " + line); }));
    if (manager.IsThere())
        runner.TellTo(&served);
    runner.Run();
    manager.TellStopping();
    signals.EndInOrder();
    Print(options.json, CountsOf(statistics), CountsText(statistics));
    return ExitCode::kDone;
}

}  // namespace

void AddRunCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<RunOptions>();
    CLI::App* const command =
        AddCommand(program, chosen, "run",
                   "Watch the shared folders, deliver changes and apply those that arrive", options, Run);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("--exchange", options->exchange,
                        "Directory that every member can reach; remembered, so that it is named once");
    AddExchangeMode(*command, options->exchangeMode);
    command->add_flag("--until-idle", options->untilIdle, "End when nothing is left to do");
    command
        ->add_option("--idle-seconds", options->idleSeconds, "How long nothing may happen before it is idle")
        ->check(CLI::Range(0.1, 3600.0))
        ->capture_default_str();
    command
        ->add_option("--ask-after", options->askAfter,
                     "Seconds that a missing package is waited for until its sender is asked for it")
        ->check(CLI::Range(0, 86400))
        ->capture_default_str();
    command
        ->add_option(
            "--compare-after", options->compareAfter,
            "Seconds after which a folder is compared with that of each other member unasked, while nothing "
            "else is to be done")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{31'536'000}))
        ->capture_default_str();
    command
        ->add_option(
            "--silent-after", options->silentAfter,
            "Seconds after which a device of which nothing was heard holds nothing up: nothing is kept for "
            "it, and when it is back its folders are compared")
        ->check(CLI::Range(std::int64_t{1}, std::int64_t{315'360'000}))
        ->capture_default_str();
    command
        ->add_option("--package-size", options->packageSize,
                     "Megabytes of a package's content; a larger item travels alone")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{4096}))
        ->capture_default_str();
    command
        ->add_option("--look-every", options->lookEvery,
                     "Seconds after which the exchange is looked at where nothing tells of changes in it, as "
                     "on shares "
                     "of other machines")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command->add_flag("--sync-each", options->syncEach,
                      "Wait for the disk at each change of an item, also where many are sent or applied");
    command->add_option("--accept-from", options->acceptFrom,
                        "Accept what this member shares without asking; may be given several times");
    command->add_flag(
        "-v,--verbose", options->verbose,
        "Name each change that is seen, sent, applied or ignored, with its subject, and each package");
}

}  // namespace quorvane::host
