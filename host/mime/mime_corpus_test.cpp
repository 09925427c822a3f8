// Real mail, broken mail among it: QUORVANE_CORPUS names a folder with mail/ and mbox/ in it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "host/mail/ascii.h"
#include "host/mail/mail_check.h"
#include "host/mail/mail_reader.h"
#include "host/mime/property_list.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class MimeCorpusTest : public StoreTest {
protected:
    // Empty on a machine that has none, which is told.
    static std::filesystem::path Corpus()
    {
        const char* const corpus = std::getenv("QUORVANE_CORPUS");
        if (!corpus)
            std::cout << "QUORVANE_CORPUS isn't set: no mail was read\n";
        return corpus ? corpus : "";
    }

    // Gives how many files were left out, which are told.
    template <class Visit>
    static int ForEachMail(const std::filesystem::path& root, Visit visit)
    {
        MailReader reader({root / "mail", root / "mbox"});
        FoundMail mail;
        LeftOutFile leftOut;
        int count = 0;
        for (MailReader::Step step; (step = reader.Next(mail, leftOut)) != MailReader::Step::End;) {
            if (step != MailReader::Step::LeftOut) {
                visit(mail);
                continue;
            }
            std::cout << "left out " << leftOut.source << ": " << leftOut.reason << "\n";
            ++count;
        }
        return count;
    }
};

// A mail without the lines of its Subject fields.
std::string WithoutSubject(std::string_view mail)
{
    std::string result;
    bool inHeader = true;
    bool inSubject = false;
    for (; !mail.empty(); mail.remove_prefix(LineLength(mail))) {
        const std::string_view line = mail.substr(0, LineLength(mail));
        const bool continues = line.starts_with(' ') || line.starts_with('\t');
        inHeader = inHeader && !IsBlankLine(line);
        inSubject = inHeader && (continues ? inSubject : LowerAscii(line.substr(0, 7)) == "subject");
        if (!inSubject)
            result.append(line);
    }
    return result;
}

void Rename(IAttach& attachment, const char* name, const char* shortName)
{
    PropertyList value;
    value.AddText(PR_ATTACH_LONG_FILENAME_W, name);
    value.AddText(PR_DISPLAY_NAME_W, name);
    value.AddText(PR_ATTACH_FILENAME_W, shortName);
    value.AddText(PR_ATTACH_EXTENSION_W, ".bin");
    ASSERT_EQ(value.SetOn(attachment), S_OK);
}

void Attach(IMessage& message)
{
    ComPtr<IAttach> attachment;
    ULONG number = 0;
    ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    PropertyList value;
    value.AddLong(PR_ATTACH_METHOD, static_cast<LONG>(ATTACH_BY_VALUE));
    value.AddText(PR_ATTACH_MIME_TAG_W, "application/octet-stream");
    value.AddBinary(PR_ATTACH_DATA_BIN, "more");
    ASSERT_EQ(value.SetOn(*attachment), S_OK);
    Rename(*attachment, "more.bin", "MORE.BIN");
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
}

// Of a mail that became a sequence of parts.
std::string FirstPart(const std::string& mail)
{
    const std::size_t delimiter = mail.find("\n--=_1_") + 1;
    const std::size_t begin = mail.find('\n', delimiter) + 1;
    const std::string line = mail.substr(delimiter, mail.find_first_of("\r\n", delimiter) - delimiter);
    return mail.substr(begin, mail.find("\n" + line, begin) - begin);
}

// Whether openssl finds the S/MIME signature of a mail good; whose it is isn't asked.
bool IsSignatureGood(const std::string& mail)
{
    std::string path = (std::filesystem::temp_directory_path() / "qv-signed-XXXXXX").string();
    const int file = mkstemp(path.data());
    EXPECT_GE(file, 0);
    close(file);
    std::ofstream(path, std::ios::binary) << mail;
    const std::string command = "openssl cms -verify -noverify -in " + path + " -out /dev/null 2> /dev/null";
    const int result = std::system(command.c_str());
    std::filesystem::remove(path);
    return result == 0;
}

TEST_F(MimeCorpusTest, SignaturesHoldWhateverElseIsEdited)
{
    const std::filesystem::path root = Corpus();
    if (root.empty())
        return;
    int good = 0;
    for (const auto& entry : std::filesystem::directory_iterator(root / "mail")) {
        if (!entry.is_regular_file())
            continue;
        const std::string original = ReadFile(entry.path());
        if (original.find("pkcs7") == std::string::npos || !IsSignatureGood(original))
            continue;
        const MailBytes bytes(original);
        const auto message = store->Import(bytes, {.read = {}, .original = &bytes});
        PropertyList subject;
        subject.AddText(PR_SUBJECT_W, "Quite another subject");
        ASSERT_EQ(subject.SetOn(*message), S_OK);
        const std::string edited = Mail(*message);
        EXPECT_NE(edited.find("Quite another subject"), std::string::npos) << entry.path();
        EXPECT_TRUE(IsSignatureGood(edited)) << entry.path();
        Attach(*message);
        EXPECT_TRUE(IsSignatureGood(FirstPart(Mail(*message)))) << entry.path();
        ++good;
    }
    EXPECT_GE(good, 8);
}

