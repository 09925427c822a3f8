#include "host/mail/mbox_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "platform/testing/surroundings.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

class MboxReaderTest : public testing::Test {
protected:
    void SetUp() override { folder_ = test::MakeTestDirectory(); }
    void TearDown() override { fs::remove_all(folder_); }

    std::vector<std::string> Read(const std::string& content, MboxVariant variant = MboxVariant::Auto)
    {
        std::ofstream(folder_ / "box", std::ios::binary) << content;
        MboxReader reader(folder_ / "box", variant);
        std::vector<std::string> mails;
        MailBytes bytes;
        for (;;) {
            const MboxReader::Step step = reader.Next(bytes);
            if (step == MboxReader::Step::End)
                return mails;
            mails.push_back(step == MboxReader::Step::Mail ? bytes.Text() : "<not a mail>");
        }
    }

    using Mails = std::vector<std::string>;
    fs::path folder_;
};

constexpr const char* kFirst = "From a@example.org Mon Mar  3 08:14:09 2025\n";
constexpr const char* kSecond = "From b@example.org Tue Mar  4 09:00:00 2025\n";

TEST_F(MboxReaderTest, EachSeparatorBeginsAMailAndTakesItsBlankLineAlong)
{
    EXPECT_EQ(Read(std::string(kFirst) + "Subject: 1\n\none\n\n" + kSecond + "Subject: 2\n\ntwo\n\n"),
              (Mails{"Subject: 1\n\none\n", "Subject: 2\n\ntwo\n"}));
}

TEST_F(MboxReaderTest, CrlfFilesAreReadAlike)
{
    EXPECT_EQ(
        Read("From a Mon Mar  3 08:14:09 2025\r\nSubject: 1\r\n\r\none\r\n\r\nFrom b Mon Mar  3 08:14:09 "
             "2025\r\nSubject: 2\r\n\r\ntwo\r\n"),
        (Mails{"Subject: 1\r\n\r\none\r\n", "Subject: 2\r\n\r\ntwo\r\n"}));
}

TEST_F(MboxReaderTest, ABodyLineThatBeginsWithFromIsNoSeparator)
{
    const std::string body = "Subject: 1\n\none\n\nFrom the pier you see it.\nReally.\n";
    EXPECT_EQ(Read(kFirst + body), (Mails{body}));
}

TEST_F(MboxReaderTest, ANumberOfFiveDigitsIsNoYear)
{
    const std::string body = "Subject: 1\n\none\nFrom here 08:14:09 it took 20251\nSteps: or 12025\n";
    EXPECT_EQ(Read(kFirst + body), (Mails{body}));
}

TEST_F(MboxReaderTest, ASeparatorWithoutADateCountsBeforeAHeaderField)
{
    EXPECT_EQ(Read("From -\nSubject: 1\n\none\n\nFrom - \nSubject: 2\n\ntwo\n"),
              (Mails{"Subject: 1\n\none\n", "Subject: 2\n\ntwo\n"}));
}

TEST_F(MboxReaderTest, ADatedSeparatorCountsWithoutItsBlankLine)
{
    EXPECT_EQ(Read(std::string(kFirst) + "Subject: 1\n\none\n" + kSecond + "Subject: 2\n\ntwo\n"),
              (Mails{"Subject: 1\n\none\n", "Subject: 2\n\ntwo\n"}));
}

TEST_F(MboxReaderTest, ASeparatorOfOneWordCountsBeforeAFieldOfMailWithoutItsBlankLine)
{
    EXPECT_EQ(Read("From -\nSubject: 1\n\none\nFrom - \nFrom: a\n\ntwo\nFrom -\nnot a field\n"),
              (Mails{"Subject: 1\n\none\n", "From: a\n\ntwo\nFrom -\nnot a field\n"}));
}

TEST_F(MboxReaderTest, AMarkBeforeTheFirstSeparatorBelongsToNoMail)
{
    EXPECT_EQ(Read(std::string("\xEF\xBB\xBF") + kFirst + "Subject: 1\n\none\n\n" + kSecond +
                   "Subject: 2\n\ntwo\n"),
              (Mails{"Subject: 1\n\none\n", "Subject: 2\n\ntwo\n"}));
}

TEST_F(MboxReaderTest, WhatCannotBeDecidedIsTold)
{
    const auto doubtOf = [&](const std::string& content) {
        std::ofstream(folder_ / "box", std::ios::binary) << content;
        MboxReader reader(folder_ / "box", MboxVariant::Auto);
        MailBytes bytes;
        EXPECT_EQ(reader.Next(bytes), MboxReader::Step::Mail);
        return reader.Doubt();
    };
    EXPECT_NE(doubtOf(std::string(kFirst) + "A: 1\n\none\nFrom the pier\nSubject: 2\n"), "");
    const std::string body = std::string("one\n\n") + kSecond + "Subject: quoted\n\n";
    EXPECT_NE(doubtOf(kFirst + ("Content-Length: " + std::to_string(body.size())) + "\n\n" + body), "");
    EXPECT_EQ(doubtOf(std::string(kFirst) + "A: 1\n\none\nFrom the pier\nand more\n"), "");
}

