// What `cmake --install` lays down, and that a host can be built of it and of nothing else.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <vector>

#include "tests/sdk/command.h"

namespace quorvane::test {
namespace {

namespace fs = std::filesystem;

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// Runs a command to its end; its output on failure.
void MustRun(const std::string& line, const fs::path& directory)
{
    Command command(line, directory, directory / "command.log");
    const int code = command.Wait();
    ASSERT_EQ(code, 0) << line << "\n" << command.Output();
}

std::string InstallLine(const fs::path& prefix, const std::string& component = "")
{
    return Quoted(QUORVANE_CMAKE) + " --install " + Quoted(QUORVANE_BUILD_DIR) + " --prefix " +
           Quoted(prefix.string()) + (component.empty() ? "" : " --component " + component);
}

// The files below a directory, links among them, by their path in it.
std::set<std::string> FilesIn(const fs::path& directory)
{
    std::set<std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        if (!entry.is_directory() || entry.is_symlink())
            files.insert(entry.path().lexically_relative(directory).string());
    }
    return files;
}

bool IsProgramOrLibrary(const fs::path& file)
{
    return !fs::is_symlink(file) && ReadFile(file).substr(0, 4) ==
                                        "\x7F"
                                        "ELF";
}

// Everything is installed once for all tests, and moved before anything looks at it.
class InstallTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string name = (fs::temp_directory_path() / "quorvane-sdk-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = name;
        MustRun(InstallLine(FirstPlace()) + " --strip", root_);
        fs::rename(FirstPlace(), Prefix());
    }
    static void TearDownTestSuite() { fs::remove_all(root_); }

    void SetUp() override
    {
        work_ = root_ / ::testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::create_directories(work_);
    }

    static fs::path FirstPlace() { return root_ / "staged"; }
    static fs::path Prefix() { return root_ / "moved"; }
    static fs::path Libraries() { return Prefix() / QUORVANE_LIBDIR; }
    static std::string Program() { return Quoted((Prefix() / "bin" / "quorvane").string()); }
    static std::string PkgConfig(const std::string& arguments)
    {
        return "PKG_CONFIG_PATH=" + Quoted((Libraries() / "pkgconfig").string()) + " pkg-config " +
               arguments + " quorvane3";
    }

    const fs::path& Work() const { return work_; }
    void MustRunHere(const std::string& line) const { MustRun(line, work_); }

    // Lets CMake look at a project that finds the installed package.
    void Configure(const fs::path& source, const fs::path& build) const
    {
        MustRunHere(Quoted(QUORVANE_CMAKE) + " -G " + Quoted(QUORVANE_GENERATOR) + " -S " +
                    Quoted(source.string()) + " -B " + Quoted(build.string()) + " -DCMAKE_CXX_COMPILER=" +
                    Quoted(QUORVANE_COMPILER) + " -DCMAKE_CXX_FLAGS=" + Quoted(QUORVANE_FLAGS) +
                    " -DCMAKE_PREFIX_PATH=" + Quoted(Prefix().string()));
    }

    // A copy of the installed example, outside of the source tree.
    fs::path CopyExample() const
    {
        const fs::path copy = work_ / "example";
        fs::copy(Prefix() / "share" / "quorvane3" / "example", copy, fs::copy_options::recursive);
        return copy;
    }

    void ShareBetweenTwo(const fs::path& host) const;
    void RefuseWithoutMapi(const fs::path& host) const;

private:
    static inline fs::path root_;
    fs::path work_;
};

TEST_F(InstallTest, TheThreeComponentsTogetherAreTheWholeAndShareNothing)
{
    const std::set<std::string> whole = FilesIn(Prefix());
    std::set<std::string> together;
    size_t sum = 0;
    for (const char* component : {"runtime", "program", "development"}) {
        MustRunHere(InstallLine(Work() / component, component));
        const std::set<std::string> files = FilesIn(Work() / component);
        together.insert(files.begin(), files.end());
        sum += files.size();
    }
    EXPECT_EQ(together, whole);
    EXPECT_EQ(sum, whole.size());
}

TEST_F(InstallTest, TheProgramRunsWithTheRuntimeAloneBesideIt)
{
    MustRunHere(InstallLine(Work() / "p", "runtime"));
    MustRunHere(InstallLine(Work() / "p", "program"));
    MustRunHere("p/bin/quorvane init mailbox --name alice && p/bin/quorvane list mailbox --json");
}

TEST_F(InstallTest, LibrariesAreFoundByTheirPlaceInTheInstallationAlone)
{
    unsigned looked = 0;
    for (const std::string& file : FilesIn(Prefix())) {
        if (!IsProgramOrLibrary(Prefix() / file))
            continue;
        ++looked;
        Command readelf("readelf -d " + Quoted((Prefix() / file).string()), Work(), Work() / "dynamic");
        ASSERT_EQ(readelf.Wait(), 0) << readelf.Output();
        const std::string dynamic = readelf.Output();
        EXPECT_TRUE(Contains(dynamic, "[$ORIGIN]") || Contains(dynamic, "[$ORIGIN/..")) << file << dynamic;
        EXPECT_FALSE(Contains(dynamic, "(RPATH)")) << file;
    }
    EXPECT_GE(looked, 5u);
}

