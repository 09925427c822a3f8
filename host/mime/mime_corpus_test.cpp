// Real mail, broken mail among it: QUORVANE_CORPUS names a folder with mail/ and mbox/ in it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "host/mail/mail_reader.h"
#include "host/mime/test_store.h"

namespace quorvane {
namespace {

class MimeCorpusTest : public StoreTest {};

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
        ++imported;
    }
    std::cout << imported << " mails came in and went out, " << passedOver << " were left out\n";
    EXPECT_GE(imported, 1100);
    EXPECT_LE(passedOver, 10);
}

}  // namespace
}  // namespace quorvane
