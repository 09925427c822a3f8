#include "host/mail/mail_reader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "host/mail/mail_files.h"
#include "platform/testing/surroundings.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

class MailReaderTest : public testing::Test {
protected:
    void SetUp() override { root_ = test::MakeTestDirectory(); }
    void TearDown() override { fs::remove_all(root_); }

    fs::path Put(const std::string& name, const std::string& content)
    {
        const fs::path path = root_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    struct Result {
        std::vector<FoundMail> mails;
        std::vector<LeftOutFile> leftOut;
    };

    static Result Read(const std::vector<fs::path>& paths)
    {
        MailReader reader(paths);
        Result result;
        FoundMail mail;
        LeftOutFile leftOut;
        for (;;) {
            switch (reader.Next(mail, leftOut)) {
                case MailReader::Step::Found:
                    result.mails.push_back(std::move(mail));
                    break;
                case MailReader::Step::LeftOut:
                    result.leftOut.push_back(leftOut);
                    break;
                case MailReader::Step::End:
                    EXPECT_EQ(reader.DoneBytes(), reader.TotalBytes());
                    return result;
            }
        }
    }

    fs::path root_;
};

constexpr const char* kMail = "Subject: hello\n\nbody\n";

TEST_F(MailReaderTest, AFolderIsReadInTheOrderOfItsNames)
{
    Put("b.eml", "Subject: b\n\n");
    Put("a/x.eml", "Subject: a\n\n");
    Put("c.eml", "Subject: c\n\n");
    const Result result = Read({root_});
    ASSERT_EQ(result.mails.size(), 3u);
    EXPECT_EQ(result.mails[0].bytes.Text(), "Subject: a\n\n");
    EXPECT_EQ(result.mails[1].bytes.Text(), "Subject: b\n\n");
    EXPECT_EQ(result.mails[2].source, (root_ / "c.eml").string());
    EXPECT_TRUE(result.leftOut.empty());
}

TEST_F(MailReaderTest, AMaildirTellsWhatWasRead)
{
    Put("box/cur/1.host:2,S", kMail);
    Put("box/cur/2.host:2,F", kMail);
    Put("box/cur/3.host!2,RS", kMail);
    Put("box/new/4.host", kMail);
    Put("box/tmp/5.host", kMail);
    Put("box/.Sent/cur/6.host:2,S", kMail);
    std::map<std::string, std::optional<bool>> states;
    for (const FoundMail& mail : Read({root_}).mails)
        states[mail.path.filename().string().substr(0, 1)] = mail.read;
    EXPECT_EQ(states, (std::map<std::string, std::optional<bool>>{
                          {"1", true}, {"2", false}, {"3", true}, {"4", false}, {"6", true}}));
}

TEST_F(MailReaderTest, AnMboxNumbersItsMailsAndTellsTheirState)
{
    const fs::path box = Put("box.mbox",
                             "From a Mon Mar  3 08:14:09 2025\nSubject: 1\nStatus: RO\n\none\n\n"
                             "From a Mon Mar  3 08:14:09 2025\nSubject: 2\nStatus: O\n\ntwo\n\n"
                             "From a Mon Mar  3 08:14:09 2025\nSubject: 3\nX-Mozilla-Status: 0001\n\n\n"
                             "From a Mon Mar  3 08:14:09 2025\nSubject: 4\n\nfour\n");
    const Result result = Read({box});
    ASSERT_EQ(result.mails.size(), 4u);
    EXPECT_EQ(result.mails[0].source, box.string() + " #1");
    EXPECT_EQ(result.mails[0].read, true);
    EXPECT_EQ(result.mails[1].read, false);
    EXPECT_EQ(result.mails[2].read, true);
    EXPECT_EQ(result.mails[3].read, std::nullopt);
}

TEST_F(MailReaderTest, WhatIsNoMailIsNamedWithAReason)
{
    Put("1.eml", "");
    Put("2.eml", std::string(100, '\0'));
    Put("3.eml", "just a sentence\n");
    Put("4.txt", "Note: this is no mail\n");
    Put("5.eml", "\n \n");
    Put("6.mbox.xz", std::string("\xFD"
                                 "7zXZ\0\0\x04",
                                 8));
    Put("7.json", "{\"from\": 1}\n");
    const Result result = Read({root_, root_ / "missing"});
    EXPECT_TRUE(result.mails.empty());
    ASSERT_EQ(result.leftOut.size(), 8u);
    EXPECT_EQ(result.leftOut[0].reason, "the file is empty");
    EXPECT_EQ(result.leftOut[1].reason, "it holds nothing but NUL bytes");
    EXPECT_EQ(result.leftOut[2].reason, "it doesn't begin with a header field");
    EXPECT_EQ(result.leftOut[3].reason, "it isn't a mail");
    EXPECT_EQ(result.leftOut[4].reason, "it holds nothing but blanks");
    EXPECT_EQ(result.leftOut[5].reason, "it is compressed; unpack it first");
    EXPECT_EQ(result.leftOut[6].reason, "it isn't a mail");
    EXPECT_EQ(result.leftOut[7].source, (root_ / "missing").string());
    EXPECT_EQ(result.leftOut[7].reason, "there is no such file");
}

TEST_F(MailReaderTest, FilesThatLieBesideMailAreLeftAside)
{
    Put("README.md", "# About\n");
    Put(".hidden", "x");
    Put(".git/config", "x");
    Put("box/dovecot-uidlist", "3 V1\n");
    Put("box/cur/1", kMail);
    const Result result = Read({root_});
    EXPECT_EQ(result.mails.size(), 1u);
    EXPECT_TRUE(result.leftOut.empty());
}

TEST_F(MailReaderTest, ACompoundFileIsHandedOnByItsPath)
{
    const fs::path path = Put("a.msg", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1 and more");
    const Result result = Read({path});
    ASSERT_EQ(result.mails.size(), 1u);
    EXPECT_EQ(result.mails[0].kind, FoundMail::Kind::CompoundFile);
    EXPECT_EQ(result.mails[0].path, path);
}

TEST_F(MailReaderTest, AMailBeginsAtItsFirstField)
{
    EXPECT_EQ(Read({Put("1.eml", std::string("\xEF\xBB\xBF\r\n\n") + kMail)}).mails.at(0).bytes.Text(),
              kMail);
    EXPECT_EQ(Read({Put("2.eml", std::string("From me Mon Mar  3 08:14:09 2025\n>From you\n") + kMail)})
                  .mails.at(0)
                  .bytes.Text(),
              kMail);
}

TEST_F(MailReaderTest, AFileOfLoneCarriageReturnsIsRead)
{
    EXPECT_EQ(Read({Put("1.eml", "Subject: a\r\rb\r")}).mails.at(0).bytes.Text(), "Subject: a\n\nb\n");
}

TEST_F(MailReaderTest, AMailInUtf16IsRead)
{
    const std::string text("\xFF\xFES\0u\0b\0j\0e\0c\0t\0:\0 \0\xE4\0\n\0\n\0x\0\n\0", 30);
    EXPECT_EQ(Read({Put("1.eml", text)}).mails.at(0).bytes.Text(), "Subject: ä\n\nx\n");
    EXPECT_EQ(Read({Put("2.eml", text.substr(2))}).mails.at(0).bytes.Text(), "Subject: ä\n\nx\n");
    EXPECT_EQ(Read({Put("3.eml", '\0' + text.substr(2, 27))}).mails.at(0).bytes.Text(), "Subject: ä\n\nx\n");
}

TEST_F(MailReaderTest, ALargeMailIsReadWhole)
{
    const std::string mail = "Subject: big\n\n" + std::string(300000, 'x') + "\n";
    EXPECT_EQ(Read({Put("1.eml", mail)}).mails.at(0).bytes.Text(), mail);
}

TEST(MaildirReadStateTest, OnlyTheFlagsBehindTheMarkCount)
{
    EXPECT_EQ(MaildirReadState("box/cur/S.host:2,F"), false);
    EXPECT_EQ(MaildirReadState("box/cur/1.host:2,FS"), true);
    EXPECT_EQ(MaildirReadState("box/cur/1.host;2,S"), true);
    EXPECT_EQ(MaildirReadState("box/new/1.host:2,S"), false);
    EXPECT_EQ(MaildirReadState("box/cur/1.host"), false);
}

}  // namespace
}  // namespace quorvane
