#include "msgstore/table/restriction_codec.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "msgstore/table/restriction.h"

namespace quorvane {
namespace {

constexpr ULONG kNote = PROP_TAG(PT_LONG, 0x6603);
constexpr ULONG kManyTexts = PROP_TAG(PT_MV_UNICODE, 0x6602);

// One of every kind: all of a subject, one text of several, a comparison of two properties, a mask, a size,
// existence, the recipients, and a comment, the last two not so.
class RestrictionCodecTest : public ::testing::Test {
protected:
    RestrictionCodecTest()
    {
        subject_.ulPropTag = PR_SUBJECT_W;
        subject_.Value.lpszW = text_.data();
        parts_[0].rt = RES_CONTENT;
        parts_[0].res.resContent = {FL_SUBSTRING | FL_IGNORECASE, PR_SUBJECT_W, &subject_};
        one_.ulPropTag = CHANGE_PROP_TYPE(kManyTexts, PT_MV_UNICODE | MV_INSTANCE);
        one_.Value.lpszW = text_.data();
        parts_[1].rt = RES_PROPERTY;
        parts_[1].res.resProperty = {RELOP_GE, one_.ulPropTag, &one_};
        parts_[2].rt = RES_COMPAREPROPS;
        parts_[2].res.resCompareProps = {RELOP_NE, PR_SUBJECT_W, PR_SENDER_NAME_W};
        parts_[3].rt = RES_BITMASK;
        parts_[3].res.resBitMask = {BMR_NEZ, PR_MESSAGE_FLAGS, 9};
        parts_[4].rt = RES_SIZE;
        parts_[4].res.resSize = {RELOP_LT, PR_BODY_W, 70000};
        parts_[5].rt = RES_EXIST;
        parts_[5].res.resExist.ulPropTag = PR_CLIENT_SUBMIT_TIME;
        parts_[6].rt = RES_NOT;
        parts_[6].res.resNot.lpRes = &inner_[0];
        inner_[0].rt = RES_SUBRESTRICTION;
        inner_[0].res.resSub = {PR_MESSAGE_RECIPIENTS, &parts_[5]};
        note_.ulPropTag = kNote;
        note_.Value.l = -3;
        parts_[7].rt = RES_OR;
        parts_[7].res.resOr = {1, &inner_[1]};
        inner_[1].rt = RES_COMMENT;
        inner_[1].res.resComment = {1, &parts_[5], &note_};
        whole_.rt = RES_AND;
        whole_.res.resAnd = {8, parts_};
    }

