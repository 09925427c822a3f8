// The road over real mail.
#include <iostream>

#include "tests/program/program.h"

namespace quorvane::test {

namespace {

class CorpusTest : public CorpusProgramTest {};

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
    // The engine may report what it is just applying when so much comes at once; none of it is sent.
    EXPECT_EQ(counts[1].value("itemsSent", 1U) + counts[1].value("deletionsSent", 1U), 0U);
    EXPECT_EQ(counts[1].value("packagesSent", 0U), 1U) << "that the folder was accepted";
}

}  // namespace

}  // namespace quorvane::test
