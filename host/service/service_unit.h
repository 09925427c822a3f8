// host/service/service_unit.h: the unit of systemd that runs a mailbox for its user, and how it is.
#ifndef QUORVANE_HOST_SERVICE_SERVICE_UNIT_H_
#define QUORVANE_HOST_SERVICE_SERVICE_UNIT_H_

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/service/findings.h"

namespace quorvane::host {

// "quorvane@home-alice-mail.service": an instance of quorvane@.service, named as by 'systemd-escape --path'.
//
// mailbox: an absolute path without "." and "..".
std::string UnitNameOf(const std::filesystem::path& mailbox);

// A unit for one mailbox that begins this file of the program, wherever it is.
std::string UnitText(const std::filesystem::path& program);

// What the user's systemd tells of a unit.
struct UnitState {
    bool isInstalled = false;
    bool isEnabled = false;
    std::string file{};    // that it was read from; empty where there is none
    std::string active{};  // "active", "activating", "inactive", "failed" ...
    std::string sub{};     // "running", "auto-restart", "dead" ...
    std::string result{};  // of what ended last: "success", "exit-code", "watchdog" ...

    // It is there, or on its way.
    bool IsUp() const
    {
        return (active == "active" || active == "activating" || active == "reloading") && !IsRestarting();
    }
    // It ended badly, and is begun again after a while.
    bool IsRestarting() const { return sub == "auto-restart" || sub == "auto-restart-queued"; }
};

// From the lines that 'systemctl show' prints. What it doesn't tell stays empty.
UnitState ReadUnitState(std::string_view lines);

// What there is to say of the unit of a mailbox.
//
// unit       its name.
// state      nothing: no systemd of this user is running.
// setUp      the command line that installs it.
Finding JudgeUnit(const std::string& unit, const std::optional<UnitState>& state, const std::string& setUp);

// The user's systemd, asked by systemctl. No call takes longer than a few seconds.
class UserManager {
public:
    // Nothing where there is none.
    std::optional<UnitState> Look(const std::string& unit) const;
    // `systemctl --user WORDS...`. Throws a HostError with what it says where that fails.
    void Do(const std::vector<std::string>& words) const;
};

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_SERVICE_SERVICE_UNIT_H_
