// Files whose chains share sectors: what comes second to a shared sector is refused, and neither a walk nor a
// copy moves more bytes than the file has.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>

#include "platform/cfb/format.h"
#include "platform/cfb/testing/exercise.h"
#include "platform/cfb/testing/structure_check.h"

namespace quorvane::cfb::test {
namespace {

constexpr std::size_t kSector = 512;
constexpr std::uint64_t kMega = std::uint64_t{1} << 20;

// A version 3 file, written byte by byte: its FAT, its directory with a balanced tree of `count` streams
// below the root, a mini FAT of one sector with a mini stream of one chain, and one chain of `length`
// sectors.
struct HandMade {
    HandMade(std::uint32_t count, std::uint32_t length) : streams(count)
    {
        const std::uint32_t directorySectors = (count + 1 + 3) / 4;
        const std::uint32_t miniSectors = 16;  // 128 mini sectors
        const std::uint32_t others = directorySectors + 1 + miniSectors + length;
        fatSectors = 1;
        while (fatSectors * 128 < fatSectors + others)
            ++fatSectors;
        directory = fatSectors;
        miniFat = directory + directorySectors;
        miniStream = miniFat + 1;
        chain = miniStream + miniSectors;
        bytes.assign((1 + std::size_t{fatSectors} + others) * kSector, 0);
        WriteHeader();
        WriteFat(length);
        WriteEntry(0, "Root Entry", 5, Tree(1, count + 1), miniStream, miniSectors * kSector);
        for (std::uint32_t i = count + 1; i < directorySectors * 4; ++i)
            StoreLinks(i, kNoEntry, kNoEntry, kNoEntry);
    }

