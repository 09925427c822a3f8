// host/service/setup_plan.h: what makes a mailbox that is in daily use of what there is, decided apart from
// doing it.
#ifndef QUORVANE_HOST_SERVICE_SETUP_PLAN_H_
#define QUORVANE_HOST_SERVICE_SETUP_PLAN_H_

#include <compare>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/service/service_unit.h"

namespace quorvane::host {

// A folder and the Maildir that it is tied to.
struct MailTie {
    std::string folder;
    std::string maildir;

    auto operator<=>(const MailTie&) const = default;
};

// What somebody wants.
struct SetupAnswers {
    std::string mailbox;   // its directory, absolute
    std::string name;      // of the member
    std::string exchange;  // its directory, absolute; empty while there is none
    std::vector<MailTie> ties;
    bool wantsService = true;
};

// What there is.
struct SetupState {
    bool hasMailbox = false;
    std::string name;      // of the mailbox
    std::string exchange;  // that it knows
    bool hasCard = false;  // it lies there
    std::vector<MailTie> ties;
    bool isRunning = false;         // whoever began the run
    std::optional<UnitState> unit;  // nothing: no systemd of this user is running
    std::string unitFile;           // where a unit of the user's own for this mailbox lies, or would
    std::string unitText;           // what is in it
};

struct SetupStep {
    enum class Kind { kMailbox, kExchange, kTie, kUnit, kEnable, kStart };
    enum class State {
        kToDo,
        kDone,     // it was so before
        kLeftOut,  // `why` tells
    };
    Kind kind;
    State state;
    std::string why{};
    MailTie tie{};  // of kTie
};

// The steps in their order, those that are done already among them. A plan that was carried out, whole or in
// part, gives one with less to do from what there is then.
//
// unitText  what the user's own unit has to hold.
//
// Throws a HostError where what is wanted isn't what there is: a mailbox of another name, a folder or a
// Maildir that is tied to something else.
std::vector<SetupStep> PlanSetup(const SetupAnswers& answers, const SetupState& state,
                                 const std::string& unitText);

// The word for a step in JSON.
const char* SetupStepName(SetupStep::Kind kind);

// A member's name that is like what the user is called; "me" where nothing of that can stand in one.
std::string MemberNameLike(const std::string& user);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_SETUP_PLAN_H_
