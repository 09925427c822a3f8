#include "host/sharing/sha256.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

std::string DigestOf(const std::string& text, std::size_t piece)
{
    Sha256 digest;
    for (std::size_t at = 0; at < text.size(); at += piece)
        digest.Add(text.data() + at, std::min(piece, text.size() - at));
    return digest.Finish();
}

// The vectors that the standard's authors published.
TEST(Sha256Test, PublishedMessagesHaveTheirPublishedDigests)
{
    EXPECT_EQ(DigestOf("", 1), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(DigestOf("abc", 3), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(DigestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", 56),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(DigestOf(std::string(1'000'000, 'a'), 4096),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256Test, TheSizeOfThePiecesChangesNothing)
{
    for (const std::size_t size : {55U, 56U, 63U, 64U, 65U, 1000U}) {
        const std::string text(size, 'x');
        EXPECT_EQ(DigestOf(text, 1), DigestOf(text, size)) << size;
        EXPECT_EQ(DigestOf(text, 7), DigestOf(text, 64)) << size;
    }
}

}  // namespace

}  // namespace quorvane::host
