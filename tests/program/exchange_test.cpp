// What a place does that isn't trusted, what is laid there by people who aren't members, and what of it
// reaches the mailboxes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

#include "host/exchange/acks.h"
#include "host/exchange/exchange_for_test.h"
#include "tests/program/program.h"
#include "tests/program/sealed.h"

namespace quorvane::test {

namespace {

using host::exchange::DeviceKeys;

void Overwrite(const std::filesystem::path& path, const std::string& bytes)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

// On the disk where that has room for them, else as a file with a hole.
void LayZeros(const std::filesystem::path& path, std::uintmax_t size)
{
    if (std::filesystem::space(path).available > 2 * size) {
        const int file = open(path.c_str(), O_WRONLY);
        const int code = posix_fallocate(file, 0, static_cast<off_t>(size));
        close(file);
        if (code == 0)
            return;
    }
    std::filesystem::resize_file(path, size);
}

class ExchangeTest : public ProgramTest {
protected:
    // alice shares a folder of one mail with bob, who may have it yet or not.
    void Share()
    {
        MakeMailboxes({"alice", "bob"});
        MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob"});
    }
    void ShareToTheEnd()
    {
        Share();
        RunUntilIdle({"alice", "bob"}, kIdle);
    }

    Json RunOnce(const std::string& name, const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> arguments = RunOf(name, {"--until-idle", "--idle-seconds", kIdle, "--json"});
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Outcome outcome = MustRunBy(ProgramOf(name), arguments);
        said_ = outcome.errors;
        return outcome.exitCode == 0 ? outcome.Value() : Json::object();
    }
    Json Status(const std::string& name) const
    {
        return MustRunBy(ProgramOf(name), {"status", Mailbox(name), "--json"}).Value();
    }
    void Edit(const std::string& name, const std::string& subject) const
    {
        MustRun({"edit", Mailbox(name), "Shared", "1", "--subject", subject});
    }
    TestDevice DeviceOf(const std::string& name) const { return {Path("exchange"), KeysOf(Mailbox(name))}; }
    std::uint64_t States(const std::string& name, const std::string& state) const
    {
        std::uint64_t count = 0;
        const Json status = Status(name);
        for (const Json& entry : status.at("incoming"))
            count += entry.at("state") == state ? 1 : 0;
        return count;
    }

    // One bit of each byte in its turn, but for the receiver's id: without that it would be for somebody
    // else, and no business of bob's.
    static void Flip(std::string& package, std::size_t turn, std::mt19937& random)
    {
        constexpr std::size_t kIdAt = 59, kIdSize = 16;
        const std::size_t place = turn % (package.size() - kIdSize);
        const std::size_t at = place < kIdAt ? place : place + kIdSize;
        package[at] = static_cast<char>(package[at] ^ 1 << random() % 8);
    }

    // As many digits as a device's id has: lower ones than any device's, so that of a listing they are the
    // first.
    static std::string Digits(int number)
    {
        const std::string digits = std::to_string(number);
        return std::string(32 - digits.size(), '0') + digits;
    }

