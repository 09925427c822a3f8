#include "host/exchange/acks.h"

#include <gtest/gtest.h>

#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

class AcksTest : public ::testing::Test {
protected:
    Acks Make() const
    {
        Acks acks;
        acks.serial = 5;
        acks.senders[alice.Id()] = {Epoch{1}, 41, {{42, 42}, {44, 50}}};
        acks.senders[carol.Id()] = {Epoch{2}, 0, {}};
        return acks;
    }
    void ExpectNoGaps(std::uint64_t applied, const std::vector<SequenceRange>& asked) const
    {
        Acks acks;
        acks.senders[alice.Id()] = {Epoch{1}, applied, asked};
        EXPECT_NE(RefusalOf([&] { WriteAcks(bob, acks); }).find("no gap"), std::string::npos);
    }

    const DeviceKeys alice, bob, carol;
};

TEST_F(AcksTest, AreReadAsTheyWereWritten)
{
    EXPECT_EQ(ReadAcks(WriteAcks(bob, Make()), bob.Signing()), Make());
    EXPECT_EQ(ReadAcks(WriteAcks(bob, Acks()), bob.Signing()), Acks());
}

TEST_F(AcksTest, WithAnyBitChangedOrCutOrOfAnotherDeviceAreRefused)
{
    const std::string bytes = WriteAcks(bob, Make());
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        std::string changed = bytes;
        changed[at] = static_cast<char>(changed[at] ^ 1 << at % 8);
        EXPECT_NE(RefusalOf([&] { ReadAcks(changed, bob.Signing()); }), "") << at;
        EXPECT_NE(RefusalOf([&] { ReadAcks(bytes.substr(0, at), bob.Signing()); }), "") << at;
    }
    EXPECT_NE(RefusalOf([&] { ReadAcks(bytes + 'x', bob.Signing()); }), "");
    EXPECT_NE(RefusalOf([&] { ReadAcks(bytes, alice.Signing()); }).find("aren't signed by it"),
              std::string::npos);
}

// The signature holds, since the device made it: nevertheless no such acks are taken.
TEST_F(AcksTest, OfAWrongFormAreNotReadEither)
{
    const auto signedByBob = [&](std::string bytes) {
        const Signature signature = bob.Sign("quorvane3 acks", bytes);
        return bytes.append(signature.begin(), signature.end());
    };
    const std::string head = std::string("QV3ACKS\1", 8) + std::string(8, '\0');
    const std::string noGaps(16 + 8 + 1, '\0');
    const std::string low = std::string(16, 'a') + noGaps, high = std::string(16, 'b') + noGaps;
    const std::string one("\1\0", 2), two("\2\0", 2);

    EXPECT_EQ(ReadAcks(signedByBob(head + two + low + high), bob.Signing()).senders.size(), 2U);
    for (const std::string& wrong : {two + high + low, two + low + low})
        EXPECT_NE(RefusalOf([&] { ReadAcks(signedByBob(head + wrong), bob.Signing()); }).find("out of order"),
                  std::string::npos);
    std::string gap = std::string(16, 'a') + noGaps + std::string(16, '\0');
    gap[16 + 16 + 8] = '\1';
    EXPECT_NE(RefusalOf([&] { ReadAcks(signedByBob(head + one + gap), bob.Signing()); }).find("no gap"),
              std::string::npos);
}

TEST_F(AcksTest, AskForGapsAloneAndNotForManyOfThem)
{
    ExpectNoGaps(5, {{5, 7}});
    ExpectNoGaps(5, {{7, 6}});
    ExpectNoGaps(5, {{6, 7}, {7, 9}});
    ExpectNoGaps(5, {{6, 7}, {8, 9}});
    ExpectNoGaps(5, {{9, 9}, {7, 7}});
    ExpectNoGaps(5, {{6, ~std::uint64_t{0}}});
    ExpectNoGaps(~std::uint64_t{0}, {});
    std::vector<SequenceRange> many;
    for (std::uint64_t first = 6; many.size() <= Acks::kMostGaps; first += 2)
        many.push_back({first, first});
    ExpectNoGaps(5, many);
    many.pop_back();
    Acks acks;
    acks.senders[alice.Id()] = {Epoch{1}, 5, many};
    EXPECT_EQ(ReadAcks(WriteAcks(bob, acks), bob.Signing()), acks);
}

TEST_F(AcksTest, OfManySendersFitIntoTheLimit)
{
    Acks acks;
    std::vector<SequenceRange> gaps;
    for (std::uint64_t first = 1; gaps.size() < Acks::kMostGaps; first += 2)
        gaps.push_back({first, first});
    for (std::size_t number = 0; number < Acks::kMostSenders; ++number) {
        DeviceId id;
        id.bytes[0] = static_cast<unsigned char>(number & 0xFF);
        id.bytes[1] = static_cast<unsigned char>(number >> 8);
        acks.senders[id] = {Epoch{}, 0, gaps};
    }
    EXPECT_EQ(ReadAcks(WriteAcks(bob, acks), bob.Signing()), acks);
    DeviceId another;
    another.bytes[2] = 1;
    acks.senders[another] = {};
    EXPECT_NE(RefusalOf([&] { WriteAcks(bob, acks); }).find("more senders"), std::string::npos);
    EXPECT_NE(
        RefusalOf([&] { ReadAcks(std::string(Acks::kLongest + 1, 'x'), bob.Signing()); }).find("too long"),
        std::string::npos);
}

TEST_F(AcksTest, CountInTheirEpochAlone)
{
    EXPECT_EQ(AcknowledgedUpTo(Make(), alice.Id(), Epoch{1}), 41U);
    EXPECT_EQ(AcknowledgedUpTo(Make(), alice.Id(), Epoch{2}), 0U);
    EXPECT_EQ(AcknowledgedUpTo(Make(), bob.Id(), Epoch{1}), 0U);
    EXPECT_EQ(AppliedOfAnotherEpoch(Make(), alice.Id(), Epoch{1}), 0U);
    EXPECT_EQ(AppliedOfAnotherEpoch(Make(), alice.Id(), Epoch{2}), 41U);
    EXPECT_EQ(AppliedOfAnotherEpoch(Make(), bob.Id(), Epoch{2}), 0U);
}

}  // namespace

}  // namespace quorvane::host::exchange