TEST_F(MboxReaderTest, AHeaderWithoutABodyEndsAtTheNextSeparator)
{
    EXPECT_EQ(Read(std::string(kFirst) + "Subject: 1\n" + kSecond + "Subject: 2\n\ntwo\n"),
              (Mails{"Subject: 1\n", "Subject: 2\n\ntwo\n"}));
}

TEST_F(MboxReaderTest, QuotingIsUndoneAsTheVariantSays)
{
    const std::string box = std::string(kFirst) + "Subject: 1\n\n>From a\n>>From b\n>> From c\n";
    EXPECT_EQ(Read(box, MboxVariant::MboxRd), (Mails{"Subject: 1\n\nFrom a\n>From b\n>> From c\n"}));
    EXPECT_EQ(Read(box, MboxVariant::MboxO), (Mails{"Subject: 1\n\nFrom a\n>>From b\n>> From c\n"}));
    EXPECT_EQ(Read(box, MboxVariant::MboxCl2), (Mails{"Subject: 1\n\n>From a\n>>From b\n>> From c\n"}));
}

TEST_F(MboxReaderTest, ARightContentLengthCoversSeparatorsInTheBody)
{
    const std::string body = std::string("one\n\n") + kSecond + "Subject: quoted\n\n>From me\n";
    const std::string mail = "Content-Length: " + std::to_string(body.size()) + "\n\n" + body;
    EXPECT_EQ(Read(kFirst + mail + "\n" + kSecond + "Subject: 2\n\ntwo\n"),
              (Mails{mail, "Subject: 2\n\ntwo\n"}));
    EXPECT_EQ(Read(kFirst + mail), (Mails{mail}));
}

TEST_F(MboxReaderTest, AWrongContentLengthIsPassedOver)
{
    for (const std::string length : {"3", "100000", "99999999999999999999999", "-1", "x"}) {
        const std::string mail = "Content-Length: " + length + "\n\n>From one\n";
        EXPECT_EQ(Read(kFirst + mail + "\n" + kSecond + "Subject: 2\n\ntwo\n"),
                  (Mails{"Content-Length: " + length + "\n\nFrom one\n", "Subject: 2\n\ntwo\n"}))
            << length;
    }
}

TEST_F(MboxReaderTest, AMailWithoutAnyLineIsNamedEmpty)
{
    EXPECT_EQ(Read(std::string(kFirst) + "\n" + kSecond + "Subject: 2\n\ntwo\n"),
              (Mails{"<not a mail>", "Subject: 2\n\ntwo\n"}));
}

TEST_F(MboxReaderTest, TextBeforeTheFirstSeparatorIsKept)
{
    EXPECT_EQ(Read(std::string("\n\nSubject: 0\n\nzero\n\n") + kFirst + "Subject: 1\n\none\n"),
              (Mails{"Subject: 0\n\nzero\n", "Subject: 1\n\none\n"}));
}

TEST_F(MboxReaderTest, ALineLongerThanTheWindowIsKept)
{
    const std::string line(3 * LineReader::kWindow + 17, 'x');
    const std::string mail = "Subject: 1\n\n" + line + "\nFrom " + line + "\nend\n";
    EXPECT_EQ(Read(kFirst + mail), (Mails{mail}));
}

TEST_F(MboxReaderTest, SeparatorsAreFoundWhereverTheWindowEnds)
{
    for (std::size_t pad = LineReader::kWindow - 120; pad < LineReader::kWindow; ++pad) {
        const std::string first = "Subject: 1\n\n" + std::string(pad, 'x') + "\n";
        ASSERT_EQ(Read(kFirst + first + "\n" + kSecond + "Subject: 2\n\ntwo\n"),
                  (Mails{first, "Subject: 2\n\ntwo\n"}))
            << pad;
    }
}

TEST_F(MboxReaderTest, AFileThatIsMissingIsUnreadableOnce)
{
    MboxReader reader(folder_ / "none", MboxVariant::Auto);
    MailBytes bytes;
    EXPECT_EQ(reader.Next(bytes), MboxReader::Step::Unreadable);
    EXPECT_EQ(reader.Next(bytes), MboxReader::Step::End);
}

}  // namespace
}  // namespace quorvane
