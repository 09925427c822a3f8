#include "msgstore/form/message_text.h"

#include <algorithm>

#include "msgstore/form/mime_encoding.h"
#include "msgstore/message/message_fixture.h"
#include "platform/mapi/more_tags.h"

namespace quorvane {
namespace {

class MessageTextTest : public ::testing::Test {
protected:
    MessageTextTest()
    {
        EXPECT_EQ(MakeMessage(std::make_shared<MemoryBackend>(), true, nullptr, message.Put()), S_OK);
        say::Text(*message, PR_SUBJECT_W, OLESTR("Plan"));
    }

    void AddRecipient(LONG kind, OleString name, OleString address)
    {
        SPropValue values[3] = {};
        values[0].ulPropTag = PR_RECIPIENT_TYPE;
        values[0].Value.l = kind;
        values[1].ulPropTag = PR_DISPLAY_NAME_W;
        values[1].Value.lpszW = name.data();
        values[2].ulPropTag = PR_EMAIL_ADDRESS_W;
        values[2].Value.lpszW = address.data();
        ADRLIST list{1, {{0, 3, values}}};
        EXPECT_EQ(message->ModifyRecipients(MODRECIP_ADD, &list), S_OK);
    }

    std::string Mime()
    {
        std::string text;
        EXPECT_EQ(MakeMimeText(*message, text), S_OK);
        return text;
    }
    std::string Plain()
    {
        std::string text;
        EXPECT_EQ(MakePlainText(*message, text), S_OK);
        return text;
    }
    static bool Has(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    ComPtr<IMessage> message;
};

TEST_F(MessageTextTest, AMailIsItsHeaderFieldsAndItsBody)
{
    FILETIME time{};
    const SYSTEMTIME parts{2026, 1, 1, 12, 9, 30, 5, 0};
    ASSERT_TRUE(SystemTimeToFileTime(&parts, &time));
    SPropValue value{};
    value.ulPropTag = PR_CLIENT_SUBMIT_TIME;
    value.Value.ft = time;
    ASSERT_EQ(HrSetOneProp(message.Get(), &value), S_OK);
    say::Text(*message, PR_SENDER_NAME_W, OLESTR("Zoe"));
    say::Text(*message, PR_SENDER_EMAIL_ADDRESS_W, OLESTR("zoe@example.org"));
    say::Text(*message, kPrInternetMessageIdW, OLESTR("<1@example.org>"));
    say::Text(*message, PR_BODY_W, OLESTR("Hello"));
    AddRecipient(MAPI_TO, OLESTR("Ann"), OLESTR("ann@example.org"));
    AddRecipient(MAPI_TO, OLESTR("bob@example.org"), OLESTR("bob@example.org"));
    AddRecipient(MAPI_CC, OLESTR("The others"), OLESTR(""));

    EXPECT_EQ(Mime(),
              "From: \"Zoe\" <zoe@example.org>\r\n"
              "To: \"Ann\" <ann@example.org>,\r\n bob@example.org\r\n"
              "Cc: \"The others\":;\r\n"
              "Subject: Plan\r\n"
              "Date: Mon, 12 Jan 2026 09:30:05 +0000\r\n"
              "Message-ID: <1@example.org>\r\n"
              "MIME-Version: 1.0\r\n"
              "Content-Type: text/plain; charset=utf-8\r\n"
              "Content-Transfer-Encoding: base64\r\n"
              "\r\n"
              "SGVsbG8=\r\n");
    EXPECT_EQ(Plain(),
              "From: Zoe <zoe@example.org>\nTo: Ann <ann@example.org>\nTo: bob@example.org\nCc: The others\n"
              "Subject: Plan\nDate: Mon, 12 Jan 2026 09:30:05 +0000\n\nHello\n");
}

TEST_F(MessageTextTest, AMessageWithNothingInItIsShownToo)
{
    ASSERT_EQ(MakeMessage(std::make_shared<MemoryBackend>(), true, nullptr, message.Put()), S_OK);

    EXPECT_EQ(Plain(), "Subject: \n\n");
    EXPECT_TRUE(Has(Mime(), "Subject: \r\nMIME-Version: 1.0\r\n"));
}

TEST_F(MessageTextTest, ABodyInBothFormsIsBoth)
{
    say::Text(*message, PR_BODY_W, OLESTR("Hello"));
    say::Write(*message, kPrHtml, "<b>Hello</b>");
    ASSERT_EQ(say::Number(*message, kPrInternetCpid, 1252), S_OK);

    const std::string mime = Mime();

    const size_t start = mime.find("Content-Type: multipart/alternative;\r\n boundary=\"=_quorvane_1_=\"");
    const size_t plain = mime.find("--=_quorvane_1_=\r\nContent-Type: text/plain; charset=utf-8");
    const size_t html = mime.find("--=_quorvane_1_=\r\nContent-Type: text/html; charset=windows-1252");
    EXPECT_TRUE(start < plain && plain < html && html < mime.find("--=_quorvane_1_=--"));
    EXPECT_TRUE(Has(mime, "PGI+SGVsbG88L2I+\r\n"));
}

TEST_F(MessageTextTest, AnAttachmentIsAPartWithItsName)
{
    say::Attachment(*message, OLESTR("plan \"b\".txt"), "content");
    say::Attachment(*message, OLESTR("\u00e4.txt"), "");

    const std::string mime = Mime();

    EXPECT_TRUE(Has(mime,
                    "Content-Disposition: attachment;\r\n filename*=utf-8''plan%20%22b%22.txt\r\n\r\n"
                    "Y29udGVudA==\r\n"));
    EXPECT_TRUE(Has(mime, "filename*=utf-8''%C3%A4.txt"));
    EXPECT_TRUE(Has(Plain(), "Attachment: plan \"b\".txt\nAttachment: \u00e4.txt\n"));
}

TEST_F(MessageTextTest, AnEmbeddedMessageIsAMessage)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    ComPtr<IMessage> embedded;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    ASSERT_EQ(say::Number(*attachment, PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG), S_OK);
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                       embedded.PutUnknown()),
              S_OK);
    say::Text(*embedded, PR_SUBJECT_W, OLESTR("Inner"));
    say::Attachment(*embedded, OLESTR("inner.txt"), "x");
    ASSERT_EQ(embedded->SaveChanges(0), S_OK);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);

    const std::string mime = Mime();

    EXPECT_TRUE(
        Has(mime, "Content-Type: message/rfc822\r\nContent-Disposition: attachment\r\n\r\nSubject: Inner"));
    EXPECT_TRUE(Has(mime, "=_quorvane_1_=--") && Has(mime, "=_quorvane_2_=--")) << "borders of their own";
}

