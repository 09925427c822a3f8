#include <algorithm>
#include <chrono>
#include <map>
#include <thread>

#include "host/base/progress.h"
#include "host/commands/command.h"
#include "host/mailbox/comparison_records.h"
#include "host/mailbox/records.h"
#include "host/mailbox/sharing_rows.h"
#include "host/sharing/message_content.h"
#include "host/store/properties.h"

namespace quorvane::host {

namespace {

constexpr auto kVerifyLook = std::chrono::milliseconds(200);

struct VerifyOptions {
    bool json = false;
    std::string mailbox;
    std::string folder;
    int wait = 30;
};

// What a person sees of it meanwhile.
struct VerifyWork {
    std::size_t done = 0;
    std::size_t total = 0;  // items
    Progress progress{"comparing"};
};

struct VerifyReport {
    Json folders = Json::array();
    std::string text;
    bool differs = false;
    bool isOpen = false;  // some aren't compared yet
};

// Whether the message of each item is what is known of it.
void CheckItems(const Mailbox& mailbox, const MailSession& session, Records& records, const Share& share,
                Json& json, VerifyWork& work, VerifyReport& report)
{
    std::map<std::string, std::string> entries;
    for (const auto& [entryId, row] : ReadSharingRows(mailbox))
        entries.emplace(row.id, entryId);
    const auto add = [&](const std::string& id, const std::string& subject, const std::string& what) {
        json.push_back({{"id", id}, {"subject", subject}, {"what", what}});
        report.text += "  " + id + " '" + Printable(subject) + "' " + what + "\n";
    };
    records.ForEachItem(share.folderId, Records::Deleted::kLeftOut, [&](const ItemRecord& item) {
        ++work.done;
        work.progress.Show(work.done, work.total, Counted(work.done, "item"));
        const auto entry = entries.find(item.id);
        const ComPtr<IMessage> message =
            entry == entries.end() ? nullptr : OpenMessage(session, entry->second, false);
        if (!item.isWhole)
            add(item.id, message ? TextOf(*message, PR_SUBJECT_W) : "", "isn't here as others have it");
        else if (!message)
            add(item.id, "", "is gone, and nobody was told yet");
        else if (item.isPending ||
                 (item.heads.Shown() && item.heads.Shown()->content != exchange::ContentDigest{} &&
                  item.heads.Shown()->content != DigestOf(ReadContent(*message, item.id))))
            add(item.id, TextOf(*message, PR_SUBJECT_W), "was changed, and nobody was told yet");
    });
}

bool IsAnswered(const ComparisonRecord& pair, std::uint64_t since)
{
    return pair.equal >= since;
}

std::vector<ComparisonRecord> PairsOf(ComparisonRecords& comparisons, const std::string& folderId)
{
    std::vector<ComparisonRecord> pairs = comparisons.All(FileTimeNow());
    std::erase_if(
        pairs, [&](const ComparisonRecord& pair) { return !folderId.empty() && pair.folderId != folderId; });
    return pairs;
}

// Comparisons are a run's work: one that is under way does them now.
std::vector<ComparisonRecord> Await(ComparisonRecords& comparisons, const std::string& folderId,
                                    std::uint64_t since, int seconds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    Progress progress("waiting for the others' answers");
    for (;;) {
        std::vector<ComparisonRecord> pairs = PairsOf(comparisons, folderId);
        const auto answered = static_cast<std::size_t>(
            std::count_if(pairs.begin(), pairs.end(),
                          [&](const ComparisonRecord& pair) { return IsAnswered(pair, since); }));
        progress.Show(answered, pairs.size(),
                      std::to_string(answered) + " of " + std::to_string(pairs.size()));
        if (answered == pairs.size() || std::chrono::steady_clock::now() >= deadline)
            return pairs;
        std::this_thread::sleep_for(kVerifyLook);
    }
}

void AddPair(const ComparisonRecord& pair, std::uint64_t since, Json& json, VerifyReport& report)
{
    const bool differed = pair.differed >= since;
    const bool equal = IsAnswered(pair, since);
    const std::string state = equal      ? differed ? "was mended" : "equal"
                              : differed ? "differs"
                                         : "not compared yet";
    json.push_back({{"member", pair.member},
                    {"device", pair.device},
                    {"state", state},
                    {"equalSince", TimeText(pair.equal)},
                    {"differed", differed ? pair.count : 0},
                    {"items", differed ? Json(pair.items) : Json::array()}});
    report.text += "  " + pair.member + ": " + state;
    if (differed)
        report.text += ", in " + Counted(static_cast<std::uint64_t>(pair.count), "item");
    report.text += pair.equal != 0 ? "; last equal " + TimeText(pair.equal) + "\n" : "\n";
    if (differed)
        for (const std::string& item : pair.items)
            report.text += "    " + Printable(item) + "\n";
    report.differs = report.differs || (differed && !equal);
    report.isOpen = report.isOpen || (!differed && !equal);
}

ExitCode Verify(const VerifyOptions& options)
{
    const Mailbox mailbox = Mailbox::Open(options.mailbox);
    const MailSession session(options.mailbox);
    Records records(mailbox.HostDatabasePath().string());
    std::vector<Share> shares = records.Shares();
    if (!options.folder.empty()) {
        std::erase_if(shares, [&](const Share& share) { return share.name != options.folder; });
        if (shares.empty())
            Fail("verify", options.folder, "no such folder is shared");
    }
    const std::string folderId = options.folder.empty() ? std::string() : shares[0].folderId;
    ComparisonRecords comparisons(mailbox.HostDatabasePath().string());
    const std::uint64_t since = FileTimeNow();
    comparisons.Want(folderId, {}, since);
    const bool isRunning = mailbox.IsInRun();
    const std::vector<ComparisonRecord> pairs =
        isRunning ? Await(comparisons, folderId, since, options.wait) : PairsOf(comparisons, folderId);
    VerifyReport report;
    auto work = std::make_unique<VerifyWork>();
    for (const Share& share : shares)
        work->total += static_cast<std::size_t>(records.CountItems(share.folderId));
    for (const Share& share : shares) {
        report.text += Printable(share.name) + ":\n";
        Json items = Json::array(), members = Json::array();
        CheckItems(mailbox, session, records, share, items, *work, report);
        for (const ComparisonRecord& pair : pairs)
            if (pair.folderId == share.folderId)
                AddPair(pair, since, members, report);
        report.differs = report.differs || !items.empty();
        report.folders.push_back(
            {{"folder", share.name}, {"id", share.folderId}, {"items", items}, {"members", members}});
    }
    work.reset();
    const char* const result = report.differs ? "differs" : report.isOpen ? "not compared yet" : "equal";
    Print(options.json, {{"running", isRunning}, {"result", result}, {"folders", report.folders}},
          report.text + (isRunning ? "" : "no run is under way; the next one compares\n"));
    return report.differs ? ExitCode::kFailed : report.isOpen ? ExitCode::kOpen : ExitCode::kDone;
}

}  // namespace

void AddVerifyCommand(CLI::App& program, Chosen& chosen)
{
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* const command = AddCommand(
        program, chosen, "verify",
        "Compare shared folders with those of the other members, and say what differed; exits with 1 where "
        "they differ, and with 3 where that isn't known, as no run is under way here or there",
        options, Verify);
    command->add_option("MAILBOX", options->mailbox, "Directory of the mailbox")->required();
    command->add_option("FOLDER", options->folder, "Path of one folder; all of them without it");
    command
        ->add_option("--wait", options->wait,
                     "Seconds that the others' answers are waited for while a run is under way")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str();
}

}  // namespace quorvane::host
