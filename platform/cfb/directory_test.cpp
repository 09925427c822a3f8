#include "platform/cfb/directory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/cfb/testing/test_support.h"
#include "platform/cfb/volume.h"

namespace quorvane::cfb::test {
namespace {

class DirectoryTest : public ::testing::Test {
protected:
    DirectoryTest() { EXPECT_EQ(S_OK, volume.Format(Layout::kVersion3)); }

    // Makes streams without content, which are named by their numbers and hang nowhere. A sector that another
    // thing has lies behind each fourth of them.
    void Make(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i) {
            EntryId id = kNoEntry;
            std::vector<SectorId> between;
            ASSERT_EQ(S_OK, volume.directory.Allocate(&id));
            ASSERT_EQ(S_OK,
                      volume.directory.Write(id, DirEntry(EntryType::kStream, Named(std::to_string(id)))));
            ASSERT_EQ(S_OK, volume.Commit());
            if (i % 4 != 0)
                continue;
            ASSERT_EQ(S_OK, volume.fat.TakeMany(1, &between));
            ASSERT_EQ(S_OK, volume.fat.SetChain(between));
            const std::vector<BYTE> bytes(volume.sectors.SectorBytes(), 0x02);
            ASSERT_EQ(S_OK, volume.sectors.Write(between.front(), 0, bytes.data(), bytes.size()));
        }
    }
    void ExpectItsOwn(EntryId id)
    {
        const DirEntry* entry = nullptr;
        ASSERT_EQ(S_OK, volume.directory.Peek(id, &entry)) << id;
        EXPECT_EQ(0, entry->Compare(Named(std::to_string(id)))) << id;
    }

    MemoryStore store;
    Volume volume{store};
};

TEST_F(DirectoryTest, EntriesAreFoundInADirectoryThatLiesInPieces)
{
    constexpr unsigned kCount = 200;
    Make(kCount);
    for (const EntryId step : {1u, 3u, 7u, 61u, 199u}) {
        for (EntryId i = 0; i < kCount; ++i)
            ExpectItsOwn(1 + i * step % kCount);
    }
}

TEST_F(DirectoryTest, AnEntryIsFoundAgainWhenItsPageHasLeftTheCache)
{
    Make(3);
    ExpectItsOwn(2);
    store.bytes.resize((OrderedFile::kCachedPages + 10) * OrderedFile::kPage, 0x02);
    volume.sectors.GrowTo(static_cast<SectorId>(store.bytes.size() / 512 - 1));
    ASSERT_EQ(S_OK, volume.Commit());
    for (std::uint64_t page = 1; page < OrderedFile::kCachedPages + 10; ++page) {
        BYTE byte = 0;
        ASSERT_EQ(S_OK, volume.file.Read(page * OrderedFile::kPage, &byte, 1));
    }
    ExpectItsOwn(2);
}

TEST_F(DirectoryTest, BehindTheEndThatWasGivenBackThereIsNoEntry)
{
    const DirEntry* entry = nullptr;
    Make(12);
    for (EntryId id = 4; id <= 12; ++id)
        ASSERT_EQ(S_OK, volume.directory.Free(id));
    ASSERT_EQ(S_OK, volume.Commit());
    ASSERT_EQ(S_OK, volume.directory.Peek(12, &entry));
    ASSERT_EQ(S_OK, volume.directory.Trim(1));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, volume.directory.Peek(12, &entry));
    ExpectItsOwn(3);
}

TEST_F(DirectoryTest, AnEntryBehindTheFilesEndIsNone)
{
    const DirEntry* entry = nullptr;
    for (const SectorId sector : {1u, 2u, 3u})
        ASSERT_EQ(S_OK, volume.fat.SetNext(sector, sector < 3 ? sector + 1 : kEndOfChain));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, volume.directory.Peek(4, &entry));
    EXPECT_EQ(S_OK, volume.directory.Peek(kRootEntry, &entry));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, volume.directory.Peek(4, &entry));
    EXPECT_EQ(STG_E_DOCFILECORRUPT, volume.directory.Peek(kNoEntry, &entry));
}

}  // namespace
}  // namespace quorvane::cfb::test
