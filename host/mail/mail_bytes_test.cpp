#include "host/mail/mail_bytes.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

std::string Part(const MailBytes& bytes, std::uint64_t offset, std::size_t count)
{
    std::string part(count, '?');
    part.resize(bytes.Read(offset, part.data(), count));
    return part;
}

// A mail with a long header and as many bytes as asked for.
std::string LargeMail(std::size_t header, std::size_t size)
{
    std::string mail = "Subject: a\r\n";
    while (mail.size() < header)
        mail += "X-Field: " + std::string(60, 'x') + "\r\n";
    mail += "\r\n";
    for (int line = 0; mail.size() < size; ++line)
        mail += "line " + std::to_string(line) + "\r\n";
    return mail;
}

TEST(MailBytesTest, ALargeMailIsReadLikeASmallOne)
{
    for (const std::size_t size : {std::size_t{1000}, 3 * MailBytes::kMemoryLimit}) {
        const std::string mail = LargeMail(100, size);
        MailBytes bytes;
        for (std::size_t at = 0; at < mail.size(); at += 777)
            bytes.Append(std::string_view(mail).substr(at, 777));

        EXPECT_EQ(bytes.IsInMemory(), size <= MailBytes::kMemoryLimit);
        EXPECT_EQ(bytes.Size(), mail.size());
        EXPECT_TRUE(bytes.Text() == mail);
        EXPECT_EQ(bytes.Header(), mail.substr(0, mail.find("\r\n\r\n") + 2));
        EXPECT_EQ(Part(bytes, mail.size() - 10, 100), mail.substr(mail.size() - 10));
        EXPECT_EQ(Part(bytes, mail.size(), 100), "");
        EXPECT_EQ(Part(bytes, mail.size() / 2, 100), mail.substr(mail.size() / 2, 100));
    }
}

TEST(MailBytesTest, BytesOfAnotherMailAreAppended)
{
    for (const std::size_t size : {std::size_t{1000}, 3 * MailBytes::kMemoryLimit}) {
        const std::string mail = LargeMail(100, size);
        const MailBytes other(mail);
        MailBytes bytes("before ");
        bytes.AppendFrom(other, 10, mail.size() - 10);
        EXPECT_TRUE(bytes.Text() == "before " + mail.substr(10, mail.size() - 20));
        bytes.AppendFrom(other, mail.size(), mail.size() + 5);
        bytes.AppendFrom(other, 20, 20);
        bytes.AppendFrom(other);
        EXPECT_TRUE(bytes.Text() == "before " + mail.substr(10, mail.size() - 20) + mail);
        EXPECT_EQ(bytes.Result(), S_OK);
    }
}

TEST(MailBytesTest, AHeaderMayBeLongerThanABlockOfIt)
{
    const std::string body(MailBytes::kMemoryLimit, 'b');
    for (std::size_t header = 65'531; header < 65'542; ++header) {
        const std::string lines = "Subject: " + std::string(header, 'x') + "\r\n";
        EXPECT_EQ(MailBytes(lines + "\r\n" + body).Header(), lines);
    }
    const std::string noEnd(2 * MailBytes::kMemoryLimit, 'x');
    EXPECT_EQ(MailBytes(noEnd).Header().size(), noEnd.size());
}

TEST(MailBytesTest, WhatIsMovedFromIsEmptyAndCanBeUsedAgain)
{
    MailBytes large(std::string(2 * MailBytes::kMemoryLimit, 'a'));
    const MailBytes taken = std::move(large);
    EXPECT_EQ(taken.Size(), 2 * MailBytes::kMemoryLimit);
    large.Clear();
    large.Append("abc");
    EXPECT_EQ(large.Text(), "abc");
}

}  // namespace
}  // namespace quorvane
