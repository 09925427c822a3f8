// Any operations in any order, beside a model of the content.
#include "platform/cfb/testing/series.h"

#include <gtest/gtest.h>

#include <tuple>

#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

class SeriesTest : public ::testing::TestWithParam<std::tuple<Layout, Road>> {
protected:
    SeriesTest()
    {
        EXPECT_EQ(S_OK, session.Create(std::get<Layout>(GetParam())));
        empty = Content().size();
    }

    void Run(const std::vector<Step>& steps)
    {
        for (const Step& step : steps)
            ASSERT_EQ(S_OK, step.run(session)) << step.what;
    }

    // What a closed file holds; it is open again afterwards.
    Bytes Content()
    {
        session.Close();
        Bytes content = session.Content();
        Run({Reopen()});
        return content;
    }

    void ExpectInFile(const Tree& tree)
    {
        Run({Reopen()});
        Tree found;
        ASSERT_EQ(S_OK, Walk(*session.root, "", &found));
        EXPECT_TRUE(found == tree);
        const Findings findings = Examine(Content());
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
        EXPECT_TRUE(findings.leaks.empty()) << Text(findings.leaks);
        EXPECT_TRUE(findings.slack.empty()) << Text(findings.slack);
        EXPECT_TRUE(findings.colors.empty()) << Text(findings.colors);
    }

    // The road through files is the longer one; its layers above the bytes are the same.
    std::uint32_t Seeds(std::uint32_t ofLockBytes) const
    {
        const unsigned oneOf = std::get<Road>(GetParam()) == Road::kFile ? 10 : 1;
        return std::max(1u, ofLockBytes / oneOf / kOneOf);
    }

    Session session{std::get<Road>(GetParam())};
    std::size_t empty = 0;
};

TEST_P(SeriesTest, AnySeriesLeavesWhatItsStepsSayAndNoFreeSpaceAtTheEnd)
{
    for (std::uint32_t seed = 1; seed <= Seeds(60) && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Tree tree;
        for (std::uint32_t part = 0; part < 4 && !HasFailure(); ++part) {
            Run(RandomSeries(seed * 10 + part, 20 + seed * 3, &tree));
            ExpectInFile(tree);
        }
        Run(Emptying(seed, tree));
        ExpectInFile({});
        EXPECT_EQ(empty, Content().size());
    }
}

TEST_P(SeriesTest, AFileThatIsEmptiedInSeveralSessionsIsAsSmallAsAnEmptyOne)
{
    for (std::uint32_t seed = 1; seed <= Seeds(20) && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Tree tree;
        Run(RandomSeries(seed, 300, &tree));
        for (const Step& step : Emptying(seed, tree)) {
            Run({step});
            step.apply(tree);
            ExpectInFile(tree);
        }
        EXPECT_EQ(empty, Content().size());
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, SeriesTest,
                         ::testing::Combine(::testing::Values(Layout::kVersion3, Layout::kVersion4),
                                            ::testing::Values(Road::kLockBytes, Road::kFile)));

}  // namespace
}  // namespace quorvane::cfb::test
