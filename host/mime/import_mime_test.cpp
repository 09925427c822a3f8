#include "host/mime/import_mime.h"

#include <gtest/gtest.h>

#include "host/mime/one_off.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class ImportMimeTest : public StoreTest {};

TEST_F(ImportMimeTest, TheEnvelopeBecomesProperties)
{
    const auto message = store->Import(Sample("28"));
    EXPECT_EQ(Text(*message, PR_MESSAGE_CLASS_W), "IPM.Note");
    EXPECT_EQ(Text(*message, PR_SUBJECT_W), "Re: Re: Чертёж мачты");
    EXPECT_EQ(Text(*message, PR_SUBJECT_PREFIX_W), "Re: ");
    EXPECT_EQ(Text(*message, PR_NORMALIZED_SUBJECT_W), "Re: Чертёж мачты");
    EXPECT_EQ(Text(*message, PR_SENT_REPRESENTING_NAME_W), "Елена Петрова");
    EXPECT_EQ(Text(*message, PR_SENDER_EMAIL_ADDRESS_W), "elena.petrova@example.org");
    EXPECT_EQ(Text(*message, PR_SENDER_ADDRTYPE_W), "SMTP");
    EXPECT_EQ(Bytes(*message, PR_SENDER_SEARCH_KEY), std::string("SMTP:ELENA.PETROVA@EXAMPLE.ORG\0", 31));
    EXPECT_EQ(Text(*message, kPrInternetMessageIdW), "<mast.3@example.org>");
    EXPECT_EQ(Text(*message, kPrInReplyToIdW), "<mast.2@example.com>");
    EXPECT_EQ(Text(*message, kPrInternetReferencesW), "<mast.1@example.org> <mast.2@example.com>");
}

TEST_F(ImportMimeTest, TimesComeFromTheDateAndTheLastRelay)
{
    const auto message = store->Import(Sample("01"));
    // 7:14:02 and 7:14:09 UTC on 3 March 2025.
    EXPECT_EQ(ReadTime(*message, PR_CLIENT_SUBMIT_TIME)->dwHighDateTime, 0x01DB8C0Bu);
    EXPECT_EQ(ReadTime(*message, PR_CLIENT_SUBMIT_TIME)->dwLowDateTime + 7 * 10000000u,
              ReadTime(*message, PR_MESSAGE_DELIVERY_TIME)->dwLowDateTime);
}

TEST_F(ImportMimeTest, TheHeaderBlockIsKeptWhole)
{
    const std::string mail = "X-One: a\nSubject: s\nX-Two:  b\n\tc\nX-Latin: \xE4\nX-Utf: \xC3\xA4\n\nbody\n";
    EXPECT_EQ(Text(*store->Import(mail), PR_TRANSPORT_MESSAGE_HEADERS_W),
              "X-One: a\r\nSubject: s\r\nX-Two:  b\r\n\tc\r\nX-Latin: ä\r\nX-Utf: ä\r\n");
}

TEST_F(ImportMimeTest, RecipientsOfEachKindAreKept)
{
    const std::string lines = RecipientLines(*store->Import(Sample("32")));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 28);
    EXPECT_NE(lines.find("To: David Müller <d.mueller@example.org>\n"), std::string::npos);
    EXPECT_NE(lines.find("Cc: Okafor, Jonas; treasurer <jonas.okafor@example.com>\n"), std::string::npos);
    EXPECT_NE(lines.find("Cc: members@example.org <members@example.org>\n"), std::string::npos);
    EXPECT_NE(lines.find("Bcc: Zora Blum <zora@example.net>\n"), std::string::npos);
}

TEST_F(ImportMimeTest, GroupsBecomeTheirMembers)
{
    EXPECT_EQ(RecipientLines(*store->Import(Sample("33"))),
              "To: Jonas Okafor <jonas.okafor@example.com>\nTo: Tomasz <tomasz.wilk@example.com>\n"
              "To: Hana Sato <hana.sato@example.com>\nCc: piet@example.com <piet@example.com>\n"
              "Cc: no-angle@example.com <no-angle@example.com>\n");
}

