#include "msgstore/table/restriction.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>

namespace quorvane {
namespace {

constexpr ULONG kScore = PROP_TAG(PT_LONG, 0x6601);
constexpr ULONG kFlags = PROP_TAG(PT_LONG, 0x6602);
constexpr ULONG kNumbers = PROP_TAG(PT_MV_LONG, 0x6603);
constexpr ULONG kMissing = PROP_TAG(PT_LONG, 0x6604);

// One row: subject "Grüße an Alle", score 5, flags 0x12, several numbers 1 and 2, key 01 02 03.
class RestrictionTest : public ::testing::Test {
protected:
    RestrictionTest()
    {
        row_.Put(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("Gr\u00FC\u00DFe an Alle")));
        row_.Put(PropertyValue::Long(kScore, 5));
        row_.Put(PropertyValue::Long(kFlags, 0x12));
        row_.Put(PropertyValue::Binary(kNumbers, "\1\0\0\0\2\0\0\0", 8));
        row_.Put(PropertyValue::Binary(PR_SEARCH_KEY, "\1\2\3", 3));
    }

    bool Matches(const SRestriction& restriction)
    {
        std::shared_ptr<const Restriction> made;
        EXPECT_EQ(Restriction::Make(&restriction, made), S_OK);
        return made && made->Matches(BagLookup(row_));
    }

    static SPropValue Number(ULONG tag, LONG number)
    {
        SPropValue value{};
        value.ulPropTag = tag;
        value.Value.l = number;
        return value;
    }

    static SRestriction Compare(ULONG relation, SPropValue& value)
    {
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {relation, value.ulPropTag, &value};
        return restriction;
    }

    bool Subject(ULONG level, OleString text)
    {
        SPropValue value{};
        value.ulPropTag = PR_SUBJECT_W;
        value.Value.lpszW = text.data();
        SRestriction restriction{};
        restriction.rt = RES_CONTENT;
        restriction.res.resContent = {level, PR_SUBJECT_W, &value};
        return Matches(restriction);
    }

