#include "host/mime/part_edits.h"

#include "host/mime/property_list.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class PartEditsTest : public StoreTest {
protected:
    static ComPtr<IMessage> Kept(const std::string& mail)
    {
        const MailBytes bytes(mail);
        return store->Import(bytes, {.read = {}, .original = &bytes});
    }
    static void Remove(IMAPIProp& object, ULONG tag)
    {
        SPropTagArray tags = {1, {tag}};
        EXPECT_EQ(object.DeleteProps(&tags, nullptr), S_OK);
    }
    static void Detach(IMessage& message, ULONG number)
    {
        EXPECT_EQ(message.DeleteAttach(number, 0, nullptr, 0), S_OK);
    }
    static std::string Without(std::string text, const std::string& what)
    {
        return Replaced(std::move(text), what, "");
    }
};

const std::string kHead =
    "X-First:1\nSUBJECT:   odd  \nfrom: \"A\"  <a@example.org>\nMime-version: 1.0 (a comment)\n"
    "Content-type: multipart/mixed; boundary=\"=_x\"\nX-Last: 2\n\nA preamble.\n";
const std::string kText =
    "--=_x\nX-Part: kept\nContent-Type: text/plain; charset=koi8_r; format=flowed\nContent-MD5: abc\n"
    "Content-Transfer-Encoding: 8bit\n\n\xF0\xD2\xC9\xD7\xC5\xD4  \n";
const std::string kSigned =
    "--=_x\nContent-Type: multipart/signed; boundary=\"=_y\"; protocol=\"application/pgp-signature\"\n\n"
    "--=_y\ncontent-type:  text/x-patch;  charset=\"us-ascii\"\n\n a  \n--=_y\nContent-Type: "
    "application/pgp-signature\n\nsignature\n--=_y--\n\n";
const std::string kBinary =
    "--=_x\t \nContent-Type: application/octet-stream;\n name=a.bin\nContent-Transfer-Encoding: "
    "x-uuencode\n\nbegin 644 a.bin\n#0V%T\n`\nend\n";
const std::string kNested =
    "--=_x\nContent-Type: message/rfc822\n\nSubject: nested\nContent-Type: multipart/mixed; "
    "boundary=\"=_z\"\n\n--=_z\n\ninner\n--=_z--\n";
const std::string kEnd = "--=_x--  \nAn epilogue.\n";
const std::string kOddMail = kHead + kText + kSigned + kBinary + kNested + kEnd;

const std::string kNewText =
    "--=_x\nX-Part: kept\nContent-Type: text/plain; charset=utf-8\n"
    "Content-Transfer-Encoding: quoted-printable\n\nQuite another t=C3=A9xt\n";

TEST_F(PartEditsTest, AnEditedTextReplacesItsPartAlone)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    SetText(*message, PR_BODY_W, "Quite another t\xC3\xA9xt");
    EXPECT_EQ(Mail(*message), kHead + kNewText + kSigned + kBinary + kNested + kEnd);
}

TEST_F(PartEditsTest, TheSubjectMayBeEditedBesides)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    SetText(*message, PR_BODY_W, "Quite another t\xC3\xA9xt");
    SetText(*message, PR_SUBJECT_W, "Another");
    EXPECT_EQ(Mail(*message), Replaced(kHead, "SUBJECT:   odd  \n", "Subject: Another\n") + kNewText +
                                  kSigned + kBinary + kNested + kEnd);
}

TEST_F(PartEditsTest, AnAttachmentThatIsGoneIsTakenOut)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    ASSERT_EQ(Attachments(*message).size(), 4U);
    Detach(*message, 2);
    EXPECT_EQ(Mail(*message), Without(kOddMail, kBinary));
    Detach(*message, 3);
    EXPECT_EQ(Mail(*message), Without(Without(kOddMail, kBinary), kNested));
}

// What would pass for the text then is an attachment of this message.
TEST_F(PartEditsTest, AMailThatWouldSaySomethingElseIsMadeAnew)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    Remove(*message, PR_BODY_W);
    const std::string mail = Mail(*message);
    EXPECT_EQ(mail.find("=_x"), std::string::npos);
    EXPECT_EQ(Attachments(*store->Import(mail)).size(), 4U);
}

TEST_F(PartEditsTest, OneOfTwoBodiesIsEdited)
{
    const std::string text = "--a\r\nContent-Type: text/plain\r\n\r\none\r\n";
    const std::string html = "--a\r\nContent-Type: text/html; charset=iso-8859-1\r\n\r\n<p>on\xE9</p>\r\n";
    const std::string head =
        "Subject: s\r\nMIME-Version: 1.0\r\nContent-Type: multipart/alternative; boundary=a\r\n\r\n";
    const ComPtr<IMessage> first = Kept(head + text + html + "--a--\r\n");
    SetText(*first, PR_BODY_W, "two\r\n");
    EXPECT_EQ(Mail(*first), head +
                                "--a\r\nContent-Type: text/plain; charset=utf-8\r\n"
                                "Content-Transfer-Encoding: 7bit\r\n\r\ntwo\r\n\r\n" +
                                html + "--a--\r\n");
    Remove(*first, PR_BODY_W);
    EXPECT_EQ(Mail(*first), head + html + "--a--\r\n");
    const ComPtr<IMessage> second = Kept(head + text + html + "--a--\r\n");
    PropertyList value;
    value.AddBinary(kPrHtml, "<p>tw\xE9</p>");
    ASSERT_EQ(value.SetOn(*second), S_OK);
    EXPECT_EQ(Mail(*second), head + text +
                                 "--a\r\nContent-Type: text/html; charset=iso-8859-1\r\n"
                                 "Content-Transfer-Encoding: base64\r\n\r\nPHA+dHfpPC9wPg==\r\n--a--\r\n");
}

