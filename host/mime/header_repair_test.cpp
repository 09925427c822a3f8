#include "host/mime/header_repair.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

std::string Repaired(const std::string& mail)
{
    return RepairHeaders(mail).Text();
}

TEST(HeaderRepairTest, AWholeMailIsNotChanged)
{
    const std::string mail =
        "From: a@example.org\r\nContent-Type: multipart/mixed;\r\n "
        "boundary=\"b\"\r\n\r\npreamble\r\n--b\r\n\r\none\r\n"
        "--b\r\nContent-Type: message/rfc822\r\n\r\nSubject: in\r\n\r\ntwo\r\n--b--\r\n";
    EXPECT_EQ(Repaired(mail), mail);
}

TEST(HeaderRepairTest, TextRightBehindTheFieldsGetsItsBlankLine)
{
    EXPECT_EQ(Repaired("Subject: a\nThis is text.\nMore of it.\n"),
              "Subject: a\n\nThis is text.\nMore of it.\n");
}

TEST(HeaderRepairTest, APartWithoutABlankLineGetsOne)
{
    EXPECT_EQ(
        Repaired("Content-Type: multipart/mixed; boundary=b\n\n--b\nText.\n\n--b\nContent-Type: a/b\nQUJD\n"
                 "--b--\n"),
        "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nText.\n\n--b\nContent-Type: "
        "a/b\n\nQUJD\n--b--\n");
}

TEST(HeaderRepairTest, ABoundaryRightBehindTheFieldsEndsThem)
{
    EXPECT_EQ(Repaired("Content-Type: multipart/mixed; boundary=b\n--b\nContent-Type: text/plain\n\nx\n"),
              "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nx\n");
}

TEST(HeaderRepairTest, ANestedMailWithoutFieldsIsAllText)
{
    EXPECT_EQ(Repaired("Content-Type: message/rfc822\n\n[the letter]\n\nmore\n"),
              "Content-Type: message/rfc822\n\n\n[the letter]\n\nmore\n");
}

TEST(HeaderRepairTest, AStrangeLineAmongFieldsBecomesOne)
{
    EXPECT_EQ(Repaired("=\"Content Type: text/plain;\n\tcharset=x\"\nSubject: b\n\ntext\n"),
              "X-Unparsed-Line: =\"Content Type: text/plain;\n\tcharset=x\"\nSubject: b\n\ntext\n");
    EXPECT_EQ(Repaired("From: a@example.org\n: Crash\n\ntext\n"),
              "From: a@example.org\nX-Unparsed-Line: : Crash\n\ntext\n");
}

TEST(HeaderRepairTest, BlanksBeforeTheColonAndNulsGo)
{
    EXPECT_EQ(Repaired(std::string("Subject \t: a\0b\n\nx\0y\n", 19)),
              std::string("Subject: a b\n\nx\0y\n", 17));
}

TEST(HeaderRepairTest, ManyPartsCostNoMoreThanTheirLength)
{
    std::string mail = "Content-Type: multipart/mixed; boundary=b\n\n";
    for (int i = 0; i < 100000; ++i)
        mail += "--b\nx\n \n \n";
    EXPECT_GT(Repaired(mail).size(), mail.size());
}

TEST(HeaderRepairTest, ALargeMailIsRepairedLikeASmallOne)
{
    std::string mail = "Content-Type: multipart/mixed; boundary=b\n";
    std::string repaired = mail + "\n";
    for (int part = 0; mail.size() < 3 * MailBytes::kMemoryLimit; ++part) {
        const std::string text = "Text.\n" + std::string(static_cast<std::size_t>(part) * 40'000, 'x') + "\n";
        mail += "--b\n" + text;
        repaired += "--b\n\n" + text;
    }
    EXPECT_TRUE(Repaired(mail) == repaired);
}

}  // namespace
}  // namespace quorvane
