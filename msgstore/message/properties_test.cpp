// The methods of IMAPIProp, on a message.
#include <atomic>
#include <thread>

#include "msgstore/message/message_fixture.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

constexpr GUID kOwnSet{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID kOtherSet{0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

class PropertiesTest : public MessageTest {};

TEST_F(PropertiesTest, WhatIsSetIsReadInTheKindAskedFor)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("\u00E9t\u00E9"));
    SPropTagArray tag{1, {PR_SUBJECT_A}};
    ULONG count = 0;
    MapiBuffer<SPropValue> value;
    ASSERT_EQ(message_->GetProps(&tag, 0, &count, value.Put()), S_OK);
    EXPECT_STREQ(value->Value.lpszA, "\xC3\xA9t\xC3\xA9");
    tag.aulPropTag[0] = PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT));
    ASSERT_EQ(message_->GetProps(&tag, 0, &count, value.Put()), S_OK);
    EXPECT_EQ(value->ulPropTag, PR_SUBJECT_A);
    ASSERT_EQ(message_->GetProps(&tag, MAPI_UNICODE, &count, value.Put()), S_OK);
    EXPECT_EQ(value->ulPropTag, PR_SUBJECT_W);
}

TEST_F(PropertiesTest, WhatIsKnownOfAMessageAnywayDoesntHaveItsPropertiesRead)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("Hello"));
    Reopen();
    const ULONG before = backend_->reads();

    EXPECT_EQ(say::Find(*message_, PR_ENTRYID), S_OK);
    EXPECT_EQ(say::NumberOf(*message_, PR_STORE_SUPPORT_MASK), STORE_MODIFY_OK);
    EXPECT_EQ(backend_->reads(), before);

    EXPECT_EQ(say::TextOf(*message_, PR_SUBJECT_W), OLESTR("Hello"));
    EXPECT_EQ(backend_->reads(), before + 1);
}

TEST_F(PropertiesTest, AMissingPropertyIsAnErrorInItsPlace)
{
    EXPECT_EQ(say::Number(*message_, PR_IMPORTANCE, 2), S_OK);
    struct {
        ULONG count = 2;
        ULONG tags[2] = {PR_SENSITIVITY, PR_IMPORTANCE};
    } tags;
    ULONG count = 0;
    MapiBuffer<SPropValue> values;
    EXPECT_EQ(message_->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put()),
              MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(values[0].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_SENSITIVITY)));
    EXPECT_EQ(values[0].Value.err, MAPI_E_NOT_FOUND);
    EXPECT_EQ(values[1].Value.l, 2);
}

