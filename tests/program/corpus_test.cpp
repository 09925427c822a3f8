// The road over real mail, and damaged files at the door.
#include <sys/resource.h>

#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class CorpusTest : public ProgramTest {
protected:
    static bool IsMissing()
    {
        if (!Corpus().empty())
            return false;
        std::cout << "QUORVANE_CORPUS is not set: nothing to test with\n";
        return true;
    }
};

TEST_F(CorpusTest, RealMailComesOutTheSameAtTheOtherMember)
{
    if (IsMissing())
        return;
    MakeMailboxes({"alice", "bob"});
    const Json imported = MustRun({"import", Mailbox("alice"), "Shared", (Corpus() / "mail").string(),
                                   (Corpus() / "mbox").string(), (Corpus() / "msg").string(), "--json"})
                              .Value();
    EXPECT_GE(imported.at("imported"), 900U);
    for (const Json& left : imported.at("leftOut"))
        std::cout << "left out " << left.at("source") << ": " << left.at("reason") << "\n";
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});

    const auto counts = RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(Items("bob", "Shared").size(), imported.at("imported"));
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_EQ(counts[0].value("echoes", 1U) + counts[1].value("echoes", 1U), 0U);
}

// Damaged files end in an error within two seconds and 256 MB. Under the address sanitizer its own shadow and
// quarantine come on top, so that the limit of memory is checked without it alone.
TEST_F(CorpusTest, EachDamagedFileIsInspectedWithoutACrash)
{
    if (IsMissing())
        return;
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

TEST_F(CorpusTest, DamagedPackagesAreLeftOutAndTheSessionGoesOn)
{
    if (IsMissing())
        return;
    MakeMailboxes({"alice", "bob"});
    const std::filesystem::path place = Path("exchange") / "bob" / "mallory~0011223344556677";
    std::filesystem::create_directories(place);
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Corpus() / "ole-bad")) {
        std::string name = std::to_string(++count);
        name.insert(0, 20 - name.size(), '0');
        std::filesystem::copy_file(entry.path(), place / (name + ".qvt"));
    }
    MustRun({"import", Mailbox("alice"), "Shared", (Samples() / "01-plain.eml").string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});

    const auto counts = RunUntilIdle({"alice", "bob"});

    EXPECT_EQ(counts[1].value("packagesRejected", 0U), count);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

}  // namespace

}  // namespace quorvane::test
