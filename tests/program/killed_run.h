// tests/program/killed_run.h: runs that end in place of one of their changes of files.
#ifndef QUORVANE_TESTS_PROGRAM_KILLED_RUN_H_
#define QUORVANE_TESTS_PROGRAM_KILLED_RUN_H_

#include <cstdlib>
#include <filesystem>
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
        return RunToItsEnd(run, at, 0, Path(""));
    }
    // A run at whose change of that number the power fails, and takes with it some of what wasn't
    // synchronised.
    bool RunToAPowerCut(const std::string& name, unsigned long at, unsigned long seed,
                        const std::vector<std::string>& options = {}) const
    {
        const std::filesystem::path stash = Path("stash");
        std::filesystem::create_directory(stash);
        std::vector<std::string> run{"run",          Mailbox(name),    "--exchange", Exchange(),
                                     "--until-idle", "--idle-seconds", "0.5"};
        run.insert(run.end(), options.begin(), options.end());
        const bool isCut = RunToItsEnd(run, at, seed, stash);
        std::filesystem::remove_all(stash);
        return isCut;
    }

private:
    // seed: of what is lost; 0 for nothing.
    bool RunToItsEnd(const std::vector<std::string>& run, unsigned long at, unsigned long seed,
                     const std::filesystem::path& stash) const
    {
        constexpr int kKilled = 77;  // power.cpp
        static const Program program{{QUORVANE_POWER_CUT_PROGRAM}, false};
        setenv("QUORVANE_POWER", (std::to_string(at) + " " + std::to_string(seed)).c_str(), 1);
        setenv("QUORVANE_POWER_PLACE", Path("").parent_path().c_str(), 1);
        setenv("QUORVANE_POWER_STASH", stash.c_str(), 1);
        const Outcome outcome = RunBy(program, run);
        unsetenv("QUORVANE_POWER");
        EXPECT_TRUE(outcome.exitCode == kKilled || outcome.exitCode == 0) << outcome.errors;
        return outcome.exitCode == kKilled;
    }
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_PROGRAM_KILLED_RUN_H_
