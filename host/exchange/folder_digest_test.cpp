#include "host/exchange/folder_digest.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>

#include "host/exchange/exchange_for_test.h"

namespace quorvane::host::exchange {

namespace {

using Folder = std::map<std::string, std::string>;

FolderDigest DigestOf(const Folder& folder)
{
    FolderDigestMaker maker;
    for (const auto& [id, version] : folder)
        maker.Add(id, version);
    return maker.Finish();
}

Folder MakeFolder(int items)
{
    Folder folder;
    for (int item = 0; item < items; ++item)
        folder["{" + std::to_string(item) + "}"] = "version " + std::to_string(item % 7);
    return folder;
}

TEST(FolderDigestTest, OfEqualFoldersIsEqualAndOfAnEmptyOneToo)
{
    EXPECT_EQ(DigestOf(MakeFolder(5000)), DigestOf(MakeFolder(5000)));
    EXPECT_EQ(DigestOf({}), DigestOf({}));
    EXPECT_NE(DigestOf({}), DigestOf(MakeFolder(1)));
}

TEST(FolderDigestTest, AllBucketsHaveItems)
{
    const FolderDigest empty = DigestOf({});
    EXPECT_EQ(Differing(DigestOf(MakeFolder(5000)), empty).size(), FolderDigest::kBuckets);
}

TEST(FolderDigestTest, WhatDiffersIsFoundInItsBucketAlone)
{
    const Folder here = MakeFolder(5000);
    const FolderDigest digest = DigestOf(here);
    for (const char* id : {"{0}", "{17}", "{4999}"}) {
        Folder lacking = here, changed = here;
        lacking.erase(id);
        changed[id] = "another";
        const std::vector<std::uint8_t> bucket{BucketOf(id)};
        EXPECT_EQ(Differing(DigestOf(lacking), digest), bucket) << id;
        EXPECT_EQ(Differing(digest, DigestOf(changed)), bucket) << id;
    }
}

TEST(FolderDigestTest, AnIdAndAVersionDontRunIntoEachOther)
{
    std::string id = "a";
    for (int tries = 0; BucketOf(id) != BucketOf(id + "b"); ++tries)
        id = std::to_string(tries);
    EXPECT_NE(DigestOf({{id, "bc"}}), DigestOf({{id + "b", "c"}}));
}

TEST(FolderDigestTest, ItemsOutOfOrderAreTheCallersError)
{
    FolderDigestMaker maker;
    maker.Add("b", "1");
    EXPECT_THROW(maker.Add("b", "1"), std::logic_error);
    EXPECT_THROW(maker.Add("a", "1"), std::logic_error);
}

TEST(FolderDigestTest, IsReadAsItWasWrittenAndNothingElseIs)
{
    const FolderDigest digest = DigestOf(MakeFolder(100));
    const std::string bytes = digest.Write();
    EXPECT_EQ(bytes.size(), 4096U);
    EXPECT_EQ(FolderDigest::Read(bytes, "a digest"), digest);
    EXPECT_NE(RefusalOf([&] { FolderDigest::Read(bytes.substr(1), "a digest"); }), "");
    EXPECT_NE(RefusalOf([&] { FolderDigest::Read(bytes + 'x', "a digest"); }), "");
}

}  // namespace

}  // namespace quorvane::host::exchange
