#include "host/exchange/seal.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

constexpr std::size_t kChunkSize = std::size_t{256} << 10;

std::string RandomText(std::size_t size)
{
    std::mt19937 random(static_cast<unsigned>(size));
    std::string text(size, '\0');
    for (char& c : text)
        c = static_cast<char>(random());
    return text;
}

class SealTest : public ::testing::Test {
protected:
    static Receiver ReceiverOf(const DeviceKeys& keys) { return {keys.Id(), keys.Sealing(), 0}; }
    PackageLabel Label() const { return {alice.Id(), Epoch{1, 2, 3}, 42, PackageKind::kMembership}; }

    std::string Make(const std::string& content, const std::vector<Receiver>& receivers) const
    {
        std::string package;
        Seal(alice, Label(), receivers, MemorySource(content),
             [&](std::string_view bytes) { package += bytes; });
        return package;
    }
    std::string Make(const std::string& content) const
    {
        return Make(content, {ReceiverOf(bob), ReceiverOf(carol)});
    }

    // All that a receiver does; the content.
    std::string Open(const std::string& package, const DeviceKeys& receiver) const
    {
        const MemorySource source(package);
        SealedPackage sealed(source, "the package");
        sealed.Verify(alice.Signing());
        std::string content;
        sealed.Unseal(receiver, [&](std::string_view bytes) { content += bytes; });
        return content;
    }

    // A package of which something was changed, signed anew by its sender.
    std::string Resign(std::string package) const
    {
        package.resize(package.size() - sizeof(Signature));
        Digest digest;
        digest.Add(package);
        const Signature signature = alice.SignDigest("quorvane3 package", digest.Finish());
        return package.append(signature.begin(), signature.end());
    }

    const DeviceKeys alice, bob, carol, stranger;
};

TEST_F(SealTest, EachReceiverGetsTheContentOfEverySize)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{1000}, kChunkSize - 1,
                                   kChunkSize, kChunkSize + 1, 3 * kChunkSize}) {
        const std::string content = RandomText(size);
        const std::string package = Make(content);
        EXPECT_EQ(Open(package, bob), content) << size;
        EXPECT_EQ(Open(package, carol), content) << size;
    }
}

TEST_F(SealTest, SaysWhatItIsBeforeItIsOpened)
{
    const std::string package = Make("content");
    const MemorySource source(package);
    const SealedPackage sealed(source, "the package");

    EXPECT_EQ(sealed.Label().sender, alice.Id());
    EXPECT_EQ(sealed.Label().epoch, (Epoch{1, 2, 3}));
    EXPECT_EQ(sealed.Label().sequence, 42U);
    EXPECT_EQ(sealed.Label().kind, PackageKind::kMembership);
    EXPECT_EQ(sealed.ContentSize(), 7U);
}

TEST_F(SealTest, TellsEachReceiverWhichOneWasBeforeAndNobodyElseAnything)
{
    const std::string package =
        Make("content", {{bob.Id(), bob.Sealing(), 41}, {carol.Id(), carol.Sealing(), 0}});
    const MemorySource source(package);
    const SealedPackage sealed(source, "the package");

    EXPECT_EQ(sealed.PreviousFor(bob.Id()), 41U);
    EXPECT_EQ(sealed.PreviousFor(carol.Id()), 0U);
    EXPECT_EQ(sealed.PreviousFor(stranger.Id()), std::nullopt);
    EXPECT_NE(RefusalOf([&] { Make("content", {{bob.Id(), bob.Sealing(), 42}}); }), "");
    std::string later = package;
    later[59 + 16] = 42;  // bob's
    const MemorySource changed(later);
    EXPECT_NE(RefusalOf([&] { SealedPackage(changed, "the package").PreviousFor(bob.Id()); }), "");
}

