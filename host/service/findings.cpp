#include "host/service/findings.h"

#include <algorithm>

namespace quorvane::host {

namespace {

const char* StateText(Finding::State state)
{
    switch (state) {
        case Finding::State::kGood:
            return "good";
        case Finding::State::kNote:
            return "note";
        default:
            return "act";
    }
}

constexpr std::size_t kBeforeAreas = 6;  // a state, and two blanks

std::string Coloured(const char* word, Finding::State state, const Look& look)
{
    if (!look.hasColours || state == Finding::State::kGood)
        return word;
    return (state == Finding::State::kAct ? "\033[31m" : "\033[1m") + std::string(word) + "\033[0m";
}

}  // namespace

bool Findings::NeedsAPerson() const
{
    return std::any_of(all_.begin(), all_.end(),
                       [](const Finding& finding) { return finding.state == Finding::State::kAct; });
}

Json Findings::ToJson() const
{
    Json json = Json::array();
    for (const Finding& finding : all_)
        json.push_back({{"area", finding.area},
                        {"state", StateText(finding.state)},
                        {"what", finding.what},
                        {"todo", finding.todo}});
    return json;
}

std::string Findings::Text(const Look& look) const
{
    std::size_t widest = 0;
    for (const Finding& finding : all_)
        widest = std::max(widest, DisplayWidth(finding.area));
    std::string text;
    for (const Finding& finding : all_) {
        const char* const state = finding.state == Finding::State::kAct ? "ACT " : StateText(finding.state);
        text += Coloured(state, finding.state, look) + std::string(2 + (state[3] == '\0' ? 1 : 0), ' ') +
                finding.area + std::string(widest - DisplayWidth(finding.area) + 2, ' ');
        const std::size_t indent = widest + kBeforeAreas + 2;
        text +=
            Folded(std::string(indent, ' ') + Printable(finding.what), look.width, indent).substr(indent) +
            "\n";
        // In one piece, as it is copied.
        if (!finding.todo.empty())
            text += std::string(indent, ' ') + "-> " + Printable(finding.todo) + "\n";
    }
    return text;
}

Finding JudgeRoom(const std::string& place, std::uintmax_t available)
{
    const std::string left = std::to_string(available >> 20) + " MB are left on the disk of " + place;
    if (available >= kLeastRoom)
        return {Finding::State::kGood, "disk space", left};
    return {Finding::State::kAct, "disk space",
            left + ", and a run may need " + std::to_string(kLeastRoom >> 20),
            "delete what isn't needed there, or move it to another disk"};
}

Finding JudgeClock(std::chrono::system_clock::time_point here, std::chrono::system_clock::time_point exchange,
                   std::chrono::system_clock::time_point lastHeard)
{
    using std::chrono::duration_cast;
    using std::chrono::seconds;
    constexpr char kTodo[] =
        "set the clock of this machine, or have it set by the network ('timedatectl set-ntp true')";
    const seconds apart = duration_cast<seconds>(exchange - here);
    if (std::chrono::abs(apart) > kClocksApart)
        return {Finding::State::kAct, "clock",
                "this machine's clock is " + std::to_string(std::abs(apart.count())) + " seconds " +
                    (apart.count() > 0 ? "behind" : "ahead of") + " that of the exchange",
                kTodo};
    if (lastHeard > here + kClocksApart)
        return {Finding::State::kAct, "clock",
                "others were heard of at a time that is " +
                    std::to_string(duration_cast<seconds>(lastHeard - here).count()) +
                    " seconds ahead of this "
                    "machine's clock",
                kTodo};
    return {Finding::State::kGood, "clock", "it agrees with that of the exchange"};
}

}  // namespace quorvane::host