TEST_F(ImportMimeTest, WhereAnswersGoIsKept)
{
    const auto message = store->Import(Sample("31"));
    EXPECT_EQ(Text(*message, PR_REPLY_RECIPIENT_NAMES_W), "Hana Sato");
    EXPECT_EQ(ReadFlatEntryList(Bytes(*message, PR_REPLY_RECIPIENT_ENTRIES)),
              (std::vector<MailAddress>{{"Hana Sato", "hana.sato@example.com"}}));
    EXPECT_EQ(Text(*message, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W), "sailing@lists.example.org");
    EXPECT_EQ(Text(*message, PR_SENDER_EMAIL_ADDRESS_W), "sailing-bounces@lists.example.org");
}

struct CharsetCase {
    const char* sample;
    const char* subject;
    const char* inBody;
    LONG codePage;
};

class ImportCharsetTest : public StoreTest, public testing::WithParamInterface<CharsetCase> {};

TEST_P(ImportCharsetTest, TextIsDecodedFromItsCharset)
{
    const auto message = store->Import(Sample(GetParam().sample));
    EXPECT_EQ(Text(*message, PR_SUBJECT_W), GetParam().subject);
    EXPECT_NE(Text(*message, PR_BODY_W).find(GetParam().inBody), std::string::npos)
        << Text(*message, PR_BODY_W);
    EXPECT_EQ(ReadLong(*message, kPrInternetCpid), GetParam().codePage);
}

INSTANTIATE_TEST_SUITE_P(
    Samples, ImportCharsetTest,
    testing::Values(CharsetCase{"02", "Tarif – atelier d’été", "l’atelier d’été coûtera 45 €", 1252},
                    CharsetCase{"07", "Comptes de février - 1\u00A0204,30 €", "du cœur de", 28605},
                    CharsetCase{"10", "Umowa najmu łodzi i wykaz części", "Łączę pozdrowienia", 28592},
                    CharsetCase{"15", "Toplantı tutanağı", "Güneşli günler", 28599},
                    CharsetCase{"26", "Чертёж мачты", "Здравствуйте, Томаш!", 20866},
                    CharsetCase{"27", "Re: Чертёж мачты", "осталось проставить", 1251},
                    CharsetCase{"28", "Re: Re: Чертёж мачты", "Столяр начнёт", 28595},
                    CharsetCase{"29", "ΕΠΕΙΓΟΝ: η αντλία", "Χρειαζόμαστε τον", 28597},
                    CharsetCase{"30", "המזוודה עם הכלים", "שלום מרתה", 38598},
                    CharsetCase{"35", "关于帆布样品", "您好！帆布样品已经收到", 54936},
                    CharsetCase{"36", "繩索已經寄出", "訂購的繩索已經寄出", 950},
                    CharsetCase{"37", "ストームジブの件", "四月二十日に完成", 50220},
                    CharsetCase{"38", "닻줄 도착 안내", "부산항에 도착했습니다", 51949},
                    CharsetCase{"39", "Tides ↑↓", "¼ m isn't. 𝄞 The bell", 1200}));

TEST_F(ImportMimeTest, HtmlKeepsItsBytesAndTheirCodePage)
{
    const auto message = store->Import(Sample("03"));
    EXPECT_NE(Bytes(*message, kPrHtml).find("ab M\xE4rz</h2>"), std::string::npos);
    EXPECT_EQ(ReadLong(*message, kPrInternetCpid), 28591);
    EXPECT_EQ(ReadLong(*store->Import(Sample("40")), kPrInternetCpid), 932);
}

TEST_F(ImportMimeTest, HtmlWithoutACharsetInItsFieldIsReadInTheOneThatItNamesItself)
{
    for (const std::string quote : {"\"", "'", ""}) {
        const auto message = store->Import("Subject: x\nContent-Type: text/html\n\n<meta charset=" + quote +
                                           "windows-1251" + quote + ">\xC4\xE0\n");
        EXPECT_EQ(ReadLong(*message, kPrInternetCpid), 1251) << quote;
    }
}

TEST_F(ImportMimeTest, BothFormsOfABodyAreKept)
{
    const auto message = store->Import(Sample("04"));
    EXPECT_NE(Text(*message, PR_BODY_W).find("• tomatoes: “Märta’s Yellow”"), std::string::npos);
    EXPECT_NE(Bytes(*message, kPrHtml).find("<b>seed swap</b>"), std::string::npos);
    EXPECT_TRUE(Attachments(*message).empty());
}

