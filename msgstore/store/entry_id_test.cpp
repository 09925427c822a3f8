#include "msgstore/store/entry_id.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

TEST(EntryIdTest, ALongTermIdentifierComesApartAsItWasMade)
{
    const ObjectGuid store = MakeObjectGuid();
    const ObjectGuid object = MakeObjectGuid();
    const Bytes id = LongTermId(store, MAPI_MESSAGE, object);
    EntryId parsed;

    ASSERT_EQ(ParseEntryId(id.data(), id.size(), parsed), S_OK);

    EXPECT_EQ(Bytes(id.begin(), id.begin() + 4), Bytes(4, 0));
    EXPECT_FALSE(parsed.isShortTerm);
    EXPECT_EQ(parsed.store, store);
    EXPECT_EQ(parsed.kind, MAPI_MESSAGE);
    EXPECT_EQ(parsed.object, object);
}

TEST(EntryIdTest, AShortTermIdentifierBeginsWithANonzeroByteAndCarriesTheRow)
{
    const ObjectGuid store = MakeObjectGuid();
    const Bytes id = ShortTermId(store, MAPI_MESSAGE, 0x0102030405060708);
    EntryId parsed;

    ASSERT_EQ(ParseEntryId(id.data(), id.size(), parsed), S_OK);

    EXPECT_NE(id[0], 0);
    EXPECT_TRUE(parsed.isShortTerm);
    EXPECT_EQ(parsed.row, 0x0102030405060708);
}

TEST(EntryIdTest, EveryOtherSizeVersionKindOrFlagIsRefused)
{
    const Bytes good = LongTermId(MakeObjectGuid(), MAPI_FOLDER, MakeObjectGuid());
    EntryId parsed;
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_EQ(ParseEntryId(good.data(), size, parsed), MAPI_E_INVALID_ENTRYID) << size;
    for (const std::size_t at : {0u, 1u, 3u, 20u, 21u}) {
        Bytes bad = good;
        bad[at] = 0x7F;
        EXPECT_EQ(ParseEntryId(bad.data(), bad.size(), parsed), MAPI_E_INVALID_ENTRYID) << at;
    }
    EXPECT_EQ(ParseEntryId(nullptr, good.size(), parsed), MAPI_E_INVALID_ENTRYID);
}

}  // namespace
}  // namespace quorvane
