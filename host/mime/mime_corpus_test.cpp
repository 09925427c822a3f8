// Real mail, broken mail among it: QUORVANE_CORPUS names a folder with mail/ and mbox/ in it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "host/mail/mail_check.h"
#include "host/mail/mail_reader.h"
#include "host/mail/unicode.h"
#include "host/mime/property_list.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class MimeCorpusTest : public StoreTest {};

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

TEST_F(MimeCorpusTest, EveryMailComesInAndGoesOutTheSame)
{
    const char* const corpus = std::getenv("QUORVANE_CORPUS");
    if (!corpus) {
        std::cout << "QUORVANE_CORPUS isn't set: no mail was read\n";
        return;
    }
    const std::filesystem::path root(corpus);
    MailReader reader({root / "mail", root / "mbox"});
    FoundMail mail;
    LeftOutFile leftOut;
    int imported = 0;
    int passedOver = 0;
    int anew = 0;
    for (MailReader::Step step; (step = reader.Next(mail, leftOut)) != MailReader::Step::End;) {
        if (step == MailReader::Step::LeftOut) {
            std::cout << "left out " << leftOut.source << ": " << leftOut.reason << "\n";
            ++passedOver;
            continue;
        }
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
    }
    std::cout << imported << " mails came in and went out, " << passedOver << " were left out\n";
    EXPECT_GE(imported, 1100);
    EXPECT_LE(passedOver, 10);
    EXPECT_LE(anew, 2);  // NULs in their headers, a boundary within itself
}

}  // namespace
}  // namespace quorvane
