#include "host/mail/mbox_writer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "host/mail/mbox_reader.h"
#include "platform/testing/surroundings.h"

namespace quorvane {
namespace {

TEST(MboxWriterTest, WhatIsWrittenIsReadAgain)
{
    const std::filesystem::path folder = test::MakeTestDirectory();
    const std::vector<std::string> mails = {
        "Subject: 1\n\nFrom a\n>From b\n>>>From c\n> From d\nFro\n>\n",
        "Subject: 2\r\n\r\nFrom x Mon Mar  3 08:14:09 2025\r\nSubject: quoted\r\n\r\n\r\n", "Subject: 3\n\n",
        "Subject: 4\n\n\n\n", "Content-Length: 7\n\nFrom -\n"};
    {
        std::ofstream file(folder / "box", std::ios::binary);
        MboxWriter writer(file);
        for (const std::string& mail : mails) {
            std::ostream& out = writer.Begin(1741000449);
            out << mail.substr(0, mail.size() / 2);
            for (const char c : mail.substr(mail.size() / 2))
                out.put(c);
            writer.End();
        }
    }

    std::vector<std::string> read;
    std::string line;
    {
        MboxReader reader(folder / "box", MboxVariant::Auto);
        MailBytes bytes;
        while (reader.Next(bytes) == MboxReader::Step::Mail)
            read.push_back(bytes.Text());
        std::ifstream file(folder / "box");
        std::getline(file, line);
    }

    EXPECT_EQ(read, mails);
    EXPECT_EQ(line, "From MAILER-DAEMON Mon Mar  3 11:14:09 2025");
    std::filesystem::remove_all(folder);
}

TEST(MboxWriterTest, AMailWithoutALastLineEndGetsOne)
{
    std::ostringstream box;
    MboxWriter writer(box);
    writer.Begin(0) << "Subject: 1\n\nFrom";
    writer.End();
    writer.Begin(0) << "Subject: 2\n";
    writer.End();
    EXPECT_EQ(box.str(),
              "From MAILER-DAEMON Thu Jan  1 00:00:00 1970\nSubject: 1\n\nFrom\n\n"
              "From MAILER-DAEMON Thu Jan  1 00:00:00 1970\nSubject: 2\n\n");
}

}  // namespace
}  // namespace quorvane
