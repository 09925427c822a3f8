#include "tests/program/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "tests/program/sealed.h"

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

[[noreturn]] void Execute(const Program& program, const std::vector<std::string>& arguments,
                          const std::filesystem::path& output, const std::filesystem::path& errors)
{
    std::vector<char*> pointers;
    for (const std::vector<std::string>* texts : {&program.command, &arguments})
        for (const std::string& text : *texts)
            pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDOUT_FILENO);
    dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), STDERR_FILENO);
    execv(pointers[0], pointers.data());
    _exit(127);
}

std::string VariableText(const char* name)
{
    const char* const text = std::getenv(name);
    return text ? text : "";
}

std::filesystem::path MakeDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "quorvane-program-XXXXXX").string();
    return mkdtemp(name.data()) ? name : std::string();
}

// The sample mails as .msg files of the same names, for the length of the process.
class MessageFiles {
public:
    MessageFiles() : place_(MakeDirectory())
    {
        const std::string mailbox = (place_ / "mailbox").string();
        std::filesystem::create_directory(place_ / "out");
        MustRun({"init", mailbox, "--name", "samples"});
        MustRun({"import", mailbox, "In", QUORVANE_SAMPLES});
        MustRun({"export", mailbox, "In", Path().string(), "--format", "msg"});
        NameAsTheSamples();
    }
    MessageFiles(const MessageFiles&) = delete;
    MessageFiles& operator=(const MessageFiles&) = delete;
    ~MessageFiles()
    {
        std::error_code ignored;  // a directory for temporary files more or less
        std::filesystem::remove_all(place_, ignored);
    }

    std::filesystem::path Path() const { return place_ / "messages"; }

private:
    void MustRun(const std::vector<std::string>& arguments) const
    {
        const Outcome outcome = Process(NativeProgram(), arguments, place_ / "out").Wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    }

    static std::set<std::filesystem::path> FilesOf(const std::filesystem::path& directory,
                                                   const std::string& extension)
    {
        std::set<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            if (entry.path().extension() == extension)
                files.insert(entry.path());
        return files;
    }

    // Files come in, and go out with a number, in the order of the samples' names.
    void NameAsTheSamples() const
    {
        const auto samples = FilesOf(QUORVANE_SAMPLES, ".eml"), exported = FilesOf(Path(), ".msg");
        ASSERT_EQ(samples.size(), exported.size());
        auto sample = samples.begin();
        for (const auto& file : exported)
            std::filesystem::rename(file, Path() / ((sample++)->stem().string() + ".msg"));
    }

    std::filesystem::path place_;
};

}  // namespace

const Program& NativeProgram()
{
    static const Program program{{QUORVANE_PROGRAM}, false};
    return program;
}

const Program& WindowsProgram()
{
    static const Program program{
        {QUORVANE_RUN_WINE, VariableText("QUORVANE_WINDOWS_BUILD") + "/bin/quorvane.exe"}, true};
    return program;
}

const Program& TestedProgram()
{
    return VariableText("QUORVANE_WINDOWS_BUILD").empty() ? NativeProgram() : WindowsProgram();
}

Process::Process(const Program& program, const std::vector<std::string>& arguments,
                 const std::filesystem::path& scratch)
    : isForWindows_(program.isForWindows), output_(NewFile(scratch, "out")), errors_(NewFile(scratch, "err"))
{
    process_ = fork();
    if (process_ == 0)
        Execute(program, arguments, output_, errors_);
}

Process::Process(Process&& other) noexcept
    : process_(std::exchange(other.process_, -1)),
      isForWindows_(other.isForWindows_),
      output_(other.output_),
      errors_(other.errors_)
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