// A build for debugging names its sources in assertions.
#ifdef NDEBUG
TEST_F(InstallTest, NothingKnowsWhereItWasBuiltOrFirstInstalled)
{
    std::vector<std::string> places{QUORVANE_SOURCE_DIR, QUORVANE_BUILD_DIR, FirstPlace().string()};
    for (size_t i = 0; i < 2; ++i)
        places.push_back(fs::canonical(places[i]).string());
    const std::vector<std::string> sources{"engine/session/", "platform/com/", "msgstore/store/",
                                           "host/commands/"};
    for (const std::string& file : FilesIn(Prefix())) {
        const std::string content = ReadFile(Prefix() / file);
        for (const std::string& place : places)
            EXPECT_FALSE(Contains(content, place)) << file << " names " << place;
        for (const std::string& source : sources)
            EXPECT_FALSE(IsProgramOrLibrary(Prefix() / file) && Contains(content, source))
                << file << " names " << source;
    }
}
#endif

TEST_F(InstallTest, EachPublicHeaderCompilesByItself)
{
    const fs::path headers = Prefix() / "include" / "quorvane3-3";
    for (const std::string& file : FilesIn(headers / "quorvane3")) {
        const std::string line = "echo '#include \"quorvane3/" + file + "\"' | " + Quoted(QUORVANE_COMPILER) +
                                 " -std=c++20 -fsyntax-only -Wall -Wextra -Wshadow -Werror -x c++ - " + "$(" +
                                 PkgConfig("--cflags") + ")";
        MustRunHere(line);
    }
}

// Two members, each with a mailbox, a host and a directory for what comes to them.
void InstallTest::ShareBetweenTwo(const fs::path& host) const
{
    MustRunHere("mkdir to-alice to-bob && " + Program() + " init alice --name alice && " + Program() +
                " init bob --name bob");
    const std::string program = Quoted(host.string());
    Command bob("exec " + program + " bob Projects shared-1 to-alice to-bob", Work(), Work() / "bob.log");
    ASSERT_TRUE(bob.Says("sharing Projects")) << bob.Output();
    Command alice("exec " + program + " alice Projects shared-1 to-bob to-alice 'First mail' 'Second mail'",
                  Work(), Work() / "alice.log");
    for (const char* line : {"sharing Projects", "added First mail", "added Second mail", "delivered"})
        EXPECT_TRUE(alice.Says(line)) << line << " is missing in:\n" << alice.Output();
    for (const char* line : {"folder Projects from alice", "received First mail", "received Second mail"})
        EXPECT_TRUE(bob.Says(line)) << line << " is missing in:\n" << bob.Output();
    EXPECT_TRUE(bob.Says("applied\n", 2)) << bob.Output();

    alice.Terminate();
    bob.Terminate();
    EXPECT_EQ(alice.Wait(), 0) << alice.Output();
    EXPECT_EQ(bob.Wait(), 0) << bob.Output();
    for (const char* echo : {"added", "changed"})
        EXPECT_FALSE(Contains(bob.Output(), echo)) << bob.Output();
    Command list(Program() + " list bob Projects --json", Work(), Work() / "list.log");
    ASSERT_EQ(list.Wait(), 0) << list.Output();
    for (const char* subject : {"First mail", "Second mail"})
        EXPECT_TRUE(Contains(list.Output(), subject)) << list.Output();
}

// What the engine answers when it finds no MAPI library reaches the host as the logon's failure.
void InstallTest::RefuseWithoutMapi(const fs::path& host) const
{
    Command refused("QUORVANE_SYSTEM_DIR=/nowhere exec " + Quoted(host.string()) +
                        " alice Projects shared-1 to-bob to-alice",
                    Work(), Work() / "refused.log");
    EXPECT_EQ(refused.Wait(), 1);
    EXPECT_EQ(refused.Output(), "sharing_host: cannot log on to the engine: 0x80004005\n");
}

TEST_F(InstallTest, AHostIsBuiltWithTheCMakePackageAndShares)
{
    const fs::path source = CopyExample();
    const fs::path build = Work() / "build";
    MustRunHere(
        Quoted(QUORVANE_CMAKE) + " -G " + Quoted(QUORVANE_GENERATOR) + " -S " + Quoted(source.string()) +
        " -B " + Quoted(build.string()) + " -DCMAKE_CXX_COMPILER=" + Quoted(QUORVANE_COMPILER) +
        " -DCMAKE_CXX_FLAGS=" + Quoted(QUORVANE_FLAGS) + " -DCMAKE_PREFIX_PATH=" + Quoted(Prefix().string()));
    MustRunHere(Quoted(QUORVANE_CMAKE) + " --build " + Quoted(build.string()));
    ShareBetweenTwo(build / "sharing_host");
}