    static constexpr int kJunk = 100'000;
    static constexpr char kIdle[] = "0.5";
    mutable std::string said_;  // by the last run
};

// alice's next change is withheld, and the one behind it comes.
TEST_F(ExchangeTest, WhatComesBeforeItsPredecessorWaitsForIt)
{
    ShareToTheEnd();
    MustRun({"import", Mailbox("alice"), "Shared", Sample("07-attachment-csv").string()});
    RunOnce("alice");
    const auto withheld = Packages();
    ASSERT_EQ(withheld.size(), 1U);
    std::filesystem::rename(withheld[0], Path("withheld"));
    Edit("alice", "the later change");
    // The sender's own copy is gone too, for all that she can see: she isn't to look meanwhile.
    std::filesystem::rename(Path("withheld"), withheld[0]);
    RunOnce("alice");
    ASSERT_EQ(Packages().size(), 2U);
    std::filesystem::rename(withheld[0], Path("withheld"));

    EXPECT_EQ(RunOnce("bob").at("itemsApplied"), 0U);
    EXPECT_EQ(Items("bob", "Shared").size(), 1U);
    EXPECT_TRUE(Status("bob").at("members").at(0).contains("missing"));
    EXPECT_EQ(Packages().size(), 1U) << "nothing is removed by a receiver";

    std::filesystem::rename(Path("withheld"), withheld[0]);
    EXPECT_EQ(RunOnce("bob").at("itemsApplied"), 2U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    RunUntilIdle({"alice", "bob"}, kIdle);
    EXPECT_TRUE(Packages().empty()) << "the sender removes what was acknowledged";
}

TEST_F(ExchangeTest, APackageThatIsLostIsAskedForAndMadeAgain)
{
    ShareToTheEnd();
    const std::string gone = Items("alice", "Shared").at(0).at("id");
    MustRun({"import", Mailbox("alice"), "Shared", Sample("07-attachment-csv").string()});
    MustRun({"delete", Mailbox("alice"), "Shared", gone});
    RunOnce("alice");
    // Garbage in place of all that lies there, which is not what alice looks for at each step.
    for (const auto& package : Packages())
        Overwrite(package, "garbage");
    MustRun({"import", Mailbox("alice"), "Shared", Sample("08-odd-attachment-names").string()});
    RunOnce("alice");

    RunOnce("bob", {"--ask-after", "0"});
    EXPECT_EQ(Subjects("bob").size(), 1U);
    EXPECT_EQ(Status("bob").at("members").at(0).at("asked"), true);
    RunOnce("alice", {"--ask-after", "0"});
    EXPECT_NE(said_.find("what it lacks is looked for"), std::string::npos) << said_;
    RunUntilIdle({"alice", "bob"}, kIdle);

    EXPECT_EQ(Subjects("bob").size(), 2U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_TRUE(Packages().empty());
}

TEST_F(ExchangeTest, AnExchangeThatIsWipedHealsByItself)
{
    ShareToTheEnd();
    Edit("alice", "lost with the exchange");
    RunOnce("alice");
    std::filesystem::remove_all(Path("exchange"));
    std::filesystem::create_directory(Path("exchange"));

    RunUntilIdle({"alice", "bob"}, kIdle);

    EXPECT_EQ(Subjects("bob"), std::vector<std::string>{"lost with the exchange"});
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_TRUE(Packages().empty());
}

// As by a synchroniser that gives back last week's state: what was read comes again, what was written since
// is gone.
TEST_F(ExchangeTest, AnExchangeThatIsPutBackAsItWasHealsByItself)
{
    ShareToTheEnd();
    Edit("alice", "in the state that comes back");
    RunOnce("alice");
    std::filesystem::copy(Path("exchange"), Path("before"), std::filesystem::copy_options::recursive);
    RunUntilIdle({"alice", "bob"}, kIdle);
    Edit("bob", "seen by alice");
    RunUntilIdle({"alice", "bob"}, kIdle);
    Edit("alice", "gone with the state since");
    RunOnce("alice");
    std::filesystem::remove_all(Path("exchange"));
    std::filesystem::rename(Path("before"), Path("exchange"));

    RunUntilIdle({"alice", "bob"}, kIdle);

    EXPECT_EQ(Subjects("bob"), std::vector<std::string>{"gone with the state since"});
    ExpectSame("alice", "Shared", "bob", "Shared");
    Edit("bob", "and on");
    RunUntilIdle({"alice", "bob"}, kIdle);
    EXPECT_EQ(Subjects("alice"), std::vector<std::string>{"and on"});
    EXPECT_TRUE(Packages().empty());
}

// All that bob wrote since the backup, and all that alice has acknowledged to him, comes back.
TEST_F(ExchangeTest, AMailboxOutOfABackupIsBroughtUpToDateAndIsHeard)
{
    ShareToTheEnd();
    MustRun({"import", Mailbox("alice"), "Shared", Sample("03-html-only").string(),
             Sample("04-alternative").string()});
    RunUntilIdle({"alice", "bob"}, kIdle);
    std::filesystem::copy(Path("bob"), Path("backup"), std::filesystem::copy_options::recursive);
    Edit("bob", "after the backup");
    RunUntilIdle({"alice", "bob"}, kIdle);
    MustRun({"import", Mailbox("alice"), "Shared", Sample("07-attachment-csv").string()});
    RunUntilIdle({"alice", "bob"}, kIdle);
    std::filesystem::remove_all(Path("bob"));
    std::filesystem::rename(Path("backup"), Path("bob"));

    EXPECT_EQ(RunOnce("bob").at("itemsSent"), 0U);
    EXPECT_NE(said_.find("backup"), std::string::npos) << said_;
    const auto counts = RunUntilIdle({"alice", "bob"}, kIdle);
    EXPECT_EQ(Subjects("bob").size(), 4U);
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_EQ(counts[0].at("itemsSent"), 2U) << "what he lacks, and no more";
    EXPECT_EQ(counts[1].at("itemsSent"), 0U);

    Edit("bob", "heard again");
    RunUntilIdle({"alice", "bob"}, kIdle);
    EXPECT_EQ(std::ranges::count(Subjects("alice"), "heard again"), 1);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

TEST_F(ExchangeTest, AStrangerIsNamedAndNothingOfHisComesIn)
{
    ShareToTheEnd();
    MakeMailboxes({"mallory"});
    for (const char* name : {"alice", "bob"})
        MustRun({"members", "drop", Mailbox(name), host::exchange::TextOf(DeviceOf("mallory").Keys().Id())});
    MustRun({"import", Mailbox("mallory"), "Secrets", Sample("07-attachment-csv").string()});
    MustRun({"share", Mailbox("mallory"), "Secrets", "--with", "bob"});
    RunOnce("mallory");
    ASSERT_FALSE(Packages().empty());

    EXPECT_EQ(RunOnce("bob").at("packagesReceived"), 0U);

    EXPECT_NE(said_.find("calls itself 'mallory'"), std::string::npos) << said_;
    EXPECT_EQ(Status("bob").at("strangers").size(), 1U);
    EXPECT_EQ(MustRun({"list", Mailbox("bob"), "--json"}).Value().dump().find("Secrets"), std::string::npos);
    // Once he is a member it is taken.
    MustRun({"members", "add", Mailbox("bob"), "mallory"});
    RunUntilIdle({"mallory", "bob"}, kIdle);
    EXPECT_EQ(Items("bob", "Secrets").size(), 1U);
}

// A copy of a member's package under the stranger's own name, and his own under the member's.
TEST_F(ExchangeTest, APackageThatIsCopiedOrForgedOpensNothing)
{
    Share();
    RunOnce("alice");
    const auto packages = Packages();
    ASSERT_FALSE(packages.empty());
    TestDevice stranger(Path("exchange"), DeviceKeys{});
    stranger.LayCard("alice");
    for (std::uint64_t sequence = 1; sequence <= packages.size(); ++sequence)
        stranger.Lay(sequence, BytesOf(DeviceOf("alice").PackagePath(sequence)));
    const std::string content = BytesOf(Sample("01-plain"));
    stranger.sender = DeviceOf("alice").Keys().Id();
    stranger.epoch = EpochOf(DeviceOf("alice").PackagePath(1));
    Overwrite(DeviceOf("alice").PackagePath(1), stranger.Sealed(1, 0, KeysOf(Mailbox("bob")), content));

    const Json counts = RunOnce("bob");

    EXPECT_EQ(counts.at("packagesReceived"), 0U);
    EXPECT_GE(counts.at("packagesRejected"), 1U);
    EXPECT_EQ(States("bob", "refused"), 1U);
    // Of two that have the name, one is pinned, and the name says nothing against it.
    EXPECT_EQ(
        MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob", "--json"}).Value().at("pinned").size(),
        0U);
}

TEST_F(ExchangeTest, OfTwoDevicesOfOneNameNeitherIsTakenUntilTheUserSaysWhichOne)
{
    Share();
    const TestDevice one(Path("exchange"), DeviceKeys{}), two(Path("exchange"), DeviceKeys{});
    one.LayCard("carol");
    two.LayCard("carol");

    const Outcome refused = Run({"share", Mailbox("alice"), "Shared", "--with", "carol"});
    EXPECT_EQ(refused.exitCode, 1);
    for (const TestDevice* device : {&one, &two})
        EXPECT_NE(refused.errors.find(host::exchange::TextOf(device->Keys().Id())), std::string::npos)
            << refused.errors;
    EXPECT_EQ(Status("alice").at("shares").at(0).at("members"), Json{"bob"});
    EXPECT_EQ(Run({"members", "add", Mailbox("alice"), "carol"}).exitCode, 1);

    MustRun(
        {"members", "add", Mailbox("alice"), "carol", "--device", host::exchange::TextOf(two.Keys().Id())});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "carol"});
    RunOnce("alice");
    bool any = false;
    for (const auto& package : Packages()) {
        EXPECT_FALSE(Open(package, one.Keys()));
        any = any || Open(package, two.Keys());
    }
    EXPECT_TRUE(any);
    // A name never overrides a pin.
    const Outcome other =
        Run({"members", "add", Mailbox("alice"), "bob", "--device", host::exchange::TextOf(two.Keys().Id())});
    EXPECT_EQ(other.exitCode, 1);
}

TEST_F(ExchangeTest, AMemberWhoIsntThereYetIsAwaitedAndSentEverythingOnceHeIsKnown)
{
    MakeMailboxes({"alice"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    const Json shared = MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob", "--json"}).Value();
    EXPECT_EQ(shared.at("awaited"), Json{"bob"});
    RunOnce("alice");
    EXPECT_TRUE(Packages().empty());
    EXPECT_EQ(Status("alice").at("awaited"), Json{"bob"});

    MustRunBy(ProgramOf("bob"), {"init", Mailbox("bob"), "--name", "bob", "--exchange", Exchange()});
    RunOnce("alice");
    EXPECT_TRUE(Packages().empty()) << "a name alone opens nothing";
    EXPECT_NE(said_.find("awaited"), std::string::npos) << said_;
    MustRun({"members", "add", Mailbox("alice"), "bob"});
    MustRun({"members", "add", Mailbox("bob"), "alice"});
    RunUntilIdle({"alice", "bob"}, kIdle);
    ExpectSame("alice", "Shared", "bob", "Shared");
}

// Who is in a folder tells the others of each other's devices.
TEST_F(ExchangeTest, MembersLearnOfEachOthersDevicesFromWhomTheyShareWith)
{
    MakeMailboxes({"alice"});
    for (const char* name : {"bob", "carol"})
        MustRun({"init", Mailbox(name), "--name", name, "--exchange", Exchange()});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("01-plain").string()});
    MustRun({"share", Mailbox("alice"), "Shared", "--with", "bob", "carol"});
    for (const char* name : {"bob", "carol"})
        MustRun({"members", "add", Mailbox(name), "alice"});
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);

    Edit("bob", "from bob to both");
    RunUntilIdle({"alice", "bob", "carol"}, kIdle);

    EXPECT_EQ(Subjects("carol"), std::vector<std::string>{"from bob to both"});
    const Json members = MustRun({"members", Mailbox("carol"), "--json"}).Value().at("members");
    ASSERT_EQ(members.size(), 2U);
    EXPECT_EQ(members[1].at("member"), "bob");
    EXPECT_EQ(members[1].at("how"), "introduced by alice");
}

// Somebody who is known, but shares another folder.
TEST_F(ExchangeTest, WhoSharesOneFolderReachesNoItemOfAnother)
{
    ShareToTheEnd();
    MakeMailboxes({"dave"});
    // What alice sent of the folder, sent by dave under his own keys.
    Edit("alice", "of the folder");
    RunOnce("alice");
    const auto files = ContentFor("bob");
    ASSERT_EQ(files.size(), 1U);
    const TestDevice dave = DeviceOf("dave");
    dave.Lay(1, dave.Sealed(1, 0, KeysOf(Mailbox("bob")), BytesOf(files[0])));
    for (const auto& package : Packages())
        if (package.parent_path().parent_path() != dave.Home())
            std::filesystem::remove(package);

    const Json counts = RunOnce("bob");

    EXPECT_EQ(counts.at("packagesRejected"), 1U);
    EXPECT_EQ(counts.at("itemsApplied"), 0U);
    ASSERT_EQ(Status("bob").at("refusals").size(), 1U);
    EXPECT_EQ(Status("bob").at("refusals").at(0).at("member"), "dave");
    EXPECT_NE(Subjects("bob"), std::vector<std::string>{"of the folder"});
}

TEST_F(ExchangeTest, NumbersThatAreHugeAndNamesThatAreNoneHoldNobodyUp)
{
    ShareToTheEnd();
    for (const char* name : {"alice", "bob"}) {
        const TestDevice device = DeviceOf(name);
        Overwrite(device.Home() / "out" / "18446744073709551615.qvx", "huge");
        Overwrite(device.PackagePath(9'000'000'000'000'000'000U), "large");
        Overwrite(device.Home() / "out" / "1.qvx", "short");
        Overwrite(device.Home() / "out" / "00000000000000000003.qvt", "former");
    }
    Overwrite(Path("exchange") / "00000000000000000000000000000000" / "card", "no card");
    // Names that could be devices', and directories, among them: more than are listed, and before all others.
    for (int number = 0; number < kJunk; ++number)
        Overwrite(Path("exchange") / (number % 4 == 0 ? Digits(number + 1) : "junk" + std::to_string(number)),
                  "junk");
    for (int number = 0; number < kJunk / 100; ++number)
        std::filesystem::create_directories(Path("exchange") / Digits(kJunk + number + 1) / "out");
    Edit("alice", "all the same");
    Edit("bob", "and back");

    RunUntilIdle({"alice", "bob"}, kIdle);

    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_EQ(std::ranges::count(Subjects("alice"), "and back"), 1);
}

// A pipe, a link, a directory and a sparse giant in the place of packages, of a device that is known.
TEST_F(ExchangeTest, WhatIsNoPlainFileOrTooLargeIsRefusedUnread)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "links and pipes are this system's";
    ShareToTheEnd();
    MakeMailboxes({"dave"});
    const TestDevice dave = DeviceOf("dave");
    Overwrite(Path("secret"), "secret");
    std::filesystem::create_directories(dave.Home() / "out");
    ASSERT_EQ(mkfifo(dave.PackagePath(1).c_str(), 0666), 0);
    Overwrite(Path("elsewhere"), dave.Sealed(2, 0, KeysOf(Mailbox("bob")), "content"));
    std::filesystem::create_symlink(Path("elsewhere"), dave.PackagePath(2));
    std::filesystem::create_directory(dave.PackagePath(3));
    Overwrite(dave.PackagePath(4), "");
    LayZeros(dave.PackagePath(4), std::uintmax_t{3} << 30);
    // One that begins as a good one does.
    Overwrite(dave.PackagePath(5), dave.Sealed(5, 0, KeysOf(Mailbox("bob")), "content"));
    std::filesystem::resize_file(dave.PackagePath(5), std::uintmax_t{3} << 30);
    Overwrite(dave.PackagePath(6), "closed");
    // At the names that alice writes to next.
    std::filesystem::create_symlink(Path("secret"), DeviceOf("alice").PackagePath(3));
    std::filesystem::remove(DeviceOf("alice").Home() / "acks");
    std::filesystem::create_symlink(Path("secret"), DeviceOf("alice").Home() / "acks");
    Edit("alice", "all the same");

