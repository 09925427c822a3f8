// The small parts: encodings, names, identifiers, fields, RTF.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "host/mail/mail_check.h"
#include "host/mime/attachment_name.h"
#include "host/mime/eml_writer.h"
#include "host/mime/header_fields.h"
#include "host/mime/mail_envelope.h"
#include "host/mime/one_off.h"
#include "host/mime/rtf_text.h"

namespace quorvane {
namespace {

std::string Written(std::string_view text, TextEncoding encoding)
{
    std::ostringstream out;
    EmlWriter writer(out);
    TextWriter textWriter(writer, encoding);
    textWriter.Write(text);
    textWriter.End();
    return out.str();
}

TextEncoding BestTextEncoding(std::string_view text)
{
    TextSurvey survey;
    survey.Put(text);
    return survey.Best();
}

TEST(EmlWriterTest, TheEncodingFitsTheText)
{
    EXPECT_EQ(BestTextEncoding("plain\r\ntext\r\n"), TextEncoding::SevenBit);
    EXPECT_EQ(BestTextEncoding("From me\r\n"), TextEncoding::QuotedPrintable);
    EXPECT_EQ(BestTextEncoding(std::string(1000, 'x')), TextEncoding::QuotedPrintable);
    EXPECT_EQ(BestTextEncoding("caf\xC3\xA9 and more\r\n"), TextEncoding::QuotedPrintable);
    EXPECT_EQ(BestTextEncoding("lone\nline end"), TextEncoding::Base64);
    EXPECT_EQ(BestTextEncoding("\xC3\xA9\xC3\xA9"), TextEncoding::Base64);
}

TEST(EmlWriterTest, QuotedLinesAreShortAndEndInNoBlank)
{
    const std::string text =
        Written(std::string(300, '=') + " \r\nFrom x\r\n.\r\nend", TextEncoding::QuotedPrintable);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 77u) << line;
        EXPECT_FALSE(line.starts_with("From ") || line.starts_with("."));
    }
    EXPECT_TRUE(text.ends_with("=20\r\n=46rom x\r\n=2E\r\nend")) << text;
}

TEST(EmlWriterTest, Base64IsTheSameHoweverItIsFed)
{
    std::string bytes;
    for (int i = 0; i < 1000; ++i)
        bytes.push_back(static_cast<char>(i));
    const std::string whole = Written(bytes, TextEncoding::Base64);
    for (const std::size_t piece : {1u, 56u, 57u, 58u, 200u}) {
        std::ostringstream out;
        EmlWriter writer(out);
        Base64Writer base64(writer);
        for (std::size_t at = 0; at < bytes.size(); at += piece)
            base64.Write(std::string_view(bytes).substr(at, piece));
        base64.End();
        EXPECT_EQ(out.str(), whole) << piece;
    }
    EXPECT_EQ(whole.find("\r\n"), 76u);
}

TEST(OneOffTest, AnIdentifierTellsWhomItWasMadeOf)
{
    const MailAddress who{"Żółkiewski", "s@example.com"};
    EXPECT_EQ(ReadOneOffEntryId(OneOffEntryId(who)), who);
    const MailAddress nameless{"", "s@example.com"};
    EXPECT_EQ(ReadOneOffEntryId(OneOffEntryId(nameless)), nameless);
    EXPECT_EQ(OneOffEntryId(who).substr(0, 4), std::string(4, '\0'));
}

TEST(OneOffTest, AnIdentifierOfTheNarrowFormIsRead)
{
    std::string id = OneOffEntryId({"", "x"}).substr(0, 22);
    id.append("\x01\0", 2).append("Jo\0SMTP\0jo@example.org\0", 23);
    EXPECT_EQ(ReadOneOffEntryId(id), (MailAddress{"Jo", "jo@example.org"}));
}

TEST(OneOffTest, CutAndForeignIdentifiersAreNone)
{
    const std::string id = OneOffEntryId({"N", "n@example.org"});
    for (std::size_t size = 0; size < id.size(); ++size)
        EXPECT_EQ(ReadOneOffEntryId(id.substr(0, size)), std::nullopt) << size;
    EXPECT_EQ(ReadOneOffEntryId(std::string(100, 'x')), std::nullopt);
}

TEST(OneOffTest, AListGivesItsPeopleAndSurvivesLyingSizes)
{
    const std::vector<MailAddress> people = {
        {"A", "a@example.org"}, {"Bö", "b@example.org"}, {"", "c@example.org"}};
    const std::string list = FlatEntryList(people);
    EXPECT_EQ(ReadFlatEntryList(list), people);
    for (std::size_t size = 0; size < list.size(); ++size) {
        const std::vector<MailAddress> found = ReadFlatEntryList(list.substr(0, size));
        EXPECT_TRUE(std::equal(found.begin(), found.end(), people.begin())) << size;
    }
    std::string lying = list;
    lying[8] = lying[9] = lying[10] = lying[11] = '\xFF';
    EXPECT_TRUE(ReadFlatEntryList(lying).empty());
}

