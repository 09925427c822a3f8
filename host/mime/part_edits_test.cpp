#include "host/mime/part_edits.h"

#include <signal.h>
#include <sys/resource.h>

#include <regex>

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
    // id  of one that HTML shows.
    static void Attach(IMessage& message, const std::string& name, const std::string& id = "")
    {
        ComPtr<IAttach> attachment;
        ULONG number = 0;
        ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        PropertyList value;
        value.AddLong(PR_ATTACH_METHOD, static_cast<LONG>(ATTACH_BY_VALUE));
        value.AddText(PR_ATTACH_LONG_FILENAME_W, name);
        value.AddText(PR_ATTACH_FILENAME_W, name);
        value.AddText(PR_ATTACH_MIME_TAG_W, "application/octet-stream");
        value.AddBinary(PR_ATTACH_DATA_BIN, "more");
        if (!id.empty()) {
            value.AddText(kPrAttachContentIdW, id);
            value.AddLong(kPrAttachFlags, static_cast<LONG>(kAttachFlagMhtmlRef));
            value.AddBoolean(kPrAttachmentHidden, true);
        }
        ASSERT_EQ(value.SetOn(*attachment), S_OK);
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    }
    // What Attach adds as a part, without its delimiter line. A name with a point comes in quotes.
    static std::string AttachedPart(const std::string& name, const std::string& disposition = "attachment")
    {
        return "Content-Type: application/octet-stream; name=" + name +
               "\nContent-Disposition: " + disposition + "; filename=" + name + "\n";
    }
    static void ChangeData(IMessage& message, ULONG number, const std::string& data)
    {
        ComPtr<IAttach> attachment;
        ASSERT_EQ(message.OpenAttach(number, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
        PropertyList value;
        value.AddBinary(PR_ATTACH_DATA_BIN, data);
        ASSERT_EQ(value.SetOn(*attachment), S_OK);
        ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    }
    // With other boundaries than the mails of the tests have drawn ones are 1, 2...
    static std::string Masked(const std::string& mail)
    {
        return std::regex_replace(mail, std::regex("=_([0-9]+)_[0-9]+"), "=_$1");
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
    const ComPtr<IMessage> message = Kept("X-Odd:1\nSubject: s\nContent-Type: text/plain\n\nold\n");
    SetText(*message, PR_BODY_W, "new\r\n");
    EXPECT_EQ(Mail(*message),
              "X-Odd:1\nSubject: s\nContent-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: "
              "7bit\n\nnew\n");
}

TEST_F(PartEditsTest, LinesThatNeedRepairGetItAndTheRestStays)
{
    const ComPtr<IMessage> message = Kept(Replaced(kOddMail, "X-First:1", "X-First :1"));
    SetText(*message, PR_BODY_W, "Quite another t\xC3\xA9xt");
    EXPECT_EQ(Mail(*message), kHead + kNewText + kSigned + kBinary + kNested + kEnd);
}

const std::string kSealedMail =
    "Subject: s\nContent-Type: multipart/signed; boundary=b; protocol=\"application/pgp-signature\"\n\n"
    "--b\n\nsigned\n--b\nContent-Type: application/pgp-signature\n\nsignature\n--b--\n";

// What a signature covers can't be said otherwise under it.
TEST_F(PartEditsTest, WhatIsEditedWithinASignedPartIsSignedNoMore)
{
    const ComPtr<IMessage> message = Kept(kSealedMail);
    SetText(*message, PR_BODY_W, "new");
    EXPECT_EQ(Mail(*message),
              "Subject: s\nContent-Type: multipart/mixed; boundary=\"b\"\n\n--b\nContent-Type: text/plain; "
              "charset=utf-8\nContent-Transfer-Encoding: 7bit\n\nnew\n--b\nContent-Type: "
              "application/pgp-signature\n\nsignature\n--b--\n");
}

TEST_F(PartEditsTest, AnEditWithinASignedPartLeavesOthersThatAreSigned)
{
    const std::string other = Replaced(Replaced(kSigned, "=_y", "=_w"), "=_y", "=_w");
    const std::string head = Replaced(kHead, "A preamble.", "A preamble, too.");
    const std::string both =
        head + Replaced(Replaced(Replaced(other, "=_y", "=_w"), "=_y", "=_w"), "text/x-patch", "text/plain");
    const ComPtr<IMessage> message = Kept(both + kSigned + kEnd);
    ASSERT_EQ(Text(*message, PR_BODY_W), " a  ");
    SetText(*message, PR_BODY_W, "b");
    const std::string mail = Mail(*message);
    EXPECT_NE(mail.find(kSigned + kEnd), std::string::npos);
    EXPECT_EQ(mail.find("multipart/signed"), mail.rfind("multipart/signed"));
    EXPECT_EQ(Describe(*store->Import(mail)), Describe(*message));
}

TEST_F(PartEditsTest, AnAttachmentMoreComesBehindTheOthers)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    Attach(*message, "more");
    EXPECT_EQ(Mail(*message), kHead + kText + kSigned + kBinary + kNested + "--=_x\n" + AttachedPart("more") +
                                  "Content-Transfer-Encoding: base64\n\nbW9yZQ==\n" + kEnd);
    Detach(*message, 3);
    SetText(*message, PR_SUBJECT_W, "Another");
    EXPECT_EQ(Mail(*message), Replaced(kHead, "SUBJECT:   odd  \n", "Subject: Another\n") + kText + kSigned +
                                  kBinary + "--=_x\n" + AttachedPart("more") +
                                  "Content-Transfer-Encoding: base64\n\nbW9yZQ==\n" + kEnd);
}

TEST_F(PartEditsTest, AnAttachmentThatIsAnotherTakesTheOnesPlace)
{
    const ComPtr<IMessage> message = Kept(kOddMail);
    ChangeData(*message, 2, "Dog");
    EXPECT_EQ(Mail(*message), kHead + kText + kSigned +
                                  "--=_x\t \nContent-Type: application/octet-stream;\n name=a.bin\n"
                                  "Content-Transfer-Encoding: base64\n\nRG9n\n" +
                                  kNested + kEnd);
}

TEST_F(PartEditsTest, OfTwoThatWereTheSameTheOneThatIsAnotherIsChanged)
{
    const std::string mail = kHead + kText + kBinary + kBinary + kEnd;
    const std::string other =
        "--=_x\t \nContent-Type: application/octet-stream;\n name=a.bin\n"
        "Content-Transfer-Encoding: base64\n\nRG9n\n";
    const ComPtr<IMessage> first = Kept(mail);
    ChangeData(*first, 0, "Dog");
    EXPECT_EQ(Mail(*first), kHead + kText + other + kBinary + kEnd);
    const ComPtr<IMessage> second = Kept(mail);
    ChangeData(*second, 1, "Dog");
    EXPECT_EQ(Mail(*second), kHead + kText + kBinary + other + kEnd);
}

TEST_F(PartEditsTest, AMultipartThatIsntClosedIsClosedBehindWhatIsAdded)
{
    const std::string open = kHead + kText + kBinary.substr(0, kBinary.size() - 1);
    const ComPtr<IMessage> message = Kept(open);
    Attach(*message, "more");
    EXPECT_EQ(Mail(*message), open + "\n--=_x\n" + AttachedPart("more") +
                                  "Content-Transfer-Encoding: base64\n\nbW9yZQ==\n--=_x--\n");
}

// A mail that isn't a sequence of parts becomes one of such a sequence, with the fields of its content.
TEST_F(PartEditsTest, WhatASignatureCoversStaysUnderItBesideAnAttachmentMore)
{
    for (const char* const end : {"\n", "\r\n"}) {
        const std::string sealed = std::regex_replace(kSealedMail, std::regex("\n"), end);
        const std::string added = "Content-Transfer-Encoding: base64\n\nbW9yZQ==\n--=_1--\n";
        const ComPtr<IMessage> message = Kept(sealed);
        Attach(*message, "more");
        const std::string body = std::regex_replace(kSealedMail.substr(11), std::regex("\n"), end);
        EXPECT_EQ(Masked(Mail(*message)),
                  std::regex_replace("Subject: s\nMIME-Version: 1.0\nContent-Type: multipart/mixed;\n "
                                     "boundary=\"=_1\"\n\n--=_1\n" +
                                         kSealedMail.substr(11) + "\n--=_1\n" + AttachedPart("more") + added,
                                     std::regex("\n"), end));
    }
}

TEST_F(PartEditsTest, AMailOfOnePartTakesAnAttachmentAndAnotherText)
{
    const std::string mail =
        "Content-ID: <1@x>\nSubject: s\nContent-Length: 4\nMime-Version: 1.0\nContent-type: text/plain; "
        "charset=koi8_r\nLines: 1\nX-Last: 1\n\n\xF0\xD2\n";
    const ComPtr<IMessage> message = Kept(mail);
    Attach(*message, "more");
    const std::string end =
        "\n--=_1\n" + AttachedPart("more") + "Content-Transfer-Encoding: base64\n\nbW9yZQ==\n--=_1--\n";
    const std::string head =
        "Subject: s\nMime-Version: 1.0\nX-Last: 1\nContent-Type: multipart/mixed;\n "
        "boundary=\"=_1\"\n\n--=_1\n";
    EXPECT_EQ(Masked(Mail(*message)), head +
                                          "Content-ID: <1@x>\nContent-Length: 4\nContent-type: text/plain; "
                                          "charset=koi8_r\n\n\xF0\xD2\n" +
                                          end);
    SetText(*message, PR_BODY_W, "new\r\n");
    EXPECT_EQ(Masked(Mail(*message)), head +
                                          "Content-ID: <1@x>\nContent-Type: text/plain; charset=utf-8\n"
                                          "Content-Transfer-Encoding: 7bit\n\nnew\n" +
                                          end);
}

// How large a mail was is no longer so.
TEST_F(PartEditsTest, TheSizeThatAMailTellsOfItselfGoesWithAnEditOfAPart)
{
    const ComPtr<IMessage> message = Kept(Replaced(kOddMail, "X-Last", "Content-Length: 700\nX-Last"));
    Detach(*message, 2);
    EXPECT_EQ(Mail(*message), Without(kOddMail, kBinary));
}

const std::string kPage = "Content-Type: text/html; charset=us-ascii\n\n<img src=\"cid:1\">";
const std::string kImage = "Content-Type: image/png\nContent-ID: <0@x>\n\nimage";

TEST_F(PartEditsTest, WhatHtmlShowsComesBesideIt)
{
    const ComPtr<IMessage> alone = Kept("MIME-Version: 1.0\n" + kPage);
    Attach(*alone, "more", "1");
    EXPECT_EQ(Masked(Mail(*alone)),
              "MIME-Version: 1.0\nContent-Type: multipart/related; type=\"text/html\";\n boundary=\"=_1\"\n\n"
              "--=_1\n" +
                  kPage + "\n--=_1\n" + AttachedPart("more", "inline") +
                  "Content-ID: <1>\nContent-Transfer-Encoding: base64\n\nbW9yZQ==\n--=_1--\n");
    const std::string head = "MIME-Version: 1.0\nContent-Type: multipart/related; boundary=r\n\n--r\n" +
                             kPage + "\n--r\n" + kImage + "\n";
    const ComPtr<IMessage> beside = Kept(head + "--r--\n");
    Attach(*beside, "more", "1");
    EXPECT_EQ(Mail(*beside), head + "--r\n" + AttachedPart("more", "inline") +
                                 "Content-ID: <1>\nContent-Transfer-Encoding: base64\n\nbW9yZQ==\n--r--\n");
    Attach(*alone, "another");
    EXPECT_EQ(Masked(Mail(*alone)),
              "MIME-Version: 1.0\nContent-Type: multipart/mixed;\n boundary=\"=_2\"\n\n--=_2\n"
              "Content-Type: multipart/related; type=\"text/html\";\n boundary=\"=_1\"\n\n--=_1\n" +
                  kPage + "\n--=_1\n" + AttachedPart("more", "inline") +
                  "Content-ID: <1>\nContent-Transfer-Encoding: base64\n\nbW9yZQ==\n--=_1--\n--=_2\n" +
                  AttachedPart("another") + "Content-Transfer-Encoding: base64\n\nbW9yZQ==\n--=_2--\n");
}

TEST_F(PartEditsTest, ABodyMoreIsAnAlternativeOfTheOther)
{
    const std::string text =
        "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 7bit\n\nnew";
    const std::string head = "MIME-Version: 1.0\nContent-Type: multipart/alternative;\n boundary=\"=_1\"\n\n";
    const ComPtr<IMessage> page = Kept("MIME-Version: 1.0\n" + kPage);
    SetText(*page, PR_BODY_W, "new");
    EXPECT_EQ(Masked(Mail(*page)), head + "--=_1\n" + text + "\n--=_1\n" + kPage + "\n--=_1--\n");

    const ComPtr<IMessage> plain = Kept("MIME-Version: 1.0\nContent-Type: text/plain\n\nold");
    PropertyList html;
    html.AddBinary(kPrHtml, "new");
    html.AddLong(kPrInternetCpid, 65001);
    ASSERT_EQ(html.SetOn(*plain), S_OK);
    EXPECT_EQ(Masked(Mail(*plain)), head +
                                        "--=_1\nContent-Type: text/plain\n\nold\n--=_1\nContent-Type: "
                                        "text/html; charset=utf-8\nContent-Transfer-Encoding: base64\n\n"
                                        "bmV3\n--=_1--\n");

    const std::string only = "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=m\n\n";
    const ComPtr<IMessage> image = Kept(only + "--m\n" + kImage + "\n--m--\n");
    SetText(*image, PR_BODY_W, "new");
    EXPECT_EQ(Mail(*image), only + "--m\n" + text + "\n--m\n" + kImage + "\n--m--\n");
}

// Within it there would be no signature left.
TEST_F(PartEditsTest, WhatComesToSignedHtmlComesBesideTheSignedPart)
{
    const std::string sealed = "Content-Type: multipart/signed; boundary=b\n\n--b\n" + kPage +
                               "\n--b\nContent-Type: application/pgp-signature\n\nsignature\n--b--\n";
    const ComPtr<IMessage> withText = Kept("Subject: s\n" + sealed);
    SetText(*withText, PR_BODY_W, "new");
    EXPECT_NE(Mail(*withText).find(sealed), std::string::npos);
    const ComPtr<IMessage> withImage = Kept("Subject: s\n" + sealed);
    Attach(*withImage, "more", "1");
    EXPECT_NE(Mail(*withImage).find("multipart/related"), std::string::npos);
    EXPECT_NE(Mail(*withImage).find(sealed), std::string::npos);
}

TEST_F(PartEditsTest, AMailWithinAMailKeepsItsOwnParts)
{
    const std::string within = Replaced(kNested, "Subject: nested\n", "SUBJECT:  nested\nX-Odd:1\n");
    const std::string mail = kHead + kText + within + kBinary + kEnd;
    const ComPtr<IMessage> message = Kept(mail);
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
    ComPtr<IMessage> embedded;
    ASSERT_EQ(
        attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_MODIFY, embedded.PutUnknown()),
        S_OK);
    SetText(*embedded, PR_SUBJECT_W, "Another");
    ASSERT_EQ(embedded->SaveChanges(0), S_OK);
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
    EXPECT_EQ(Mail(*message), Replaced(mail, "SUBJECT:  nested\n", "Subject: Another\n"));
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

// As of a disk that is full: else a mail would be made anew that could be kept.
TEST_F(PartEditsTest, BytesThatCouldntBeSetAsideAreAnErrorAndNoMail)
{
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small{std::size_t{64} << 10, limit.rlim_max};
    const auto former = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const MailBytes bytes("Subject: s\n\n" + std::string(2 * MailBytes::kMemoryLimit, 'x'));
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, former);
    ASSERT_EQ(HRESULT_FACILITY(bytes.Result()), FACILITY_STORAGE);

    MailBytes copy;
    copy.AppendFrom(bytes);
    EXPECT_EQ(copy.Result(), bytes.Result());
    std::optional<MailBytes> edited;
    EXPECT_EQ(EditParts(bytes, *store->NewMessage(), {}, {}, {}, edited), bytes.Result());
    EXPECT_FALSE(edited);
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
