// A mail costs no memory for its size, whatever is done with it.
#include <algorithm>
#include <fstream>

#include "tests/program/program.h"

namespace quorvane::test {
namespace {

constexpr long kMegabyte = 1024;  // in kilobytes
constexpr long kMostForAMail = 64 * kMegabyte;
constexpr std::uint64_t kAttachment = std::uint64_t{72} << 20;
constexpr std::uint64_t kBody = std::uint64_t{34} << 20;  // twice as much in the store

// Writes one mail, with as much of everything as asked for; the test itself is to stay small.
class MailFile {
public:
    explicit MailFile(const std::filesystem::path& path) : file_(path, std::ios::binary) {}

    void Write(std::uint64_t text, std::uint64_t html, std::uint64_t attachment)
    {
        file_ << "From: a@example.org\r\nTo: b@example.org\r\nSubject: large\r\n"
                 "Date: Mon, 2 Nov 2026 10:00:00 +0000\r\nMIME-Version: 1.0\r\n"
                 "Content-Type: multipart/mixed; boundary=outer\r\n\r\n--outer\r\n"
                 "Content-Type: multipart/alternative; boundary=inner\r\n\r\n--inner\r\n"
                 "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n";
        Repeat("Umlauts \xC3\xA4\xC3\xB6\xC3\xBC, and a line that is as long as lines are.\r\n", text);
        file_ << "--inner\r\nContent-Type: text/html; charset=iso-8859-1\r\n\r\n";
        Repeat("<p>A paragraph as any other, of a body that shall be large.</p>\r\n", html);
        file_ << "--inner--\r\n--outer\r\nContent-Type: application/octet-stream; name=\"a.bin\"\r\n"
                 "Content-Disposition: attachment; filename=\"a.bin\"\r\nContent-Transfer-Encoding: "
                 "base64\r\n\r\n";
        Repeat("UXVvdGVzIG9mIG5vYm9keSBpbiBwYXJ0aWN1bGFyLCBhbmQgYSBmZXcgbW9yZSBieXRlcyEh\r\n",
               attachment / 3 * 4);
        file_ << "--outer--\r\n";
    }

private:
    void Repeat(const std::string& line, std::uint64_t size)
    {
        for (std::uint64_t done = 0; done < size; done += line.size())
            file_ << line;
    }

    std::ofstream file_;
};

class MemoryTest : public ProgramTest {
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        MakeMailboxes({"alice", "bob"});
        idle_ = MustRun({"status", Mailbox("alice")}).peakKilobytes;
        ASSERT_GT(idle_, 0);
        ASSERT_LT(idle_, 2 * kMostForAMail) << "a sanitizer's own memory would hide the program's";
    }

    void ExpectSmall(long peak, const std::string& what) const
    {
        EXPECT_LT(peak - idle_, kMostForAMail)
            << what << " took " << peak << " kB, an idle process " << idle_;
    }
    void RunSmall(const std::vector<std::string>& arguments) const
    {
        ExpectSmall(MustRun(arguments).peakKilobytes, arguments[0]);
    }

private:
    long idle_ = 0;
};

TEST_F(MemoryTest, AMailOfAnySizeIsImportedSharedAndExportedInLittleMemory)
{
    MailFile(Path("large.eml")).Write(kBody, kBody, kAttachment);
    RunSmall({"import", Mailbox("alice"), "Shared", Path("large.eml").string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});

    const std::vector<Json> counts = RunUntilIdle({"alice", "bob"});
    ExpectSmall(counts[0]["peakKilobytes"], "sending");
    ExpectSmall(counts[1]["peakKilobytes"], "applying");
    ASSERT_EQ(counts[1]["itemsApplied"], 1);
    ExpectSame("alice", "Shared", "bob", "Shared");

    RunSmall({"export", Mailbox("bob"), "Shared", Path("eml").string()});
    RunSmall({"export", Mailbox("bob"), "Shared", Path("msg").string(), "--format", "msg"});
    EXPECT_GT(std::filesystem::file_size(Path("eml") / "0001-large.eml"), 2 * kBody + kAttachment / 3 * 4);
    RunSmall({"import", Mailbox("bob"), "Again", Path("msg").string()});
    std::filesystem::rename(Path("eml") / "0001-large.eml", Path("from.eml"));
    std::ofstream(Path("box"), std::ios::binary) << "From a@example.org Mon Mar  3 08:14:09 2025\n"
                                                 << std::ifstream(Path("from.eml"), std::ios::binary).rdbuf();
    RunSmall({"import", Mailbox("bob"), "Box", Path("box").string()});
}

}  // namespace
}  // namespace quorvane::test
