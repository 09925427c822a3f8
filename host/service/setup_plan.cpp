#include "host/service/setup_plan.h"

#include <algorithm>

#include "host/base/errors.h"

namespace quorvane::host {

namespace {

using Kind = SetupStep::Kind;
using State = SetupStep::State;

SetupStep Step(Kind kind, bool isDone)
{
    return {kind, isDone ? State::kDone : State::kToDo};
}

SetupStep LeftOut(Kind kind, const std::string& why)
{
    return {kind, State::kLeftOut, why};
}

void CheckName(const SetupAnswers& answers, const SetupState& state)
{
    if (state.hasMailbox && answers.name != state.name)
        throw HostError("cannot set up '" + answers.mailbox + "' for " + answers.name +
                            ": it is the mailbox of " + state.name,
                        ExitCode::kUsage);
}

SetupStep PlanExchange(const SetupAnswers& answers, const SetupState& state)
{
    if (answers.exchange.empty())
        return LeftOut(Kind::kExchange, "none is named yet");
    return Step(Kind::kExchange, state.exchange == answers.exchange && state.hasCard);
}

SetupStep PlanTie(const MailTie& tie, const SetupState& state)
{
    for (const MailTie& other : state.ties)
        if (other != tie && (other.folder == tie.folder || other.maildir == tie.maildir))
            Fail("tie '" + tie.folder + "' to", tie.maildir,
                 other.folder + " is tied to " + other.maildir + " already");
    SetupStep step =
        Step(Kind::kTie, std::find(state.ties.begin(), state.ties.end(), tie) != state.ties.end());
    step.tie = tie;
    return step;
}

// One that is there in a package is taken as it is, and the user's own kept up to date.
SetupStep PlanUnit(const SetupState& state, const std::string& unitText)
{
    const bool isOwn = !state.unit->isInstalled || state.unit->file == state.unitFile;
    return Step(Kind::kUnit, !isOwn || (state.unit->isInstalled && state.unitText == unitText));
}

// A second run would fail again and again.
SetupStep PlanStart(const SetupState& state)
{
    if (state.unit->IsUp() || !state.isRunning)
        return Step(Kind::kStart, state.unit->IsUp());
    return LeftOut(Kind::kStart, "a run is under way that it didn't begin");
}

std::vector<SetupStep> PlanService(const SetupAnswers& answers, const SetupState& state,
                                   const std::string& unitText)
{
    if (!answers.wantsService)
        return {LeftOut(Kind::kUnit, "it isn't wanted")};
    if (!state.unit)
        return {LeftOut(Kind::kUnit, "no systemd of this user is running here")};
    if (answers.exchange.empty())
        return {LeftOut(Kind::kUnit, "a run needs an exchange")};
    return {PlanUnit(state, unitText), Step(Kind::kEnable, state.unit->isEnabled), PlanStart(state)};
}

}  // namespace

std::vector<SetupStep> PlanSetup(const SetupAnswers& answers, const SetupState& state,
                                 const std::string& unitText)
{
    CheckName(answers, state);
    std::vector<SetupStep> steps = {Step(Kind::kMailbox, state.hasMailbox), PlanExchange(answers, state)};
    for (const MailTie& tie : answers.ties)
        steps.push_back(PlanTie(tie, state));
    for (SetupStep& step : PlanService(answers, state, unitText))
        steps.push_back(std::move(step));
    return steps;
}

const char* SetupStepName(SetupStep::Kind kind)
{
    switch (kind) {
        case Kind::kMailbox:
            return "mailbox";
        case Kind::kExchange:
            return "exchange";
        case Kind::kTie:
            return "mirror";
        case Kind::kUnit:
            return "unit";
        case Kind::kEnable:
            return "enable";
        default:
            return "start";
    }
}

std::string MemberNameLike(const std::string& user)
{
    constexpr std::size_t kLongest = 64;
    std::string name;
    for (const char c : user) {
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (isLetter || c == '-' || c == '_' || c == '@' || (c == '.' && !name.empty()))
            name += c;
    }
    return name.empty() ? "me" : name.substr(0, kLongest);
}

}  // namespace quorvane::host
