#include "tests/program/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

namespace quorvane::test {

namespace {

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::filesystem::path NewFile(const std::filesystem::path& directory, const char* kind)
{
    static std::atomic<int> number{0};
    return directory / (std::string(kind) + "-" + std::to_string(++number) + ".txt");
}

[[noreturn]] void Execute(const std::vector<std::string>& arguments, const std::filesystem::path& output,
                          const std::filesystem::path& errors)
{
    std::vector<char*> pointers{const_cast<char*>("quorvane")};
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDOUT_FILENO);
    dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDERR_FILENO);
    execv(QUORVANE_PROGRAM, pointers.data());
    _exit(127);
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments, const std::filesystem::path& scratch)
    : output_(NewFile(scratch, "out")), errors_(NewFile(scratch, "err"))
{
    process_ = fork();
    if (process_ == 0)
        Execute(arguments, output_, errors_);
}

Process::Process(Process&& other) noexcept
    : process_(std::exchange(other.process_, -1)), output_(other.output_), errors_(other.errors_)
{}

Process::~Process()
{
    if (process_ <= 0)
        return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void Process::Signal(int number) const
{
    kill(process_, number);
}

std::string Process::ErrorsSoFar() const
{
    return ReadFile(errors_);
}

Outcome Process::Collect(int status)
{
    process_ = -1;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    Outcome outcome{code, ReadFile(output_), ReadFile(errors_)};
    // A sanitizer's exit code may be that of an ordinary failure; its report is what tells it apart.
    for (const char* report : {"Sanitizer", "runtime error:"})
        EXPECT_EQ(outcome.errors.find(report), std::string::npos) << outcome.errors;
    return outcome;
}

Outcome Process::Wait()
{
    int status = 0;
    waitpid(process_, &status, 0);
    return Collect(status);
}

bool Process::WaitFor(std::chrono::milliseconds time, Outcome& outcome)
{
    pollfd ended{static_cast<int>(syscall(SYS_pidfd_open, process_, 0)), POLLIN, 0};
    const bool over = poll(&ended, 1, static_cast<int>(time.count())) > 0;
    close(ended.fd);
    if (over)
        outcome = Wait();
    return over;
}

void ProgramTest::SetUp()
{
    std::string name = (std::filesystem::temp_directory_path() / "quorvane-program-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name;
    std::filesystem::create_directory(Path("exchange"));
}

void ProgramTest::TearDown()
{
    if (HasFailure())
        std::cout << "what the test worked on is left in " << directory_ << "\n";
    else
        std::filesystem::remove_all(directory_);
}

Outcome ProgramTest::MustRun(const std::vector<std::string>& arguments) const
{
    Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.exitCode, 0) << arguments[0] << ": " << outcome.errors << outcome.output;
    return outcome;
}

void ProgramTest::MakeMailboxes(const std::vector<std::string>& names) const
{
    for (const std::string& name : names)
        MustRun({"init", Mailbox(name), "--name", name});
}

// One run of each; adds to what each counted. Whether any package came or went.
bool ProgramTest::RunRound(const std::vector<std::string>& names, const std::string& idleSeconds,
                           std::vector<Json>& counts) const
{
    std::vector<Process> processes;
    for (const std::string& name : names)
        processes.push_back(Start({"run", Mailbox(name), "--exchange", Exchange(), "--until-idle", "--idle-seconds",
                                   idleSeconds, "--json"}));
    bool moved = false;
    for (std::size_t i = 0; i < processes.size(); ++i) {
        const Outcome outcome = processes[i].Wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        const Json value = outcome.exitCode == 0 ? outcome.Value() : Json::object();
        for (const auto& [key, count] : value.items())
            counts[i][key] = counts[i].value(key, std::uint64_t{0}) + count.get<std::uint64_t>();
        moved = moved || value.value("packagesSent", 0U) + value.value("packagesReceived", 0U) > 0;
    }
    return moved;
}

std::vector<Json> ProgramTest::RunUntilIdle(const std::vector<std::string>& names,
                                            const std::string& idleSeconds) const
{
    constexpr int kMostRounds = 20;
    std::vector<Json> counts(names.size(), Json::object());
    for (int round = 0; round < kMostRounds; ++round)
        if (!RunRound(names, idleSeconds, counts))
            return counts;
    ADD_FAILURE() << "packages still travel after " << kMostRounds << " rounds";
    return counts;
}

std::vector<Json> ProgramTest::Items(const std::string& mailbox, const std::string& folder) const
{
    const Outcome outcome = MustRun({"list", Mailbox(mailbox), folder, "--json"});
    return outcome.exitCode == 0 ? outcome.Value().get<std::vector<Json>>() : std::vector<Json>();
}

void ProgramTest::ExpectSame(const std::string& a, const std::string& folderA, const std::string& b,
                             const std::string& folderB) const
{
    const Outcome outcome = Run({"compare", Mailbox(a), folderA, Mailbox(b), folderB});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors << outcome.output.substr(0, 4000);
}

std::filesystem::path Samples()
{
    return QUORVANE_SAMPLES;
}

std::filesystem::path Corpus()
{
    const char* const path = std::getenv("QUORVANE_CORPUS");
    return path ? path : "";
}

}  // namespace quorvane::test
