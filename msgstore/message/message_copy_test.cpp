// CopyTo and CopyProps between messages.
#include "msgstore/message/message_fixture.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

constexpr GUID kSet{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// A message with something of everything, and one to copy it to.
class CopyTest : public MessageTest {
protected:
    CopyTest()
    {
        target_ = Open(targetBackend_);
        // The two name things in different order.
        say::NamedId(*target_, kSet, 1);
        fileAs_ = PROP_TAG(PT_UNICODE, PROP_ID(say::NamedId(*message_, kSet, 0x8005)));
        say::Text(*message_, fileAs_, OLESTR("Doe, J."));
        say::Text(*message_, PR_SUBJECT_W, OLESTR("RE: all"));
        say::Text(*message_, PR_BODY_W, OleString(70000, OLESTR('b')));
        say::Write(*message_, kPrHtml, std::string(3 * 1024 * 1024, 'h'));
        say::Recipient(*message_, MAPI_TO, OLESTR("Ann"));
        say::Attachment(*message_, OLESTR("a"), std::string(100000, 'a'));
        AddEmbedded();
        EXPECT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    }

    void AddEmbedded()
    {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        ComPtr<IMessage> inner;
        ASSERT_EQ(message_->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        EXPECT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
        ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                           inner.PutUnknown()),
                  S_OK);
        say::Text(*inner, fileAs_, OLESTR("inner name"));
        say::Recipient(*inner, MAPI_CC, OLESTR("Ben"));
        say::Attachment(*inner, OLESTR("deep"), "deep");
        EXPECT_EQ(inner->SaveChanges(0), S_OK);
        EXPECT_EQ(attachment->SaveChanges(0), S_OK);
    }

    HRESULT CopyWithout(ULONG tag)
    {
        SPropTagArray excluded{1, {tag}};
        return message_->CopyTo(0, nullptr, &excluded, 0, nullptr, &IID_IMAPIProp, target_.Get(), MAPI_DIALOG,
                                nullptr);
    }

    std::shared_ptr<MemoryBackend> targetBackend_ = std::make_shared<MemoryBackend>();
    ComPtr<IMessage> target_;
    ULONG fileAs_ = 0;
};

TEST_F(CopyTest, EverythingGoesAlong)
{
    ASSERT_EQ(say::CopyAll(*message_, *target_), S_OK);
    ASSERT_EQ(target_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    EXPECT_EQ(say::Differences(*message_, *Open(targetBackend_)), std::vector<std::string>());
    EXPECT_EQ(say::Differences(*target_, *message_), std::vector<std::string>());
}

TEST_F(CopyTest, NamedPropertiesKeepTheirNames)
{
    ASSERT_EQ(say::CopyAll(*message_, *target_), S_OK);
    const ULONG there = PROP_ID(say::NamedId(*target_, kSet, 0x8005, 0));
    EXPECT_NE(there, PROP_ID(fileAs_));
    EXPECT_EQ(say::TextOf(*target_, PROP_TAG(PT_UNICODE, there)), OLESTR("Doe, J."));
}

TEST_F(CopyTest, TheSearchKeyIsCarriedAndTheIdentityIsnt)
{
    ASSERT_EQ(say::CopyAll(*message_, *target_), S_OK);
    EXPECT_EQ(say::Find(*target_, PR_SEARCH_KEY), S_OK);
    EXPECT_EQ(say::Find(*target_, PR_ENTRYID), MAPI_E_NOT_FOUND);
}

TEST_F(CopyTest, ExcludedTagsCountByIdentifier)
{
    ASSERT_EQ(CopyWithout(PR_SUBJECT_A), S_OK);
    EXPECT_EQ(say::Find(*target_, PR_SUBJECT_W), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::Attachments(*target_), 2u);
}

TEST_F(CopyTest, RecipientsAndAttachmentsCanBeExcluded)
{
    ASSERT_EQ(CopyWithout(PR_MESSAGE_ATTACHMENTS), S_OK);
    EXPECT_EQ(say::Attachments(*target_), 0u);
    EXPECT_EQ(say::Recipients(*target_), 1u);
    target_ = Open(std::make_shared<MemoryBackend>());
    ASSERT_EQ(CopyWithout(PR_MESSAGE_RECIPIENTS), S_OK);
    EXPECT_EQ(say::Attachments(*target_), 2u);
    EXPECT_EQ(say::Recipients(*target_), 0u);
}

TEST_F(CopyTest, AnExclusionOfNothingExcludesNothing)
{
    ASSERT_EQ(CopyWithout(0), S_OK);
    EXPECT_EQ(say::Differences(*message_, *target_), std::vector<std::string>());
}

TEST_F(CopyTest, WhatTheTargetHadIsReplaced)
{
    say::Recipient(*target_, MAPI_TO, OLESTR("old"));
    say::Attachment(*target_, OLESTR("old"), "old");
    say::Text(*target_, PR_SUBJECT_W, OLESTR("old"));
    ASSERT_EQ(say::CopyAll(*message_, *target_), S_OK);
    EXPECT_EQ(say::Differences(*message_, *target_), std::vector<std::string>());
}

TEST_F(CopyTest, NothingIsReplacedIfSoAsked)
{
    say::Text(*target_, PR_SUBJECT_W, OLESTR("old"));
    say::Attachment(*target_, OLESTR("old"), "old");
    ASSERT_EQ(message_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target_.Get(), MAPI_NOREPLACE,
                               nullptr),
              S_OK);
    EXPECT_EQ(say::TextOf(*target_, PR_SUBJECT_W), OLESTR("old"));
    EXPECT_EQ(say::Attachments(*target_), 1u);
    EXPECT_EQ(say::Recipients(*target_), 1u);
}

TEST_F(CopyTest, CopyPropsCopiesWhatItsTold)
{
    struct {
        ULONG count = 2;
        ULONG tags[2] = {PR_SUBJECT_W, kPrHtml};
    } tags;
    MapiBuffer<SPropProblemArray> problems;
    ASSERT_EQ(message_->CopyProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, nullptr, &IID_IMessage,
                                  target_.Get(), 0, problems.Put()),
              S_OK);
    EXPECT_FALSE(problems);
    EXPECT_EQ(say::TextOf(*target_, PR_SUBJECT_W), OLESTR("RE: all"));
    EXPECT_EQ(say::Read(*target_, kPrHtml).size(), 3u * 1024 * 1024);
    EXPECT_EQ(say::Recipients(*target_), 0u);
}

TEST_F(CopyTest, ATargetThatCantBeWrittenIsAnError)
{
    target_ = Open(targetBackend_, false);
    EXPECT_EQ(say::CopyAll(*message_, *target_), E_ACCESSDENIED);
}

TEST_F(CopyTest, EightBitTextIsCarriedAsItsBytes)
{
    char text[] = "\xCF\xF0\xE8";
    SPropValue value{};
    value.ulPropTag = PR_COMMENT_A;
    value.Value.lpszA = text;
    ASSERT_EQ(HrSetOneProp(message_.Get(), &value), S_OK);
    ASSERT_EQ(say::CopyAll(*message_, *target_), S_OK);
    MapiBuffer<SPropValue> copy;
    ASSERT_EQ(HrGetOneProp(target_.Get(), PR_COMMENT_A, copy.Put()), S_OK);
    EXPECT_STREQ(copy->Value.lpszA, text);
}

}  // namespace
}  // namespace quorvane
