#include "host/mime/export_mail.h"

#include <regex>

#include "host/mail/mail_form.h"
#include "host/mime/original_mail.h"
#include "host/mime/property_list.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class ExportMailTest : public StoreTest {
protected:
    static ComPtr<IMessage> Kept(const std::string& mail)
    {
        const MailBytes bytes(mail);
        const std::optional<MailBytes> within = MailWithin(bytes);
        return store->Import(within ? *within : bytes, {.read = {}, .original = &bytes});
    }
    // Boundaries are drawn.
    static std::string Masked(const std::string& mail)
    {
        return std::regex_replace(mail, std::regex("=_([0-9]+)_[0-9]+"), "=_$1");
    }
};

// Odd in all that a mail made anew would set right: line ends, folding, order, encodings, preamble, boundary.
constexpr const char* kOdd =
    "X-First:1\nSUBJECT:   =?utf-8?q?Caf=C3=A9?=\n and more\nfrom: \"A\"  <a@example.org>\n"
    "To:b@example.org,\n\tC <c@example.org>\nDate: Mon, 2 Nov 2026 10:00:00 +0200\nMime-version: 1.0 (a "
    "comment)\n"
    "Content-type: multipart/mixed; boundary=\"=_x\"\n\nA preamble.\n--=_x\nContent-Type: text/plain; "
    "charset=koi8_r\nContent-Transfer-Encoding: 8bit\n\n\xF0\xD2\xC9\xD7\xC5\xD4  \n--=_x\nContent-Type: "
    "application/octet-stream;\n name=a.bin\nContent-Transfer-Encoding: x-uuencode\n\nbegin 644 "
    "a.bin\n#0V%T\n`\nend\n"
    "--=_x--\nAn epilogue.\n";

TEST_F(ExportMailTest, AMailComesOutToTheByte)
{
    EXPECT_EQ(Mail(*Kept(kOdd)), kOdd);
}

TEST_F(ExportMailTest, AFileOfAnotherFormComesOutAsItWas)
{
    for (const std::string& file :
         {std::string("\xEF\xBB\xBF\nSubject: a\n\nb\n"), std::string("Subject: a\r\rb\r"),
          std::string("From x Mon Mar  3 08:14:09 2025\nSubject: a\n\nb\n"),
          std::string("\xFF\xFES\0u\0b\0j\0e\0c\0t\0:\0 \0a\0\n\0\n\0b\0", 28)})
        EXPECT_EQ(Mail(*Kept(file)), file);
}

TEST_F(ExportMailTest, AMailOfAnySizeComesOutToTheByte)
{
    std::string mail = "Subject: large\n\n";
    while (mail.size() < 3 * MailBytes::kMemoryLimit)
        mail += "line " + std::to_string(mail.size() * 2654435761U) + "\n";
    EXPECT_EQ(Mail(*Kept(mail)), mail);
}

// All bytes in a body; of the charset that it is in nothing is said.
TEST_F(ExportMailTest, AYEncBodyComesOutToTheByteAndIsShownInACharsetThatFits)
{
    std::string mail = "Subject: one\n\n=ybegin line=300 size=256 name=a.bin\n";
    for (int byte = 0; byte < 256; ++byte) {
        const bool isCritical = byte == '\0' || byte == '\n' || byte == '\r' || byte == '=';
        mail += isCritical ? "=" : "";
        mail += static_cast<char>(isCritical ? byte + 64 : byte);
    }
    mail += "\n=yend size=256\n";
    const ComPtr<IMessage> message = Kept(mail);
    EXPECT_EQ(Mail(*message), mail);
    const std::string text = Text(*message, PR_BODY_W);
    EXPECT_TRUE(text.starts_with("=ybegin line=300 size=256 name=a.bin\r\n=@")) << text;
    EXPECT_NE(text.find("~\x7F\u20AC"), std::string::npos) << text;
    EXPECT_TRUE(text.ends_with("\u00FD\u00FE\u00FF\r\n=yend size=256\r\n")) << text;
    SetText(*message, PR_SUBJECT_W, "two");
    EXPECT_EQ(Mail(*message), Replaced(mail, "one", "two"));
}

// What its charset doesn't hold is marked, as a text; as a file nothing is.
TEST_F(ExportMailTest, APatchInTwoCharsetsComesOutToTheByteAndIsShownAsFarAsItsOwnGoes)
{
    const std::string patch =
        "-Gr\xFC\xDF"
        "e\n+Gr\xC3\xBC\xC3\x9F"
        "e  \n";
    const std::string mail =
        "Subject: one\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
        "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\n" +
        patch + "\n--b\nContent-Type: text/x-patch; charset=utf-8; name=a.patch\n\n" + patch + "\n--b--\n";
    const ComPtr<IMessage> message = Kept(mail);
    EXPECT_EQ(Mail(*message), mail);
    EXPECT_EQ(Text(*message, PR_BODY_W), "-Gr\uFFFD\uFFFDe\r\n+Gr\u00FC\u00DFe  \r\n");
    ASSERT_EQ(Attachments(*message).size(), 1U);
    EXPECT_EQ(AttachmentData(*Attachments(*message)[0]), patch);
    SetText(*message, PR_SUBJECT_W, "two");
    EXPECT_EQ(Mail(*message), Replaced(mail, "one", "two"));
}

