// Submit where a disk goes wrong at every change, one after the other: the store's, the sharing database's or
// the hash store's.
#include "engine/items/testing/submit_test.h"

#include <gtest/gtest.h>

#include "tests/fault/disk.h"

namespace quorvane {
namespace {

using test::Disk;
using test::DiskTrouble;
using testing::kNewMail;
using testing::kOldMail;

constexpr char kStore[] = "mail.store";
constexpr char kDatabase[] = "share.qdb";
constexpr char kHashes[] = ".dat";

struct Place {
    const char* file;  // part of the path
    const char* name;
};

class SubmitDiskTest : public testing::SubmitTest,
                       public ::testing::WithParamInterface<std::tuple<Place, DiskTrouble>> {
protected:
    std::string File() const { return std::get<0>(GetParam()).file; }

    // Submits an item with the trouble at the disk's first change, the second, and so on until none is met.
    // `judge` looks at each failure, and then the next attempt is made on a whole disk.
    template <class Judge, class Expect>
    void FailEverywhere(bool known, bool hasMessage, Judge judge, Expect expectDone)
    {
        for (unsigned at = 1;; ++at) {
            SCOPED_TRACE("change " + std::to_string(at));
            Prepare(known);
            const ComPtr<CItem> item = Arrived(hasMessage);
            Disk::Break(std::get<1>(GetParam()), at, File());
            const HRESULT hr = Submit(*item);
            const unsigned changes = Disk::Repair();
            ExpectFree();
            if (FAILED(hr)) {
                judge(*item);
                EXPECT_GE(Submit(*Arrived(hasMessage)), 0);
            }
            expectDone();
            ExpectHashesKept();
            if (HasFailure() || changes < at) {
                EXPECT_EQ(hr, S_OK);
                EXPECT_GT(at, File() == kHashes ? 1u : 3u);
                return;
            }
        }
    }

    // The hash store's file, read anew, knows each mail that is there and that alone.
    void ExpectHashesKept()
    {
        CHashDB& kept = *session.HashStores().Find(Bstr(testing::kFolderId).Get());
        EXPECT_EQ(kept.SaveMap(), S_OK);
        CHashDB read{OleStringView(testing::kFolderId)};
        ASSERT_EQ(read.Init(Bstr(Widen(hashes.File(""))).Get()), S_OK);
        for (const Bstr& mail : Mails()) {
            Bstr hash;
            LONG flags = 0;
            EXPECT_EQ(read.GetHash(mail.Get(), hash.Put(), &flags), S_OK);
            EXPECT_EQ(Narrow(hash.View()), HashOf(mail));
            EXPECT_NE(HashOf(mail), "");
        }
    }
};

TEST_P(SubmitDiskTest, ANewItemIsThereOnceAtTheLatestAfterTheNextAttempt)
{
    FailEverywhere(
        false, true,
        [&](CItem& item) {
            if (File() == kStore)
                ExpectNothing();
            // A message whose row couldn't be written stays, and the item alone knows it.
            const std::vector<Bstr> mails = Mails();
            if (File() == kDatabase && Rows() == "NULL" && mails.size() == 1) {
                EXPECT_EQ(item.m_bstrEntryID.View(), mails[0].View());
                EXPECT_EQ(Submit(item), S_OK);
            }
        },
        [&] { ExpectOnly(kNewMail); });
}

TEST_P(SubmitDiskTest, AKnownItemIsTheOldOneOrTheNewOneAndKeepsItsRow)
{
    FailEverywhere(
        true, true,
        [&](CItem&) {
            if (File() == kStore)
                ExpectOnly(kOldMail);
            else
                ExpectOnly(kNewMail);
        },
        [&] { ExpectOnly(kNewMail); });
}

TEST_P(SubmitDiskTest, ADeletedItemIsThereWithItsRowOrGone)
{
    FailEverywhere(
        true, false,
        [&](CItem&) {
            ExpectOnly(kOldMail);
            EXPECT_EQ(HashOf(Mails()[0]), knownHash);
        },
        // A row that couldn't be deleted names a message that is gone.
        [&] {
            EXPECT_TRUE(Mails().empty());
            if (File() != kDatabase) {
                EXPECT_EQ(Rows(), "NULL");
            }
        });
}

INSTANTIATE_TEST_SUITE_P(
    Disk, SubmitDiskTest,
    ::testing::Combine(::testing::Values(Place{kStore, "Store"}, Place{kDatabase, "Database"},
                                         Place{kHashes, "Hashes"}),
                       ::testing::Values(DiskTrouble::kHiccup, DiskTrouble::kBroken, DiskTrouble::kFull)),
    [](const auto& trouble) {
        return std::get<0>(trouble.param).name + test::NameOf(std::get<1>(trouble.param));
    });

}  // namespace
}  // namespace quorvane
