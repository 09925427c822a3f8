// host/service/findings.h: what a look at a mailbox and its surroundings found, and what is to be done about
// it.
#ifndef QUORVANE_HOST_SERVICE_FINDINGS_H_
#define QUORVANE_HOST_SERVICE_FINDINGS_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/output.h"

namespace quorvane::host {

struct Finding {
    enum class State {
        kGood,
        kNote,  // goes on by itself, or is worth knowing
        kAct,   // needs a person
    };
    State state = State::kGood;
    std::string area;
    std::string what;
    std::string todo{};  // what to do about it; of kAct never empty
};

// For one thread.
class Findings {
public:
    void Good(const std::string& area, const std::string& what) { Add({Finding::State::kGood, area, what}); }
    void Note(const std::string& area, const std::string& what, const std::string& todo = {})
    {
        Add({Finding::State::kNote, area, what, todo});
    }
    void Act(const std::string& area, const std::string& what, const std::string& todo)
    {
        Add({Finding::State::kAct, area, what, todo});
    }
    void Add(Finding finding) { all_.push_back(std::move(finding)); }

    const std::vector<Finding>& All() const noexcept { return all_; }
    bool NeedsAPerson() const;
    Json ToJson() const;
    // A line for each, with what to do below it.
    std::string Text(const Look& look = OutputLook()) const;

private:
    std::vector<Finding> all_;
};

// Below this many bytes there may not be room for what a run needs: packages of 64 MB on both sides of a
// step, and the databases' logs.
inline constexpr std::uintmax_t kLeastRoom = std::uintmax_t{512} << 20;

// Whether a disk has room for a run. `place` says which disk.
Finding JudgeRoom(const std::string& place, std::uintmax_t available);

// How far two clocks may be apart.
inline constexpr std::chrono::minutes kClocksApart{5};

// Whether the machine's clock agrees with the one that the exchange's files get their times from, and isn't
// behind what was heard of others already.
Finding JudgeClock(std::chrono::system_clock::time_point here, std::chrono::system_clock::time_point exchange,
                   std::chrono::system_clock::time_point lastHeard);

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_FINDINGS_H_