TEST_F(ImportMimeTest, PicturesWithinHtmlAreMarkedAsSuch)
{
    const auto message = store->Import(Sample("06"));
    const auto attachments = Attachments(*message);
    ASSERT_EQ(attachments.size(), 3u);
    EXPECT_EQ(Text(*attachments[0], kPrAttachContentIdW), "front.view@keller");
    EXPECT_EQ(Text(*attachments[0], kPrAttachContentLocationW), "drawings/front.png");
    EXPECT_EQ(ReadLong(*attachments[0], kPrAttachFlags), static_cast<LONG>(kAttachFlagMhtmlRef));
    EXPECT_EQ(ReadBoolean(*attachments[1], kPrAttachmentHidden), true);
    EXPECT_EQ(ReadBoolean(*attachments[2], kPrAttachmentHidden), std::nullopt);
    EXPECT_EQ(AttachmentData(*attachments[2]).substr(0, 8), "%PDF-1.4");
    EXPECT_NE(Text(*attachments[2], PR_TRANSPORT_MESSAGE_HEADERS_W).find("Content-Description: signed offer"),
              std::string::npos);
}

TEST_F(ImportMimeTest, AttachmentsKeepTheNamesTheyHave)
{
    std::vector<std::string> names;
    for (const auto& attachment : Attachments(*store->Import(Sample("08"))))
        names.push_back(Text(*attachment, PR_ATTACH_LONG_FILENAME_W));
    EXPECT_EQ(names, (std::vector<std::string>{"notes: final/2 <draft>?.txt", "list.txt", "list.txt", "",
                                               "../../.profile", "CON", "say \"ahoy\" .txt ", "łódź ⛵.txt"}));
}

TEST_F(ImportMimeTest, LongAndEncodedNamesAreJoined)
{
    const auto attachments = Attachments(*store->Import(Sample("10")));
    ASSERT_EQ(attachments.size(), 3u);
    EXPECT_EQ(Text(*attachments[0], PR_ATTACH_LONG_FILENAME_W),
              "Umowa najmu łodzi „Mewa” na sezon 2025 (podpisana).pdf");
    EXPECT_EQ(Text(*attachments[0], PR_ATTACH_FILENAME_W), "UMOWAN~1.PDF");
    EXPECT_EQ(Text(*attachments[0], PR_ATTACH_EXTENSION_W), ".pdf");
    EXPECT_EQ(Text(*attachments[1], PR_ATTACH_LONG_FILENAME_W), "wykaz części.txt");
}

TEST_F(ImportMimeTest, ALargeAttachmentArrivesWhole)
{
    const auto attachments = Attachments(*store->Import(Sample("09")));
    ASSERT_EQ(attachments.size(), 1u);
    const std::string data = AttachmentData(*attachments[0]);
    EXPECT_EQ(data.size(), 224953u);
    EXPECT_EQ(data.substr(0, 4) + data.substr(8, 4), "RIFFWAVE");
}

TEST_F(ImportMimeTest, NestedMailsBecomeMessagesOfTheirOwn)
{
    const auto outer = Attachments(*store->Import(Sample("12")));
    ASSERT_EQ(outer.size(), 1u);
    EXPECT_EQ(ReadLong(*outer[0], PR_ATTACH_METHOD), static_cast<LONG>(ATTACH_EMBEDDED_MSG));
    EXPECT_EQ(Text(*outer[0], PR_DISPLAY_NAME_W), "Fwd: Fwd: Water in the cellar");
    const auto middle = Embedded(*outer[0]);
    const auto inner = Attachments(*middle);
    ASSERT_EQ(inner.size(), 2u);
    EXPECT_EQ(Text(*inner[1], PR_ATTACH_MIME_TAG_W), "application/json");
    const auto letter = Embedded(*inner[0]);
    EXPECT_EQ(Text(*letter, PR_SUBJECT_W), "Pump, valve, €");
    EXPECT_EQ(Text(*letter, PR_SENDER_NAME_W), "Čepmeister Installations");
    const auto bills = Attachments(*letter);
    ASSERT_EQ(bills.size(), 1u);
    EXPECT_EQ(AttachmentData(*bills[0]), "valve          64,00 €\nlabour, 2 h   118,00 €\n");
}