// Zeros behind a good beginning, however many: nothing of them is read.
TEST_F(SealTest, AFileThatIsLongerThanItsContentCanBeIsRefusedByItsHeader)
{
    class Sparse final : public ByteSource {
    public:
        explicit Sparse(const std::string& bytes) : bytes_(bytes), header_(bytes.size()) {}
        std::uint64_t Size() const override { return std::uint64_t{3} << 30; }
        void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const override
        {
            EXPECT_LE(at + size, header_);
            bytes_.ReadAt(at, buffer, size);
        }

    private:
        MemorySource bytes_;
        std::uint64_t header_;
    };
    const Sparse sparse(Make("content"));
    EXPECT_NE(RefusalOf([&] { SealedPackage(sparse, "the package"); }).find("longer than its content"),
              std::string::npos);
}

TEST_F(SealTest, ContentIsMadeSmallerWhereThatHelpsAndIsNowhereInTheClear)
{
    std::string text;
    while (text.size() < 100'000)
        text += "Dear Bob, the meeting is at noon. ";
    const std::string package = Make(text), random = Make(RandomText(100'000));

    EXPECT_LT(package.size(), 10'000U);
    EXPECT_LT(random.size(), 100'500U);
    EXPECT_EQ(package.find("meeting"), std::string::npos);
    EXPECT_EQ(Make("Dear").find("Dear"), std::string::npos);
    EXPECT_EQ(Open(package, bob), text);
}

TEST_F(SealTest, TwoOfTheSameContentHaveNothingInCommonButTheLabel)
{
    const std::string content = RandomText(1000);
    const std::string one = Make(content), two = Make(content);
    ASSERT_EQ(one.size(), two.size());
    const std::size_t content_at = one.size() - sizeof(Signature) - 1000;
    EXPECT_NE(one.substr(content_at, 1000), two.substr(content_at, 1000));
}

TEST_F(SealTest, WhomItIsntForCantOpenIt)
{
    const std::string package = Make("content");
    EXPECT_NE(RefusalOf([&] { Open(package, stranger); }).find("isn't for this device"), std::string::npos);
}

TEST_F(SealTest, AnotherSendersKeyDoesntVerifyIt)
{
    const std::string package = Make("content");
    const MemorySource source(package);
    SealedPackage sealed(source, "the package");
    EXPECT_NE(RefusalOf([&] { sealed.Verify(stranger.Signing()); }).find("another sender"),
              std::string::npos);
}

// A stranger who puts a member's name onto what he made himself.
TEST_F(SealTest, AForgedSenderIsRefused)
{
    std::string package;
    Seal(stranger, Label(), {ReceiverOf(bob)}, MemorySource("content"),
         [&](std::string_view bytes) { package += bytes; });
    EXPECT_NE(RefusalOf([&] { Open(package, bob); }).find("isn't signed by the device that it names"),
              std::string::npos);
}

TEST_F(SealTest, NothingIsOpenedThatWasntVerified)
{
    const std::string package = Make("content");
    const MemorySource source(package);
    const SealedPackage sealed(source, "the package");
    EXPECT_THROW(sealed.Unseal(bob, [](std::string_view) { ADD_FAILURE(); }), std::logic_error);
}

TEST_F(SealTest, ABitChangedAnywhereIsRefused)
{
    const std::string package = Make(RandomText(1500));
    ASSERT_GT(package.size(), 1800U);
    for (std::size_t at = 0; at < package.size(); ++at) {
        std::string changed = package;
        changed[at] = static_cast<char>(changed[at] ^ 1 << at % 8);
        EXPECT_NE(RefusalOf([&] { Open(changed, bob); }), "") << at;
    }
}

TEST_F(SealTest, EveryCutAndEveryByteBehindTheEndIsRefused)
{
    const std::string package = Make("a small one");
    for (std::size_t size = 0; size < package.size(); ++size)
        EXPECT_NE(RefusalOf([&] { Open(package.substr(0, size), bob); }), "") << size;
    EXPECT_NE(RefusalOf([&] { Open(package + 'x', bob); }), "");
}

// What the sender signed himself is looked through all the same: he may be the one who means harm.
TEST_F(SealTest, ContentThatTheSenderChangedAfterSealingIsRefused)
{
    const std::string package = Make(std::string(kChunkSize, 'a') + RandomText(10));
    const std::size_t end = package.size() - sizeof(Signature);
    // The last chunk: 4 of size, 17 of the stream's, 1 of how it is kept, and 10.
    const std::string withoutLast = Resign(package.substr(0, end - 32) + package.substr(end));
    EXPECT_NE(RefusalOf([&] { Open(withoutLast, bob); }).find("cut short"), std::string::npos);
    const std::string twice = Resign(package.substr(0, end) + package.substr(end - 32));
    EXPECT_NE(RefusalOf([&] { Open(twice, bob); }).find("behind its end"), std::string::npos);
    std::string label = package;
    label[40] = 41;  // the sequence number
    EXPECT_NE(RefusalOf([&] { Open(Resign(label), bob); }).find("didn't seal"), std::string::npos);
    std::string size = package;
    size[end - 32] = '\x7F';
    EXPECT_NE(RefusalOf([&] { Open(Resign(size), bob); }).find("too long"), std::string::npos);
}

TEST_F(SealTest, AChunkThatIsLongerThanAnyAndANumberThatIsNoneAreRefused)
{
    std::string chunk = Make(RandomText(3 * kChunkSize), {ReceiverOf(bob)});
    const std::size_t first = 59 + 104 + 24;
    ASSERT_EQ(chunk.substr(first, 4), std::string("\x12\x00\x04\x00", 4));
    chunk[first] = '\x13';
    EXPECT_NE(RefusalOf([&] { Open(Resign(chunk), bob); }).find("too long"), std::string::npos);
    std::string number = Make("content");
    number.replace(40, 8, 8, '\0');
    EXPECT_NE(RefusalOf([&] { Open(Resign(number), bob); }).find("no proper number"), std::string::npos);
}

TEST_F(SealTest, ASizeThatIsntTheContentsIsRefusedBeforeMoreIsGiven)
{
    const std::string content(2 * kChunkSize, 'a');
    class Lying final : public ByteSource {
    public:
        Lying(const std::string& bytes, std::uint64_t said) : bytes_(bytes), said_(said) {}
        // The first answer goes into the header.
        std::uint64_t Size() const override { return asked_++ == 0 ? said_ : bytes_.Size(); }
        void ReadAt(std::uint64_t at, char* buffer, std::size_t size) const override
        {
            bytes_.ReadAt(at, buffer, size);
        }

    private:
        MemorySource bytes_;
        std::uint64_t said_;
        mutable int asked_ = 0;
    };
    const auto lie = [&](std::uint64_t said) {
        std::string package;
        Seal(alice, Label(), {ReceiverOf(bob)}, Lying(content, said),
             [&](std::string_view bytes) { package += bytes; });
        return package;
    };
    EXPECT_EQ(Open(lie(content.size()), bob), content);
    EXPECT_NE(RefusalOf([&] { Open(lie(content.size() - 1), bob); }).find("more than it says"),
              std::string::npos);
    EXPECT_NE(RefusalOf([&] { Open(lie(content.size() + 1), bob); }).find("less than it says"),
              std::string::npos);
}

TEST_F(SealTest, HasReceiversAndNotTooManyAndTheirKeysAreKeys)
{
    EXPECT_NE(RefusalOf([&] { Make("x", {}); }), "");
    EXPECT_NE(RefusalOf([&] { Make("x", std::vector<Receiver>(kMostReceivers + 1, ReceiverOf(bob))); }), "");
    EXPECT_NE(RefusalOf([&] { Make("x", {{bob.Id(), SealingKey{}, 0}}); }), "");
    EXPECT_EQ(Open(Make("x", std::vector<Receiver>(kMostReceivers, ReceiverOf(bob))), bob), "x");
}

TEST_F(SealTest, AKeyThatWasSealedToSomebodyElseUnderOurNameIsRefused)
{
    const std::string package = Make("x", {{bob.Id(), carol.Sealing(), 0}});
    EXPECT_NE(RefusalOf([&] { Open(package, bob); }).find("isn't sealed to this device"), std::string::npos);
}

}  // namespace

}  // namespace quorvane::host::exchange