    PropertyBag row_;
};

TEST_F(RestrictionTest, RelationsCompareNumbers)
{
    SPropValue four = Number(kScore, 4);
    SPropValue five = Number(kScore, 5);
    EXPECT_TRUE(Matches(Compare(RELOP_GT, four)));
    EXPECT_FALSE(Matches(Compare(RELOP_GT, five)));
    EXPECT_TRUE(Matches(Compare(RELOP_GE, five)));
    EXPECT_TRUE(Matches(Compare(RELOP_LE, five)));
    EXPECT_FALSE(Matches(Compare(RELOP_LT, five)));
    EXPECT_TRUE(Matches(Compare(RELOP_EQ, five)));
    EXPECT_TRUE(Matches(Compare(RELOP_NE, four)));
}

TEST_F(RestrictionTest, AMissingPropertyDiffersFromEveryValue)
{
    SPropValue any = Number(kMissing, 0);
    EXPECT_FALSE(Matches(Compare(RELOP_EQ, any)));
    EXPECT_FALSE(Matches(Compare(RELOP_LE, any)));
    EXPECT_TRUE(Matches(Compare(RELOP_NE, any)));
}

TEST_F(RestrictionTest, OneOfSeveralValuesIsEnough)
{
    SPropValue two = Number(PROP_TAG(PT_LONG, PROP_ID(kNumbers)), 2);
    SPropValue three = Number(PROP_TAG(PT_LONG, PROP_ID(kNumbers)), 3);
    SRestriction restriction = Compare(RELOP_EQ, two);
    restriction.res.resProperty.ulPropTag = kNumbers | MV_INSTANCE;
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resProperty.lpProp = &three;
    EXPECT_FALSE(Matches(restriction));
}

TEST_F(RestrictionTest, ContentMatchesByLevel)
{
    EXPECT_TRUE(Subject(FL_PREFIX, OLESTR("Gr\u00FC\u00DFe")));
    EXPECT_FALSE(Subject(FL_PREFIX, OLESTR("an")));
    EXPECT_TRUE(Subject(FL_SUBSTRING, OLESTR("an A")));
    EXPECT_FALSE(Subject(FL_FULLSTRING, OLESTR("an A")));
    EXPECT_TRUE(Subject(FL_FULLSTRING, OLESTR("Gr\u00FC\u00DFe an Alle")));
    EXPECT_FALSE(Subject(FL_SUBSTRING, OLESTR("alle")));
    EXPECT_TRUE(Subject(FL_SUBSTRING | FL_IGNORECASE, OLESTR("ALLE")));
    EXPECT_TRUE(Subject(FL_PREFIX | FL_IGNORECASE, OLESTR("GR\u00DC")));
    EXPECT_FALSE(Subject(FL_PREFIX, OLESTR("Gru")));
    EXPECT_TRUE(Subject(FL_PREFIX | FL_IGNORENONSPACE, OLESTR("Gru")));
    EXPECT_TRUE(Subject(FL_PREFIX | FL_LOOSE, OLESTR("gRU")));
    EXPECT_TRUE(Subject(FL_SUBSTRING, OLESTR("")));
}

TEST_F(RestrictionTest, ContentLooksIntoBinaries)
{
    BYTE part[2] = {2, 3};
    SPropValue value{};
    value.ulPropTag = PR_SEARCH_KEY;
    value.Value.bin = SBinary{2, part};
    SRestriction restriction{};
    restriction.rt = RES_CONTENT;
    restriction.res.resContent = {FL_SUBSTRING, PR_SEARCH_KEY, &value};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resContent.ulFuzzyLevel = FL_PREFIX;
    EXPECT_FALSE(Matches(restriction));
}

TEST_F(RestrictionTest, BitsSizesAndExistence)
{
    SRestriction bits{};
    bits.rt = RES_BITMASK;
    bits.res.resBitMask = {BMR_NEZ, kFlags, 0x10};
    EXPECT_TRUE(Matches(bits));
    bits.res.resBitMask = {BMR_EQZ, kFlags, 0x10};
    EXPECT_FALSE(Matches(bits));
    bits.res.resBitMask = {BMR_EQZ, kMissing, 0x10};
    EXPECT_FALSE(Matches(bits));
    SRestriction size{};
    size.rt = RES_SIZE;
    size.res.resSize = {RELOP_EQ, PR_SEARCH_KEY, 3};
    EXPECT_TRUE(Matches(size));
    SRestriction exists{};
    exists.rt = RES_EXIST;
    exists.res.resExist.ulPropTag = PR_SUBJECT_A;
    EXPECT_TRUE(Matches(exists));
    exists.res.resExist.ulPropTag = kMissing;
    EXPECT_FALSE(Matches(exists));
}

TEST_F(RestrictionTest, PropertiesOfOneRowCompare)
{
    SRestriction pair{};
    pair.rt = RES_COMPAREPROPS;
    pair.res.resCompareProps = {RELOP_LT, kScore, kFlags};
    EXPECT_TRUE(Matches(pair));
    pair.res.resCompareProps = {RELOP_EQ, kScore, kMissing};
    EXPECT_FALSE(Matches(pair));
}

TEST_F(RestrictionTest, GroupsCombine)
{
    SPropValue five = Number(kScore, 5);
    SPropValue six = Number(kScore, 6);
    SRestriction parts[2] = {Compare(RELOP_EQ, five), Compare(RELOP_EQ, six)};
    SRestriction group{};
    group.rt = RES_AND;
    group.res.resAnd = {2, parts};
    EXPECT_FALSE(Matches(group));
    group.rt = RES_OR;
    group.res.resOr = {2, parts};
    EXPECT_TRUE(Matches(group));
    SRestriction negated{};
    negated.rt = RES_NOT;
    negated.res.resNot.lpRes = &group;
    EXPECT_FALSE(Matches(negated));
    SRestriction comment{};
    comment.rt = RES_COMMENT;
    comment.res.resComment = {0, &group, nullptr};
    EXPECT_TRUE(Matches(comment));
}

TEST_F(RestrictionTest, ACopyOutlivesItsSource)
{
    std::shared_ptr<const Restriction> made;
    {
        OleString text(OLESTR("Alle"));
        SPropValue value{};
        value.ulPropTag = PR_SUBJECT_W;
        value.Value.lpszW = text.data();
        SRestriction restriction{};
        restriction.rt = RES_CONTENT;
        restriction.res.resContent = {FL_SUBSTRING, PR_SUBJECT_W, &value};
        ASSERT_EQ(Restriction::Make(&restriction, made), S_OK);
    }
    EXPECT_TRUE(made->Matches(BagLookup(row_)));
}

TEST_F(RestrictionTest, MalformedOnesAreRefused)
{
    std::shared_ptr<const Restriction> made;
    SRestriction odd{};
    odd.rt = 77;
    EXPECT_EQ(Restriction::Make(&odd, made), MAPI_E_INVALID_PARAMETER);
    odd.rt = RES_AND;
    odd.res.resAnd = {3, nullptr};
    EXPECT_EQ(Restriction::Make(&odd, made), MAPI_E_INVALID_PARAMETER);
    odd.rt = RES_NOT;
    odd.res.resNot = {0, nullptr};
    EXPECT_EQ(Restriction::Make(&odd, made), MAPI_E_INVALID_PARAMETER);
    odd.res.resNot.lpRes = &odd;  // without end
    EXPECT_EQ(Restriction::Make(&odd, made), MAPI_E_TOO_COMPLEX);
    SPropValue five = Number(kScore, 5);
    SRestriction pattern = Compare(RELOP_RE, five);
    EXPECT_EQ(Restriction::Make(&pattern, made), MAPI_E_TOO_COMPLEX);
    EXPECT_EQ(made, nullptr);
}

// A message with recipients Zoe and Max.
class MailLookup final : public PropertyLookup {
public:
    MailLookup()
    {
        for (const OleString& name : {OleString(OLESTR("Zoe")), OleString(OLESTR("Max"))})
            recipients_.emplace_back().Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, name));
    }
    const PropertyValue* Find(ULONG) const override { return nullptr; }
    const std::vector<PropertyBag>* SubRows(ULONG tag) const override
    {
        return tag == PR_MESSAGE_RECIPIENTS ? &recipients_ : nullptr;
    }