    RunOnce("alice");
    const Json counts = RunOnce("bob");

    EXPECT_EQ(counts.at("packagesRejected"), 6U);
    EXPECT_EQ(States("bob", "refused"), 6U);
    EXPECT_EQ(Subjects("bob"), std::vector<std::string>{"all the same"});
    EXPECT_EQ(BytesOf(Path("secret")), "secret");
    EXPECT_TRUE(std::filesystem::is_empty(Path("bob") / "inbox"));
    EXPECT_FALSE(std::filesystem::exists(Path("bob") / "rejected"));
}

TEST_F(ExchangeTest, ABitFlippedAnywhereAndACutAnywhereIsRefusedBeforeTheEngineIsCalled)
{
    Share();
    MakeMailboxes({"dave"});
    const TestDevice dave = DeviceOf("dave");
    const DeviceKeys bob = KeysOf(Mailbox("bob"));
    const std::size_t flips = TestedProgram().isForWindows ? 200 : 2000;
    std::mt19937 random(20261122);
    // Many at once: each under a number of its own, sealed for it, as the first that bob would take.
    std::uint64_t count = 0;
    const auto sealed = [&] { return dave.Sealed(count + 1, 0, bob, "a small one"); };
    const auto lay = [&](const std::string& package) { Overwrite(dave.PackagePath(++count), package); };
    for (std::size_t flip = 0; flip < flips; ++flip) {
        std::string package = sealed();
        Flip(package, flip, random);
        lay(package);
    }
    // Each cut, and what has something behind its end.
    for (std::size_t size = sealed().size(); size-- > 0;)
        lay(sealed().substr(0, size));
    lay(sealed() + '\0');
    ASSERT_GT(count, flips + 200);

    const Json counts = RunOnce("bob");

    EXPECT_EQ(counts.at("packagesReceived"), 0U);
    EXPECT_EQ(counts.at("packagesRejected"), count);
    EXPECT_EQ(States("bob", "refused"), std::min<std::uint64_t>(count, 100)) << "the first of them are named";
    EXPECT_TRUE(std::filesystem::is_empty(Path("bob") / "inbox"));
    // And one that is whole is taken, whatever lies before it.
    Overwrite(dave.PackagePath(count + 1), dave.Sealed(count + 1, 0, bob, "a small one"));
    EXPECT_EQ(RunOnce("bob").at("packagesReceived"), 1U);
}

// Of an epoch that is over, once more, and for somebody else.
TEST_F(ExchangeTest, WhatIsOldOrOnceMoreOrForOthersIsntTaken)
{
    Share();
    MakeMailboxes({"dave"});
    TestDevice dave = DeviceOf("dave");
    const DeviceKeys bob = KeysOf(Mailbox("bob"));
    const host::exchange::Epoch first = dave.epoch, second{4, 5, 6};
    const std::string old = dave.Sealed(1, 0, bob, "one");
    dave.Lay(1, old);
    EXPECT_EQ(RunOnce("bob").at("packagesReceived"), 1U);
    dave.epoch = second;
    dave.Lay(2, dave.Sealed(2, 0, bob, "two"));
    EXPECT_EQ(RunOnce("bob").at("packagesReceived"), 1U);

    dave.epoch = first;
    dave.Lay(3, dave.Sealed(3, 1, bob, "of the epoch that is over"));
    dave.Lay(4, dave.Sealed(4, 0, DeviceKeys{}, "for somebody else"));
    const Json counts = RunOnce("bob");

    EXPECT_EQ(counts.at("packagesReceived"), 0U) << "the first is there all the time";
    EXPECT_EQ(counts.at("packagesRejected"), 2U);
    const Json incoming = Status("bob").at("incoming");
    ASSERT_EQ(incoming.size(), 2U) << incoming;
    for (const Json& refused : incoming)
        EXPECT_NE(refused.at("reason").get<std::string>().find("epoch that is over"), std::string::npos)
            << refused;
}

TEST_F(ExchangeTest, InspectTellsWhatAnybodySeesOfASealedPackage)
{
    ShareToTheEnd();
    Edit("alice", "nobody sees this");
    RunOnce("alice");
    ASSERT_EQ(Packages().size(), 1U);
    const auto package = Packages()[0];

    const Json seen = MustRun({"inspect", package.string(), "--json"}).Value();
    EXPECT_EQ(seen.at("sender"), package.parent_path().parent_path().filename().string());
    EXPECT_EQ(seen.at("member"), "alice");
    EXPECT_EQ(seen.at("content"), "items");
    EXPECT_EQ(seen.at("sequence"), std::stoull(package.stem().string()));
    EXPECT_EQ(seen.at("size"), std::filesystem::file_size(package));
    EXPECT_EQ(seen.at("signature"), "holds");
    ASSERT_EQ(seen.at("receivers").size(), 1U);
    EXPECT_EQ(seen.at("receivers")[0].at("device"), host::exchange::TextOf(KeysOf(Mailbox("bob")).Id()));
    EXPECT_EQ(
        MustRun({"inspect", package.string(), "--mailbox", Mailbox("bob"), "--json"}).Value().at("signature"),
        "holds");

    std::filesystem::copy_file(package, Path("alone.qvx"));
    EXPECT_EQ(MustRun({"inspect", Path("alone.qvx").string(), "--json"}).Value().at("member"), nullptr);
    std::fstream(package, std::ios::binary | std::ios::in | std::ios::out)
        .seekp(-100, std::ios::end)
        .put('x')
        .put('y');
    EXPECT_EQ(Run({"inspect", package.string()}).exitCode, 1);
}

TEST_F(ExchangeTest, AnAcknowledgementThatIsForgedRemovesNothing)
{
    Share();
    RunOnce("alice");
    const auto before = Packages().size();
    host::exchange::Acks acks;
    acks.serial = 1;
    acks.senders[DeviceOf("alice").Keys().Id()] = {EpochOf(DeviceOf("alice").PackagePath(1)), 99, {}};
    Overwrite(DeviceOf("bob").Home() / "acks", host::exchange::WriteAcks(DeviceKeys{}, acks));

    RunOnce("alice");

    EXPECT_EQ(Packages().size(), before);
    EXPECT_NE(said_.find("refused what 'bob' acknowledges"), std::string::npos) << said_;
    RunUntilIdle({"alice", "bob"}, kIdle);
    ExpectSame("alice", "Shared", "bob", "Shared");
    EXPECT_TRUE(Packages().empty());
}

TEST_F(ExchangeTest, NobodyElseReadsTheKeysAndTheGroupAloneThePackages)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "modes are this system's";
    Share();
    RunOnce("alice");
    const auto modeOf = [](const std::filesystem::path& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    };
    EXPECT_EQ(modeOf(Path("alice") / "device.key"), 0600U);
    EXPECT_EQ(modeOf(DeviceOf("alice").Home()), 0750U);
    for (const auto& package : Packages()) {
        EXPECT_EQ(modeOf(package), 0640U);
        EXPECT_EQ(BytesOf(package).find("Shared"), std::string::npos);
    }
}

