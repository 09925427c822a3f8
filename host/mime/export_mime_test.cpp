#include "host/mime/export_mime.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/mime/mime_tags.h"
#include "host/mime/one_off.h"
#include "host/mime/property_list.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class ExportMimeTest : public StoreTest {
protected:
    static bool Has(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    static void Set(IMAPIProp& object, const std::function<void(PropertyList&)>& add)
    {
        PropertyList list;
        add(list);
        ASSERT_EQ(list.SetOn(object), S_OK);
    }

    static ComPtr<IAttach> Attach(IMessage& message, ULONG method,
                                  const std::function<void(PropertyList&)>& add)
    {
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        EXPECT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        PropertyList list;
        list.AddLong(PR_ATTACH_METHOD, static_cast<LONG>(method));
        add(list);
        EXPECT_EQ(list.SetOn(*attachment), S_OK);
        return attachment;
    }
};

TEST_F(ExportMimeTest, EverySampleComesBackTheSame)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(SamplesFolder())) {
        if (entry.path().extension() != ".eml")
            continue;
        const auto first = store->Import(ReadFile(entry.path()));
        const auto second = store->Import(Export(*first));
        EXPECT_EQ(Describe(*first), Describe(*second)) << entry.path();
        ++count;
    }
    EXPECT_EQ(count, 40);
}

TEST_F(ExportMimeTest, HeaderFieldsStayAsTheyCame)
{
    const std::string mail = Export(*store->Import(Sample("31")));
    for (const char* field : {"Return-Path: <sailing-bounces@lists.example.org>\r\n",
                              "List-Id: Sailing talk <sailing.lists.example.org>\r\n",
                              "\tspf=pass smtp.mailfrom=sailing-bounces@lists.example.org\r\n",
                              "X-Spam-Status: No, score=-2.1\r\n", "Subject: [sailing] Oil it is\r\n",
                              "Date: Wed, 2 Apr 2025 14:30:58 +0900\r\n"})
        EXPECT_TRUE(Has(mail, field)) << field;
    EXPECT_TRUE(
        Has(Export(*store->Import(Sample("33"))), "To: Crew: Jonas Okafor <jonas.okafor@example.com>,"));
}

TEST_F(ExportMimeTest, AChangedSubjectReplacesTheFieldInItsPlace)
{
    const auto message = store->Import(Sample("31"));
    Set(*message, [](PropertyList& list) { list.AddText(PR_SUBJECT_W, "Öl"); });
    const std::string mail = Export(*message);
    EXPECT_FALSE(Has(mail, "Oil it is\r\n"));
    EXPECT_TRUE(Has(mail, "Subject: =?UTF-8?b?w5Zs?=\r\nDate:"));
}

TEST_F(ExportMimeTest, AMessageThatWasNeverAMailGetsFieldsOfItsOwn)
{
    const auto message = store->NewMessage();
    Set(*message, [](PropertyList& list) {
        list.AddText(PR_SUBJECT_W, "Grüße");
        list.AddText(PR_SENT_REPRESENTING_NAME_W, "Jürgen, der Schriftführer");
        list.AddText(PR_SENT_REPRESENTING_ADDRTYPE_W, "SMTP");
        list.AddText(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, "juergen@example.org");
        list.AddTime(PR_CLIENT_SUBMIT_TIME, FILETIME{0xFE2B6900, 0x01DB8C0A});
        list.AddLong(PR_IMPORTANCE, IMPORTANCE_HIGH);
        list.AddLong(PR_SENSITIVITY, static_cast<LONG>(SENSITIVITY_PRIVATE));
        list.AddBoolean(PR_READ_RECEIPT_REQUESTED, true);
        list.AddText(kPrInternetMessageIdW, "<x@example.org>");
        list.AddBinary(PR_REPLY_RECIPIENT_ENTRIES, FlatEntryList({{"Büro", "office@example.org"}}));
        list.AddText(PR_BODY_W, "Hallo,\r\nbis morgen.\r\n");
    });
    const auto copy = store->Import(Export(*message));
    EXPECT_EQ(Text(*copy, PR_SUBJECT_W), "Grüße");
    EXPECT_EQ(Text(*copy, PR_SENT_REPRESENTING_NAME_W), "Jürgen, der Schriftführer");
    EXPECT_EQ(Text(*copy, PR_SENT_REPRESENTING_EMAIL_ADDRESS_W), "juergen@example.org");
    EXPECT_EQ(ReadLong(*copy, PR_IMPORTANCE), IMPORTANCE_HIGH);
    EXPECT_EQ(ReadLong(*copy, PR_SENSITIVITY), static_cast<LONG>(SENSITIVITY_PRIVATE));
    EXPECT_EQ(ReadBoolean(*copy, PR_READ_RECEIPT_REQUESTED), true);
    EXPECT_EQ(Text(*copy, PR_REPLY_RECIPIENT_NAMES_W), "Büro");
    EXPECT_EQ(Text(*copy, kPrInternetMessageIdW), "<x@example.org>");
    EXPECT_EQ(Text(*copy, PR_BODY_W), "Hallo,\r\nbis morgen.\r\n");
}

