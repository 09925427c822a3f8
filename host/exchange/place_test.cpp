#include "host/exchange/place.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "host/exchange/exchange_for_test.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host::exchange {

namespace {

class PlaceTest : public ::testing::Test {
protected:
    PlaceTest() { std::filesystem::create_directory(directory / "exchange"); }

    std::filesystem::path PathOf(const DeviceId& device, const std::string& name) const
    {
        return directory / "exchange" / TextOf(device) / name;
    }
    static std::string Content(const ByteSource& source)
    {
        std::string content(static_cast<std::size_t>(source.Size()), '\0');
        source.ReadAt(0, content.data(), content.size());
        return content;
    }
    static void Lay(const std::filesystem::path& path, const std::string& content)
    {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

    test::TestDirectory directory;
    const DeviceKeys alice, bob;
    Place ofAlice{directory / "exchange", alice.Id()};
    Place ofBob{directory / "exchange", bob.Id()};
};

TEST_F(PlaceTest, WhatADeviceLaysThereOthersRead)
{
    ofAlice.Write(Place::Note::kCard, "a card");
    ofAlice.Put(7, MemorySource("the seventh"));
    ofAlice.Put(10, MemorySource("the tenth"));
    ofAlice.Put(9, MemorySource("the ninth"));

    EXPECT_EQ(ofBob.Devices(), std::vector<DeviceId>{alice.Id()});
    EXPECT_EQ(ofBob.Read(alice.Id(), Place::Note::kCard, 100), "a card");
    EXPECT_EQ(ofBob.Packages(alice.Id(), 0), (std::vector<std::uint64_t>{7, 9, 10}));
    EXPECT_EQ(ofBob.Packages(alice.Id(), 8), (std::vector<std::uint64_t>{9, 10}));
    EXPECT_EQ(Content(*ofBob.Open(alice.Id(), 9)), "the ninth");
    EXPECT_TRUE(std::filesystem::exists(PathOf(alice.Id(), "out/00000000000000000010.qvx")));
}

TEST_F(PlaceTest, WhatIsntThereIsNoError)
{
    EXPECT_TRUE(ofBob.Devices().empty());
    EXPECT_FALSE(ofBob.Read(alice.Id(), Place::Note::kAcks, 100));
    EXPECT_TRUE(ofBob.Packages(alice.Id(), 0).empty());
    EXPECT_FALSE(ofBob.Open(alice.Id(), 1));
    ofBob.Remove(1);
    ofAlice.Write(Place::Note::kAcks, "");
    EXPECT_EQ(ofBob.Read(alice.Id(), Place::Note::kAcks, 100), "");
    EXPECT_FALSE(ofBob.Read(alice.Id(), Place::Note::kCard, 100));
    EXPECT_FALSE(ofBob.Open(alice.Id(), 1));
}

TEST_F(PlaceTest, AnExchangeThatIsGoneIsAPassingErrorAndIsNotMade)
{
    std::filesystem::remove(directory / "exchange");

    EXPECT_FALSE(ofAlice.IsReachable());
    ErrorOf(Error::Kind::kPassing, [&] { ofAlice.Write(Place::Note::kCard, "a card"); });
    ErrorOf(Error::Kind::kPassing, [&] { ofAlice.Devices(); });
    EXPECT_FALSE(std::filesystem::exists(directory / "exchange"));
}

TEST_F(PlaceTest, WhatIsWrittenAgainReplacesWhatWasThere)
{
    ofAlice.Write(Place::Note::kAcks, "a longer first");
    ofAlice.Write(Place::Note::kAcks, "second");
    Lay(PathOf(alice.Id(), "out/00000000000000000001.qvx"), "junk of somebody's");
    Lay(PathOf(alice.Id(), "out/00000000000000000001.qvx.part"), "left by a kill");
    ofAlice.Put(1, MemorySource("mine"));

    EXPECT_EQ(ofBob.Read(alice.Id(), Place::Note::kAcks, 100), "second");
    EXPECT_EQ(Content(*ofBob.Open(alice.Id(), 1)), "mine");
    EXPECT_FALSE(std::filesystem::exists(PathOf(alice.Id(), "out/00000000000000000001.qvx.part")));
    ofAlice.Remove(1);
    EXPECT_TRUE(ofBob.Packages(alice.Id(), 0).empty());
}

TEST_F(PlaceTest, OtherNamesAreNobodysBusiness)
{
    ofAlice.Put(3, MemorySource("mine"));
    for (const char* name :
         {"3.qvx", "0000000000000000003.qvx", "00000000000000000004.qvt", "99999999999999999999.qvx",
          "00000000000000000000.qvx", "0000000000000000000a.qvx", "00000000000000000005.qvx.part",
          "-0000000000000000006.qvx", "00000000000000000007.QVX"})
        Lay(PathOf(alice.Id(), std::string("out/") + name), "junk");
    for (const char* name : {"bob", "ABCDEF00112233445566778899AABBCC", "0123"})
        std::filesystem::create_directory(directory / "exchange" / name);

    EXPECT_EQ(ofBob.Packages(alice.Id(), 0), std::vector<std::uint64_t>{3});
    EXPECT_EQ(ofBob.Devices(), std::vector<DeviceId>{alice.Id()});
}

TEST_F(PlaceTest, OfAFloodTheLowestNumbersAreSeen)
{
    const std::filesystem::path out = PathOf(alice.Id(), "out");
    std::filesystem::create_directories(out);
    char name[32];
    for (unsigned sequence = 1; sequence <= Place::kMostPackages + 100; ++sequence) {
        std::snprintf(name, sizeof name, "%020u.qvx", sequence);
        std::ofstream{out / name};
    }

    const auto packages = ofBob.Packages(alice.Id(), 5);

    ASSERT_EQ(packages.size(), Place::kMostPackages);
    EXPECT_EQ(packages.front(), 5U);
    EXPECT_EQ(packages.back(), Place::kMostPackages + 4);
}

TEST_F(PlaceTest, ANoteThatIsTooLongIsRefused)
{
    ofAlice.Write(Place::Note::kCard, std::string(101, 'x'));
    EXPECT_NE(RefusalOf([&] { ofBob.Read(alice.Id(), Place::Note::kCard, 100); }).find("longer than 100"),
              std::string::npos);
    EXPECT_EQ(ofBob.Read(alice.Id(), Place::Note::kCard, 101)->size(), 101U);
}

TEST_F(PlaceTest, ADirectoryInAFilesPlaceAndAFileInADirectorysAreRefused)
{
    std::filesystem::create_directories(PathOf(alice.Id(), "card"));
    std::filesystem::create_directories(PathOf(alice.Id(), "out/00000000000000000001.qvx"));
    Lay(directory / "exchange" / TextOf(bob.Id()), "no directory");

    EXPECT_NE(RefusalOf([&] { ofBob.Read(alice.Id(), Place::Note::kCard, 100); }).find("no plain file"),
              std::string::npos);
    EXPECT_NE(RefusalOf([&] { ofBob.Open(alice.Id(), 1); }).find("no plain file"), std::string::npos);
    EXPECT_NE(RefusalOf([&] { ofAlice.Packages(bob.Id(), 0); }).find("no directory"), std::string::npos);
}

TEST_F(PlaceTest, WhatIsTakenIsCopiedInFullOrNotAtAll)
{
    const std::filesystem::path target = directory / "taken";
    ofAlice.Put(1, MemorySource(std::string(600'000, 'x')));
    const auto package = ofBob.Open(alice.Id(), 1);

    CopyIn(*package, target, 600'000, 0);
    std::ifstream taken(target, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(taken), {}), std::string(600'000, 'x'));
    taken.close();
    std::filesystem::remove(target);

    EXPECT_NE(RefusalOf([&] { CopyIn(*package, target, 599'999, 0); }).find("more than 599999"),
              std::string::npos);
    EXPECT_NE(ErrorOf(Error::Kind::kPassing, [&] { CopyIn(*package, target, 600'000, ~std::uint64_t{0}); })
                  .find("would be full"),
              std::string::npos);
    std::filesystem::resize_file(PathOf(alice.Id(), "out/00000000000000000001.qvx"), 300'000);
    EXPECT_NE(
        ErrorOf(Error::Kind::kPassing, [&] { CopyIn(*package, target, 600'000, 0); }).find("become shorter"),
        std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(target));
    EXPECT_FALSE(std::filesystem::exists(directory / "taken.part"));
}

TEST_F(PlaceTest, OfAPackageThatCantBeReadToItsEndNothingIsLaidThere)
{
    class Torn final : public ByteSource {
    public:
        std::uint64_t Size() const override { return 600'000; }
        void ReadAt(std::uint64_t at, char*, std::size_t) const override
        {
            if (at > 0)
                FailForNow("the disk can't be read");
        }
    };
    ofAlice.Put(1, MemorySource("mine"));

    ErrorOf(Error::Kind::kPassing, [&] { ofAlice.Put(1, Torn()); });

    EXPECT_EQ(Content(*ofBob.Open(alice.Id(), 1)), "mine");
    EXPECT_FALSE(std::filesystem::exists(PathOf(alice.Id(), "out/00000000000000000001.qvx.part")));
}

}  // namespace

}  // namespace quorvane::host::exchange
