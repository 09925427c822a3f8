// platform/cfb/testing/interrupted.h: for tests: what must be in a file whose writer was killed.
#ifndef QUORVANE_PLATFORM_CFB_TESTING_INTERRUPTED_H_
#define QUORVANE_PLATFORM_CFB_TESTING_INTERRUPTED_H_

#include <gtest/gtest.h>

#include "platform/cfb/format.h"
#include "platform/cfb/testing/series.h"

namespace quorvane::cfb::test {

// A file that the steps made, and what is in it, if `tree` isn't null.
inline Bytes MakeFile(const std::vector<Step>& steps, Tree* tree)
{
    Session session(Road::kLockBytes);
    EXPECT_EQ(S_OK, session.Create(Layout::kVersion3));
    for (const Step& step : steps) {
        EXPECT_EQ(S_OK, step.run(session)) << step.what;
        if (tree)
            step.apply(*tree);
    }
    session.Close();
    return session.Content();
}

// The same version 3 file with the directory's first sector, in which the root's entry is, behind all others:
// other programs write such files, and pages come into a file in another order then.
inline Bytes WithItsRootBehindAll(Bytes file)
{
    constexpr std::size_t kSector = 512;
    constexpr std::size_t kLinks = kSector / 4;
    const auto sector = static_cast<SectorId>(file.size() / kSector - 1);
    const SectorId first = LoadU32(&file[0x30]);
    const auto linkOf = [&](SectorId of) {
        return &file[(LoadU32(&file[0x4C + 4 * (of / kLinks)]) + 1) * kSector + of % kLinks * 4];
    };
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>((first + 1) * kSector);
    const Bytes moved(begin, begin + kSector);
    file.insert(file.end(), moved.begin(), moved.end());
    EXPECT_NE(0u, sector % kLinks) << "no part of the FAT tells of that sector";
    StoreU32(linkOf(sector), LoadU32(linkOf(first)));
    StoreU32(linkOf(first), kFreeSector);
    StoreU32(&file[0x30], sector);
    return file;
}

// Expects of a file whose writer was killed in a change what that promises.
inline void ExpectBetween(const Tree& found, const Tree& before, const Tree& after,
                          const FileChange& operation)
{
    EXPECT_TRUE(!operation.asOne || found == before || found == after) << operation.what;
    for (const auto& [path, content] : before) {
        const auto still = after.find(path);
        if (still == after.end() || still->second != content)
            continue;
        const auto there = found.find(path);
        EXPECT_TRUE(there != found.end() && there->second == content) << path << ": " << operation.what;
    }
    for (const auto& [path, content] : found)
        EXPECT_TRUE(before.contains(path) || after.contains(path)) << path << " came back";
}

}  // namespace quorvane::cfb::test

#endif  // QUORVANE_PLATFORM_CFB_TESTING_INTERRUPTED_H_
