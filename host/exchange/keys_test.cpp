#include "host/exchange/keys.h"

#include <gtest/gtest.h>

#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

std::string_view ViewOf(const SecretBytes& secret)
{
    return {reinterpret_cast<const char*>(secret.data()), secret.size()};
}

TEST(KeysTest, OfOneSeedTheyAreTheSameAndOfTwoDrawsTheyDiffer)
{
    const DeviceKeys one, another;
    const DeviceKeys again(ViewOf(one.Seed()));

    EXPECT_EQ(again.Id(), one.Id());
    EXPECT_EQ(again.Signing(), one.Signing());
    EXPECT_EQ(again.Sealing(), one.Sealing());
    EXPECT_NE(another.Id(), one.Id());
    EXPECT_NE(another.Sealing(), one.Sealing());
    EXPECT_NE(RefusalOf([] { DeviceKeys(std::string_view("short")); }), "");
}

// Mailboxes that exist hold seeds: what comes of one must not change.
TEST(KeysTest, WhatComesOfASeedStaysTheSame)
{
    const DeviceKeys keys(std::string_view("0123456789abcdef0123456789abcdef"));

    EXPECT_EQ(TextOf(keys.Id()), "2fc4876cc9070de9bc2cbd8f4dee572d");
    EXPECT_EQ(FingerprintOf(keys.Id()), "fuzah-mitos-sohal-bulon-rubos-rukaz-hulov-jisot");
}

TEST(KeysTest, AnIdIsTheSigningKeysAndItsTextIsReadBack)
{
    const DeviceKeys keys;
    const std::string text = TextOf(keys.Id());

    EXPECT_EQ(IdOf(keys.Signing()), keys.Id());
    EXPECT_EQ(text.size(), 32U);
    EXPECT_EQ(ParseDeviceId(text), keys.Id());
    for (const std::string& wrong : {std::string(), text.substr(1), text + "0", std::string(32, 'A'),
                                     std::string(32, 'g'), text.substr(2) + ".."})
        EXPECT_FALSE(ParseDeviceId(wrong)) << wrong;
}

TEST(KeysTest, AFingerprintIsEightWordsThatTellTheIdsApart)
{
    DeviceId id;
    EXPECT_EQ(FingerprintOf(id), "babab-babab-babab-babab-babab-babab-babab-babab");
    id.bytes[15] = 1;
    EXPECT_EQ(FingerprintOf(id), "babab-babab-babab-babab-babab-babab-babab-babad");
    id.bytes[0] = 0x7F;
    id.bytes[1] = 0;
    EXPECT_EQ(FingerprintOf(id).substr(0, 5), "lusab");
}

TEST(KeysTest, WhatWasSignedForOnePurposeHoldsForNoOtherNorForOtherBytesOrKeys)
{
    const DeviceKeys keys, others;
    const Signature signature = keys.Sign("purpose", "bytes");

    EXPECT_TRUE(IsSignedBy(keys.Signing(), "purpose", "bytes", signature));
    EXPECT_FALSE(IsSignedBy(keys.Signing(), "purpose", "bytez", signature));
    EXPECT_FALSE(IsSignedBy(keys.Signing(), "purposes", "bytes", signature));
    EXPECT_FALSE(IsSignedBy(keys.Signing(), "purposeb", "ytes", signature));
    EXPECT_FALSE(IsSignedBy(others.Signing(), "purpose", "bytes", signature));
}

TEST(KeysTest, ADigestIsOfAllPiecesAndIsSignedLikeBytes)
{
    const DeviceKeys keys;
    Digest whole, pieces, other;
    whole.Add("all of it");
    pieces.Add("all ");
    pieces.Add("of it");
    other.Add("all of is");
    const auto digest = whole.Finish();

    EXPECT_EQ(pieces.Finish(), digest);
    const Signature signature = keys.SignDigest("purpose", digest);
    EXPECT_TRUE(IsDigestSignedBy(keys.Signing(), "purpose", digest, signature));
    EXPECT_FALSE(IsDigestSignedBy(keys.Signing(), "purpose", other.Finish(), signature));
}

TEST(KeysTest, WhatIsSealedOnlyItsReceiverOpens)
{
    const DeviceKeys receiver, others;
    const SecretBytes secret(32);
    std::string sealed = SealTo(receiver.Sealing(), secret);
    EXPECT_EQ(sealed.size(), 32 + kSealOverhead);

    const auto opened = receiver.Unseal(sealed);
    ASSERT_TRUE(opened);
    EXPECT_EQ(ViewOf(*opened), ViewOf(secret));
    EXPECT_FALSE(others.Unseal(sealed));
    sealed[40] ^= 1;
    EXPECT_FALSE(receiver.Unseal(sealed));
    EXPECT_FALSE(receiver.Unseal("short"));
}

TEST(KeysTest, NothingIsSealedToAKeyThatIsNone)
{
    EXPECT_NE(RefusalOf([] { SealTo(SealingKey{}, SecretBytes(32)); }), "");
}

}  // namespace

}  // namespace quorvane::host::exchange