    std::size_t SectorAt(std::uint32_t sector) const { return (std::size_t{sector} + 1) * kSector; }
    std::size_t EntryAt(std::uint32_t id) const { return SectorAt(directory) + std::size_t{id} * 128; }
    static std::string NameOf(std::uint32_t id) { return std::to_string(100'000 + id); }

    // Streams have the numbers 1 to `streams`, in the order of their names.
    void SetContent(std::uint32_t id, std::uint32_t start, std::uint32_t size)
    {
        StoreU32(&bytes[EntryAt(id) + 0x74], start);
        StoreU32(&bytes[EntryAt(id) + 0x78], size);
    }
    void SetNext(std::uint32_t sector, std::uint32_t next)
    {
        StoreU32(&bytes[SectorAt(sector / 128) + sector % 128 * 4], next);
    }

    std::uint32_t streams;
    std::uint32_t fatSectors = 0;
    std::uint32_t directory = 0;
    std::uint32_t miniFat = 0;
    std::uint32_t miniStream = 0;
    std::uint32_t chain = 0;
    Bytes bytes;

private:
    void WriteHeader()
    {
        const BYTE begin[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
        std::copy(std::begin(begin), std::end(begin), bytes.begin());
        StoreU16(&bytes[0x18], 0x3E);
        StoreU16(&bytes[0x1A], 3);
        StoreU16(&bytes[0x1C], 0xFFFE);
        StoreU16(&bytes[0x1E], 9);
        StoreU16(&bytes[0x20], 6);
        StoreU32(&bytes[0x2C], fatSectors);
        StoreU32(&bytes[0x30], directory);
        StoreU32(&bytes[0x38], 4096);
        StoreU32(&bytes[0x3C], miniFat);
        StoreU32(&bytes[0x40], 1);
        StoreU32(&bytes[0x44], kEndOfChain);
        for (std::uint32_t i = 0; i < 109; ++i)
            StoreU32(&bytes[0x4C + 4 * i], i < fatSectors ? i : kFreeSector);
    }
    void WriteFat(std::uint32_t length)
    {
        for (std::uint32_t i = 0; i < fatSectors * 128; ++i)
            SetNext(i, i < fatSectors ? kFatSector : kFreeSector);
        const std::uint32_t begins[] = {directory, miniFat, miniStream, chain, chain + length};
        for (std::size_t one = 0; one < 4; ++one) {
            for (std::uint32_t i = begins[one]; i < begins[one + 1]; ++i)
                SetNext(i, i + 1 < begins[one + 1] ? i + 1 : kEndOfChain);
        }
        for (std::uint32_t i = 0; i < 128; ++i)
            StoreU32(&bytes[SectorAt(miniFat) + 4 * i], i + 1 < 128 ? i + 1 : kEndOfChain);
    }
    void StoreLinks(std::uint32_t id, std::uint32_t left, std::uint32_t right, std::uint32_t child)
    {
        StoreU32(&bytes[EntryAt(id) + 0x44], left);
        StoreU32(&bytes[EntryAt(id) + 0x48], right);
        StoreU32(&bytes[EntryAt(id) + 0x4C], child);
    }
    void WriteEntry(std::uint32_t id, const std::string& name, BYTE type, std::uint32_t child,
                    std::uint32_t start, std::uint32_t size)
    {
        for (std::size_t i = 0; i < name.size(); ++i)
            bytes[EntryAt(id) + 2 * i] = static_cast<BYTE>(name[i]);
        StoreU16(&bytes[EntryAt(id) + 0x40], static_cast<std::uint16_t>(2 * name.size() + 2));
        bytes[EntryAt(id) + 0x42] = type;
        bytes[EntryAt(id) + 0x43] = 1;
        StoreLinks(id, kNoEntry, kNoEntry, child);
        SetContent(id, start, size);
    }
    // Writes the entries [begin, end); the one in the middle is the top of their tree.
    std::uint32_t Tree(std::uint32_t begin, std::uint32_t end)
    {
        if (begin == end)
            return kNoEntry;
        const std::uint32_t middle = begin + (end - begin) / 2;
        WriteEntry(middle, NameOf(middle), 2, kNoEntry, kEndOfChain, 0);
        StoreLinks(middle, Tree(begin, middle), Tree(middle + 1, end), kNoEntry);
        return middle;
    }
};

std::uint64_t ContentBytes(const Tree& tree)
{
    std::uint64_t sum = 0;
    for (const auto& [path, content] : tree)
        sum += content ? content->size() : 0;
    return sum;
}

// Where the streams of a file begin that all lie in one chain.
enum class Beginning { kAtOnePlace, kEachOneFurther, kEachOneBefore, kInTheMiniStream };

class SharedChain : public ::testing::TestWithParam<Beginning> {
protected:
    static constexpr std::uint32_t kStreams = 9'000;
    static constexpr std::uint32_t kLength = 440;

    static HandMade Make()
    {
        HandMade file(kStreams, kLength);
        const bool mini = GetParam() == Beginning::kInTheMiniStream;
        const std::uint32_t size = mini ? 4095 : 4096;
        for (std::uint32_t i = 0; i < kStreams; ++i) {
            std::uint32_t place = 0;
            if (GetParam() == Beginning::kEachOneFurther)
                place = i % kLength;
            if (GetParam() == Beginning::kEachOneBefore)
                place = kLength - 1 - i % kLength;
            const std::uint32_t whole = std::max<std::uint32_t>(size, (kLength - place) * kSector);
            file.SetContent(i + 1, mini ? 0 : file.chain + place, mini ? size : whole);
        }
        return file;
    }
};

// 1.3 MB which tell of 2 GB.
TEST_P(SharedChain, CostsNoMoreThanItsFile)
{
    const HandMade file = Make();
    ASSERT_GT(1'400'000u, file.bytes.size());
    const Outcome outcome = ExerciseAll(file.bytes);
    EXPECT_EQ(S_OK, outcome.opened);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, outcome.copied);
    EXPECT_EQ(STG_E_DOCFILECORRUPT, outcome.walked);
    EXPECT_GE(file.bytes.size(), ContentBytes(outcome.tree));
    EXPECT_GT(16 * kMega, outcome.moved);
    EXPECT_GT(10'000u, outcome.calls);
}

INSTANTIATE_TEST_SUITE_P(SharedSectorsTest, SharedChain,
                         ::testing::Values(Beginning::kAtOnePlace, Beginning::kEachOneFurther,
                                           Beginning::kEachOneBefore, Beginning::kInTheMiniStream));

class SharedSectorsTest : public ::testing::Test {
protected:
    SharedSectorsTest()
    {
        file.SetContent(1, file.chain, 5'000);
        file.SetContent(2, file.chain + 10, 5'000);
        file.SetNext(file.chain + 9, kEndOfChain);
    }

    HRESULT Open(ComPtr<IStorage>& root)
    {
        bytes = MakeComObject<FaultyBytes>(file.bytes);
        return OpenDocfileOnLockBytes(bytes.Get(), kOpen, root.Put());
    }
    static HRESULT Read(IStorage& root, std::uint32_t id)
    {
        Bytes content;
        return ReadStream(root, HandMade::NameOf(id), &content);
    }

    HandMade file{6, 40};
    ComPtr<FaultyBytes> bytes;
};

TEST_F(SharedSectorsTest, ASoundFileIsReadAnyNumberOfTimes)
{
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, Open(root));
    for (unsigned round = 0; round < 3; ++round) {
        EXPECT_EQ(S_OK, Read(*root, 1));
        EXPECT_EQ(S_OK, Read(*root, 2));
    }
}

TEST_F(SharedSectorsTest, OfTwoStreamsWithOneBeginningTheSecondIsNotOpened)
{
    file.SetContent(3, file.chain, 4'096);
    ComPtr<IStorage> root;
    ComPtr<IStream> stream;
    ASSERT_EQ(S_OK, Open(root));
    EXPECT_EQ(S_OK, Read(*root, 3));
    EXPECT_EQ(STG_E_DOCFILECORRUPT,
              root->OpenStream(Wide(HandMade::NameOf(1)).c_str(), nullptr, kRead, 0, stream.Put()));
    EXPECT_EQ(S_OK, Read(*root, 3)) << "the first one stays";
}

TEST_F(SharedSectorsTest, AChainThatRunsIntoAnotherIsReadNoFurther)
{
    file.SetNext(file.chain + 10, file.chain + 4);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, Open(root));
    EXPECT_EQ(S_OK, Read(*root, 1));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Read(*root, 2));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Read(*root, 2)) << "nor is it at the second time";
    EXPECT_EQ(S_OK, Read(*root, 1));
}

TEST_F(SharedSectorsTest, AStreamOnSectorsOfTheFilesOwnTablesIsRefused)
{
    for (const std::uint32_t start : {file.directory, file.miniFat, file.miniStream, std::uint32_t{0}}) {
        file.SetContent(1, start, 4'096);
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, Open(root));
        EXPECT_EQ(STG_E_DOCFILECORRUPT, Read(*root, 1)) << start;
        EXPECT_EQ(S_OK, Read(*root, 2)) << start;
    }
    file.SetContent(1, file.chain, 4'096);
    file.SetNext(file.chain, 0);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, Open(root));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Read(*root, 1)) << "which leads into the FAT";
}

TEST_F(SharedSectorsTest, TwoTablesInOneChainAreRefused)
{
    StoreU32(&file.bytes[0x3C], file.directory);
    ComPtr<IStorage> root;
    EXPECT_EQ(STG_E_DOCFILECORRUPT, Open(root));
}

TEST_F(SharedSectorsTest, WhatAnotherStreamHoldsIsNotFreed)
{
    file.SetContent(3, file.chain, 4'096);
    file.SetNext(file.chain + 20, file.chain + 10);
    file.SetContent(4, file.chain + 20, 4'096);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, Open(root));
    EXPECT_EQ(S_OK, Read(*root, 1));
    EXPECT_EQ(S_OK, Read(*root, 2));
    for (const std::uint32_t id : {3u, 4u})
        EXPECT_EQ(S_OK, root->DestroyElement(Wide(HandMade::NameOf(id)).c_str()));
    EXPECT_EQ(S_OK, WriteStream(*root, "other", Pattern(30'000, 1)));
    root.Reset();
    ASSERT_EQ(S_OK, OpenDocfileOnLockBytes(bytes.Get(), kRead, root.Put()));
    Bytes content;
    for (const std::uint32_t id : {1u, 2u}) {
        EXPECT_EQ(S_OK, ReadStream(*root, HandMade::NameOf(id), &content));
        EXPECT_EQ(Bytes(5'000, 0), content) << id;
    }
}

TEST_F(SharedSectorsTest, AStreamWhoseChainBreaksOffIsDestroyedAllTheSame)
{
    for (const std::uint32_t link : {kFreeSector, kFatSector, std::uint32_t{0x00FFFFFF}}) {
        SCOPED_TRACE(link);
        file.SetNext(file.chain + 3, link);
        file.SetContent(3, 5, 1'000);
        StoreU32(&file.bytes[file.SectorAt(file.miniFat) + 4 * 7], link);
        ComPtr<IStorage> root;
        ASSERT_EQ(S_OK, Open(root));
        EXPECT_EQ(STG_E_DOCFILECORRUPT, Read(*root, 1));
        EXPECT_EQ(STG_E_DOCFILECORRUPT, Read(*root, 3));
        for (const std::uint32_t id : {1u, 3u})
            EXPECT_EQ(S_OK, root->DestroyElement(Wide(HandMade::NameOf(id)).c_str()));
        EXPECT_EQ(S_OK, Read(*root, 2));
        EXPECT_EQ(S_OK, WriteStream(*root, "other", Pattern(30'000, 1)));
        root.Reset();
        EXPECT_EQ("", Text(Examine(bytes->Content()).faults));
    }
}

// Streams that move, shrink and go leave their sectors to others, and these are nobody else's.
TEST_F(SharedSectorsTest, SectorsThatChangeHandsAreTakenForSharedByNobody)
{
    std::mt19937 random(1);
    ComPtr<IStorage> root;
    ASSERT_EQ(S_OK, Open(root));
    for (unsigned round = 0; round < 3'000; ++round) {
        const std::string name = "s" + std::to_string(random() % 12);
        const Bytes content = Pattern(random() % (round % 3 == 0 ? 20'000 : 6'000), round);
        Bytes found;
        if (random() % 4 == 0) {
            (void)root->DestroyElement(Wide(name).c_str());
            continue;
        }
        if (random() % 2 == 0) {
            ASSERT_EQ(S_OK, WriteStream(*root, name, content)) << round;
        }
        ComPtr<IStream> stream;
        const HRESULT hr = root->OpenStream(Wide(name).c_str(), nullptr, kOpen, 0, stream.Put());
        if (hr == STG_E_FILENOTFOUND)
            continue;
        ASSERT_EQ(S_OK, hr) << round;
        ASSERT_EQ(S_OK, stream->SetSize(Large(random() % 9'000))) << round;
        ASSERT_EQ(S_OK, ReadAll(*stream, &found)) << round;
        if (round % 100 == 99) {
            const std::string other = name + "'";
            stream.Reset();
            ASSERT_EQ(S_OK, root->RenameElement(Wide(name).c_str(), Wide(other).c_str()));
            ASSERT_EQ(S_OK, root->DestroyElement(Wide(other).c_str()));
        }
    }
    Tree tree;
    EXPECT_EQ(S_OK, Walk(*root, "", &tree));
    root.Reset();
    EXPECT_EQ("", Text(Examine(bytes->Content()).faults));
}

// A package of a few items, as a sender makes it.
Bytes SmallPackage()
{
    const auto bytes = MakeComObject<FaultyBytes>();
    ComPtr<IStorage> root;
    EXPECT_EQ(S_OK, CreateDocfileOnLockBytes(bytes.Get(), kCreate, root.Put()));
    for (unsigned item = 0; item < 6; ++item) {
        ComPtr<IStorage> storage;
        ComPtr<IStorage> inner;
        EXPECT_EQ(S_OK, root->CreateStorage(Wide("item" + std::to_string(item)).c_str(), kCreate, 0, 0,
                                            storage.Put()));
        EXPECT_EQ(S_OK, storage->CreateStorage(OLESTR("inner"), kCreate, 0, 0, inner.Put()));
        for (unsigned i = 0; i < 9; ++i) {
            EXPECT_EQ(S_OK, WriteStream(*storage, "s" + std::to_string(i), Pattern(i * i * 11, i)));
            EXPECT_EQ(S_OK,
                      WriteStream(*inner, "t" + std::to_string(i), Pattern(i == 8 ? 7'000 : i * 20, i)));
        }
    }
    root.Reset();
    return bytes->Content();
}

// Changes a few places: bits, numbers, or words that stand elsewhere in the file.
Bytes Mutated(Bytes file, std::uint32_t seed)
{
    std::mt19937 random(seed);
    for (std::uint32_t left = 1 + random() % 6; left > 0; --left) {
        // Half of them where the tables begin.
        const std::size_t range = random() % 2 == 0 ? std::min<std::size_t>(file.size(), 4'096) : file.size();
        const std::size_t at = random() % (range - 4) / 4 * 4;
        switch (random() % 4) {
            case 0:
                file[at + random() % 4] = static_cast<BYTE>(random());
                break;
            case 1:
                StoreU32(&file[at], random() % 200);
                break;
            case 2:
                StoreU32(&file[at], 0xFFFFFFFFu - random() % 8);
                break;
            default:
                StoreU32(&file[at], LoadU32(&file[random() % (file.size() - 4) / 4 * 4]));
        }
    }
    if (random() % 16 == 0)
        file.resize(512 + random() % (file.size() - 512));
    return file;
}

// QUORVANE_MUTATIONS: how many, if not a few hundred.
TEST(MutatedPackageTest, AnyMutationOfAPackageEndsInACodeAtACostBoundedByItsSize)
{
    const char* const wanted = std::getenv("QUORVANE_MUTATIONS");
    const auto count = static_cast<std::uint32_t>(wanted ? std::strtoul(wanted, nullptr, 10) : 400 / kOneOf);
    const Bytes package = SmallPackage();
    std::uint64_t most = 0;
    std::uint64_t refused = 0;
    std::chrono::nanoseconds slowest{0};
    for (std::uint32_t seed = 1; seed <= count && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const Bytes mutated = Mutated(package, seed);
        const auto start = std::chrono::steady_clock::now();
        const Outcome outcome = ExerciseAll(mutated);
        slowest = std::max<std::chrono::nanoseconds>(slowest, std::chrono::steady_clock::now() - start);
        most = std::max(most, outcome.moved);
        refused += SUCCEEDED(outcome.walked) && SUCCEEDED(outcome.opened) ? 0 : 1;
        EXPECT_GE(mutated.size(), ContentBytes(outcome.tree));
        for (const HRESULT hr : {outcome.opened, outcome.copied, outcome.walked})
            EXPECT_TRUE(hr == S_OK || HRESULT_FACILITY(hr) == FACILITY_STORAGE) << std::hex << hr;
    }
    EXPECT_GT(20 * package.size(), most);
    EXPECT_LT(count / 10, refused);
    std::cout << count << " mutations of " << package.size() << " bytes, " << refused
              << " refused, at the most " << most << " bytes moved, the slowest in "
              << std::chrono::duration<double, std::milli>(slowest).count() << " ms\n";
}

}  // namespace
}  // namespace quorvane::cfb::test