TEST_F(ExportMailTest, AnEditedSubjectReplacesItsLinesAlone)
{
    const ComPtr<IMessage> message = Kept(kOdd);
    SetText(*message, PR_SUBJECT_W, "Another");
    EXPECT_EQ(Mail(*message),
              Replaced(kOdd, "SUBJECT:   =?utf-8?q?Caf=C3=A9?=\n and more\n", "Subject: Another\n"));
}

TEST_F(ExportMailTest, AnEditedNameOfASenderIsTold)
{
    const ComPtr<IMessage> message = Kept(kOdd);
    SetText(*message, PR_SENT_REPRESENTING_NAME_W, "Zoe");
    SetText(*message, PR_SENDER_NAME_W, "Zoe");
    EXPECT_EQ(Mail(*message),
              Replaced(kOdd, "from: \"A\"  <a@example.org>\n", "From: Zoe <a@example.org>\n"));
}

TEST_F(ExportMailTest, WhatAReaderMakesOfAMailIsNoEdit)
{
    const ComPtr<IMessage> message = Kept(kOdd);
    EXPECT_EQ(message->SetReadFlag(CLEAR_READ_FLAG), S_OK);
    PropertyList flag;
    flag.AddLong(PROP_TAG(PT_LONG, 0x1090), 2);
    EXPECT_EQ(flag.SetOn(*message), S_OK);
    EXPECT_EQ(Mail(*message), kOdd);
}

TEST_F(ExportMailTest, AnOriginalThatSaysOtherThingsIsNeverWritten)
{
    const std::string other = Replaced(kOdd, "x-uuencode", "8bit");
    const ComPtr<IMessage> message = Kept(kOdd);
    for (const std::string& forged :
         {other, Replaced(kOdd, "--=_x--", "--=_x\n\nAnother part\n--=_x--"),
          Replaced(kOdd, "X-First:1", "X-First:2"), Replaced(kOdd, "\xF0\xD2", "\xD2\xF0"),
          std::string("Subject: alone\n\nx\n")}) {
        ASSERT_EQ(KeepOriginal(forged, *message), S_OK);
        const std::string mail = Mail(*message);
        EXPECT_NE(mail, forged);
        EXPECT_EQ(Describe(*store->Import(mail)), Describe(*message)) << forged;
    }
}

TEST_F(ExportMailTest, AnOriginalThatIsDamagedIsPassedOver)
{
    const ComPtr<IMessage> message = Kept(kOdd);
    std::string name = "OriginalMail";
    GUID set = {0x6B1F0C52, 0x93D4, 0x4E0A, {0xB7, 0xA8, 0x5D, 0x2C, 0x41, 0xE9, 0x8F, 0x36}};
    OleString wide(name.begin(), name.end());
    MAPINAMEID id = {};
    id.lpguid = &set;
    id.ulKind = MNID_STRING;
    id.Kind.lpwstrName = wide.data();
    MAPINAMEID* ids = &id;
    MapiMemory tags;
    ASSERT_EQ(message->GetIDsFromNames(1, &ids, 0, tags.Put<SPropTagArray>()), S_OK);
    const ULONG tag = CHANGE_PROP_TYPE(tags.As<SPropTagArray>()->aulPropTag[0], PT_BINARY);
    const std::string packed = Bytes(*message, tag);
    ASSERT_GT(packed.size(), 100U);
    for (const std::string& damaged : {std::string("no zlib stream"), std::string(), packed.substr(0, 100),
                                       packed + "more", Replaced(packed, packed.substr(60, 2), "\x01\x02")}) {
        PropertyList value;
        value.AddBinary(tag, damaged);
        ASSERT_EQ(value.SetOn(*message), S_OK);
        EXPECT_EQ(Masked(Mail(*message)), Masked(Export(*message)));
    }
}

// 70 MB packed into 70 KB.
TEST_F(ExportMailTest, AnOriginalThatUnpacksToMoreThanItsMessageIsPassedOver)
{
    const ComPtr<IMessage> message = Kept(kOdd);
    MailBytes bomb(std::string("Subject: a\n\n"));
    const std::string piece(std::size_t{1} << 20, 'x');
    for (int i = 0; i < 70; ++i)
        bomb.Append(piece);
    ASSERT_EQ(KeepOriginal(bomb, *message), S_OK);
    ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE | MAPI_DEFERRED_ERRORS), S_OK);

    MailBytes unpacked;
    EXPECT_EQ(ReadOriginal(*message, unpacked), MAPI_E_CORRUPT_DATA);
    EXPECT_LT(unpacked.Size(), std::uint64_t{66} << 20);
    EXPECT_EQ(Masked(Mail(*message)), Masked(Export(*message)));
}

TEST_F(ExportMailTest, AMailWithoutItsOriginalIsMadeOfItsProperties)
{
    const ComPtr<IMessage> message = store->Import(MailBytes(kOdd));
    EXPECT_EQ(Masked(Mail(*message)), Masked(Export(*message)));
}

TEST_F(ExportMailTest, AnEditedBodyIsWritten)
{
    const ComPtr<IMessage> message = Kept(kOdd);
    SetText(*message, PR_BODY_W, "Quite another text");
    const std::string mail = Mail(*message);
    EXPECT_EQ(Text(*store->Import(mail), PR_BODY_W), "Quite another text");
}

}  // namespace
}  // namespace quorvane
