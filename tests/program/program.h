// tests/program/program.h: runs the program `quorvane` as a user would, in processes of its own.
#ifndef QUORVANE_TESTS_PROGRAM_PROGRAM_H_
#define QUORVANE_TESTS_PROGRAM_PROGRAM_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace quorvane::test {

using Json = nlohmann::json;

// The program as one build made it.
struct Program {
    std::vector<std::string> command;  // what starts it, the program's file last
    bool isForWindows = false;
};

// The program of this build, and the one for Windows, run under Wine, of the build directory that the
// variable QUORVANE_WINDOWS_BUILD names.
const Program& NativeProgram();
const Program& WindowsProgram();
// What the tests are about: the one for Windows where there is that variable.
const Program& TestedProgram();

// What a process left behind.
struct Outcome {
    int exitCode = -1;  // 128 plus the signal's number after a kill
    std::string output;
    std::string errors;
    long peakKilobytes = 0;  // the most memory that it had at a time

    // The JSON value on standard output.
    Json Value() const { return Json::parse(output); }
};

// What a process has cost so far; Linux alone tells.
struct Cost {
    std::chrono::nanoseconds processor{};
    std::uint64_t written = 0;  // bytes that files took
};

// A process of the program under way. Killed when this goes while it still runs.
class Process {
public:
    Process(const Program& program, const std::vector<std::string>& arguments,
            const std::filesystem::path& scratch);
    Process(Process&& other) noexcept;
    Process& operator=(Process&&) = delete;
    ~Process();

    void Signal(int number) const;
    // Asks for the orderly end of a run: SIGTERM, or Ctrl-C, of which Wine makes one of SIGINT.
    void AskToEnd() const;
    Cost CostSoFar() const;
    // Waits until it has written nothing for a while.
    void AwaitQuiet();
    // What it has written to standard error so far.
    std::string ErrorsSoFar() const;
    // Waits for the end.
    Outcome Wait();
    // The same for at most `time`; false while it still runs.
    bool WaitFor(std::chrono::milliseconds time, Outcome& outcome);

private:
    void AwaitHearing() const;
    Outcome Collect(int status, long peakKilobytes);

    pid_t process_ = -1;
    bool isForWindows_ = false;
    std::filesystem::path output_;
    std::filesystem::path errors_;
};

// A test with a directory of its own, an exchange and mailboxes in it.
class ProgramTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::filesystem::path Path(const std::string& name) const { return directory_ / name; }
    std::string Exchange() const { return Path("exchange").string(); }
    // Those that lie in the exchange, sealed, of whomever and for whomever, in no order.
    std::vector<std::filesystem::path> Packages() const;
    // The content of those with items that are for a mailbox, each in a file of its own.
    std::vector<std::filesystem::path> ContentFor(const std::string& mailbox) const;
    std::string Mailbox(const std::string& name) const { return Path(name).string(); }

    // The program that works on a mailbox.
    virtual const Program& ProgramOf(const std::string& /*mailbox*/) const { return TestedProgram(); }

    Process Start(const std::vector<std::string>& arguments) const
    {
        return Process(TestedProgram(), arguments, directory_);
    }
    Outcome RunBy(const Program& program, const std::vector<std::string>& arguments) const
    {
        return Process(program, arguments, directory_).Wait();
    }
    Outcome Run(const std::vector<std::string>& arguments) const { return Start(arguments).Wait(); }
    // The same; anything but success fails the test with what the program said.
    Outcome MustRun(const std::vector<std::string>& arguments) const;
    Outcome MustRunBy(const Program& program, const std::vector<std::string>& arguments) const;

    // Each knows the exchange, and all that were made before know it, and it them.
    void MakeMailboxes(const std::vector<std::string>& names) const;
    // Waits until something holds, for half a minute at most; whether it did.
    template <class Condition>
    static bool Eventually(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition())
            if (std::chrono::steady_clock::now() > deadline)
                return false;
        return true;
    }

    // `run` of a mailbox, which accepts whatever those that were made share with it.
    std::vector<std::string> RunOf(const std::string& name, const std::vector<std::string>& more = {}) const;
    // A folder that `owner` has shared is accepted, and nothing of it is sent yet.
    void LetAccept(const std::string& owner, const std::string& member) const;

    // Runs mailboxes side by side until all are idle; gives what each counted, and as "peakKilobytes" the
    // most memory that one of its runs had.
    std::vector<Json> RunUntilIdle(const std::vector<std::string>& names,
                                   const std::string& idleSeconds = "0.7") const;
    // Lets `runOnce` run them by turns, which gives what a run counted, until nothing travels.
    template <class RunOnce>
    static void RunByTurns(const std::vector<std::string>& names, RunOnce runOnce)
    {
        for (int round = 0; round < 12; ++round) {
            bool moved = false;
            for (const std::string& name : names) {
                const Json counts = runOnce(name);
                moved |= counts.value("packagesSent", 0) + counts.value("packagesReceived", 0) > 0;
            }
            if (!moved)
                return;
        }
        ADD_FAILURE() << "packages still travel";
    }
    std::vector<Json> Items(const std::string& mailbox, const std::string& folder) const;
    // In order.
    std::vector<std::string> Subjects(const std::string& mailbox, const std::string& folder = "Shared") const;
    // Whether two folders hold the same items; the differences fail the test.
    void ExpectSame(const std::string& a, const std::string& folderA, const std::string& b,
                    const std::string& folderB) const;

private:
    bool RunRound(const std::vector<std::string>& names, const std::string& idleSeconds,
                  std::vector<Json>& counts) const;

    std::filesystem::path directory_;
    mutable std::vector<std::string> made_;  // mailboxes
};

// The folder of sample mails that comes with the project, and one of them by its name without the extension.
// For a program that reads .msg files alone it is one of such files, which the native program has made of
// them.
std::filesystem::path Samples();
std::filesystem::path Sample(const std::string& name);
// Real files to test with; empty when the machine has none.
std::filesystem::path Corpus();

// A test with real files; skipped on a machine that has none.
class CorpusProgramTest : public ProgramTest {
protected:
    void SetUp() override
    {
        if (Corpus().empty())
            GTEST_SKIP() << "QUORVANE_CORPUS is not set";
        ProgramTest::SetUp();
    }
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_PROGRAM_PROGRAM_H_