TEST_F(InstallTest, AHostIsBuiltWithPkgConfigAndSharesUnlessThereIsNoMapi)
{
    const fs::path source = CopyExample();
    MustRunHere(Quoted(QUORVANE_COMPILER) + " -std=c++20 -Wall -Wextra -Werror " QUORVANE_FLAGS " " +
                Quoted(source.string()) + "/*.cpp -o sharing_host $(" + PkgConfig("--cflags --libs") +
                ") -Wl,-rpath,$(" + PkgConfig("--variable=libdir") + ")");
    ShareBetweenTwo(Work() / "sharing_host");
    RefuseWithoutMapi(Work() / "sharing_host");
}

// The text between the first "```cpp" of a page and the end of that block.
std::string FirstCodeOf(const std::string& page)
{
    const std::string fence = "```cpp\n";
    const size_t begin = page.find(fence) + fence.size();
    return page.substr(begin, page.find("```", begin) - begin);
}

TEST_F(InstallTest, TheFirstHostOfTheGuideLogsOnToAMailbox)
{
    std::ofstream(Work() / "my_host.cpp")
        << FirstCodeOf(ReadFile(fs::path(QUORVANE_SOURCE_DIR) / "docs" / "sdk.md"));
    MustRunHere(Quoted(QUORVANE_COMPILER) + " -std=c++20 " QUORVANE_FLAGS " my_host.cpp -o my_host $(" +
                PkgConfig("--cflags --libs") + ") -Wl,-rpath,$(" + PkgConfig("--variable=libdir") + ")");
    MustRunHere(Program() + " init alice --name alice && cd alice && " +
                "XDG_CONFIG_HOME=$PWD/settings XDG_DATA_HOME=$PWD/logs TMPDIR=$PWD/packages ../my_host");
    MustRunHere("! XDG_CONFIG_HOME=$PWD/none ./my_host");
}

// Each is one file, and shares a folder of the mailbox in its working directory.
TEST_F(InstallTest, TheHostsOfTheSamplesAreBuiltAndShare)
{
    const std::string engine = Quoted((Libraries() / "libquorvane3.so.3").string());
    for (const std::string& host : {std::string("typed_host"), std::string("late_bound_host")}) {
        const fs::path source = Prefix() / "share" / "quorvane3" / "hosts" / (host + ".cpp");
        MustRunHere(Quoted(QUORVANE_COMPILER) + " -std=c++20 -Wall -Wextra -Werror " QUORVANE_FLAGS " " +
                    Quoted(source.string()) + " -o " + host + " $(" + PkgConfig("--cflags --libs") +
                    ") -Wl,-rpath,$(" + PkgConfig("--variable=libdir") + ")");
        const std::string mailbox = "mailbox-of-" + host;
        MustRunHere(Program() + " init " + mailbox + " --name alice");
        Command run("cd " + mailbox +
                        " && XDG_CONFIG_HOME=$PWD/settings XDG_DATA_HOME=$PWD/logs TMPDIR=$PWD/packages "
                        "exec ../" +
                        host + (host == "typed_host" ? "" : " " + engine) + " notes",
                    Work(), Work() / (host + ".log"));
        EXPECT_EQ(run.Wait(), 0) << run.Output();
        EXPECT_TRUE(Contains(run.Output(), "added {")) << host << run.Output();
        EXPECT_TRUE(Contains(run.Output(), "package /")) << host << run.Output();
        Command list(Program() + " list " + mailbox + " Notes --json", Work(), Work() / "list.log");
        ASSERT_EQ(list.Wait(), 0) << list.Output();
        EXPECT_TRUE(Contains(list.Output(), "Hello")) << list.Output();
    }
}

// It would bind to what it was compiled against.
TEST_F(InstallTest, TheLateBoundHostKnowsNoHeaderOfTheObjectModel)
{
    for (const char* file : {"late_bound_host.cpp", "notes_folder.h"}) {
        const std::string source = ReadFile(Prefix() / "share" / "quorvane3" / "hosts" / file);
        EXPECT_FALSE(source.empty());
        for (const char* header :
             {"quorvane3/quorvane3.h", "quorvane3/object_model.h", "quorvane3/library.h"})
            EXPECT_FALSE(Contains(source, header)) << file;
    }
}

TEST_F(InstallTest, ThePackagesNameTheSchemaOfTheSharingDatabase)
{
    const std::string schema = ReadFile(fs::path(QUORVANE_SOURCE_DIR) / "packaging" / "sharing_schema.sql");
    ASSERT_FALSE(schema.empty());
    MustRunHere("cp \"$(" + PkgConfig("--variable=schema") + ")\" by-pkg-config.sql");
    EXPECT_EQ(ReadFile(Work() / "by-pkg-config.sql"), schema);

    std::ofstream(Work() / "CMakeLists.txt") << "cmake_minimum_required(VERSION 3.25)\n"
                                                "project(schema LANGUAGES CXX)\n"
                                                "find_package(quorvane3 3.0 REQUIRED)\n"
                                                "file(COPY_FILE ${quorvane3_SCHEMA} by-cmake.sql)\n";
    Configure(Work(), Work() / "build");
    EXPECT_EQ(ReadFile(Work() / "by-cmake.sql"), schema);
}

}  // namespace
}  // namespace quorvane::test
