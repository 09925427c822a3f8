// Links between folders, which the C++ library doesn't make on Windows.
#include <gtest/gtest.h>

#include <fstream>

#include "host/mail/mail_files.h"
#include "platform/testing/surroundings.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

TEST(MailFilesLinkTest, ALinkThatLeadsBackEndsTheWalk)
{
    const fs::path root = test::MakeTestDirectory();
    fs::create_directory(root / "a");
    std::ofstream(root / "a" / "1.eml") << "Subject: hello\n\nbody\n";
    fs::create_directory_symlink(root, root / "a" / "loop");

    const std::vector<MailFile> files = FindMailFiles({root});

    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].Path(), root / "a" / "1.eml");
    fs::remove_all(root);
}

}  // namespace
}  // namespace quorvane
