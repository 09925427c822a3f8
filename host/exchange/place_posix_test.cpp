// What only a POSIX file system lets others lay there, and whom it lets in.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "host/exchange/exchange_for_test.h"
#include "host/exchange/place.h"
#include "platform/testing/test_directory.h"

namespace quorvane::host::exchange {

namespace {

class PlacePosixTest : public ::testing::Test {
protected:
    PlacePosixTest()
    {
        std::filesystem::create_directory(directory / "exchange");
        std::filesystem::create_directories(out);
        std::ofstream(directory / "secret") << "a file of bob's own";
    }
    std::string Secret() const
    {
        std::ifstream file(directory / "secret");
        std::string text;
        std::getline(file, text);
        return text;
    }
    static mode_t ModeOf(const std::filesystem::path& path)
    {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    }
    void ExpectNoPlainFile(const char* what) const
    {
        EXPECT_NE(RefusalOf([&] { ofBob.Open(alice.Id(), 1); }).find("no plain file"), std::string::npos)
            << what;
    }

    test::TestDirectory directory;
    const DeviceKeys alice, bob;
    const std::filesystem::path home = directory / "exchange" / TextOf(alice.Id());
    const std::filesystem::path out = home / "out";
    const std::filesystem::path first = out / "00000000000000000001.qvx";
    Place ofAlice{directory / "exchange", alice.Id()};
    Place ofBob{directory / "exchange", bob.Id()};
};

TEST_F(PlacePosixTest, LinksPipesSocketsAndDevicesAreRefusedAndNobodyWaitsForThem)
{
    std::filesystem::create_symlink(directory / "secret", first);
    ExpectNoPlainFile("a link");
    std::filesystem::remove(first);
    ASSERT_EQ(mkfifo(first.c_str(), 0666), 0);
    ExpectNoPlainFile("a pipe");
    std::filesystem::remove(first);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(first.string().size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, first.c_str());
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ExpectNoPlainFile("a socket");
    close(listener);
    std::filesystem::remove(first);
    std::filesystem::create_symlink("/dev/zero", first);
    ExpectNoPlainFile("a device");
}

TEST_F(PlacePosixTest, DirectoriesAreNotReachedThroughLinks)
{
    std::filesystem::remove(out);
    std::filesystem::create_directory(directory / "elsewhere");
    std::ofstream(directory / "elsewhere" / "00000000000000000001.qvx") << "elsewhere";
    std::filesystem::create_directory_symlink(directory / "elsewhere", out);

    EXPECT_NE(RefusalOf([&] { ofBob.Open(alice.Id(), 1); }).find("no directory"), std::string::npos);
    EXPECT_NE(RefusalOf([&] { ofBob.Packages(alice.Id(), 0); }).find("no directory"), std::string::npos);
    EXPECT_NE(RefusalOf([&] { ofAlice.Put(2, MemorySource("mine")); }).find("no directory"),
              std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(directory / "elsewhere" / "00000000000000000002.qvx"));
}

TEST_F(PlacePosixTest, TheExchangeItselfMayBeALink)
{
    std::filesystem::create_directory_symlink(directory / "exchange", directory / "link");
    Place(directory / "link", alice.Id()).Put(1, MemorySource("mine"));
    EXPECT_EQ(Place(directory / "link", bob.Id()).Open(alice.Id(), 1)->Size(), 4U);
}

TEST_F(PlacePosixTest, NothingIsWrittenThroughWhatSomebodyLaidAtAName)
{
    std::filesystem::create_symlink(directory / "secret", first);
    std::filesystem::path aside = first;
    aside += ".part";
    std::filesystem::create_symlink(directory / "secret", aside);
    std::filesystem::create_symlink(directory / "secret", home / "card");

    ofAlice.Put(1, MemorySource("mine"));
    ofAlice.Write(Place::Note::kCard, "a card");

    EXPECT_EQ(Secret(), "a file of bob's own");
    EXPECT_EQ(ofBob.Open(alice.Id(), 1)->Size(), 4U);
    EXPECT_EQ(ofBob.Read(alice.Id(), Place::Note::kCard, 100), "a card");
}

TEST_F(PlacePosixTest, ACopyGoesIntoAFileOfItsOwnThatNobodyElseReads)
{
    ofAlice.Put(1, MemorySource("theirs"));
    const std::filesystem::path target = directory / "taken";
    std::filesystem::create_symlink(directory / "secret", directory / "taken.part");
    const mode_t mask = umask(0);

    CopyIn(*ofBob.Open(alice.Id(), 1), target, 100, 0);

    umask(mask);
    EXPECT_EQ(Secret(), "a file of bob's own");
    EXPECT_FALSE(std::filesystem::is_symlink(target));
    EXPECT_EQ(ModeOf(target), 0600U);
}

TEST_F(PlacePosixTest, OwnerAndGroupHaveTheirRightsWhateverTheMaskSays)
{
    std::filesystem::remove_all(home);
    for (const mode_t mask : {mode_t{077}, mode_t{0}}) {
        const mode_t before = umask(mask);
        ofAlice.Put(1, MemorySource("mine"));
        ofAlice.Write(Place::Note::kCard, "a card");
        umask(before);

        EXPECT_EQ(ModeOf(home), 0750U);
        EXPECT_EQ(ModeOf(out), 0750U);
        EXPECT_EQ(ModeOf(first), 0640U);
        EXPECT_EQ(ModeOf(home / "card"), 0640U);
        std::filesystem::remove_all(home);
    }
}

TEST_F(PlacePosixTest, WhoElseReadsIsTheUsersWord)
{
    const struct {
        Readers readers;
        mode_t directory, file;
    } kinds[] = {{Readers::kNobody, 0700, 0600},
                 {Readers::kGroup, 0750, 0640},
                 {Readers::kEverybody, 0755, 0644},
                 {Readers::kNobody, 0700, 0600}};
    for (const auto& kind : kinds) {
        const Place place(directory / "exchange", alice.Id(), kind.readers);
        place.Put(1, MemorySource("mine"));
        place.Write(Place::Note::kCard, "a card");

        EXPECT_EQ(ModeOf(home), kind.directory);
        EXPECT_EQ(ModeOf(out), kind.directory);
        EXPECT_EQ(ModeOf(first), kind.file);
        EXPECT_EQ(ModeOf(home / "card"), kind.file);
    }
}

TEST_F(PlacePosixTest, WhatLiesThereAlreadyIsLetToBeReadToo)
{
    std::filesystem::remove_all(home);
    Place(directory / "exchange", alice.Id(), Readers::kEverybody).LetRead();
    EXPECT_FALSE(std::filesystem::exists(home)) << "nothing is made for it";
    ofAlice.Put(1, MemorySource("mine"));
    ofAlice.Write(Place::Note::kCard, "a card");
    ASSERT_EQ(chmod((directory / "secret").c_str(), 0600), 0);
    std::filesystem::create_symlink(directory / "secret", home / "link");

    Place(directory / "exchange", alice.Id(), Readers::kEverybody).LetRead();

    EXPECT_EQ(ModeOf(home), 0755U);
    EXPECT_EQ(ModeOf(out), 0755U);
    EXPECT_EQ(ModeOf(first), 0644U);
    EXPECT_EQ(ModeOf(home / "card"), 0644U);
    EXPECT_EQ(ModeOf(directory / "secret"), 0600U) << "reached through a link";
}

// Directories that hand down their group, as exchanges of a group are set up.
TEST_F(PlacePosixTest, ADirectoryThatHandsItsGroupDownGoesOnDoingSo)
{
    std::filesystem::remove_all(home);
    ASSERT_EQ(chmod((directory / "exchange").c_str(), 02770), 0);
    const mode_t mask = umask(077);
    ofAlice.Put(1, MemorySource("mine"));
    umask(mask);
    EXPECT_EQ(ModeOf(home), 02750U);
    EXPECT_EQ(ModeOf(out), 02750U);
    EXPECT_EQ(ModeOf(first), 0640U);
}

// A file that takes no room and would take 3 GB of the mailbox's disk.
TEST_F(PlacePosixTest, ASparseFileIsRefusedByItsSize)
{
    std::ofstream{first};
    std::filesystem::resize_file(first, std::uintmax_t{3} << 30);
    const auto package = ofBob.Open(alice.Id(), 1);
    EXPECT_NE(RefusalOf([&] { CopyIn(*package, directory / "taken", 64 << 20, 0); }), "");
    EXPECT_FALSE(std::filesystem::exists(directory / "taken"));
    EXPECT_FALSE(std::filesystem::exists(directory / "taken.part"));
}

}  // namespace

}  // namespace quorvane::host::exchange