TEST_F(ImportMimeTest, EachLetterOfADigestIsAMessage)
{
    const auto attachments = Attachments(*store->Import(Sample("13")));
    ASSERT_EQ(attachments.size(), 4u);
    EXPECT_EQ(Text(*Embedded(*attachments[1]), PR_SUBJECT_W), "Re: Which varnish?");
    EXPECT_EQ(Text(*Embedded(*attachments[2]), PR_BODY_W),
              "Somewhere between the crane and the kiosk. Reward: coffee.");
    EXPECT_EQ(AttachmentData(*attachments[3]), "-- \nEnd of sailing digest, Vol 12, Issue 9");
}

TEST_F(ImportMimeTest, MailsNestedDeeperThanTheBoundAreKeptAsFiles)
{
    std::string mail = "Subject: 0\n\nthe innermost text\n";
    for (int i = 1; i <= 40; ++i)
        mail = "Subject: " + std::to_string(i) + "\nContent-Type: message/rfc822\n\n" + mail;
    ComPtr<IMessage> message = store->Import(mail);
    for (int depth = 0; depth < 16; ++depth)
        message = Embedded(*Attachments(*message).at(0));
    const auto last = Attachments(*message).at(0);
    EXPECT_EQ(ReadLong(*last, PR_ATTACH_METHOD), static_cast<LONG>(ATTACH_BY_VALUE));
    EXPECT_NE(AttachmentData(*last).find("the innermost text"), std::string::npos);
}

TEST_F(ImportMimeTest, UrgencyAndSensitivityAreKept)
{
    const auto urgent = store->Import(Sample("29"));
    EXPECT_EQ(ReadLong(*urgent, PR_IMPORTANCE), IMPORTANCE_HIGH);
    EXPECT_EQ(ReadLong(*urgent, PR_PRIORITY), PRIO_URGENT);
    EXPECT_EQ(ReadLong(*urgent, PR_SENSITIVITY), static_cast<LONG>(SENSITIVITY_COMPANY_CONFIDENTIAL));
    const auto low = store->Import(Sample("30"));
    EXPECT_EQ(ReadLong(*low, PR_IMPORTANCE), IMPORTANCE_LOW);
    EXPECT_EQ(ReadLong(*low, PR_PRIORITY), PRIO_NONURGENT);
    EXPECT_EQ(ReadLong(*low, PR_SENSITIVITY), static_cast<LONG>(SENSITIVITY_PRIVATE));
    EXPECT_EQ(ReadLong(*store->Import(Sample("01")), PR_IMPORTANCE), IMPORTANCE_NORMAL);
}

TEST_F(ImportMimeTest, AskedForReceiptsAreRemembered)
{
    const auto message = store->Import(Sample("15"));
    EXPECT_EQ(ReadBoolean(*message, PR_READ_RECEIPT_REQUESTED), true);
    EXPECT_EQ(ReadBoolean(*message, PR_ORIGINATOR_DELIVERY_REPORT_REQUESTED), true);
}

TEST_F(ImportMimeTest, AReportKeepsItsParts)
{
    const auto attachments = Attachments(*store->Import(Sample("14")));
    ASSERT_EQ(attachments.size(), 2u);
    EXPECT_NE(AttachmentData(*attachments[0]).find("Final-Recipient: rfc822; harbourmaster@example.net"),
              std::string::npos);
    EXPECT_EQ(Text(*Embedded(*attachments[1]), PR_SUBJECT_W), "Berth for the weekend?");
}

TEST_F(ImportMimeTest, AnInvitationKeepsItsCalendar)
{
    const auto message = store->Import(Sample("17"));
    const auto attachments = Attachments(*message);
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_EQ(Text(*attachments[0], PR_ATTACH_MIME_TAG_W), "text/calendar");
    EXPECT_NE(AttachmentData(*attachments[0]).find("SUMMARY:Launch of the Mewa"), std::string::npos);
    EXPECT_NE(Text(*message, PR_BODY_W).find("High water at 10:40."), std::string::npos);
}