private:
    std::vector<PropertyBag> recipients_;
};

TEST_F(RestrictionTest, ASubRestrictionWantsOneRowOfTheTable)
{
    OleString name(OLESTR("max"));
    SPropValue value{};
    value.ulPropTag = PR_DISPLAY_NAME_W;
    SRestriction named = Compare(RELOP_EQ, value);
    const auto matches = [&](ULONG table, const OleString& wanted) {
        name = wanted;
        value.Value.lpszW = name.data();
        SRestriction restriction{};
        restriction.rt = RES_SUBRESTRICTION;
        restriction.res.resSub = {table, &named};
        std::shared_ptr<const Restriction> made;
        EXPECT_EQ(Restriction::Make(&restriction, made), S_OK);
        return made && made->Matches(MailLookup());
    };
    EXPECT_TRUE(matches(PR_MESSAGE_RECIPIENTS, OLESTR("max")));
    EXPECT_FALSE(matches(PR_MESSAGE_RECIPIENTS, OLESTR("Kim")));
    EXPECT_FALSE(matches(PR_MESSAGE_ATTACHMENTS, OLESTR("max")));
}

TEST_F(RestrictionTest, OnlyRecipientsAndAttachmentsHaveSubRestrictions)
{
    SPropValue five = Number(kScore, 5);
    SRestriction inner = Compare(RELOP_EQ, five);
    SRestriction outer{};
    outer.rt = RES_SUBRESTRICTION;
    outer.res.resSub = {PR_CONTAINER_CONTENTS, &inner};
    std::shared_ptr<const Restriction> made;
    EXPECT_EQ(Restriction::Make(&outer, made), MAPI_E_TOO_COMPLEX);
    outer.res.resSub = {PR_MESSAGE_RECIPIENTS, nullptr};
    EXPECT_EQ(Restriction::Make(&outer, made), MAPI_E_INVALID_PARAMETER);
    outer.res.resSub.lpRes = &outer;  // without end
    EXPECT_EQ(Restriction::Make(&outer, made), MAPI_E_TOO_COMPLEX);
}