TEST_F(ExchangeTest, WhoElseReadsThePackagesIsSaidOnceAndHoldsForAllOfThem)
{
    if (TestedProgram().isForWindows)
        GTEST_SKIP() << "modes are this system's";
    const auto modeOf = [](const std::filesystem::path& path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    };
    std::filesystem::create_directories(Path("exchange"));
    MustRun({"init", Mailbox("carol"), "--exchange", Path("exchange").string(), "--exchange-mode", "0600"});
    const std::filesystem::path card = DeviceOf("carol").Home() / "card";
    EXPECT_EQ(modeOf(card), 0600U);
    EXPECT_EQ(modeOf(card.parent_path()), 0700U);

    ShareToTheEnd();
    MustRun({"import", Mailbox("alice"), "Shared", Sample("03-html-only").string()});
    RunOnce("alice");
    const auto before = Packages();
    ASSERT_FALSE(before.empty());
    RunOnce("alice", {"--exchange-mode", "0644"});
    MustRun({"import", Mailbox("alice"), "Shared", Sample("04-alternative").string()});
    RunOnce("alice");

    EXPECT_GT(Packages().size(), before.size());
    EXPECT_EQ(modeOf(DeviceOf("alice").Home()), 0755U);
    for (const auto& package : Packages())
        EXPECT_EQ(modeOf(package), 0644U) << package;

    const Outcome refused = Run(RunOf("alice", {"--exchange-mode", "0666"}));
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_NE(refused.errors.find("0666"), std::string::npos) << refused.errors;
}

}  // namespace

}  // namespace quorvane::test
