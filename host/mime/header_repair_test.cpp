#include "host/mime/header_repair.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(HeaderRepairTest, AWholeMailIsNotChanged)
{
    const std::string mail =
        "From: a@example.org\r\nContent-Type: multipart/mixed;\r\n "
        "boundary=\"b\"\r\n\r\npreamble\r\n--b\r\n\r\none\r\n"
        "--b\r\nContent-Type: message/rfc822\r\n\r\nSubject: in\r\n\r\ntwo\r\n--b--\r\n";
    EXPECT_EQ(RepairHeaders(mail), mail);
}

TEST(HeaderRepairTest, TextRightBehindTheFieldsGetsItsBlankLine)
{
    EXPECT_EQ(RepairHeaders("Subject: a\nThis is text.\nMore of it.\n"),
              "Subject: a\n\nThis is text.\nMore of it.\n");
}

TEST(HeaderRepairTest, APartWithoutABlankLineGetsOne)
{
    EXPECT_EQ(RepairHeaders(
                  "Content-Type: multipart/mixed; boundary=b\n\n--b\nText.\n\n--b\nContent-Type: a/b\nQUJD\n"
                  "--b--\n"),
              "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nText.\n\n--b\nContent-Type: "
              "a/b\n\nQUJD\n--b--\n");
}

TEST(HeaderRepairTest, ABoundaryRightBehindTheFieldsEndsThem)
{
    EXPECT_EQ(
        RepairHeaders("Content-Type: multipart/mixed; boundary=b\n--b\nContent-Type: text/plain\n\nx\n"),
        "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nx\n");
}

TEST(HeaderRepairTest, ANestedMailWithoutFieldsIsAllText)
{
    EXPECT_EQ(RepairHeaders("Content-Type: message/rfc822\n\n[the letter]\n\nmore\n"),
              "Content-Type: message/rfc822\n\n\n[the letter]\n\nmore\n");
}

TEST(HeaderRepairTest, AStrangeLineAmongFieldsBecomesOne)
{
    EXPECT_EQ(RepairHeaders("=\"Content Type: text/plain;\n\tcharset=x\"\nSubject: b\n\ntext\n"),
              "X-Unparsed-Line: =\"Content Type: text/plain;\n\tcharset=x\"\nSubject: b\n\ntext\n");
    EXPECT_EQ(RepairHeaders("From: a@example.org\n: Crash\n\ntext\n"),
              "From: a@example.org\nX-Unparsed-Line: : Crash\n\ntext\n");
}

TEST(HeaderRepairTest, BlanksBeforeTheColonAndNulsGo)
{
    EXPECT_EQ(RepairHeaders(std::string("Subject \t: a\0b\n\nx\0y\n", 19)),
              std::string("Subject: a b\n\nx\0y\n", 17));
}

TEST(HeaderRepairTest, ManyPartsCostNoMoreThanTheirLength)
{
    std::string mail = "Content-Type: multipart/mixed; boundary=b\n\n";
    for (int i = 0; i < 100000; ++i)
        mail += "--b\nx\n \n \n";
    EXPECT_GT(RepairHeaders(mail).size(), mail.size());
}

}  // namespace
}  // namespace quorvane
