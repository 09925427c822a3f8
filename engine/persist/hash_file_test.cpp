#include "engine/persist/hash_file.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/persist/hash_text.h"
#include "engine/persist/testing/file_faults.h"
#include "engine/persist/testing/told_reader.h"

namespace quorvane {
namespace {

using testing::Fault;
using testing::ReadBytes;
using testing::ReadTold;
using testing::ToldMap;

// One change of the map, followed by a save.
struct Change {
    std::u16string key;
    std::u16string value;
    bool removes;
};

// Keys of three lengths, so that no record has room for every other's key; values of many lengths, so that
// records are overwritten, moved and buried.
std::vector<Change> RandomChanges(unsigned seed, size_t count, size_t largestValue)
{
    std::mt19937 random(seed);
    const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
    std::vector<Change> changes;
    for (size_t i = 0; i < count; ++i) {
        const size_t n = below(40);
        std::u16string key(n % 3 == 0 ? 4 : n % 3 == 1 ? 40 : 200, u'A');
        key[0] = static_cast<char16_t>(u'0' + n % 10);
        key[1] = static_cast<char16_t>(u'0' + n / 10);
        const bool isText = below(8) == 0;
        std::u16string value(below(4) == 0 ? below(largestValue) : 35, isText ? u'\x263A' : u'b');
        if (!value.empty())
            value.back() = static_cast<char16_t>(u'0' + below(10));
        changes.push_back({std::move(key), std::move(value), below(4) == 0});
    }
    return changes;
}

void Apply(ToldMap& model, const Change& change)
{
    if (change.removes)
        model.erase(change.key);
    else
        model[change.key] = change.value;
}

std::string Packed(const std::u16string& text)
{
    return PackHashText(OleStringView(reinterpret_cast<const OLECHAR*>(text.data()), text.size()));
}

void Apply(HashFile& file, const Change& change)
{
    if (change.removes)
        file.Remove(Packed(change.key));
    else
        file.Set(Packed(change.key), Packed(change.value));
}

ToldMap Contents(const HashFile& file)
{
    ToldMap map;
    file.ForEachKey([&](const std::string& key) {
        const OleString name = UnpackHashText(key);
        const OleString value = UnpackHashText(*file.Find(key));
        map[{name.begin(), name.end()}] = {value.begin(), value.end()};
    });
    return map;
}

class HashFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        directory = std::filesystem::temp_directory_path() / ("qv_hash_" + std::to_string(getpid()));
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        path = (directory / "F.dat").string();
    }
    void TearDown() override { std::filesystem::remove_all(directory); }

    static std::unique_ptr<HashFile> Load(const std::string& from)
    {
        auto file = std::make_unique<HashFile>();
        HRESULT damage = S_OK;
        EXPECT_EQ(file->Open(from), S_OK);
        EXPECT_EQ(file->Load(damage), S_OK);
        return file;
    }

    std::filesystem::path directory;
    std::string path;
};

TEST_F(HashFileTest, AfterEachSaveAReaderFindsExactlyTheMap)
{
    for (unsigned seed = 1; seed <= 4; ++seed) {
        std::filesystem::remove(path);
        ToldMap model;
        auto file = Load(path);
        size_t step = 0;
        for (const Change& change : RandomChanges(seed, 500, 2000)) {
            Apply(model, change);
            Apply(*file, change);
            ASSERT_EQ(file->Save(), S_OK);
            ASSERT_EQ(ReadTold(ReadBytes(path)), model) << "seed " << seed << " step " << step;
            if (++step % 97 == 0) {
                file = nullptr;
                file = Load(path);
                ASSERT_EQ(Contents(*file), model);
            }
        }
    }
}

