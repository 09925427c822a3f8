// bench/store_workload.h: mails for a store, the same at each run.
#ifndef QUORVANE_BENCH_STORE_WORKLOAD_H_
#define QUORVANE_BENCH_STORE_WORKLOAD_H_

#include <cstddef>
#include <string>

namespace quorvane::bench {

// Bodies of 0.5 to 7.5 KB; one mail of 20 has an attachment of 20 KB. 5.4 KB on the average.
inline constexpr std::size_t kBodySizes[] = {500, 1000, 2000, 3000, 4000, 5000, 6000, 7500};
inline constexpr std::size_t kAttachedEvery = 20;
inline constexpr std::size_t kAttachmentLines = 360;  // of 76 base64 digits

inline std::string BodyOf(std::size_t mail)
{
    const std::size_t size = kBodySizes[mail % 8];
    std::string body;
    while (body.size() < size)
        body += "Line " + std::to_string(body.size()) + " of mail " + std::to_string(mail) +
                ", and some more words.\n";
    return body;
}

inline std::string SubjectOf(std::size_t mail)
{
    return "Subject of mail number " + std::to_string(mail);
}

inline std::string SenderOf(std::size_t mail)
{
    return "Sender " + std::to_string(mail % 300);
}

inline std::string AttachmentOf(std::size_t mail)
{
    std::string lines;
    for (std::size_t line = 0; line < kAttachmentLines; ++line)
        lines += std::string(76, static_cast<char>('A' + (mail + line) % 26)) + "\n";
    return lines;
}

// One mail as MIME.
inline std::string MailOf(std::size_t mail)
{
    const std::string number = std::to_string(mail);
    std::string text = "From: " + SenderOf(mail) + " <sender" + std::to_string(mail % 300) +
                       "@example.org>\n" + "To: anna@example.org, Bert <bert@example.org>\n" +
                       "Subject: " + SubjectOf(mail) + "\n" +
                       "Date: Mon, 3 Jun 2024 10:" + std::to_string(10 + mail % 50) + ":00 +0200\n" +
                       "Message-ID: <" + number + "@bench.example.org>\nMIME-Version: 1.0\n";
    if (mail % kAttachedEvery != 0)
        return text + "Content-Type: text/plain; charset=utf-8\n\n" + BodyOf(mail);
    text +=
        "Content-Type: multipart/mixed; boundary=\"part\"\n\n--part\nContent-Type: text/plain; "
        "charset=utf-8\n\n";
    text += BodyOf(mail) +
            "\n--part\nContent-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n";
    text += "Content-Disposition: attachment; filename=\"data.bin\"\n\n" + AttachmentOf(mail) + "--part--\n";
    return text;
}

}  // namespace quorvane::bench

#endif  // QUORVANE_BENCH_STORE_WORKLOAD_H_