TEST_F(MessageTextTest, AHostileMessageStaysInItsPlace)
{
    say::Text(*message, PR_SUBJECT_W, OLESTR("Plan\r\nBcc: all@example.org"));
    say::Text(*message, PR_SENDER_NAME_W, OLESTR("Z\"\\\r\noe"));
    say::Text(*message, PR_SENDER_EMAIL_ADDRESS_W, OLESTR("z@x>,<y@x\r\n"));
    say::Text(*message, kPrInternetMessageIdW, OLESTR("<a@b>\r\nEvil: 1"));
    say::Text(*message, PR_BODY_W, OLESTR("\x1B[2Jhidden\u009B1m\u202Eback\u0000"));

    const std::string mime = Mime();
    const std::string plain = Plain();

    EXPECT_FALSE(Has(mime, "\nBcc:"));
    EXPECT_FALSE(Has(mime, "\nEvil:"));
    EXPECT_FALSE(Has(mime, "z@x"));
    EXPECT_TRUE(Has(plain, "Subject: Plan  Bcc: all@example.org\n"));
    EXPECT_TRUE(Has(plain, "\n[2Jhidden1mback\n"));
}

TEST_F(MessageTextTest, EveryLineIsShortAndOfSevenBits)
{
    say::Text(*message, PR_SUBJECT_W, OleString(3000, OLECHAR{0x20AC}));
    say::Text(*message, PR_BODY_W, OleString(100'000, OLECHAR{0x20AC}));
    say::Attachment(*message, OleString(20, OLECHAR{0x20AC}), std::string(100'000, '\0'));
    AddRecipient(MAPI_TO, OleString(100, OLECHAR{0x20AC}), OLESTR("a@example.org"));

    const std::string mime = Mime();

    size_t longest = 0;
    for (size_t begin = 0; begin < mime.size();) {
        const size_t end = mime.find("\r\n", begin);
        ASSERT_NE(end, std::string::npos);
        longest = std::max(longest, end - begin);
        begin = end + 2;
    }
    EXPECT_LT(longest, 250u) << "but for an attachment's name, at most 78";
    EXPECT_TRUE(std::all_of(mime.begin(), mime.end(), [](char c) { return (c & 0x80) == 0; }));
}

TEST_F(MessageTextTest, AnAttachmentThatIsTooLargeIsNamedAlone)
{
    say::Attachment(*message, OLESTR("large.bin"), std::string((64 << 20) + 1, 'x'));

    const std::string mime = Mime();

    EXPECT_LT(mime.size(), 2000u);
    EXPECT_TRUE(Has(mime, "filename=\"large.bin\""));
}

TEST(MimeEncodingTest, EncodedWordsHoldWholeCharacters)
{
    std::string text = "a";
    for (int i = 0; i < 30; ++i)
        text += "\xE2\x82\xAC";

    const std::string words = HeaderText(text);

    EXPECT_EQ(words.find("=?utf-8?B?"), 0u);
    const size_t second = words.find("\r\n =?utf-8?B?");
    ASSERT_NE(second, std::string::npos);
    EXPECT_LE(second, 75u);
    EXPECT_EQ(words[second + 13], '4') << "E2, the first byte of a character";
}

TEST(MimeEncodingTest, BytesThatAreNoTextDoNoHarm)
{
    EXPECT_EQ(Harmless("a\xFF\xC3", false), "a\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(Harmless("a\x80\x80z", false), "a\xEF\xBF\xBD\xEF\xBF\xBDz");
    EXPECT_EQ(Harmless("tab\tline\n", true), "tab\tline\n");
    EXPECT_EQ(Harmless("tab\tline\n", false), "tab line ");
    EXPECT_EQ(Base64Lines(""), "");
    EXPECT_EQ(Base64Lines(std::string(58, 'a')).size(), 78u + 6u);
}

}  // namespace
}  // namespace quorvane
