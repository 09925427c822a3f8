// Files that lie: they end in a code, soon, and with little memory.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/cfb/format.h"
#include "platform/cfb/structure_check.h"
#include "platform/cfb/test_support.h"

namespace quorvane::cfb::test {
namespace {

using Clock = std::chrono::steady_clock;

Bytes Load(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

long PeakKilobytes()
{
    struct rusage usage;
    return getrusage(RUSAGE_SELF, &usage) == 0 ? usage.ru_maxrss : 0;
}

// The directory of the corpus, or none when it isn't at hand.
std::optional<std::filesystem::path> Corpus(const char* part)
{
    const char* const root = std::getenv("QUORVANE_CORPUS");
    if (!root) {
        std::printf("QUORVANE_CORPUS isn't set: nothing to read\n");
        return std::nullopt;
    }
    return std::filesystem::path(root) / part;
}

// Opens, walks, and changes what can be changed; every result but a crash is good.
HRESULT Exercise(const Bytes& file)
{
    const auto bytes = LockBytesWith(file);
    ComPtr<IStorage> root;
    HRESULT hr = OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put());
    if (FAILED(hr))
        return hr;
    Tree tree;
    hr = Walk(*root, "", &tree);
    (void)WriteStream(*root, "added", Pattern(6000, 1));
    (void)WriteStream(*root, "added too", Pattern(60, 1));
    for (const auto& [path, content] : tree) {
        if (path.find('/') == std::string::npos)
            (void)root->DestroyElement(Wide(path).c_str());
    }
    return hr;
}

// A file with ten streams and a storage of ten more, and where things are in it.
class HostileTest : public ::testing::Test {
protected:
    HostileTest()
    {
        const auto bytes = NewLockBytes();
        {
            ComPtr<IStorage> root;
            ComPtr<IStorage> storage;
            EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
            EXPECT_EQ(S_OK, root->CreateStorage(OLESTR("storage"), kCreate, 0, 0, storage.Put()));
            for (unsigned i = 0; i < 10; ++i) {
                EXPECT_EQ(S_OK, WriteStream(*root, "e" + std::to_string(i), Pattern(i * 700, i)));
                EXPECT_EQ(S_OK, WriteStream(*storage, "s" + std::to_string(i), Pattern(i * 70, i)));
            }
        }
        file = ContentOf(*bytes);
    }

    void Set(std::size_t at, std::uint32_t value) { StoreU32(&file[at], value); }
    std::uint32_t Get(std::size_t at) const { return LoadU32(&file[at]); }

    // Where the entry of a name stands.
    std::size_t EntryOf(const std::string& name) const
    {
        for (std::size_t at = 512; at + 128 <= file.size(); at += 128) {
            bool same = file[at + 64] == 2 * (name.size() + 1) && file[at + 65] == 0;
            for (std::size_t i = 0; same && i < name.size(); ++i)
                same = file[at + 2 * i] == static_cast<BYTE>(name[i]) && file[at + 2 * i + 1] == 0;
            if (same)
                return at;
        }
        ADD_FAILURE() << name;
        return 0;
    }

    HRESULT Open()
    {
        const auto bytes = LockBytesWith(file);
        ComPtr<IStorage> root;
        return OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put());
    }

    Bytes file;
};

constexpr std::size_t kLeft = 0x44;
constexpr std::size_t kRight = 0x48;
constexpr std::size_t kChild = 0x4C;
constexpr std::size_t kStart = 0x74;
constexpr std::size_t kSize = 0x78;

TEST_F(HostileTest, AHeaderWithAnUnknownShapeIsRefused)
{
    file[30] = 13;
    EXPECT_EQ(STG_E_INVALIDHEADER, Open());
    file[30] = 9;
    file[26] = 5;
    EXPECT_EQ(STG_E_INVALIDHEADER, Open());
}

TEST_F(HostileTest, AFatOfFourBillionSectorsCostsNothing)
{
    Set(44, 0xFFFFFFFF);
    EXPECT_EQ(S_OK, Exercise(file));
    Set(44, 0);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Open());
}

TEST_F(HostileTest, AFatSectorOutsideOfTheFileIsRefused)
{
    Set(76, 0x00FFFFFF);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Open());
}

TEST_F(HostileTest, ADirectoryThatIsALoopEnds)
{
    const std::uint32_t first = Get(48);
    Set(512 + 4 * first, first);
    EXPECT_TRUE(FAILED(Exercise(file)));
}