TEST_F(ExportMimeTest, TextFromOutsideStartsNoFieldOfItsOwn)
{
    const auto message = store->NewMessage();
    Set(*message, [](PropertyList& list) {
        list.AddText(PR_SUBJECT_W, "a\r\nBcc: victim@example.org\r\n\r\nbody");
        list.AddText(PR_SENT_REPRESENTING_NAME_W, "x\nX-Evil: 1");
        list.AddText(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, "x@example.org>\r\nX-Evil: 2");
        list.AddText(kPrInternetMessageIdW, "<a>\r\nX-Evil: 3");
        list.AddText(PR_BODY_W, "b");
    });
    Attach(*message, ATTACH_BY_VALUE, [](PropertyList& list) {
        list.AddText(PR_ATTACH_LONG_FILENAME_W, "a\r\nX-Evil: 4\"; x=y");
        list.AddText(PR_ATTACH_MIME_TAG_W, "text/x\r\nX-Evil: 5");
        list.AddText(kPrAttachContentIdW, "c\r\nX-Evil: 6");
        list.AddBinary(PR_ATTACH_DATA_BIN, "data");
    })->SaveChanges(0);
    const std::string mail = Export(*message);
    EXPECT_FALSE(Has(mail, "\nX-Evil")) << mail;
    EXPECT_FALSE(Has(mail, "\nBcc")) << mail;
    EXPECT_EQ(Attachments(*store->Import(mail)).size(), 1u);
}

TEST_F(ExportMimeTest, RtfIsAttachedWhenThereIsNoOtherBody)
{
    constexpr unsigned char kRtf[] = {
        0x2D, 0x00, 0x00, 0x00, 0x2B, 0x00, 0x00, 0x00, 0x4C, 0x5A, 0x46, 0x75, 0xF1, 0xC5, 0xC7, 0xA7, 0x03,
        0x00, 0x0A, 0x00, 0x72, 0x63, 0x70, 0x67, 0x31, 0x32, 0x35, 0x42, 0x32, 0x0A, 0xF3, 0x20, 0x68, 0x65,
        0x6C, 0x09, 0x00, 0x20, 0x62, 0x77, 0x05, 0xB0, 0x6C, 0x64, 0x7D, 0x0A, 0x80, 0x0F, 0xA0};
    const auto message = store->NewMessage();
    Set(*message, [&](PropertyList& list) {
        list.AddBinary(PR_RTF_COMPRESSED, {reinterpret_cast<const char*>(kRtf), sizeof kRtf});
    });
    const auto attachments = Attachments(*store->Import(Export(*message)));
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_EQ(AttachmentData(*attachments[0]), "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n");
}

