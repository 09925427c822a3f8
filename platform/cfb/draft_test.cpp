#include "platform/cfb/draft.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

struct InOrder {
    bool operator()(const std::string& a, const std::string& b) const
    {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    }
};
using Expected = std::map<std::string, DraftChild*, InOrder>;

std::size_t DepthFrom(const DraftChild& top)
{
    std::vector<const DraftChild*> level{&top};
    std::size_t depth = 0;
    for (; !level.empty(); ++depth) {
        std::vector<const DraftChild*> below;
        for (const DraftChild* child : level) {
            for (const DraftChild* at : {child->left, child->right}) {
                if (at)
                    below.push_back(at);
            }
        }
        level = std::move(below);
    }
    return depth;
}

void ExpectSame(const DraftChildren& children, const Expected& expected)
{
    auto next = expected.begin();
    children.Each([&](const DraftChild& child) {
        ASSERT_NE(expected.end(), next);
        ASSERT_EQ(next++->second, &child);
    });
    EXPECT_EQ(expected.end(), next);
    EXPECT_EQ(expected.size(), children.Count());
}

// Against a sorted map; every third name comes behind all before.
TEST(DraftChildrenTest, AreFoundAndToldInTheOrderOfNamesWhateverIsAddedRemovedAndPlaced)
{
    Drafts drafts;
    DraftChildren children;
    Expected expected;
    std::mt19937 random(3);
    for (unsigned round = 0; round < 6000; ++round) {
        const std::string text = std::to_string(round % 3 == 0 ? 10'000 + round : random() % 2000);
        const ElementName name = Named(text);
        DraftChild* const child = children.Find(name);
        const auto known = expected.find(text);
        ASSERT_EQ(known == expected.end() ? nullptr : known->second, child);
        const auto after = expected.upper_bound(text);
        ASSERT_EQ(after == expected.end() ? nullptr : after->second, children.After(&name));
        if (!child) {
            expected[text] = drafts.Make(EntryType::kStream, name);
            children.Add(*expected[text], name, children.IsBehindAll(name));
        } else if (!child->IsPlaced() && random() % 2 == 0) {
            expected[text] = drafts.MakePlaced(name);
            children.Replace(*child, *expected[text], name);
            drafts.Discard(*child);
        } else {
            children.Remove(*child, name);
            drafts.Discard(*child);
            expected.erase(text);
        }
        if (round % 500 == 0)
            ExpectSame(children, expected);
    }
    ExpectSame(children, expected);
    EXPECT_EQ(expected.begin()->second, children.After(nullptr));
}

TEST(DraftChildrenTest, APlacedOneKeepsItsNameWhateverItsUnits)
{
    Drafts drafts;
    for (const OleString& text :
         {OleString(1, 0x7F), OleString(31, 'z'), OleString(31, 0x80), OleString(1, 0xFF),
          OleString(1, 0x100), OleString(2, 0x4E2D) + OleString(29, 'a')}) {
        ElementName name;
        ASSERT_EQ(S_OK, name.Assign(text.c_str()));
        DraftChild& child = *drafts.MakePlaced(name);
        EXPECT_EQ(text, child.Name().Text());
        EXPECT_EQ(0, child.Compare(name));
        drafts.Discard(child);
    }
}

// A walk is as many calls within each other as the tree is deep.
TEST(DraftChildrenTest, LieInAShallowTreeInWhicheverOrderTheyCome)
{
    constexpr unsigned kCount = 100'000;
    unsigned (*const orders[])(unsigned) = {[](unsigned i) { return i; },
                                            [](unsigned i) { return kCount - i; },
                                            [](unsigned i) { return i % 2 == 0 ? i : 2 * kCount - i; }};
    for (const auto numberOf : orders) {
        Drafts drafts;
        DraftChildren children;
        for (unsigned i = 0; i < kCount; ++i) {
            const ElementName name = Named(std::to_string(1'000'000 + numberOf(i)));
            children.Add(*drafts.Make(EntryType::kStream, name), name, children.IsBehindAll(name));
        }
        const DraftChild* top = children.After(nullptr);
        children.Each([&](const DraftChild& child) { top = child.rank > top->rank ? &child : top; });
        EXPECT_LT(16u, DepthFrom(*top));
        EXPECT_GT(80u, DepthFrom(*top));
    }
}

TEST(DraftContentTest, GrowsWithZerosAndKeepsWhatWasWritten)
{
    Drafts drafts;
    Draft& stream = *drafts.Make(EntryType::kStream, Named("s"));
    drafts.Write(stream, 10, "abc", 3);
    drafts.Write(stream, 12, "de", 2);
    drafts.SetSize(stream, 20'000);
    drafts.SetSize(stream, 13);
    drafts.SetSize(stream, 16);
    EXPECT_EQ(Bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'a', 'b', 'd', 0, 0, 0}),
              Bytes(stream.bytes, stream.bytes + stream.size));
}

}  // namespace
}  // namespace quorvane::cfb::test