    OleString text_ = OLESTR("Plan");
    SPropValue subject_{};
    SPropValue one_{};
    SPropValue note_{};
    SRestriction parts_[8]{};
    SRestriction inner_[2]{};
    SRestriction whole_{};
};

TEST_F(RestrictionCodecTest, EveryKindComesBackAsItWas)
{
    Bytes bytes;
    ASSERT_EQ(EncodeRestriction(whole_, bytes), S_OK);
    MapiBuffer<SRestriction> back;
    ASSERT_EQ(DecodeRestriction(bytes, true, back), S_OK);

    std::shared_ptr<const Restriction> checked;
    EXPECT_EQ(Restriction::Make(back.Get(), checked), S_OK);
    ASSERT_EQ(back->rt, RES_AND);
    ASSERT_EQ(back->res.resAnd.cRes, 8u);
    const SRestriction* const parts = back->res.resAnd.lpRes;
    EXPECT_EQ(parts[0].res.resContent.ulFuzzyLevel, FL_SUBSTRING | FL_IGNORECASE);
    EXPECT_EQ(OleString(parts[0].res.resContent.lpProp->Value.lpszW), text_);
    EXPECT_EQ(parts[1].res.resProperty.relop, RELOP_GE);
    EXPECT_EQ(parts[1].res.resProperty.lpProp->ulPropTag, one_.ulPropTag);
    EXPECT_EQ(OleString(parts[1].res.resProperty.lpProp->Value.lpszW), text_);
    EXPECT_EQ(parts[2].res.resCompareProps.ulPropTag2, PR_SENDER_NAME_W);
    EXPECT_EQ(parts[3].res.resBitMask.ulMask, 9u);
    EXPECT_EQ(parts[4].res.resSize.cb, 70000u);
    EXPECT_EQ(parts[5].res.resExist.ulPropTag, PR_CLIENT_SUBMIT_TIME);
    EXPECT_EQ(parts[6].res.resNot.lpRes->res.resSub.ulSubObject, PR_MESSAGE_RECIPIENTS);
    const SCommentRestriction& comment = parts[7].res.resOr.lpRes->res.resComment;
    ASSERT_EQ(comment.cValues, 1u);
    EXPECT_EQ(comment.lpProp->Value.l, -3);
    EXPECT_EQ(comment.lpRes->rt, RES_EXIST);
    Bytes again;
    ASSERT_EQ(EncodeRestriction(*back.Get(), again), S_OK);
    EXPECT_EQ(again, bytes);
}

TEST_F(RestrictionCodecTest, TextIsGivenInTheWidthThatIsAskedFor)
{
    Bytes bytes;
    ASSERT_EQ(EncodeRestriction(whole_, bytes), S_OK);
    MapiBuffer<SRestriction> back;
    ASSERT_EQ(DecodeRestriction(bytes, false, back), S_OK);

    const SRestriction* const parts = back->res.resAnd.lpRes;
    EXPECT_EQ(parts[0].res.resContent.ulPropTag, CHANGE_PROP_TYPE(PR_SUBJECT_W, PT_STRING8));
    EXPECT_STREQ(parts[0].res.resContent.lpProp->Value.lpszA, "Plan");
    EXPECT_EQ(parts[1].res.resProperty.lpProp->ulPropTag,
              CHANGE_PROP_TYPE(kManyTexts, PT_MV_STRING8 | MV_INSTANCE));
    EXPECT_STREQ(parts[1].res.resProperty.lpProp->Value.lpszA, "Plan");
}

TEST_F(RestrictionCodecTest, OneThatIsCutOrGoesOnIsCorrupt)
{
    Bytes bytes;
    ASSERT_EQ(EncodeRestriction(whole_, bytes), S_OK);
    MapiBuffer<SRestriction> back;
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_EQ(DecodeRestriction({bytes.data(), size}, true, back), MAPI_E_CORRUPT_DATA) << size;
    bytes.push_back(0);
    EXPECT_EQ(DecodeRestriction(bytes, true, back), MAPI_E_CORRUPT_DATA);
    EXPECT_FALSE(back);
}

TEST_F(RestrictionCodecTest, EveryByteThatIsChangedGivesARestrictionOrARefusal)
{
    Bytes bytes;
    ASSERT_EQ(EncodeRestriction(whole_, bytes), S_OK);
    int corrupt = 0;
    int taken = 0;
    for (BYTE& byte : bytes) {
        for (const BYTE with : {BYTE{0xFF}, BYTE{1}, BYTE{0x80}}) {
            byte = static_cast<BYTE>(byte ^ with);
            MapiBuffer<SRestriction> back;
            const HRESULT decoded = DecodeRestriction(bytes, true, back);
            std::shared_ptr<const Restriction> checked;
            EXPECT_EQ(SUCCEEDED(decoded), static_cast<bool>(back));
            if (back)
                (void)Restriction::Make(back.Get(), checked);  // the one or the other
            ++(checked ? taken : corrupt);
            byte = static_cast<BYTE>(byte ^ with);
        }
    }
    EXPECT_GT(corrupt, 0);
    EXPECT_GT(taken, 0);
}

TEST_F(RestrictionCodecTest, ALyingCountOrADepthWithoutEndIsCorruptAndCostsNothing)
{
    const Bytes many = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
    MapiBuffer<SRestriction> back;
    EXPECT_EQ(DecodeRestriction(many, true, back), MAPI_E_CORRUPT_DATA);
    Bytes deep;
    for (int i = 0; i < 100000; ++i)
        deep.insert(deep.end(), {2, 0, 0, 0});
    EXPECT_EQ(DecodeRestriction(deep, true, back), MAPI_E_CORRUPT_DATA);
}

TEST_F(RestrictionCodecTest, OneOfMoreThanAMegabyteIsTooComplex)
{
    OleString longText(600 * 1024, OLESTR('x'));
    subject_.Value.lpszW = longText.data();
    Bytes bytes;
    EXPECT_EQ(EncodeRestriction(whole_, bytes), MAPI_E_TOO_COMPLEX);
}

}  // namespace
}  // namespace quorvane