TEST_F(ExportMimeTest, AReferenceIsNamedByItsPath)
{
    const auto message = store->NewMessage();
    Attach(*message, ATTACH_BY_REFERENCE, [](PropertyList& list) {
        list.AddText(PR_ATTACH_LONG_PATHNAME_W, "\\\\server\\share\\plan.dwg");
    })->SaveChanges(0);
    EXPECT_TRUE(Has(Export(*message),
                    "message/external-body; access-type=local-file;\r\n "
                    "name=\"\\\\\\\\server\\\\share\\\\plan.dwg\""));
}

TEST_F(ExportMimeTest, AnAttachmentSaysUnderWhichIdAndLocationTheTextRefersToIt)
{
    const auto message = store->NewMessage();
    Attach(*message, ATTACH_BY_VALUE, [](PropertyList& list) {
        list.AddBinary(PR_ATTACH_DATA_BIN, "picture");
        list.AddText(PR_ATTACH_LONG_FILENAME_W, "front.png");
        list.AddText(kPrAttachContentIdW, "front@example.org");
        list.AddText(kPrAttachContentLocationW, "drawings/front.png");
    })->SaveChanges(0);
    const std::string mail = Export(*message);
    EXPECT_TRUE(Has(mail, "Content-ID: <front@example.org>\r\n"));
    EXPECT_TRUE(Has(mail, "Content-Location: drawings/front.png\r\n"));
}

