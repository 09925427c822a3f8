// Processes that are killed while they write to a file.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <new>

#include "platform/cfb/testing/file_faults.h"
#include "platform/cfb/testing/interrupted.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

constexpr unsigned kStorages = 5;
constexpr unsigned kAlive = 200;  // streams that are there at a time

std::string StorageName(unsigned stream)
{
    return "s" + std::to_string(stream % kStorages);
}
std::string StreamName(unsigned stream)
{
    return std::to_string(stream * 7919 % 100'003);
}
Bytes Content(unsigned stream)
{
    return Pattern(stream % 17 == 0 ? 5000 + stream % 900 : 1 + stream * 31 % 400, stream);
}

// How far the writer has come, told to the process that kills it.
struct Progress {
    std::atomic<unsigned> made;        // streams that are complete
    std::atomic<unsigned> destroying;  // streams whose destruction has begun
};

// Makes streams without end, and destroys those that were made long before.
[[noreturn]] void Write(const OleString& path, Progress& progress)
{
    ComPtr<IStorage> root;
    ComPtr<IStorage> storages[kStorages];
    bool good = SUCCEEDED(CreateDocfile(path.c_str(), kCreate, root.Put()));
    for (unsigned i = 0; i < kStorages && good; ++i) {
        const OleString name = Wide(StorageName(i));
        good = SUCCEEDED(root->CreateStorage(name.c_str(), kCreate, 0, 0, storages[i].Put()));
        storages[i].Reset();
        good =
            good && SUCCEEDED(root->OpenStorage(name.c_str(), nullptr, kOpen, nullptr, 0, storages[i].Put()));
    }
    for (unsigned i = 0; good; ++i) {
        good = SUCCEEDED(WriteStream(*storages[i % kStorages], StreamName(i), Content(i)));
        progress.made = good ? i + 1 : 0;
        if (!good || i < kAlive)
            continue;
        progress.destroying = i - kAlive + 1;
        const std::string old = StreamName(i - kAlive);
        good = SUCCEEDED(storages[(i - kAlive) % kStorages]->DestroyElement(Wide(old).c_str()));
    }
    ::_exit(1);
}

class KilledProcessTest : public ::testing::Test {
protected:
    KilledProcessTest()
    {
        void* const shared =
            ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        progress = shared != MAP_FAILED ? new (shared) Progress{} : nullptr;
    }
    ~KilledProcessTest() override { ::munmap(progress, sizeof(Progress)); }

    // Lets a process write until it has made so many streams and gone on for `spins` more looks at it.
    void KillAfter(unsigned streams, unsigned spins)
    {
        progress->made = progress->destroying = 0;
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0)
            Write(path, *progress);
        int status = 0;
        while (progress->made < streams && ::waitpid(writer, &status, WNOHANG) == 0)
            ::usleep(50);
        for (unsigned i = 0; i < spins; ++i)
            static_cast<void>(progress->made.load());
        ASSERT_EQ(0, ::kill(writer, SIGKILL));
        ASSERT_EQ(writer, ::waitpid(writer, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status));
    }

    void ExpectWhatWasComplete() const
    {
        ComPtr<IStorage> root;
        Tree found;
        ASSERT_EQ(S_OK, OpenDocfile(path.c_str(), kOpen, root.Put()));
        ASSERT_EQ(S_OK, Walk(*root, "", &found));
        const unsigned made = progress->made;
        for (unsigned i = progress->destroying; i < made; ++i) {
            const std::string name = StorageName(i) + "/" + StreamName(i);
            ASSERT_TRUE(found.contains(name)) << name;
            ASSERT_EQ(Content(i), found[name]) << name;
        }
        EXPECT_GE(made - progress->destroying + kStorages + 2, found.size());
    }

    // The file can be changed as before; nothing in it is wrong.
    void ExpectThatWorkGoesOn() const
    {
        {
            ComPtr<IStorage> root;
            ASSERT_EQ(S_OK, OpenDocfile(path.c_str(), kOpen, root.Put()));
            ASSERT_EQ(S_OK, WriteStream(*root, "after", Pattern(9000, 1)));
            ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("s0")));
        }
        const Findings findings = Examine(LoadFile(directory.File("package")));
        EXPECT_TRUE(findings.faults.empty()) << Text(findings.faults);
    }

    const ScratchDirectory directory;
    const OleString path = FromUtf8(directory.File("package"));
    Progress* progress;
};

