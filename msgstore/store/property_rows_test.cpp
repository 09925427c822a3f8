#include "msgstore/store/property_rows.h"

#include <gtest/gtest.h>

namespace quorvane {
namespace {

std::vector<PropertyBag> TwoRecipients()
{
    std::vector<PropertyBag> recipients(2);
    recipients[0].Put(PropertyValue::Long(PR_ROWID, 3));
    recipients[0].Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, OLESTR("Zoe")));
    recipients[1].Put(PropertyValue::Long(PR_ROWID, 7));
    return recipients;
}

TEST(PropertyRowsTest, RecipientsComeBackAsTheyWere)
{
    Bytes bytes;
    std::vector<PropertyBag> recipients;

    ASSERT_EQ(EncodeRecipients(TwoRecipients(), bytes), S_OK);
    ASSERT_EQ(DecodeRecipients(bytes, recipients), S_OK);

    ASSERT_EQ(recipients.size(), 2u);
    EXPECT_EQ(recipients[0].Find(PR_DISPLAY_NAME_W)->AsText(), OLESTR("Zoe"));
    EXPECT_EQ(recipients[1].Find(PR_ROWID)->AsInteger(), 7);
}

TEST(PropertyRowsTest, ManyRecipientsArePackedAndComeBack)
{
    std::vector<PropertyBag> many(40);
    for (PropertyBag& recipient : many)
        recipient.Put(PropertyValue::Unicode(PR_DISPLAY_NAME_W, OLESTR("Zoe <zoe@example.org>")));
    Bytes bytes;
    std::vector<PropertyBag> recipients;

    ASSERT_EQ(EncodeRecipients(many, bytes), S_OK);
    ASSERT_EQ(DecodeRecipients(bytes, recipients), S_OK);

    EXPECT_LT(bytes.size(), 300u);
    ASSERT_EQ(recipients.size(), 40u);
    EXPECT_EQ(recipients[39].Find(PR_DISPLAY_NAME_W)->AsText(), OLESTR("Zoe <zoe@example.org>"));
    for (std::size_t size = 1; size < bytes.size(); ++size)
        EXPECT_EQ(DecodeRecipients(ByteView(bytes.data(), size), recipients), MAPI_E_CORRUPT_DATA) << size;
    bytes.push_back(0);
    EXPECT_EQ(DecodeRecipients(bytes, recipients), MAPI_E_CORRUPT_DATA);
}

TEST(PropertyRowsTest, NoBytesAreNoRecipients)
{
    std::vector<PropertyBag> recipients(1);

    EXPECT_EQ(DecodeRecipients({}, recipients), S_OK);
    EXPECT_TRUE(recipients.empty());
}

TEST(PropertyRowsTest, RecipientsCutAnywhereAreCorrupt)
{
    Bytes bytes;
    ASSERT_EQ(EncodeRecipients(TwoRecipients(), bytes), S_OK);
    std::vector<PropertyBag> recipients;
    for (std::size_t size = 1; size < bytes.size(); ++size)
        EXPECT_EQ(DecodeRecipients(ByteView(bytes.data(), size), recipients), MAPI_E_CORRUPT_DATA) << size;
    bytes.push_back(0);
    EXPECT_EQ(DecodeRecipients(bytes, recipients), MAPI_E_CORRUPT_DATA);
}

TEST(PropertyRowsTest, LyingCountsAreCorruptAndCostNothing)
{
    std::vector<PropertyBag> recipients;
    const Bytes manyRecipients = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
    const Bytes longRecipient = {1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};

    EXPECT_EQ(DecodeRecipients(manyRecipients, recipients), MAPI_E_CORRUPT_DATA);
    EXPECT_EQ(DecodeRecipients(longRecipient, recipients), MAPI_E_CORRUPT_DATA);
}

}  // namespace
}  // namespace quorvane