TEST_F(HostileTest, AStreamThatIsALoopIsReadOnceRound)
{
    const std::size_t entry = EntryOf("e9");
    Set(512 + 4 * Get(entry + kStart), Get(entry + kStart));
    Set(entry + kSize, 0x7FFFFFFF);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise(file));
}

TEST_F(HostileTest, ASizeThatTheFileCannotHoldIsRefused)
{
    Set(EntryOf("e9") + kSize, 0x70000000);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise(file));
}

TEST_F(HostileTest, AnEntryThatLinksToItselfIsToldOnce)
{
    const std::size_t entry = EntryOf("e4");
    for (std::uint32_t id = 1; id < 22; ++id) {
        Set(entry + kLeft, id);
        Set(entry + kRight, id);
        EXPECT_TRUE(FAILED(Exercise(file))) << id;
    }
}

TEST_F(HostileTest, AStorageInsideOfItselfHasNoBottomButAnEnd)
{
    const std::size_t storage = EntryOf("storage");
    const std::uint32_t self = 1;  // the first element that was made
    Set(storage + kChild, self);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise(file));
}

// Thirty storages, each with two names for the next one: a billion paths to the last.
TEST_F(HostileTest, TwoLinksToOneStorageDoNotMultiply)
{
    const auto bytes = NewLockBytes();
    constexpr unsigned kLevels = 30;
    {
        std::vector<ComPtr<IStorage>> levels(1);
        ASSERT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, levels[0].Put()));
        for (unsigned i = 0; i < kLevels; ++i) {
            ComPtr<IStorage> a;
            ComPtr<IStorage> b;
            IStorage& at = *levels.back();
            ASSERT_EQ(S_OK, at.CreateStorage(Wide("a" + std::to_string(i)).c_str(), kCreate, 0, 0, a.Put()));
            ASSERT_EQ(S_OK, at.CreateStorage(Wide("b" + std::to_string(i)).c_str(), kCreate, 0, 0, b.Put()));
            levels.push_back(a);
        }
    }
    file = ContentOf(*bytes);
    for (unsigned i = 0; i < kLevels; ++i) {
        const std::size_t a = EntryOf("a" + std::to_string(i));
        const std::size_t b = EntryOf("b" + std::to_string(i));
        Set(b + kChild, Get(a + kChild));
    }
    const auto start = Clock::now();
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Exercise(file));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}

TEST_F(HostileTest, NamesOutOfOrderAreFoundAllTheSame)
{
    // Swaps the names of two entries, so that the tree's order is wrong.
    const std::size_t a = EntryOf("e1");
    const std::size_t b = EntryOf("e8");
    std::swap_ranges(file.begin() + static_cast<std::ptrdiff_t>(a), file.begin() + static_cast<std::ptrdiff_t>(a + 64),
                     file.begin() + static_cast<std::ptrdiff_t>(b));
    const auto bytes = LockBytesWith(file);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put()));
    Bytes content;
    for (unsigned i = 0; i < 10; ++i)
        EXPECT_EQ(S_OK, ReadStream(*root, "e" + std::to_string(i), &content)) << i;
    ASSERT_EQ(S_OK, root->DestroyElement(OLESTR("e3")));
    EXPECT_TRUE(Examine(ContentOf(*bytes)).faults.empty());
}

TEST_F(HostileTest, AnyChangedByteEndsInACode)
{
    const Bytes good = file;
    for (std::size_t at = 0; at < good.size(); at += at < 76 || at >= 512 ? 1 : 4) {
        file = good;
        file[at] = static_cast<BYTE>(file[at] ^ (at % 3 == 0 ? 0xFF : 1 + at % 7));
        const HRESULT hr = Exercise(file);
        ASSERT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << at;
    }
}

TEST_F(HostileTest, AFileCutAnywhereEndsInACode)
{
    const Bytes good = file;
    for (std::size_t size = 0; size < good.size(); size += 97) {
        file.assign(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
        const HRESULT hr = Exercise(file);
        ASSERT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << size;
    }
}

TEST(CorpusTest, EveryDamagedFileIsWalkedOrRefusedSoonAndWithLittleMemory)
{
    const auto directory = Corpus("ole-bad");
    if (!directory)
        return;
    unsigned files = 0;
    const long before = PeakKilobytes();
    for (const auto& entry : std::filesystem::directory_iterator(*directory)) {
        const auto start = Clock::now();
        const HRESULT hr = Exercise(Load(entry.path()));
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << entry.path();
        EXPECT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << entry.path();
        ++files;
    }
    EXPECT_EQ(35u, files);
    EXPECT_LT(PeakKilobytes() - before, 256 * 1024);
}

}  // namespace
}  // namespace quorvane::cfb::test
