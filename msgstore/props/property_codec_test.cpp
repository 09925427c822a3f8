#include "msgstore/props/property_codec.h"

#include <gtest/gtest.h>

#include "msgstore/props/spool_value.h"

namespace quorvane {
namespace {

PropertyBag Sample()
{
    PropertyBag bag;
    bag.Put(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("subject")));
    bag.Put(PropertyValue::Long(PR_IMPORTANCE, 1));
    bag.Put(PropertyValue::Binary(PROP_TAG(PT_MV_LONG, 0x6601), "\1\0\0\0\2\0\0\0", 8));
    PropertyValue texts;
    texts.tag = PROP_TAG(PT_MV_STRING8, 0x6602);
    texts.items = {{'a'}, {}, {'b', 'c'}};
    bag.Put(texts);
    return bag;
}

Bytes Encoded(const PropertyBag& bag)
{
    Bytes bytes;
    std::vector<const PropertyValue*> outOfLine;
    EncodeProperties(bag, 1000, bytes, outOfLine);
    EXPECT_TRUE(outOfLine.empty());
    return bytes;
}

TEST(PropertyCodecTest, ABagComesBackAsItWas)
{
    const PropertyBag bag = Sample();
    const Bytes bytes = Encoded(bag);
    PropertyBag back;
    ASSERT_EQ(DecodeProperties(bytes.data(), bytes.size(), back), S_OK);
    EXPECT_EQ(Encoded(back), bytes);
    EXPECT_EQ(back.size(), bag.size());
    EXPECT_EQ(back.Find(PROP_TAG(PT_MV_STRING8, 0x6602))->items[2], (Bytes{'b', 'c'}));
}

TEST(PropertyCodecTest, LongValuesAreListedApart)
{
    PropertyBag bag = Sample();
    bag.Put(PropertyValue::Binary(PR_RTF_COMPRESSED, Bytes(1001).data(), 1001));
    PropertyValue large;
    large.tag = PR_BODY_W;
    large.large = std::make_shared<SpoolValue>(Bytes{1, 2});
    bag.Put(large);
    Bytes bytes;
    std::vector<const PropertyValue*> outOfLine;
    EncodeProperties(bag, 1000, bytes, outOfLine);
    ASSERT_EQ(outOfLine.size(), 2u);
    EXPECT_EQ(outOfLine[0]->tag, PR_BODY_W);
    EXPECT_EQ(outOfLine[1]->tag, PR_RTF_COMPRESSED);
}

TEST(PropertyCodecTest, EveryCutRunIsRefusedOrShorter)
{
    const Bytes bytes = Encoded(Sample());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        PropertyBag back;
        if (SUCCEEDED(DecodeProperties(cut.data(), cut.size(), back))) {
            EXPECT_LT(back.size(), Sample().size()) << size;
        }
    }
}

TEST(PropertyCodecTest, EveryChangedByteIsHandled)
{
    const Bytes bytes = Encoded(Sample());
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const BYTE change : {0x01, 0x80, 0xFF}) {
            Bytes changed = bytes;
            changed[at] ^= change;
            PropertyBag back;
            const HRESULT hr = DecodeProperties(changed.data(), changed.size(), back);
            EXPECT_TRUE(hr == S_OK || hr == MAPI_E_CORRUPT_DATA) << at;
        }
    }
}

}  // namespace
}  // namespace quorvane
