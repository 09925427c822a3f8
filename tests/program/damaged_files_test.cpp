// Damaged compound files at the door: looked at by a person, and received as packages.
#include <sys/resource.h>

#include <fstream>
#include <iterator>

#include "tests/program/program.h"
#include "tests/program/sealed.h"

namespace quorvane::test {

namespace {

class DamagedFilesTest : public CorpusProgramTest {};

// Damaged files end in an error within two seconds and 256 MB. Under the address sanitizer its own shadow and
// quarantine come on top, so that the limit of memory is checked without it alone.
TEST_F(DamagedFilesTest, EachDamagedFileIsInspectedWithoutACrash)
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Corpus() / "ole-bad")) {
        const auto started = std::chrono::steady_clock::now();
        const Outcome outcome = Run({"inspect", entry.path().string()});
        const auto taken = std::chrono::steady_clock::now() - started;
        EXPECT_LE(outcome.exitCode, 1) << entry.path() << ": " << outcome.errors;
        EXPECT_LT(taken, std::chrono::seconds(2)) << entry.path();
        ++count;
    }
    EXPECT_EQ(count, 35U);
#ifndef __SANITIZE_ADDRESS__
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 256 * 1024);
#endif
}

TEST_F(DamagedFilesTest, DamagedPackagesAreLeftOutAndTheSessionGoesOn)
{
    MakeMailboxes({"alice", "bob", "mallory"});
    const TestDevice mallory(Path("exchange"), KeysOf(Mailbox("mallory")));
    std::uint64_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Corpus() / "ole-bad")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        mallory.Lay(count + 1, mallory.Sealed(count + 1, count, KeysOf(Mailbox("bob")), content));
        ++count;
    }
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});

    const auto counts = RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(counts[1].value("packagesRejected", 0U), count);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

}  // namespace

}  // namespace quorvane::test