TEST_F(HashFileTest, ManyChangesBeforeASaveArriveTogether)
{
    ToldMap model;
    auto file = Load(path);
    size_t step = 0;
    for (const Change& change : RandomChanges(11, 3000, 500)) {
        Apply(model, change);
        Apply(*file, change);
        ++step;
        if (step % (1 + step % 90) != 0)
            continue;
        ASSERT_EQ(file->Save(), S_OK);
        ASSERT_EQ(ReadTold(ReadBytes(path)), model) << "step " << step;
    }
}

TEST_F(HashFileTest, TheFileDoesNotGrowBeyondItsDeadSlack)
{
    auto file = Load(path);
    ToldMap model;
    for (const Change& change : RandomChanges(5, 2000, 3000)) {
        Apply(model, change);
        Apply(*file, change);
        ASSERT_EQ(file->Save(), S_OK);
    }
    size_t live = 0;
    for (const auto& [key, value] : model)
        live += testing::ToldRecord(key, value).size();
    EXPECT_LE(ReadBytes(path).size(), 2 * live + 128 * 1024);
}

TEST_F(HashFileTest, ASaveThatChangesNothingLeavesTheFileAlone)
{
    auto file = Load(path);
    file->Set(Packed(u"A"), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    testing::ArmFault(Fault::None, 0);
    file->Set(Packed(u"A"), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(testing::DisarmFault(), 0u);
}

TEST_F(HashFileTest, TheCostOfAChangeDoesNotGrowWithTheMap)
{
    const auto changesOfFile = [&](const std::u16string& key, unsigned records) {
        std::filesystem::remove(path);
        auto file = Load(path);
        for (unsigned i = 0; i < records; ++i) {
            const std::string digits = std::to_string(100000 + i);
            file->Set(Packed({digits.begin(), digits.end()}), Packed(u"hash\t1"));
        }
        EXPECT_EQ(file->Save(), S_OK);
        testing::ArmFault(Fault::None, 0);
        file->Set(Packed(key), Packed(u"hash\t10"));
        EXPECT_EQ(file->Save(), S_OK);
        file->Remove(Packed(key));
        EXPECT_EQ(file->Save(), S_OK);
        return testing::DisarmFault();
    };
    EXPECT_EQ(changesOfFile(u"100005", 10), changesOfFile(u"100005", 20000));
}

TEST_F(HashFileTest, AnOutdatedRecordElsewhereIsClearedByTheNextSave)
{
    std::ofstream(path, std::ios::binary)
        << testing::ToldRecord(u"A", u"old") << testing::ToldRecord(u"B", u"b")
        << testing::ToldRecord(u"A", u"new");
    auto file = Load(path);
    EXPECT_EQ(Contents(*file), (ToldMap{{u"A", u"new"}, {u"B", u"b"}}));
    file->Remove(Packed(u"A"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"B", u"b"}}));
}

TEST_F(HashFileTest, TextsThatNoPackingShortensComeBack)
{
    const std::u16string texts[] = {u"",    u"AB", u"ab", u"ABC", u"\x263A", std::u16string(u"\0x\xD800", 3),
                                    u"\xFF"};
    auto file = Load(path);
    ToldMap model;
    for (const std::u16string& text : texts) {
        model[text] = text + u"!";
        file->Set(Packed(text), Packed(text + u"!"));
    }
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(ReadTold(ReadBytes(path)), model);
    EXPECT_EQ(Contents(*Load(path)), model);
}

// Faults

