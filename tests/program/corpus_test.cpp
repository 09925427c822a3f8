// The road over real mail.
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class CorpusTest : public CorpusProgramTest {};

std::string ContentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(CorpusTest, RealMailComesOutTheSameAtTheOtherMember)
{
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
    // What was imported as .eml files comes out there as the very bytes.
    std::multiset<std::string> originals;
    for (const auto& file : std::filesystem::recursive_directory_iterator(Corpus() / "mail"))
        if (file.is_regular_file())
            originals.insert(ContentOf(file.path()));
    std::size_t same = 0;
    const Json exported =
        MustRun({"export", Mailbox("bob"), "Shared", Path("out").string(), "--json"}).Value();
    for (const Json& file : exported.at("files")) {
        const auto original = originals.find(ContentOf(file.get<std::string>()));
        if (original != originals.end()) {
            originals.erase(original);
            ++same;
        }
    }
    EXPECT_LE(originals.size(), 2U) << "that don't begin with a header field";
    EXPECT_GE(same, 880U);
    // The engine may report what it is just applying when so much comes at once; none of it is sent.
    EXPECT_EQ(counts[1].value("itemsSent", 1U) + counts[1].value("deletionsSent", 1U), 0U);
    EXPECT_EQ(counts[1].value("packagesSent", 0U), 1U) << "that the folder was accepted";
}

}  // namespace

}  // namespace quorvane::test