TEST_F(ImportMimeTest, FlowedTextIsJoined)
{
    const std::string body = Text(*store->Import(Sample("20")), PR_BODY_W);
    EXPECT_NE(body.find("Varnish looks better for one summer and then it peels, and"), std::string::npos)
        << body;
    EXPECT_NE(body.find(">> Oil or varnish? I have heard both, from people who were both very sure.\r\n"),
              std::string::npos)
        << body;
}

TEST_F(ImportMimeTest, LongLinesStayLong)
{
    for (const char* sample : {"24", "25"}) {
        const std::string body = Text(*store->Import(Sample(sample)), PR_BODY_W);
        EXPECT_NE(body.find("Plank 120"), std::string::npos);
        EXPECT_EQ(std::count(body.begin(), body.end(), '\n'), 5) << sample;
    }
}

TEST_F(ImportMimeTest, WhatAMailLacksTheMessageLacks)
{
    EXPECT_EQ(Text(*store->Import(Sample("21")), PR_SUBJECT_W), "");
    const auto undated = store->Import(Sample("22"));
    EXPECT_EQ(ReadTime(*undated, PR_CLIENT_SUBMIT_TIME), std::nullopt);
    EXPECT_EQ(Text(*undated, kPrInternetMessageIdW), "");
    EXPECT_EQ(Text(*store->Import(Sample("23")), PR_BODY_W), "");
}

TEST_F(ImportMimeTest, TheReadStateIsWhatTheCallerSays)
{
    const auto flags = [](IMessage& message) {
        return ReadLong(message, PR_MESSAGE_FLAGS).value_or(0) & MSGFLAG_READ;
    };
    EXPECT_EQ(flags(*store->Import(Sample("01"), {.read = true})), MSGFLAG_READ);
    EXPECT_EQ(flags(*store->Import(Sample("01"), {.read = false})), 0u);
    EXPECT_EQ(flags(*store->Import(Sample("01"))), MSGFLAG_READ);
}

TEST_F(ImportMimeTest, TheSameMailTwiceIsTwoMessages)
{
    const std::string first = Bytes(*store->Import(Sample("01")), PR_SEARCH_KEY);
    const std::string second = Bytes(*store->Import(Sample("01")), PR_SEARCH_KEY);
    EXPECT_EQ(first.size(), 16u);
    EXPECT_NE(first, second);
}

TEST_F(ImportMimeTest, AMultipartWithoutPartsIsText)
{
    const auto message =
        store->Import("Subject: s\nContent-Type: multipart/mixed; boundary=b\n\nno parts here\n");
    EXPECT_NE(Text(*message, PR_BODY_W).find("no parts here"), std::string::npos);
}

TEST_F(ImportMimeTest, BytesWithoutAnyHeaderAreText)
{
    EXPECT_EQ(Text(*store->Import("\njust text\n"), PR_BODY_W), "just text\r\n");
    EXPECT_EQ(Text(*store->Import(""), PR_BODY_W), "");
}

TEST_F(ImportMimeTest, NulsAndBytesWithoutMeaningAreMarked)
{
    constexpr char kMail[] = "Subject: a\0b\nContent-Type: text/plain; charset=utf-8\n\nx\0y\xFFz\n";
    const std::string mail(kMail, sizeof kMail - 1);
    const auto message = store->Import(mail);
    EXPECT_EQ(Text(*message, PR_SUBJECT_W), "a b");
    EXPECT_EQ(Text(*message, PR_BODY_W), "x\uFFFDy\uFFFDz\r\n");
}

TEST_F(ImportMimeTest, ATextOfAnUnknownKindIsTheBody)
{
    const auto message = store->Import("Subject: s\nContent-Type: text/enriched\n\n<bold>hi</bold>\n");
    EXPECT_EQ(Text(*message, PR_BODY_W), "<bold>hi</bold>\r\n");
    EXPECT_TRUE(Attachments(*message).empty());
}

TEST_F(ImportMimeTest, AMailThatIsOneFileHasItAttached)
{
    const auto message = store->Import(
        "Subject: s\nContent-Type: image/png; name=a.png\nContent-Transfer-Encoding: "
        "base64\n\niVBORw0KGgo=\n");
    const auto attachments = Attachments(*message);
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_EQ(AttachmentData(*attachments[0]), "\x89PNG\r\n\x1A\n");
}

}  // namespace
}  // namespace quorvane
