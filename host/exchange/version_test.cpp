#include "host/exchange/version.h"

#include <gtest/gtest.h>

#include <random>

#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

using Order = Version::Order;

ChangerId Changer(unsigned char number)
{
    ChangerId id;
    id.bytes[0] = number;
    return id;
}

Version Changed(Version version, unsigned char by)
{
    version.Raise(Changer(by));
    return version;
}

TEST(VersionTest, WhoHadSeenTheOtherIsNewer)
{
    const Version first = Changed({}, 1), second = Changed(first, 2);

    EXPECT_EQ(first.Against(first), Order::kEqual);
    EXPECT_EQ(first.Against(second), Order::kOlder);
    EXPECT_EQ(second.Against(first), Order::kNewer);
    EXPECT_EQ(Version().Against(first), Order::kOlder);
    EXPECT_EQ(Version().Against(Version()), Order::kEqual);
}

TEST(VersionTest, ChangesOfTwoWhoHadntSeenEachOtherAreAConflict)
{
    const Version base = Changed({}, 1), one = Changed(base, 1), two = Changed(base, 2);

    EXPECT_EQ(one.Against(two), Order::kConflict);
    EXPECT_EQ(two.Against(one), Order::kConflict);
    Version merged = one;
    merged.Merge(two);
    EXPECT_EQ(merged.Against(one), Order::kNewer);
    EXPECT_EQ(merged.Against(two), Order::kNewer);
}

// Whatever changes are made in whatever order: the sets of changes behind two states tell the same.
TEST(VersionTest, AgreesWithTheSetsOfChangesBehindIt)
{
    using Changes = std::map<unsigned char, unsigned>;
    std::mt19937 random(7);
    std::vector<std::pair<Version, Changes>> states(4);
    int conflicts = 0;
    for (int step = 0; step < 3000; ++step) {
        auto& [version, changes] = states[random() % states.size()];
        if (random() % 2) {
            const auto by = static_cast<unsigned char>(random() % 4);
            version.Raise(Changer(by));
            ++changes[by];
        } else {
            const auto& [other, otherChanges] = states[random() % states.size()];
            version.Merge(other);
            for (const auto& [by, count] : otherChanges)
                changes[by] = std::max(changes[by], count);
        }
        const auto& left = states[random() % states.size()];
        const auto& right = states[random() % states.size()];
        bool leftLacks = false, rightLacks = false;
        for (unsigned char by = 0; by < 4; ++by) {
            const auto count = [by](const Changes& of) { return of.contains(by) ? of.at(by) : 0; };
            leftLacks |= count(left.second) < count(right.second);
            rightLacks |= count(right.second) < count(left.second);
        }
        const Order expected = leftLacks && rightLacks ? Order::kConflict
                               : leftLacks             ? Order::kOlder
                               : rightLacks            ? Order::kNewer
                                                       : Order::kEqual;
        ASSERT_EQ(left.first.Against(right.first), expected) << step;
        conflicts += expected == Order::kConflict ? 1 : 0;
    }
    EXPECT_GT(conflicts, 100);
}

TEST(VersionTest, ADeviceIsAnotherChangerInEachOfItsEpochs)
{
    DeviceId one, another;
    another.bytes[15] = 1;
    Epoch first{}, second{};
    second[0] = 1;

    EXPECT_EQ(ChangerOf(one, first), ChangerOf(one, first));
    EXPECT_NE(ChangerOf(one, first), ChangerOf(one, second));
    EXPECT_NE(ChangerOf(one, first), ChangerOf(another, first));
}

TEST(VersionTest, IsReadAsItWasWritten)
{
    const Version version = Changed(Changed(Changed({}, 3), 1), 3);
    EXPECT_EQ(Version::Read(version.Write(), "an item"), version);
    EXPECT_EQ(Version::Read(Version().Write(), "an item"), Version());
}

TEST(VersionTest, BytesThatAreNoVersionAreRefused)
{
    const std::string bytes = Changed(Changed({}, 3), 1).Write();
    ASSERT_EQ(bytes.size(), 50U);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_NE(RefusalOf([&] { Version::Read(bytes.substr(0, size), "an item"); }), "") << size;
    EXPECT_NE(RefusalOf([&] { Version::Read(bytes + 'x', "an item"); }), "");
    const std::string first = bytes.substr(2, 24), second = bytes.substr(26);
    EXPECT_NE(RefusalOf([&] { Version::Read(bytes.substr(0, 2) + second + first, "an item"); }), "");
    EXPECT_NE(RefusalOf([&] { Version::Read(bytes.substr(0, 2) + first + first, "an item"); }), "");
    std::string never = bytes, tooOften = bytes;
    never[2 + 16] = '\0';
    tooOften[2 + 16 + 7] = '\1';
    EXPECT_NE(RefusalOf([&] { Version::Read(never, "an item"); }), "");
    EXPECT_NE(RefusalOf([&] { Version::Read(tooOften, "an item"); }), "");
    EXPECT_NE(RefusalOf([&] {
                  Version::Read(std::string("\x01\x04", 2) + std::string(1025 * 24, 'x'), "an item");
              }).find("more changers"),
              std::string::npos);
}

}  // namespace

}  // namespace quorvane::host::exchange