TEST_F(ExportMimeTest, AttachmentsOfEachSizeAreKeptToTheByte)
{
    for (const std::size_t size : {0u, 1u, 56u, 57u, 58u, 65535u, 65536u, 65537u, 1000000u}) {
        std::string data(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            data[i] = static_cast<char>(i * 7 + i / 256);
        const auto message = store->NewMessage();
        Attach(*message, ATTACH_BY_VALUE, [&](PropertyList& list) {
            list.AddBinary(PR_ATTACH_DATA_BIN, data);
            list.AddText(PR_ATTACH_LONG_FILENAME_W, "größe.bin");
        })->SaveChanges(0);
        const auto attachments = Attachments(*store->Import(Export(*message)));
        ASSERT_EQ(attachments.size(), 1u);
        EXPECT_TRUE(AttachmentData(*attachments[0]) == data) << size;
        EXPECT_EQ(Text(*attachments[0], PR_ATTACH_LONG_FILENAME_W), "größe.bin");
    }
}

TEST_F(ExportMimeTest, BodiesOfEachKindAreKeptToTheLetter)
{
    const std::vector<std::string> bodies = {
        "",
        "no line end",
        "one\r\n",
        "\r\n\r\n",
        "trailing blanks  \r\n\t\r\n",
        "From here\r\n.\r\n..\r\n>From there\r\n",
        "=3D is no =\r\n",
        std::string(5000, 'x') + "\r\n",
        "ä" + std::string(5000, 'x') + "€ \r\n",
        "Ωμέγα и всё\r\n",
        "--\r\n--=_1_2\r\n-- \r\n",
        "tab\tand\x01"
        "bell\x07\r\n",
    };
    for (const std::string& body : bodies) {
        const auto message = store->NewMessage();
        Set(*message, [&](PropertyList& list) { list.AddText(PR_BODY_W, body); });
        EXPECT_EQ(Text(*store->Import(Export(*message)), PR_BODY_W), body);
        Attach(*message, ATTACH_BY_VALUE, [](PropertyList& list) {
            list.AddBinary(PR_ATTACH_DATA_BIN, "x");
        })->SaveChanges(0);
        EXPECT_EQ(Text(*store->Import(Export(*message)), PR_BODY_W), body);
    }
}

TEST_F(ExportMimeTest, OnlyHeaderFieldsThatCameSoHoldBytesAbove127)
{
    for (const auto& entry : std::filesystem::directory_iterator(SamplesFolder())) {
        if (entry.path().extension() != ".eml")
            continue;
        for (const char c : Export(*store->Import(ReadFile(entry.path()))))
            ASSERT_GE(static_cast<signed char>(c), 0) << entry.path();
    }
}

TEST_F(ExportMimeTest, EachLineEndsInCrlf)
{
    const std::string mail = Export(*store->Import(Sample("12")));
    for (std::size_t at = mail.find('\n'); at != std::string::npos; at = mail.find('\n', at + 1))
        ASSERT_EQ(mail[at - 1], '\r');
}

TEST_F(ExportMimeTest, NestingBeyondTheBoundIsRefused)
{
    const auto outer = store->NewMessage();
    ComPtr<IMessage> message = outer;
    std::vector<ComPtr<IAttach>> attachments;
    std::vector<ComPtr<IMessage>> messages;
    for (int i = 0; i < 34; ++i) {
        attachments.push_back(Attach(*message, ATTACH_EMBEDDED_MSG, [](PropertyList&) {}));
        ComPtr<IMessage> inner;
        ASSERT_EQ(attachments.back()->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0,
                                                   MAPI_CREATE | MAPI_MODIFY, inner.PutUnknown()),
                  S_OK);
        messages.push_back(inner);
        message = inner;
    }
    for (std::size_t i = attachments.size(); i-- > 0;) {
        ASSERT_EQ(messages[i]->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        ASSERT_EQ(attachments[i]->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    }
    std::ostringstream out;
    EXPECT_EQ(ExportMime(*outer, out), MAPI_E_TOO_COMPLEX);
}

TEST_F(ExportMimeTest, AStreamThatIsFullIsReported)
{
    const auto message = store->Import(Sample("09"));
    std::ofstream full("/dev/full", std::ios::binary);
    ASSERT_TRUE(full);
    EXPECT_EQ(ExportMime(*message, full), STG_E_MEDIUMFULL);
}

TEST_F(ExportMimeTest, PeopleWithoutAMailAddressKeepTheirName)
{
    const auto message = store->NewMessage();
    Set(*message, [](PropertyList& list) {
        list.AddText(PR_SENT_REPRESENTING_NAME_W, "Front Desk");
        list.AddText(PR_SENT_REPRESENTING_ADDRTYPE_W, "EX");
        list.AddText(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, "/O=HOUSE/CN=DESK");
    });
    EXPECT_EQ(Text(*store->Import(Export(*message)), PR_SENT_REPRESENTING_NAME_W), "Front Desk");
}

TEST_F(ExportMimeTest, AnAddressOfAnotherKindIsNoMailAddress)
{
    const auto message = store->NewMessage();
    Set(*message, [](PropertyList& list) {
        list.AddText(PR_SENT_REPRESENTING_NAME_W, "Front Desk");
        list.AddText(PR_SENT_REPRESENTING_ADDRTYPE_W, "FAX");
        list.AddText(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, "0123456789");
    });
    const std::string mail = Export(*message);
    EXPECT_TRUE(Has(mail, "Front Desk"));
    EXPECT_FALSE(Has(mail, "0123456789"));
}

TEST_F(ExportMimeTest, RecipientsOfAKindKeepTheirOrder)
{
    const auto message = store->NewMessage();
    OleString names[] = {OLESTR("zoe@example.org"), OLESTR("ann@example.org"), OLESTR("max@example.org")};
    for (OleString& name : names) {
        SPropValue values[3] = {};
        values[0].ulPropTag = PR_RECIPIENT_TYPE;
        values[0].Value.l = MAPI_TO;
        values[1].ulPropTag = PR_DISPLAY_NAME_W;
        values[1].Value.lpszW = name.data();
        values[2].ulPropTag = kPrSmtpAddressW;
        values[2].Value.lpszW = name.data();
        ADRLIST list{1, {{0, 3, values}}};
        ASSERT_EQ(message->ModifyRecipients(MODRECIP_ADD, &list), S_OK);
    }
    const std::string mail = Export(*message);
    EXPECT_LT(mail.find("zoe@example.org"), mail.find("ann@example.org"));
    EXPECT_LT(mail.find("ann@example.org"), mail.find("max@example.org"));
    EXPECT_TRUE(Has(mail, "max@example.org"));
}

}  // namespace
}  // namespace quorvane