TEST_F(KilledProcessTest, WhatItHadMadeIsThere)
{
    ASSERT_NE(nullptr, progress);
    for (unsigned round = 0; round < 40 / kOneOf && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        KillAfter(1 + round * 97 % 2500, round * 3571 % 20'000);
        ExpectWhatWasComplete();
        ExpectThatWorkGoesOn();
    }
}

// Runs an operation on a file in a process that ends before its write number `write`. False: it ended by
// itself.
bool DieIn(const FileChange& operation, Session& session, std::size_t write)
{
    const pid_t writer = ::fork();
    if (writer == 0) {
        FileFaults::DieAtWrite(write);
        bool good = SUCCEEDED(session.Open(kOpen));
        for (const Step& step : operation.steps)
            good = good && SUCCEEDED(step.run(session));
        session.Close();
        ::_exit(good ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(writer, ::waitpid(writer, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1) << operation.what;
    return WIFEXITED(status) && WEXITSTATUS(status) == 9;
}

// What an operation makes of a file.
Bytes RunOn(const FileChange& operation, const Bytes& file)
{
    Session session(Road::kFile, file);
    EXPECT_EQ(S_OK, session.Open(kOpen));
    for (const Step& step : operation.steps)
        EXPECT_EQ(S_OK, step.run(session)) << operation.what;
    session.Close();
    return session.Content();
}

// Kills an operation at each of its writes to a file, from the `first` on each `step`th; *file becomes what
// it leaves when it isn't killed. Returns how often it was.
unsigned KillAtWrites(const FileChange& operation, std::size_t first, std::size_t step, Bytes* file,
                      Tree* tree)
{
    Tree next = *tree;
    for (const Step& one : operation.steps)
        one.apply(next);
    unsigned kills = 0;
    bool died = true;
    for (std::size_t write = first; died && !::testing::Test::HasFailure(); write += step * kOneOf) {
        SCOPED_TRACE(operation.what + ", write " + std::to_string(write));
        Session session(Road::kFile, *file);
        died = DieIn(operation, session, write);
        kills += died ? 1 : 0;
        Tree found;
        EXPECT_EQ(S_OK, session.Open(kOpen));
        EXPECT_EQ(S_OK, Walk(*session.root, "", &found));
        EXPECT_EQ(S_OK, WriteStream(*session.root, "after", Pattern(9'000, 1)));
        session.Close();
        ExpectBetween(found, *tree, next, operation);
        EXPECT_TRUE(died || found == next);
        EXPECT_EQ("", Text(Examine(session.Content()).faults));
    }
    *tree = std::move(next);
    *file = RunOn(operation, *file);
    return kills;
}

TEST(KilledAtEveryWriteTest, AnyOperationLeavesTheRest)
{
    for (const FileChange& operation : FileChanges()) {
        Tree tree;
        Bytes file = MakeFile(BeforeFileChanges(), &tree);
        EXPECT_LT(0u, KillAtWrites(operation, 0, 1, &file, &tree));
    }
}

// In KillTest all writes of that sender are looked at; here other ones of each item.
TEST(KilledAtEveryWriteTest, ASenderOfFiftyItemsLeavesThemWholeOrNotAtAll)
{
    constexpr unsigned kItems = 50 / kOneOf;
    Tree tree;
    Bytes file = MakeFile({MakeStorage("other")}, &tree);
    unsigned kills = 0;
    for (unsigned i = 0; i < kItems && !HasFailure(); ++i) {
        const FileChange add{"add item", {MakeItem("item" + std::to_string(i * 31 % 50), i)}, true};
        kills += KillAtWrites(add, i % 6, 6, &file, &tree);
    }
    EXPECT_LT(kItems * 4 / 5, kills);
    EXPECT_EQ(1u + kItems * 12, tree.size());
}

}  // namespace
}  // namespace quorvane::cfb::test