TEST_F(PartEditsTest, ATextThatIsTheWholeMailIsEdited)
{
    const ComPtr<IMessage> message =
        Kept("X-Odd :1\nSubject: s\nContent-Type: text/plain; charset=\"US-ASCII\"\n\nold\n");
    SetText(*message, PR_BODY_W, "new\r\n");
    EXPECT_EQ(Mail(*message).find("Subject: s\nContent-Type: text/plain; charset=utf-8\n"
                                  "Content-Transfer-Encoding: 7bit\n\nnew\n"),
              std::string::npos)
        << "a header that a reader has to repair stays nowhere";
    const ComPtr<IMessage> proper = Kept("X-Odd:1\nSubject: s\nContent-Type: text/plain\n\nold\n");
    SetText(*proper, PR_BODY_W, "new\r\n");
    EXPECT_EQ(Mail(*proper),
              "X-Odd:1\nSubject: s\nContent-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: "
              "7bit\n\nnew\n");
}

// What a signature covers can't be said otherwise under it.
TEST_F(PartEditsTest, AnEditOfSignedTextMakesTheMailAnew)
{
    const ComPtr<IMessage> message = Kept(
        "Subject: s\nContent-Type: multipart/signed; boundary=b\n\n--b\n\nsigned\n--b\nContent-Type: "
        "application/pgp-signature\n\nsignature\n--b--\n");
    SetText(*message, PR_BODY_W, "new");
    const std::string mail = Mail(*message);
    EXPECT_EQ(mail.find("multipart/signed"), std::string::npos);
    EXPECT_EQ(Text(*store->Import(mail), PR_BODY_W), "new");
}

TEST_F(PartEditsTest, AnAttachmentMoreMakesTheMailAnew)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    ComPtr<IAttach> attachment;
    ULONG number = 0;
    ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    PropertyList value;
    value.AddLong(PR_ATTACH_METHOD, static_cast<LONG>(ATTACH_BY_VALUE));
    value.AddBinary(PR_ATTACH_DATA_BIN, "more");
    ASSERT_EQ(value.SetOn(*attachment), S_OK);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    const auto read = store->Import(Mail(*message));
    ASSERT_EQ(Attachments(*read).size(), 5U);
    EXPECT_EQ(AttachmentData(*Attachments(*read)[4]), "more");
}

TEST_F(PartEditsTest, PartsOfAnySizeStay)
{
    std::string large = "--=_x\nContent-Type: application/x-large\n\n";
    while (large.size() < 3 * MailBytes::kMemoryLimit)
        large += std::string(large.size() % 9000, 'l') + "\n--=_\n--=_xx\n --=_x\n";
    const ComPtr<IMessage> message = Kept(kHead + kText + large + kBinary + kEnd);
    SetText(*message, PR_BODY_W, "Quite another t\xC3\xA9xt");
    EXPECT_EQ(Mail(*message), kHead + kNewText + large + kBinary + kEnd);
    Detach(*message, 0);
    EXPECT_EQ(Mail(*message), kHead + kNewText + kBinary + kEnd);
}

// What ends a long line is no line, wherever the pieces end that are read of it.
TEST_F(PartEditsTest, TheEndOfALongLineIsNoDelimiter)
{
    constexpr std::size_t kRead = std::size_t{64} << 10;
    const std::size_t body = kHead.find("\n\n") + 2;
    std::string large = "--=_x\nContent-Type: application/x-large\n\n";
    large.append(kRead - (kHead.size() - body) - large.size(), 'l');
    large += "--=_x\nmore\n";
    const std::string rest = kText + kEnd;
    const ComPtr<IMessage> message = Kept(kHead + large + rest);
    SetText(*message, PR_BODY_W, "Quite another t\xC3\xA9xt");
    EXPECT_EQ(Mail(*message), kHead + large + kNewText + kEnd);
}

TEST_F(PartEditsTest, AMultipartNestedDeeperThanItIsLookedAtIsMadeAnew)
{
    std::string mail = "Subject: deep\n";
    for (int i = 0; i < 20; ++i) {
        const std::string boundary = "=_deep" + std::to_string(i) + "_";
        mail += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\n\n--" + boundary + "\n";
    }
    mail += "Content-Type: text/plain\n\nold\n";
    const ComPtr<IMessage> message = Kept(mail);
    ASSERT_EQ(Mail(*message), mail);
    SetText(*message, PR_BODY_W, "new");
    EXPECT_EQ(Mail(*message).find("=_deep"), std::string::npos);
    EXPECT_EQ(Text(*store->Import(Mail(*message)), PR_BODY_W), "new");
}

}  // namespace
}  // namespace quorvane