// Whether a mail with LF alone was made anew: that has CRLF.
bool IsMadeAnew(const std::string& mail, const std::string& original)
{
    return original.find('\r') == std::string::npos && mail.find('\r') != std::string::npos;
}

TEST_F(MimeCorpusTest, AnEditOfBodiesOrAttachmentsLeavesTheRest)
{
    const std::filesystem::path root = Corpus();
    if (root.empty())
        return;
    int edited = 0;
    int anew = 0;
    int taken = 0;
    int takenAnew = 0;
    int changed = 0;
    int changedAnew = 0;
    int added = 0;
    int addedAnew = 0;
    ForEachMail(root, [&](const FoundMail& mail) {
        const std::string original = mail.Original().Text();
        const ImportOptions options{.read = mail.read, .original = &mail.Original()};
        const auto message = store->Import(mail.bytes, options);
        if (const auto attachments = Attachments(*message); !attachments.empty()) {
            ASSERT_EQ(message->DeleteAttach(0, 0, nullptr, 0), S_OK);
            const std::string without = Mail(*message);
            EXPECT_EQ(Describe(*store->Import(without)), Describe(*message)) << mail.source;
            takenAnew += IsMadeAnew(without, original) ? 1 : 0;
            ++taken;
        }
        {
            const auto more = store->Import(mail.bytes, options);
            Attach(*more);
            const std::string with = Mail(*more);
            EXPECT_EQ(Describe(*store->Import(with)), Describe(*more)) << mail.source;
            addedAnew += IsMadeAnew(with, original) ? 1 : 0;
            if (IsMadeAnew(with, original))
                std::cout << "made anew with an attachment more: " << mail.source << "\n";
            ++added;
            if (Attachments(*more).size() > 1) {
                ComPtr<IAttach> attachment;
                ASSERT_EQ(more->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Put()), S_OK);
                Rename(*attachment, "another.bin", "ANOTHER.BIN");
                ASSERT_EQ(attachment->SaveChanges(0), S_OK);
                const std::string renamed = Mail(*more);
                // Types are written anew.
                EXPECT_EQ(LowerAscii(Describe(*store->Import(renamed))), LowerAscii(Describe(*more)))
                    << mail.source;
                changedAnew += IsMadeAnew(renamed, original) ? 1 : 0;
                ++changed;
            }
        }
        if (Text(*message, PR_BODY_W).empty())
            return;
        PropertyList body;
        body.AddText(PR_BODY_W, "Quite another t\xC3\xA9xt\r\n");
        ASSERT_EQ(body.SetOn(*message), S_OK);
        const std::string with = Mail(*message);
        EXPECT_EQ(Describe(*store->Import(with)), Describe(*message)) << mail.source;
        anew += IsMadeAnew(with, original) ? 1 : 0;
        ++edited;
    });
    std::cout << edited << " texts edited, " << anew << " of their mails made anew; " << taken
              << " attachments taken out, " << takenAnew << " made anew; " << added << " attachments added, "
              << addedAnew << " made anew; " << changed << " attachments renamed, " << changedAnew
              << " made anew\n";
    EXPECT_GE(edited, 950);
    EXPECT_LE(anew, 22);  // mails without a multipart's lines
    EXPECT_GE(taken, 350);
    EXPECT_LE(takenAnew, 34);  // those that are all of their mail
    EXPECT_GE(added, 1100);
    EXPECT_LE(addedAnew, 7);  // mails without a multipart's lines, a body with a name of its own
    EXPECT_GE(changed, 350);
    EXPECT_LE(changedAnew, 0);
}

TEST_F(MimeCorpusTest, EveryMailComesInAndGoesOutTheSame)
{
    const std::filesystem::path root = Corpus();
    if (root.empty())
        return;
    int imported = 0;
    int anew = 0;
    const int passedOver = ForEachMail(root, [&](const FoundMail& mail) {
        ASSERT_EQ(mail.kind, FoundMail::Kind::Mime) << mail.source;
        const auto first = store->Import(mail.bytes);
        const auto second = store->Import(Export(*first));
        EXPECT_EQ(Describe(*first), Describe(*second)) << mail.source;

        const auto kept = store->Import(mail.bytes, {.read = mail.read, .original = &mail.Original()});
        EXPECT_EQ(Mail(*kept), mail.Original().Text()) << mail.source;
        PropertyList subject;
        subject.AddText(PR_SUBJECT_W, "Quite another subject");
        ASSERT_EQ(subject.SetOn(*kept), S_OK);
        const std::string edited = Mail(*kept);
        EXPECT_NE(edited.find("Quite another subject"), std::string::npos) << mail.source;
        if (WithoutSubject(edited) != WithoutSubject(mail.bytes.Text())) {
            std::cout << "made anew with its subject: " << mail.source << "\n";
            ++anew;
        }
        ++imported;
    });
    std::cout << imported << " mails came in and went out, " << passedOver << " were left out\n";
    EXPECT_GE(imported, 1100);
    EXPECT_LE(passedOver, 10);
    EXPECT_LE(anew, 2);  // NULs in their headers, a boundary within itself
}

}  // namespace
}  // namespace quorvane
