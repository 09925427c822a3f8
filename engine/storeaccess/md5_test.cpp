#include "engine/storeaccess/md5.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/storeaccess/item_hash.h"

namespace quorvane {
namespace {

std::string DigestOf(const std::string& text)
{
    return Md5Text(Md5(text.data(), text.size()));
}

TEST(Md5Test, TheDigestsOfTheStandardComeOut)
{
    EXPECT_EQ(DigestOf(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(DigestOf("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(DigestOf("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(DigestOf("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(DigestOf("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(DigestOf("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(DigestOf("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5Test, LengthsAroundABlockArePadded)
{
    EXPECT_EQ(DigestOf(std::string(55, 'x')), "04364420e25c512fd958a70738aa8f72");
    EXPECT_EQ(DigestOf(std::string(56, 'x')), "668a72d5ba17f08e62dabcafad6db14b");
    EXPECT_EQ(DigestOf(std::string(64, 'x')), "c1bb4f81d892b2d57947682aeb252456");
}

TEST(ItemHashTest, TheLowHalfOfTheTimeComesFirst)
{
    const std::string bytes{'\x04', '\x03', '\x02', '\x01', '\x44', '\x33', '\x22', '\x11'};
    const std::string expected = DigestOf(bytes);
    const OleString hash = ItemHash(FILETIME{0x01020304, 0x11223344});
    EXPECT_EQ(std::string(hash.begin(), hash.end()), expected);
}

}  // namespace
}  // namespace quorvane