TEST_F(RestrictionTest, NoneLetsEveryRowThrough)
{
    std::shared_ptr<const Restriction> made;
    ASSERT_EQ(Restriction::Make(nullptr, made), S_OK);
    EXPECT_TRUE(made->Matches(BagLookup(row_)));
}

TEST(CompareValuesTest, MissingStandsFirstAndCaseDoesntCount)
{
    const auto a = PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("\u0430bc"));
    const auto b = PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("\u0410BC"));
    const auto c = PropertyValue::String8(PR_SUBJECT_A, "abd");
    const auto d = PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("ABC"));
    EXPECT_EQ(CompareValues(&a, &b), 0);
    EXPECT_GT(CompareValues(&c, &d), 0);
    EXPECT_LT(CompareValues(nullptr, &a), 0);
    EXPECT_EQ(CompareValues(nullptr, nullptr), 0);
}

TEST(CompareValuesTest, TimesAndSignedNumbersCompareByValue)
{
    const auto early = PropertyValue::Time(PR_CREATION_TIME, FILETIME{0xFFFFFFFF, 1});
    const auto late = PropertyValue::Time(PR_CREATION_TIME, FILETIME{0, 2});
    EXPECT_LT(CompareValues(&early, &late), 0);
    const auto minus = PropertyValue::Long(kScore, -1);
    const auto plus = PropertyValue::Int64(PROP_TAG(PT_I8, PROP_ID(kScore)), 1);
    EXPECT_LT(CompareValues(&minus, &plus), 0);
}

TEST(CompareValuesTest, RealNumbersCompareByValueAndWhatIsNoNumberStandsFirst)
{
    const auto real = [](double number) {
        auto value = PropertyValue::Int64(PROP_TAG(PT_I8, 0x6600), std::bit_cast<LONGLONG>(number));
        value.tag = PROP_TAG(PT_DOUBLE, 0x6600);
        return value;
    };
    const auto none = real(std::numeric_limits<double>::quiet_NaN());
    const auto minus = real(-2.5);
    const auto plus = real(1.5);
    EXPECT_LT(CompareValues(&minus, &plus), 0);
    EXPECT_GT(CompareValues(&plus, &minus), 0);
    EXPECT_EQ(CompareValues(&plus, &plus), 0);
    EXPECT_LT(CompareValues(&none, &minus), 0);
    EXPECT_GT(CompareValues(&minus, &none), 0);
    EXPECT_EQ(CompareValues(&none, &none), 0);
}

TEST(CompareValuesTest, LettersBeyondLatin1CompareWithoutRegardToCase)
{
    const auto text = [](OleStringView letters) { return PropertyValue::Unicode(PR_SUBJECT_W, letters); };
    const auto upper = text(OLESTR("\u010C\u0139\u0147\u014A\u0178\u0179\u017D\u0391\u0410"));
    const auto lower = text(OLESTR("\u010D\u013A\u0148\u014B\u00FF\u017A\u017E\u03B1\u0430"));
    EXPECT_EQ(CompareValues(&upper, &lower), 0);
    // These have no other case here.
    const auto alone = text(OLESTR("\u0149"));
    const auto next = text(OLESTR("\u014A"));
    EXPECT_LT(CompareValues(&alone, &next), 0);
}

TEST(CompareValuesTest, CategoriesAreNoMoreThanTheColumns)
{
    SSortOrderSet set{};
    set.cSorts = 1;
    set.cCategories = 1;
    set.cExpanded = 1;
    std::vector<SortColumn> columns;
    EXPECT_EQ(ReadSortOrder(&set, columns), S_OK);
    set.cExpanded = 2;
    EXPECT_EQ(ReadSortOrder(&set, columns), MAPI_E_INVALID_PARAMETER);
    set.cCategories = 2;
    EXPECT_EQ(ReadSortOrder(&set, columns), MAPI_E_INVALID_PARAMETER);
}

}  // namespace
}  // namespace quorvane