TEST_F(PropertiesTest, ALongTextComesThroughAStreamAlone)
{
    const OleString body(100000, OLESTR('b'));
    say::Text(*message_, PR_BODY_W, body);
    EXPECT_EQ(say::Find(*message_, PR_BODY_W), MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(say::Read(*message_, PR_BODY_W).size(), 200000u);
    EXPECT_EQ(say::Read(*message_, PR_BODY_A), std::string(100000, 'b'));
    Reopen();
    EXPECT_EQ(say::Read(*message_, PR_BODY_A), std::string(100000, 'b'));
}

TEST_F(PropertiesTest, AStreamWritesAppendsAndCuts)
{
    say::Write(*message_, kPrHtml, "hello");
    ComPtr<IStream> stream;
    ASSERT_EQ(message_->OpenProperty(kPrHtml, &IID_IStream, STREAM_APPEND, MAPI_MODIFY, stream.PutUnknown()),
              S_OK);
    ASSERT_EQ(stream->Write(" world", 6, nullptr), S_OK);
    EXPECT_EQ(say::Read(*message_, kPrHtml), "hello world");
    ULARGE_INTEGER size{};
    size.QuadPart = 4;
    ASSERT_EQ(stream->SetSize(size), S_OK);
    EXPECT_EQ(say::Read(*message_, kPrHtml), "hell");
}

TEST_F(PropertiesTest, WhatAStreamWritesAfterASaveIsInTheNextSave)
{
    ComPtr<IStream> stream;
    ASSERT_EQ(
        message_->OpenProperty(kPrHtml, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, stream.PutUnknown()),
        S_OK);
    ASSERT_EQ(stream->Write("one", 3, nullptr), S_OK);
    ASSERT_EQ(message_->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    ASSERT_EQ(stream->Write("two", 3, nullptr), S_OK);
    Reopen();
    EXPECT_EQ(say::Read(*message_, kPrHtml), "onetwo");
}

TEST_F(PropertiesTest, AStreamThatReadsKeepsWhatItOpened)
{
    say::Write(*message_, kPrHtml, "before");
    ComPtr<IStream> stream;
    ASSERT_EQ(message_->OpenProperty(kPrHtml, &IID_IStream, 0, 0, stream.PutUnknown()), S_OK);
    say::Write(*message_, kPrHtml, "after");
    char text[7] = {};
    ASSERT_EQ(stream->Read(text, 6, nullptr), S_OK);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(stream->Write("x", 1, nullptr), STG_E_ACCESSDENIED);
}

TEST_F(PropertiesTest, ACloneOfAStreamStandsWhereItsOriginalStands)
{
    say::Write(*message_, kPrHtml, "0123456789");
    for (const ULONG flags : {ULONG{0}, ULONG{MAPI_MODIFY}}) {
        ComPtr<IStream> stream;
        ComPtr<IStream> clone;
        char digit = 0;
        ASSERT_EQ(message_->OpenProperty(kPrHtml, &IID_IStream, 0, flags, stream.PutUnknown()), S_OK);
        LARGE_INTEGER move{};
        move.QuadPart = 4;
        ASSERT_EQ(stream->Seek(move, STREAM_SEEK_SET, nullptr), S_OK);
        ASSERT_EQ(stream->Clone(clone.Put()), S_OK);
        ASSERT_EQ(stream->Read(&digit, 1, nullptr), S_OK);
        ASSERT_EQ(clone->Read(&digit, 1, nullptr), S_OK);
        EXPECT_EQ(digit, '4') << flags;
    }
}

TEST_F(PropertiesTest, SeekingBeforeTheBeginningIsRefused)
{
    say::Write(*message_, kPrHtml, "0123456789");
    ComPtr<IStream> stream;
    ASSERT_EQ(message_->OpenProperty(kPrHtml, &IID_IStream, 0, 0, stream.PutUnknown()), S_OK);
    LARGE_INTEGER move{};
    ULARGE_INTEGER position{};
    move.QuadPart = -4;
    EXPECT_EQ(stream->Seek(move, STREAM_SEEK_END, &position), S_OK);
    EXPECT_EQ(position.QuadPart, 6u);
    move.QuadPart = INT64_MIN;
    EXPECT_EQ(stream->Seek(move, STREAM_SEEK_CUR, nullptr), STG_E_INVALIDFUNCTION);
    move.QuadPart = INT64_MAX;
    EXPECT_EQ(stream->Seek(move, STREAM_SEEK_CUR, nullptr), STG_E_INVALIDFUNCTION);
    char digit = 0;
    EXPECT_EQ(stream->Read(&digit, 1, nullptr), S_OK);
    EXPECT_EQ(digit, '6');
}

TEST_F(PropertiesTest, OpeningWhatIsntThereNeedsCreate)
{
    ComPtr<IStream> stream;
    EXPECT_EQ(message_->OpenProperty(kPrHtml, &IID_IStream, 0, 0, stream.PutUnknown()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(message_->OpenProperty(kPrHtml, &IID_IStream, 0, MAPI_MODIFY, stream.PutUnknown()),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(message_->OpenProperty(PR_IMPORTANCE, &IID_IStream, 0, MAPI_CREATE, stream.PutUnknown()),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(message_->OpenProperty(kPrHtml, &IID_IStorage, 0, 0, stream.PutUnknown()),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
}

TEST_F(PropertiesTest, DeletedPropertiesAreGoneAndAbsentOnesDontMatter)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    struct {
        ULONG count = 2;
        ULONG tags[2] = {PR_SUBJECT_W, PR_COMMENT_W};
    } tags;
    MapiBuffer<SPropProblemArray> problems;
    EXPECT_EQ(message_->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), problems.Put()), S_OK);
    EXPECT_FALSE(problems);
    EXPECT_EQ(say::Find(*message_, PR_SUBJECT_W), MAPI_E_NOT_FOUND);
}

TEST_F(PropertiesTest, EverythingListedCanBeDeletedButTheObjectsOwn)
{
    say::Text(*message_, PR_SUBJECT_W, OLESTR("x"));
    say::Write(*message_, kPrHtml, std::string(100000, 'h'));
    EXPECT_EQ(say::Number(*message_, PR_MESSAGE_FLAGS, MSGFLAG_READ), S_OK);
    MapiBuffer<SPropTagArray> tags;
    ASSERT_EQ(message_->GetPropList(0, tags.Put()), S_OK);
    MapiBuffer<SPropProblemArray> problems;
    ASSERT_EQ(message_->DeleteProps(tags.Get(), problems.Put()), S_OK);
    ASSERT_TRUE(problems);
    for (ULONG i = 0; i < problems->cProblem; ++i)
        EXPECT_EQ(problems->aProblem[i].scode, MAPI_E_COMPUTED);
    EXPECT_EQ(say::Find(*message_, kPrHtml), MAPI_E_NOT_FOUND);
    EXPECT_EQ(say::NumberOf(*message_, PR_MESSAGE_FLAGS), static_cast<LONG>(MSGFLAG_UNSENT));
}

TEST_F(PropertiesTest, AListHasItsTextsInTheKindAskedFor)
{
    say::Text(*message_, PR_COMMENT_W, OLESTR("x"));
    MapiBuffer<SPropTagArray> tags;
    const auto has = [&](ULONG tag) {
        return std::find(tags->aulPropTag, tags->aulPropTag + tags->cValues, tag) !=
               tags->aulPropTag + tags->cValues;
    };
    ASSERT_EQ(message_->GetPropList(MAPI_UNICODE, tags.Put()), S_OK);
    EXPECT_TRUE(has(PR_COMMENT_W));
    ASSERT_EQ(message_->GetPropList(0, tags.Put()), S_OK);
    EXPECT_TRUE(has(PR_COMMENT_A));
}

TEST_F(PropertiesTest, SettingTheObjectsOwnIsAProblemAndTheRestIsSet)
{
    SPropValue values[4] = {};
    values[0].ulPropTag = PR_ENTRYID;
    values[1].ulPropTag = PR_MESSAGE_SIZE;
    values[2].ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(PR_SUBJECT));
    values[3].ulPropTag = PR_IMPORTANCE;
    values[3].Value.l = 1;
    MapiBuffer<SPropProblemArray> problems;
    ASSERT_EQ(message_->SetProps(4, values, problems.Put()), S_OK);
    ASSERT_TRUE(problems);
    ASSERT_EQ(problems->cProblem, 2u);
    EXPECT_EQ(problems->aProblem[0].ulIndex, 0u);
    EXPECT_EQ(problems->aProblem[1].scode, MAPI_E_COMPUTED);
    EXPECT_EQ(say::NumberOf(*message_, PR_IMPORTANCE), 1);
}

TEST_F(PropertiesTest, ANameKeepsItsIdentifier)
{
    const ULONG first = say::NamedId(*message_, kOwnSet, 0x8005);
    EXPECT_GE(PROP_ID(first), 0x8000u);
    EXPECT_EQ(say::NamedId(*message_, kOwnSet, 0x8005), first);
    EXPECT_NE(say::NamedId(*message_, kOtherSet, 0x8005), first);
    EXPECT_NE(say::NamedId(*message_, kOwnSet, OLESTR("FileAs")), first);
    EXPECT_EQ(PROP_TYPE(say::NamedId(*message_, kOwnSet, 0x9999, 0)), PT_ERROR);
}

TEST_F(PropertiesTest, IdentifiersTellTheirNames)
{
    const ULONG number = say::NamedId(*message_, kOwnSet, 0x8005);
    const ULONG text = say::NamedId(*message_, PS_PUBLIC_STRINGS, OLESTR("Keywords"));
    struct {
        ULONG count = 3;
        ULONG tags[3];
    } tags{3, {number, text, PROP_TAG(PT_LONG, 0xF000)}};
    auto* asked = reinterpret_cast<LPSPropTagArray>(&tags);
    ULONG count = 0;
    MapiBuffer<LPMAPINAMEID> names;
    EXPECT_EQ(message_->GetNamesFromIDs(&asked, nullptr, 0, &count, names.Put()), MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(names[0]->Kind.lID, 0x8005);
    EXPECT_EQ(*names[0]->lpguid, kOwnSet);
    EXPECT_EQ(OleString(names[1]->Kind.lpwstrName), OLESTR("Keywords"));
    EXPECT_EQ(names[2], nullptr);
}

TEST_F(PropertiesTest, AllNamesAreListedAndFiltered)
{
    say::NamedId(*message_, kOwnSet, 1);
    say::NamedId(*message_, kOwnSet, OLESTR("text"));
    say::NamedId(*message_, kOtherSet, 2);
    GUID set = kOwnSet;
    ULONG count = 0;
    LPSPropTagArray tags = nullptr;
    MapiBuffer<LPMAPINAMEID> names;
    ASSERT_EQ(message_->GetNamesFromIDs(&tags, nullptr, 0, &count, names.Put()), S_OK);
    EXPECT_EQ(count, 3u);
    MAPIFreeBuffer(tags);
    tags = nullptr;
    ASSERT_EQ(message_->GetNamesFromIDs(&tags, &set, MAPI_NO_STRINGS, &count, names.Put()), S_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(tags->cValues, 1u);
    MAPIFreeBuffer(tags);
}

TEST_F(PropertiesTest, PublishedIdentifiersAreNamesOfTheirOwnSet)
{
    EXPECT_EQ(say::NamedId(*message_, PS_MAPI, PROP_ID(PR_SUBJECT), 0),
              PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT)));
    EXPECT_EQ(PROP_TYPE(say::NamedId(*message_, PS_MAPI, 0x8000)), PT_ERROR);
}

TEST_F(PropertiesTest, ANamedPropertyWithoutANameIsRefused)
{
    EXPECT_EQ(say::Number(*message_, PROP_TAG(PT_LONG, 0xF000), 1), MAPI_E_UNEXPECTED_ID);
    const ULONG id = PROP_ID(say::NamedId(*message_, kOwnSet, 1));
    EXPECT_EQ(say::Number(*message_, PROP_TAG(PT_LONG, id), 1), S_OK);
}

TEST_F(PropertiesTest, AStreamOfANamedPropertyWithoutANameIsRefused)
{
    for (const ULONG id : {0x8000u, 0xF000u}) {
        ComPtr<IStream> stream;
        EXPECT_EQ(message_->OpenProperty(PROP_TAG(PT_BINARY, id), &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY,
                                         stream.PutUnknown()),
                  MAPI_E_UNEXPECTED_ID);
    }
}

TEST_F(PropertiesTest, WhoAsksForNoNameGetsTheTagsOfAllThatTheObjectHas)
{
    const ULONG tag = say::NamedId(*message_, kOwnSet, 1);
    ASSERT_EQ(say::Number(*message_, PROP_TAG(PT_LONG, PROP_ID(tag)), 1), S_OK);
    MapiBuffer<SPropTagArray> all;
    ASSERT_EQ(message_->GetIDsFromNames(0, nullptr, 0, all.Put()), S_OK);
    EXPECT_EQ(std::vector<ULONG>(all->aulPropTag, all->aulPropTag + all->cValues), std::vector<ULONG>{tag});
}

TEST_F(PropertiesTest, WrongArgumentsAreRefused)
{
    ULONG count = 0;
    MapiBuffer<SPropValue> values;
    SPropTagArray none{0, {0}};
    EXPECT_EQ(message_->GetProps(&none, 0, &count, values.Put()), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(message_->GetProps(nullptr, 0, nullptr, values.Put()), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(message_->GetProps(nullptr, 0x40, &count, values.Put()), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(message_->SetProps(0, nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(message_->DeleteProps(nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(message_->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, message_.Get(), 0, nullptr),
              MAPI_E_NO_ACCESS);
    EXPECT_EQ(message_->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0, nullptr),
              MAPI_E_INVALID_PARAMETER);
}

TEST_F(PropertiesTest, ThreadsMayUseOneMessageTogether)
{
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (ULONG id = 1; id <= 4; ++id) {
        threads.emplace_back([&, id] {
            for (LONG i = 0; i < 200; ++i) {
                const ULONG tag = PROP_TAG(PT_LONG, 0x6600 + id);
                failures += say::Number(*message_, tag, i) != S_OK || say::NumberOf(*message_, tag) != i;
                if (i % 50 == 0)
                    failures += message_->SaveChanges(KEEP_OPEN_READWRITE) != S_OK;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace quorvane