// Runs changes in a process that dies at the `at`th change of a file. Gives the number of acknowledged saves.
class KilledRun {
public:
    KilledRun(const std::string& path, const std::vector<Change>& changes, Fault fault, unsigned at)
    {
        auto* const shared = static_cast<volatile unsigned*>(
            mmap(nullptr, sizeof(unsigned), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        const pid_t child = fork();
        if (child == 0)
            Run(path, changes, fault, at, shared);
        int status = 0;
        waitpid(child, &status, 0);
        finished = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        acknowledged = *shared;
        munmap(const_cast<unsigned*>(shared), sizeof(unsigned));
    }

    bool finished = false;
    unsigned acknowledged = 0;

private:
    [[noreturn]] static void Run(const std::string& path, const std::vector<Change>& changes, Fault fault,
                                 unsigned at, volatile unsigned* acknowledged)
    {
        HashFile file;
        HRESULT damage = S_OK;
        testing::ArmFault(fault, at);
        if (FAILED(file.Open(path)) || FAILED(file.Load(damage)))
            _exit(1);
        for (const Change& change : changes) {
            Apply(file, change);
            if (FAILED(file.Save()))
                _exit(1);
            *acknowledged = *acknowledged + 1;
        }
        _exit(0);
    }
};

// The map after so many changes.
ToldMap ModelAfter(const std::vector<Change>& changes, size_t count)
{
    ToldMap model;
    for (size_t i = 0; i < count && i < changes.size(); ++i)
        Apply(model, changes[i]);
    return model;
}

class HashFileKillTest : public HashFileTest, public ::testing::WithParamInterface<Fault> {};

TEST_P(HashFileKillTest, AKillAtAnyWriteLeavesTheMapBeforeOrAfterTheChange)
{
    const std::vector<Change> changes = RandomChanges(21, 70, 9000);
    unsigned kills = 0;
    for (unsigned at = 1;; ++at) {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        ASSERT_LT(at, 5000u);
        const KilledRun run(path, changes, GetParam(), at);
        if (run.finished)
            break;
        ++kills;
        const ToldMap before = ModelAfter(changes, run.acknowledged);
        const ToldMap after = ModelAfter(changes, run.acknowledged + 1);
        if (GetParam() == Fault::Kill) {
            const ToldMap told = ReadTold(ReadBytes(path));
            ASSERT_TRUE(told == before || told == after) << "a reader, killed at " << at;
        }
        const auto file = Load(path);
        const ToldMap loaded = Contents(*file);
        ASSERT_TRUE(loaded == before || loaded == after) << "killed at " << at;
        ASSERT_EQ(file->Save(), S_OK);
        ASSERT_EQ(ReadTold(ReadBytes(path)), loaded) << "killed at " << at;
    }
    EXPECT_GT(kills, changes.size());
}

INSTANTIATE_TEST_SUITE_P(Kinds, HashFileKillTest, ::testing::Values(Fault::Kill, Fault::KillTorn));

TEST_F(HashFileTest, AFailureAtAnyWriteIsMadeUpForByTheNextSave)
{
    const std::vector<Change> changes = RandomChanges(31, 40, 9000);
    unsigned failures = 0;
    for (unsigned at = 1;; ++at) {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
        auto file = Load(path);
        testing::ArmFault(Fault::DiskFull, at);
        ToldMap model;
        for (const Change& change : changes) {
            Apply(model, change);
            Apply(*file, change);
            if (SUCCEEDED(file->Save()))
                continue;
            ++failures;
            ASSERT_EQ(file->Save(), S_OK) << "failed at " << at;
            ASSERT_EQ(ReadTold(ReadBytes(path)), model) << "failed at " << at;
        }
        ASSERT_EQ(ReadTold(ReadBytes(path)), model) << "failed at " << at;
        if (testing::DisarmFault() < at)
            break;
    }
    EXPECT_GT(failures, 0u);
}

TEST_F(HashFileTest, AFullDiskTakesNothingFromAFileThatIsWrittenAnew)
{
    auto file = Load(path);
    file->Set(Packed(u"A"), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    for (char16_t c = u'a'; c < u'a' + 100; ++c)
        file->Set(Packed(std::u16string(5, c)), Packed(u"2"));
    testing::ArmFault(Fault::DiskFull, 1);
    EXPECT_TRUE(FAILED(file->Save()));
    testing::DisarmFault();
    EXPECT_EQ(ReadTold(ReadBytes(path)), (ToldMap{{u"A", u"1"}}));
}

}  // namespace
}  // namespace quorvane
