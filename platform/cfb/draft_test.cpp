#include "platform/cfb/draft.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "platform/cfb/testing/test_support.h"

namespace quorvane::cfb::test {
namespace {

ElementName Named(const std::string& text)
{
    ElementName name;
    EXPECT_EQ(S_OK, name.Assign(Wide(text).c_str()));
    return name;
}

struct InOrder {
    bool operator()(const std::string& a, const std::string& b) const
    {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    }
};
using Expected = std::map<std::string, DraftChild*, InOrder>;

void ExpectSame(const DraftChildren& children, const Expected& expected)
{
    auto next = expected.begin();
    children.Each([&](const DraftChild& child) {
        ASSERT_NE(expected.end(), next);
        ASSERT_EQ(next++->second, &child);
    });
    EXPECT_EQ(expected.end(), next);
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
