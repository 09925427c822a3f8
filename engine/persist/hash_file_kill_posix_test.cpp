// A hash file whose writer is killed, or whose disk is full, at every change and at every byte.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include "engine/persist/testing/file_faults.h"
#include "engine/persist/testing/hash_changes.h"

namespace quorvane {
namespace {

using testing::Apply;
using testing::ContentsOf;
using testing::Fault;
using testing::HashChange;
using testing::HashFileTest;
using testing::Packed;
using testing::RandomHashChanges;
using testing::ToldMap;

// Runs changes in a process that dies at the `at`th change of a file, or byte. Gives the number of
// acknowledged saves.
class KilledRun {
public:
    KilledRun(const std::string& path, const std::vector<HashChange>& changes, Fault fault, unsigned at)
    {
        auto* const shared = static_cast<volatile unsigned*>(
            mmap(nullptr, sizeof(unsigned), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        const pid_t child = fork();
        if (child == 0)
            Run(path, changes, fault, at, shared);
        int status = 0;
        waitpid(child, &status, 0);
        finished = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        killed = WIFEXITED(status) && WEXITSTATUS(status) == 9;
        acknowledged = *shared;
        munmap(const_cast<unsigned*>(shared), sizeof(unsigned));
    }

    bool finished = false;
    bool killed = false;
    unsigned acknowledged = 0;

private:
    [[noreturn]] static void Run(const std::string& path, const std::vector<HashChange>& changes, Fault fault,
                                 unsigned at, volatile unsigned* acknowledged)
    {
        HashFile file;
        HRESULT damage = S_OK;
        testing::ArmFault(fault, at);
        if (FAILED(file.Open(path)) || FAILED(file.Load(damage)))
            _exit(1);
        for (const HashChange& change : changes) {
            Apply(file, change);
            if (FAILED(file.Save()))
                _exit(1);
            *acknowledged = *acknowledged + 1;
        }
        _exit(0);
    }
};

// The map after so many changes.
ToldMap ModelAfter(const std::vector<HashChange>& changes, size_t count)
{
    ToldMap model;
    for (size_t i = 0; i < count && i < changes.size(); ++i)
        Apply(model, changes[i]);
    return model;
}

// Whether a map has every record of another but for one key's, and at most so many more.
bool HoldsAllOf(const ToldMap& map, const ToldMap& other, const std::u16string& exceptKey, size_t more)
{
    size_t held = 0;
    for (const auto& [key, value] : other) {
        if (key == exceptKey)
            continue;
        const auto found = map.find(key);
        if (found == map.end() || found->second != value)
            return false;
        ++held;
    }
    return map.size() - map.count(exceptKey) - held <= more;
}

// Every way in which a file is changed, with few bytes.
std::vector<HashChange> SmallChanges()
{
    return {{u"AA", u"1"},     {u"BB", u"1"},      {u"CC", u"1"},      {u"AA", u"2"},
            {u"BB", u"22"},    {u"AA", {}, true},  {u"DDD", u"3"},     {u"AA", u"4"},
            {u"EE", u"5"},     {u"EE", {}, true},  {u"DDD", {}, true}, {u"CC", {}, true},
            {u"AA", {}, true}, {u"BB", u"\x263A"}, {u"BB", {}, true},  {u"FF", u"6"}};
}

class HashFileKillTest : public HashFileTest {
protected:
    struct Case {
        ToldMap before;
        ToldMap after;
        HashChange change;
    };

    // Kills the writer at every place; calls `check` with what is to be there, and then loads the file.
    template <class Check>
    unsigned KillEverywhere(const std::vector<HashChange>& changes, Fault fault, Check check)
    {
        for (unsigned at = fault == Fault::KillAtByte ? 0 : 1;; ++at) {
            Empty();
            const KilledRun run(path, changes, fault, at);
            if (run.finished)
                return at;
            EXPECT_TRUE(run.killed) << at;
            const Case found{ModelAfter(changes, run.acknowledged), ModelAfter(changes, run.acknowledged + 1),
                             changes[std::min<size_t>(run.acknowledged, changes.size() - 1)]};
            check(found, at);
            CheckLoad(found, at);
            if (HasFatalFailure() || HasNonfatalFailure())
                return at;
        }
    }

private:
    void CheckLoad(const Case& found, unsigned at) const
    {
        const auto file = Load();
        const ToldMap loaded = ContentsOf(*file);
        EXPECT_TRUE(loaded == found.before || loaded == found.after) << "killed at " << at;
        EXPECT_EQ(file->Save(), S_OK);
        EXPECT_EQ(Told(), loaded) << "killed at " << at;
    }
};

TEST_F(HashFileKillTest, AKillBetweenTwoWritesLeavesAReaderTheMapBeforeOrAfterTheChange)
{
    const std::vector<HashChange> changes = RandomHashChanges(21, 70, 9000);
    const unsigned kills = KillEverywhere(changes, Fault::Kill, [&](const Case& found, unsigned at) {
        const ToldMap told = Told();
        EXPECT_TRUE(told == found.before || told == found.after) << "killed at " << at;
    });
    EXPECT_GT(kills, changes.size());
}

// The key of a record that goes is overwritten: in the midst of that a reader sees a key that is neither the
// old nor the new one. Our own next start finishes the overwrite.
TEST_F(HashFileKillTest, AKillAtAnyByteTakesNoRecordOfAnEarlierSaveFromAReader)
{
    const std::vector<HashChange> changes = SmallChanges();
    unsigned tornKeys = 0;
    const unsigned kills = KillEverywhere(changes, Fault::KillAtByte, [&](const Case& found, unsigned at) {
        const ToldMap told = Told();
        if (told == found.before || told == found.after)
            return;
        ++tornKeys;
        EXPECT_TRUE(found.change.removes) << "killed at " << at;
        EXPECT_TRUE(HoldsAllOf(told, found.before, found.change.key, 1)) << "killed at " << at;
    });
    EXPECT_GT(kills, 300u);
    EXPECT_GT(tornKeys, 0u);
}

TEST_F(HashFileTest, AFailureAtAnyWriteIsMadeUpForByTheNextSave)
{
    const std::vector<HashChange> changes = RandomHashChanges(31, 40, 9000);
    unsigned failures = 0;
    for (unsigned at = 1;; ++at) {
        Empty();
        auto file = Load();
        testing::ArmFault(Fault::DiskFull, at);
        ToldMap before;
        ToldMap model;
        for (const HashChange& change : changes) {
            before = model;
            Apply(model, change);
            Apply(*file, change);
            if (SUCCEEDED(file->Save()))
                continue;
            ++failures;
            ASSERT_TRUE(HoldsAllOf(Told(), before, change.key, 1)) << "failed at " << at;
            ASSERT_EQ(file->Save(), S_OK) << "failed at " << at;
            ASSERT_EQ(Told(), model) << "failed at " << at;
        }
        ASSERT_EQ(Told(), model) << "failed at " << at;
        if (testing::DisarmFault() < at)
            break;
    }
    EXPECT_GT(failures, 0u);
}

TEST_F(HashFileTest, AFullDiskTakesNothingFromAFileThatIsWrittenAnew)
{
    auto file = Load();
    file->Set(Packed(u"A"), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    for (char16_t c = u'a'; c < u'a' + 100; ++c)
        file->Set(Packed(std::u16string(5, c)), Packed(u"2"));
    testing::ArmFault(Fault::DiskFull, 1);
    EXPECT_TRUE(FAILED(file->Save()));
    testing::DisarmFault();
    EXPECT_EQ(Told(), (ToldMap{{u"A", u"1"}}));
}

}  // namespace
}  // namespace quorvane
