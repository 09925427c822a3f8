#include "host/exchange/card.h"

#include <gtest/gtest.h>

#include "host/exchange/device_link.h"
#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

class CardTest : public ::testing::Test {
protected:
    const DeviceKeys laptop, desktop, stranger;
    const std::string bytes = WriteCard(laptop, "alice", 7);
};

TEST_F(CardTest, IsReadAsItWasWritten)
{
    const Card card = ReadCard(bytes, laptop.Id());

    EXPECT_EQ(card.name, "alice");
    EXPECT_EQ(card.serial, 7U);
    EXPECT_EQ(card.signing, laptop.Signing());
    EXPECT_EQ(card.sealing, laptop.Sealing());
    EXPECT_TRUE(card.links.empty());
    EXPECT_EQ(card.Id(), laptop.Id());
}

TEST_F(CardTest, OfAnotherDeviceIsRefused)
{
    EXPECT_NE(RefusalOf([&] { ReadCard(bytes, stranger.Id()); }).find("another device's"), std::string::npos);
}

TEST_F(CardTest, WithAnyBitChangedOrCutAnywhereIsRefused)
{
    for (std::size_t at = 0; at < bytes.size(); ++at)
        for (int bit = 0; bit < 8; ++bit) {
            std::string changed = bytes;
            changed[at] = static_cast<char>(changed[at] ^ 1 << bit);
            EXPECT_NE(RefusalOf([&] { ReadCard(changed, laptop.Id()); }), "") << at << " " << bit;
        }
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_NE(RefusalOf([&] { ReadCard(bytes.substr(0, size), laptop.Id()); }), "") << size;
    EXPECT_NE(RefusalOf([&] { ReadCard(bytes + '\0', laptop.Id()); }).find("behind its end"),
              std::string::npos);
    EXPECT_NE(RefusalOf([&] { ReadCard(std::string(kLongestCard + 1, 'x'), laptop.Id()); }).find("too long"),
              std::string::npos);
}

// The signature holds, since the device made it: nevertheless no such card is taken.
TEST_F(CardTest, ANameThatIsNoneIsNeitherWrittenNorRead)
{
    for (const char* name : {"", ".", "../alice", "al/ice", "a b"})
        EXPECT_NE(RefusalOf([&] { WriteCard(laptop, name, 1); }), "") << name;
    std::string card("QV3CARD\1", 8);
    card += std::string(8, '\0');
    card.append(laptop.Signing().begin(), laptop.Signing().end());
    card.append(laptop.Sealing().begin(), laptop.Sealing().end());
    card += std::string("\4a/bc\0", 6);
    const Signature signature = laptop.Sign("quorvane3 card", card);
    card.append(signature.begin(), signature.end());
    EXPECT_NE(RefusalOf([&] { ReadCard(card, laptop.Id()); }).find("no proper name"), std::string::npos);
}

TEST_F(CardTest, TellsByWhomTheDeviceAgreesToBeLinked)
{
    const Card plain = ReadCard(WriteCard(desktop, "alice", 1), desktop.Id());
    const Signature agreement = AgreeToLink(desktop, laptop.Signing());
    const Card card = ReadCard(WriteCard(desktop, "alice", 2, {{laptop.Signing(), agreement}}), desktop.Id());

    EXPECT_EQ(AgreementIn(card, laptop.Signing()), agreement);
    EXPECT_FALSE(AgreementIn(card, stranger.Signing()));
    EXPECT_FALSE(AgreementIn(plain, laptop.Signing()));
}

TEST_F(CardTest, AnAgreementHoldsForThoseTwoDevicesAlone)
{
    const Signature agreement = AgreeToLink(desktop, laptop.Signing());
    const Card another =
        ReadCard(WriteCard(stranger, "alice", 1, {{laptop.Signing(), agreement}}), stranger.Id());
    const Card byAnother =
        ReadCard(WriteCard(desktop, "alice", 1, {{stranger.Signing(), agreement}}), desktop.Id());

    EXPECT_FALSE(AgreementIn(another, laptop.Signing()));
    EXPECT_FALSE(AgreementIn(byAnother, stranger.Signing()));
    EXPECT_FALSE(AgreesToLink(laptop.Signing(), desktop.Signing(), agreement)) << "the other way round";
}

TEST_F(CardTest, HasNoMoreLinksThanItMay)
{
    const CardLink link{desktop.Signing(), AgreeToLink(laptop, desktop.Signing())};
    EXPECT_EQ(ReadCard(WriteCard(laptop, "alice", 1, std::vector<CardLink>(kMostLinks, link)), laptop.Id())
                  .links.size(),
              kMostLinks);
    EXPECT_NE(RefusalOf([&] { WriteCard(laptop, "alice", 1, std::vector<CardLink>(kMostLinks + 1, link)); }),
              "");
}

}  // namespace

}  // namespace quorvane::host::exchange