// A program that hasn't come far enough yet is ended by the signal itself.
void Process::AwaitHearing() const
{
    const std::filesystem::path status = "/proc/" + std::to_string(process_) + "/status";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const auto hears = [&] {
        std::ifstream file(status);
        std::string word, state;
        std::uint64_t blocked = 0;
        while (file >> word) {
            if (word == "State:")
                file >> state;
            if (word == "SigBlk:")
                file >> std::hex >> blocked;
        }
        return state.empty() || state == "Z" || (blocked >> (SIGTERM - 1) & 1) != 0;
    };
    while (!hears() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

void Process::AskToEnd() const
{
    if (!isForWindows_)
        AwaitHearing();
    Signal(isForWindows_ ? SIGINT : SIGTERM);
}

Cost Process::CostSoFar() const
{
    const std::filesystem::path root = "/proc/" + std::to_string(process_);
    Cost cost;
    std::error_code error;  // a thread may end meanwhile
    for (const auto& task : std::filesystem::directory_iterator(root / "task", error)) {
        std::uint64_t nanoseconds = 0;
        std::ifstream(task.path() / "schedstat") >> nanoseconds;
        cost.processor += std::chrono::nanoseconds(nanoseconds);
    }
    std::ifstream io(root / "io");
    for (std::string name; io >> name;)
        if (std::uint64_t value = 0; io >> value && name == "wchar:")
            cost.written = value;
    return cost;
}

void Process::AwaitQuiet()
{
    constexpr int kQuietSeconds = 5;
    constexpr int kPatience = 600;
    std::uint64_t before = 0;
    for (int quiet = 0, seconds = 0; quiet < kQuietSeconds && seconds < kPatience; ++seconds) {
        Outcome outcome;
        ASSERT_FALSE(WaitFor(std::chrono::seconds(1), outcome)) << outcome.errors;
        const std::uint64_t written = CostSoFar().written;
        quiet = written == before ? quiet + 1 : 0;
        before = written;
    }
}

std::string Process::ErrorsSoFar() const
{
    return ReadFile(errors_);
}

Outcome Process::Collect(int status, long peakKilobytes)
{
    process_ = -1;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    Outcome outcome{code, ReadFile(output_), ReadFile(errors_), peakKilobytes};
    // A sanitizer's exit code may be that of an ordinary failure; its report is what tells it apart.
    for (const char* report : {"Sanitizer", "runtime error:"})
        EXPECT_EQ(outcome.errors.find(report), std::string::npos) << outcome.errors;
    return outcome;
}

Outcome Process::Wait()
{
    int status = 0;
    rusage usage{};
    wait4(process_, &status, 0, &usage);
    return Collect(status, usage.ru_maxrss);
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
    directory_ = MakeDirectory();
    ASSERT_FALSE(directory_.empty());
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
    return MustRunBy(TestedProgram(), arguments);
}

Outcome ProgramTest::MustRunBy(const Program& program, const std::vector<std::string>& arguments) const
{
    Outcome outcome = RunBy(program, arguments);
    EXPECT_EQ(outcome.exitCode, 0) << arguments[0] << ": " << outcome.errors << outcome.output;
    return outcome;
}

void ProgramTest::MakeMailboxes(const std::vector<std::string>& names) const
{
    for (const std::string& name : names) {
        MustRunBy(ProgramOf(name), {"init", Mailbox(name), "--name", name, "--exchange", Exchange()});
        for (const std::string& other : made_) {
            if (other == name)
                continue;  // it is made anew
            MustRunBy(ProgramOf(name), {"members", "add", Mailbox(name), other});
            MustRunBy(ProgramOf(other), {"members", "add", Mailbox(other), name});
        }
        if (std::find(made_.begin(), made_.end(), name) == made_.end())
            made_.push_back(name);
    }
}

std::vector<std::string> ProgramTest::RunOf(const std::string& name,
                                            const std::vector<std::string>& more) const
{
    std::vector<std::string> arguments{"run", Mailbox(name), "--exchange", Exchange()};
    for (const std::string& other : made_)
        if (other != name)
            arguments.insert(arguments.end(), {"--accept-from", other});
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

void ProgramTest::LetAccept(const std::string& owner, const std::string& member) const
{
    RunUntilIdle({owner}, "0.5");
    RunUntilIdle({member}, "0.5");
}

// One run of each; adds to what each counted. Whether any package came or went.
bool ProgramTest::RunRound(const std::vector<std::string>& names, const std::string& idleSeconds,
                           std::vector<Json>& counts) const
{
    std::vector<Process> processes;
    for (const std::string& name : names)
        processes.emplace_back(ProgramOf(name),
                               RunOf(name, {"--until-idle", "--idle-seconds", idleSeconds, "--json"}),
                               directory_);
    bool moved = false;
    for (std::size_t i = 0; i < processes.size(); ++i) {
        const Outcome outcome = processes[i].Wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        const Json value = outcome.exitCode == 0 ? outcome.Value() : Json::object();
        for (const auto& [key, count] : value.items())
            counts[i][key] = counts[i].value(key, std::uint64_t{0}) + count.get<std::uint64_t>();
        counts[i]["peakKilobytes"] = std::max(counts[i].value("peakKilobytes", 0L), outcome.peakKilobytes);
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

std::vector<std::filesystem::path> ProgramTest::Packages() const
{
    std::vector<std::filesystem::path> packages;
    std::error_code error;  // a run may remove what is being listed
    for (auto it = std::filesystem::recursive_directory_iterator(Path("exchange"), error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
        if (it->path().extension() == ".qvx")
            packages.push_back(it->path());
    return packages;
}

std::vector<std::filesystem::path> ProgramTest::ContentFor(const std::string& mailbox) const
{
    const auto receiver = KeysOf(Mailbox(mailbox));
    std::vector<std::filesystem::path> files;
    for (const auto& package : Packages()) {
        const auto content = Open(package, receiver);
        if (!content || !content->starts_with("\xD0\xCF\x11\xE0"))
            continue;
        files.push_back(Path("content-" + std::to_string(files.size()) + ".qvt"));
        std::ofstream(files.back(), std::ios::binary) << *content;
    }
    return files;
}

std::vector<Json> ProgramTest::Items(const std::string& mailbox, const std::string& folder) const
{
    const Outcome outcome = MustRunBy(ProgramOf(mailbox), {"list", Mailbox(mailbox), folder, "--json"});
    return outcome.exitCode == 0 ? outcome.Value().get<std::vector<Json>>() : std::vector<Json>();
}

std::vector<std::string> ProgramTest::Subjects(const std::string& mailbox, const std::string& folder) const
{
    std::vector<std::string> subjects;
    for (const Json& item : Items(mailbox, folder))
        subjects.push_back(item.at("subject"));
    std::sort(subjects.begin(), subjects.end());
    return subjects;
}

void ProgramTest::ExpectSame(const std::string& a, const std::string& folderA, const std::string& b,
                             const std::string& folderB) const
{
    const Outcome outcome = Run({"compare", Mailbox(a), folderA, Mailbox(b), folderB});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors << outcome.output.substr(0, 4000);
}

std::filesystem::path Samples()
{
    if (!TestedProgram().isForWindows)
        return QUORVANE_SAMPLES;
    static const MessageFiles files;
    return files.Path();
}

std::filesystem::path Sample(const std::string& name)
{
    return Samples() / (name + (TestedProgram().isForWindows ? ".msg" : ".eml"));
}

std::filesystem::path Corpus()
{
    return VariableText("QUORVANE_CORPUS");
}

}  // namespace quorvane::test