TEST(RtfTextTest, StoredRtfIsExpanded)
{
    const std::string plain("\x1B\0\0\0\x0B\0\0\0MELA\0\0\0\0{\\rtf1 abc}", 27);
    EXPECT_EQ(DecompressRtf(plain), "{\\rtf1 abc}");
}

TEST(RtfTextTest, DamagedRtfIsRefused)
{
    EXPECT_EQ(DecompressRtf(""), std::nullopt);
    EXPECT_EQ(DecompressRtf(std::string(16, 'x')), std::nullopt);
    std::string cut("\x2D\0\0\0\x2B\0\0\0LZFu\0\0\0\0\0{\\rt", 21);
    EXPECT_EQ(DecompressRtf(cut), std::nullopt);
    std::string huge("\x2D\0\0\0\xFF\xFF\xFF\x7FLZFu\0\0\0\0", 16);
    EXPECT_EQ(DecompressRtf(huge), std::nullopt);
    // References that copy themselves: more comes out than the header says.
    EXPECT_EQ(DecompressRtf(std::string("\x2D\0\0\0\x04\0\0\0LZFu\0\0\0\0", 16) + std::string(200, '\xFF')),
              std::nullopt);
}

TEST(AttachmentNameTest, ShortNamesHaveEightAndThreeCharacters)
{
    EXPECT_EQ(ShortName("list.txt"), "LIST.TXT");
    EXPECT_EQ(ShortName("a long name.html"), "ALONGN~1.HTM");
    EXPECT_EQ(ShortName("../../.profile"), "FILE.PRO");
    EXPECT_EQ(ShortName("a-b_c.x-y"), "A-B_C.X-Y");
    EXPECT_EQ(ShortName("azAZ09.z9A"), "AZAZ09.Z9A");
    EXPECT_EQ(ShortName("CON"), "CON");
    EXPECT_EQ(ShortName(""), "");
}

TEST(AttachmentNameTest, AnExtensionIsBehindTheLastDotOfTheName)
{
    EXPECT_EQ(NameExtension("a.tar.gz"), ".gz");
    EXPECT_EQ(NameExtension("v1.2/readme"), "");
    EXPECT_EQ(NameExtension("end."), "");
}

TEST(SubjectPrefixTest, AShortWordAndAColonAreThePrefix)
{
    EXPECT_EQ(SplitSubjectPrefix("Re: x").prefix, "Re: ");
    EXPECT_EQ(SplitSubjectPrefix("Fwd: Re: x").normal, "Re: x");
    EXPECT_EQ(SplitSubjectPrefix("回复: x").prefix, "回复: ");
    EXPECT_EQ(SplitSubjectPrefix("Note: x").prefix, "");
    EXPECT_EQ(SplitSubjectPrefix("10: x").prefix, "");
    EXPECT_EQ(SplitSubjectPrefix("a:b: x").prefix, "");
    EXPECT_EQ(SplitSubjectPrefix(": x").prefix, "");
    EXPECT_EQ(SplitSubjectPrefix("Re:").prefix, "");
}

TEST(HeaderFieldsTest, ABlockIsSplitIntoItsFields)
{
    const auto fields = SplitHeaderBlock("A: 1\r\nB:2\r\n\tmore\r\nrubbish\r\n lost\r\nC :\r\n");
    ASSERT_EQ(fields.size(), 3u);
    EXPECT_EQ(fields[1].value, "2\r\n\tmore");
    EXPECT_EQ(fields[2].name, "C");
    EXPECT_EQ(fields[2].value, "");
}

TEST(HeaderFieldsTest, NewValuesAreEncodedAndFolded)
{
    EXPECT_EQ(UnstructuredValue("plain"), "plain");
    const std::string value = UnstructuredValue(
        "Ein Betreff, der länger ist als eine Zeile und deshalb gefaltet werden muß, was übrigens öfter "
        "vorkommt");
    std::istringstream lines(value);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 78u) << line;
    const std::vector<MailAddress> people = {
        {"Weiß, J.", "j@example.org"}, {"", "k@example.org"}, {"The \"Quiet\" One", "\"a b\"@example.org"}};
    const std::string list = AddressListValue(people);
    EXPECT_EQ(ParseAddressList(list), people) << list;
}

TEST(MailCheckTest, AFieldHasANameAndAColon)
{
    EXPECT_TRUE(IsHeaderField("Subject: x"));
    EXPECT_TRUE(IsHeaderField("X-Y_Z.1 \t:"));
    EXPECT_FALSE(IsHeaderField("two words: x"));
    EXPECT_FALSE(IsHeaderField(": x"));
    EXPECT_FALSE(IsHeaderField(""));
    EXPECT_FALSE(IsHeaderField("word"));
}

TEST(MailCheckTest, AFieldIsReadOverItsLines)
{
    EXPECT_EQ(RawHeaderValue("A: 1\nb: x\n  y\r\nC: 2\n\nB: no\n", "B"), "x y");
    EXPECT_EQ(RawHeaderValue("A: 1\n\nB: no\n", "B"), std::nullopt);
}

}  // namespace
}  // namespace quorvane
