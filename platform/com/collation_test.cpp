#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "platform/com/bstr.h"
#include "platform/com/collation_pairs.h"

namespace quorvane {
namespace {

HRESULT Compare(OleStringView left, OleStringView right, ULONG flags = 0)
{
    return VarBstrCmp(Bstr(left).Get(), Bstr(right).Get(), LOCALE_USER_DEFAULT, flags);
}

// Every text is before all that follow it.
void ExpectOrder(const std::vector<OleString>& texts)
{
    for (size_t i = 0; i < texts.size(); ++i) {
        for (size_t j = 0; j < texts.size(); ++j) {
            const HRESULT expected = i < j ? VARCMP_LT : i == j ? VARCMP_EQ : VARCMP_GT;
            EXPECT_EQ(Compare(texts[i], texts[j]), expected)
                << Narrow(texts[i]) << " and " << Narrow(texts[j]);
        }
    }
}

TEST(CollationTest, DigitsComeBeforeLetters)
{
    ExpectOrder({OLESTR("0"), OLESTR("9"), OLESTR("a"), OLESTR("B"), OLESTR("z")});
}

TEST(CollationTest, CaseDecidesOnlyWhereLettersAreEqual)
{
    ExpectOrder({OLESTR("abc"), OLESTR("ABC"), OLESTR("abd"), OLESTR("ABD")});
}

TEST(CollationTest, AHyphenDecidesLast)
{
    ExpectOrder({OLESTR("coop"), OLESTR("co-op"), OLESTR("Coop"), OLESTR("coops")});
}

TEST(CollationTest, AnAccentComesAfterThePlainLetterAndBeforeTheNext)
{
    ExpectOrder({OLESTR("resume"), OLESTR("resum\u00E9"), OLESTR("resumf")});
    ExpectOrder({OLESTR("\u00E9"), OLESTR("\u00C9"), OLESTR("f")});
}

TEST(CollationTest, EveryPairHasTheOrderThatItHasOnEverySystem)
{
    static_assert(std::size(test::kCollationPairs) >= 200);
    for (const test::CollationPair& pair : test::kCollationPairs) {
        EXPECT_EQ(Compare(pair.left, pair.right), pair.order)
            << ToUtf8(pair.left) << " and " << ToUtf8(pair.right);
        EXPECT_EQ(Compare(pair.right, pair.left), VARCMP_GT - pair.order)
            << ToUtf8(pair.right) << " and " << ToUtf8(pair.left);
        EXPECT_EQ(Compare(pair.left, pair.left), VARCMP_EQ) << ToUtf8(pair.left);
    }
}

TEST(CollationTest, NullIsAnEmptyText)
{
    EXPECT_EQ(VarBstrCmp(nullptr, Bstr(OleStringView()).Get(), 0, 0), VARCMP_EQ);
    EXPECT_EQ(VarBstrCmp(nullptr, Bstr(OLESTR("-")).Get(), 0, 0), VARCMP_LT);
}

TEST(CollationTest, CaseMayBeLeftOutOfAccount)
{
    constexpr ULONG kIgnoreCase = 1;

    EXPECT_EQ(Compare(OLESTR("Inbox/\u00C9"), OLESTR("INBOX/\u00E9"), kIgnoreCase), VARCMP_EQ);
    EXPECT_EQ(Compare(OLESTR("inbox"), OLESTR("inboy"), kIgnoreCase), VARCMP_LT);
    EXPECT_EQ(Compare(OLESTR("in-box"), OLESTR("inbox"), kIgnoreCase), VARCMP_GT);
}

TEST(CollationTest, OnlyIdenticalTextsAreEqualAndTheOrderIsTransitive)
{
    const OleString alphabet =
        OLESTR("aA\u00E1\u00C1bB1-_ {\u0416\u0436\u4E2D\u0130\u00DF\u00FF") + OleString(1, 0xD83D);
    std::mt19937 random(7);
    std::vector<OleString> texts;
    for (int i = 0; i < 300; ++i) {
        OleString text;
        for (size_t length = random() % 4; length > 0; --length)
            text += alphabet[random() % alphabet.size()];
        texts.push_back(text);
    }

    std::sort(texts.begin(), texts.end(),
              [](const OleString& a, const OleString& b) { return Compare(a, b) == VARCMP_LT; });

    for (size_t i = 0; i < texts.size(); ++i) {
        for (size_t j = i; j < texts.size(); ++j) {
            const HRESULT order = Compare(texts[i], texts[j]);
            ASSERT_EQ(order == VARCMP_EQ, texts[i] == texts[j]);
            ASSERT_NE(order, VARCMP_GT);
            ASSERT_EQ(Compare(texts[j], texts[i]), order == VARCMP_EQ ? VARCMP_EQ : VARCMP_GT);
        }
    }
}

}  // namespace
}  // namespace quorvane
