// tests/program/killed_run.h: runs that end in place of one of their changes of files.
#ifndef QUORVANE_TESTS_PROGRAM_KILLED_RUN_H_
#define QUORVANE_TESTS_PROGRAM_KILLED_RUN_H_

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/program/program.h"

namespace quorvane::test {

class KilledRunTest : public ProgramTest {
protected:
    // A run that ends in place of its change of that number; false when it came to rest before.
    bool RunToAKill(const std::string& name, unsigned long at) const
    {
        return RunToAKill(
            {"run", Mailbox(name), "--exchange", Exchange(), "--until-idle", "--idle-seconds", "0.5"}, at);
    }
    // The same of one with other arguments.
    bool RunToAKill(const std::vector<std::string>& run, unsigned long at) const
    {
        constexpr int kKilled = 77;  // power.cpp
        static const Program program{{QUORVANE_POWER_CUT_PROGRAM}, false};
        setenv("QUORVANE_POWER", (std::to_string(at) + " 0").c_str(), 1);
        setenv("QUORVANE_POWER_PLACE", Path("").parent_path().c_str(), 1);
        setenv("QUORVANE_POWER_STASH", Path("").c_str(), 1);
        const Outcome outcome = RunBy(program, run);
        unsetenv("QUORVANE_POWER");
        EXPECT_TRUE(outcome.exitCode == kKilled || outcome.exitCode == 0) << outcome.errors;
        return outcome.exitCode == kKilled;
    }
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_PROGRAM_KILLED_RUN_H_
