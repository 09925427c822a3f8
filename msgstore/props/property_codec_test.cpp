#include "msgstore/props/property_codec.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>

#include "msgstore/props/little_endian.h"
#include "msgstore/props/packed_record.h"
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

Bytes Encoded(const PropertyBag& bag, RunForm form = RunForm::Narrow)
{
    Bytes bytes;
    std::vector<const PropertyValue*> outOfLine;
    EncodeProperties(bag, form, 100000, bytes, outOfLine);
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
    EncodeProperties(bag, RunForm::Narrow, 1000, bytes, outOfLine);
    ASSERT_EQ(outOfLine.size(), 2u);
    EXPECT_EQ(outOfLine[0]->tag, PR_BODY_W);
    EXPECT_EQ(outOfLine[1]->tag, PR_RTF_COMPRESSED);
}

PropertyBag BagOf(PropertyValue value)
{
    PropertyBag bag;
    bag.Put(std::move(value));
    return bag;
}

Bytes Packed(const PropertyBag& bag)
{
    Bytes bytes;
    std::vector<const PropertyValue*> outOfLine;
    EncodeProperties(bag, RunForm::Packed, UINT64_MAX, bytes, outOfLine);
    return bytes;
}

OleString Repeated(const OleString& text, int times)
{
    OleString whole;
    for (int i = 0; i < times; ++i)
        whole += text;
    return whole;
}

// A bag with long text, and a value that can't be packed.
PropertyBag LongSample()
{
    PropertyBag bag = Sample();
    bag.Put(PropertyValue::Unicode(PR_BODY_W, Repeated(OLESTR("It is a long text. "), 100)));
    std::mt19937 random(1);
    Bytes noise(600);
    for (BYTE& byte : noise)
        byte = static_cast<BYTE>(random());
    bag.Put(PropertyValue::Binary(PROP_TAG(PT_BINARY, 0x8001), noise.data(), noise.size()));
    return bag;
}

// What a run of either form gives back is what was in the bag, to the byte.
void ExpectSame(const PropertyBag& bag, const PropertyBag& back)
{
    ASSERT_EQ(back.size(), bag.size());
    for (auto one = bag.begin(), other = back.begin(); one != bag.end(); ++one, ++other) {
        EXPECT_EQ(one->tag, other->tag);
        EXPECT_EQ(one->data, other->data) << one->tag;
        EXPECT_EQ(one->items, other->items) << one->tag;
    }
}

void ExpectComesBack(const PropertyBag& bag)
{
    PropertyBag back;
    for (const RunForm form : {RunForm::Plain, RunForm::Narrow}) {
        const Bytes bytes = Encoded(bag, form);
        back.Clear();
        ASSERT_EQ(DecodeProperties(bytes.data(), bytes.size(), back), S_OK);
        ExpectSame(bag, back);
    }
    const Bytes packed = Packed(bag);
    back.Clear();
    ASSERT_EQ(DecodePacked(packed.data(), packed.size(), back), S_OK);
    ExpectSame(bag, back);
}

TEST(PropertyCodecTest, AsciiTakesAByteALetter)
{
    const Bytes bytes = Encoded(BagOf(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("Re: Plan"))));
    EXPECT_EQ(bytes, (Bytes{0x1F, 0x40, 0x37, 0x00, 8, 0, 0, 0, 'R', 'e', ':', ' ', 'P', 'l', 'a', 'n'}));
}

TEST(PropertyCodecTest, PlainTextIsInUtf16)
{
    const PropertyBag bag = BagOf(PropertyValue::Unicode(PR_SUBJECT_W, OLESTR("Re")));
    EXPECT_EQ(Encoded(bag, RunForm::Plain), (Bytes{0x1F, 0x00, 0x37, 0x00, 4, 0, 0, 0, 'R', 0, 'e', 0}));
}

TEST(PropertyCodecTest, EveryTextComesBackAsItWas)
{
    const OleString lone = OleString(1, static_cast<OLECHAR>(0xD83D));
    const OleString low = OleString(1, static_cast<OLECHAR>(0xDE00));
    const OleString pair = lone + low;
    const OleString zero = OleString(3, OLECHAR{});
    const OleString wide = OLESTR("\u65E5\u672C\u8A9E");
    for (const OleString& text :
         {OleString(), OleString(OLESTR("a")), OleString(OLESTR("Gr\u00FC\u00DFe")), wide, lone, low, pair,
          low + lone, zero, OLESTR("abcdef") + lone, OLESTR("abcdefg") + pair + OLESTR("h"),
          lone + OLESTR("abcdefgh"), OLESTR("abc") + zero + OLESTR("defghijk"),
          Repeated(OLESTR("12345678\u044F"), 50), Repeated(wide, 200), Repeated(pair, 300) + low}) {
        ExpectComesBack(BagOf(PropertyValue::Unicode(PR_SUBJECT_W, text)));
        PropertyValue several;
        several.tag = PROP_TAG(PT_MV_UNICODE, 0x6603);
        for (const OleString& item : {text, OleString(OLESTR("plain")), text})
            several.items.push_back(PropertyValue::Unicode(PR_SUBJECT_W, item).data);
        ExpectComesBack(BagOf(several));
    }
}

TEST(PropertyCodecTest, RandomTextsComeBackAsTheyWere)
{
    std::mt19937 random(20261123);
    constexpr OLECHAR kUnits[] = {'a',    'b',    0,      0x7F,   0x80,   0x7FF,  0x800, 0xD7FF,
                                  0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFE, 0xFFFF};
    for (int round = 0; round < 3000; ++round) {
        OleString text;
        for (auto size = random() % 40; size > 0; --size)
            text.push_back(random() % 4 != 0 ? OLECHAR{'x'} : kUnits[random() % std::size(kUnits)]);
        ExpectComesBack(BagOf(PropertyValue::Unicode(PR_SUBJECT_W, text)));
    }
}

TEST(PropertyCodecTest, HalfAUnitAtATextsEndStays)
{
    PropertyValue odd;
    odd.tag = PR_SUBJECT_W;
    odd.data = {'a', 0, 'b'};
    ExpectComesBack(BagOf(odd));
}

TEST(PropertyCodecTest, WhatIsLongerInUtf8StaysInUtf16)
{
    const OleString wide = Repeated(OLESTR("\u65E5"), 10);
    EXPECT_EQ(Encoded(BagOf(PropertyValue::Unicode(PR_SUBJECT_W, wide))).size(), 8 + 20u);
}

TEST(PropertyCodecTest, ATextOfTheEarlierFormReadsAsWell)
{
    const Bytes bytes = {0x1F, 0x00, 0x37, 0x00, 4, 0, 0, 0, 'R', 0, 'e', 0};
    PropertyBag bag;
    ASSERT_EQ(DecodePacked(bytes.data(), bytes.size(), bag), S_OK);
    EXPECT_EQ(bag.Find(PR_SUBJECT_W)->AsText(), OLESTR("Re"));
}

TEST(PropertyCodecTest, MarkedTextThatIsNotUtf8IsRefused)
{
    for (const Bytes& text :
         {Bytes{0x80}, Bytes{0xC0, 0x80}, Bytes{'a', 0xED, 0xA0, 0x80}, Bytes{0xE2, 0x82}}) {
        Bytes bytes = {0x1F, 0x40, 0x37, 0x00, static_cast<BYTE>(text.size()), 0, 0, 0};
        bytes.insert(bytes.end(), text.begin(), text.end());
        PropertyBag bag;
        EXPECT_EQ(DecodeProperties(bytes.data(), bytes.size(), bag), MAPI_E_CORRUPT_DATA);
    }
}

TEST(PropertyCodecTest, OnlyTextIsMarkedAsUtf8)
{
    for (const BYTE type : {0x03, 0x1E, 0x02}) {
        const Bytes bytes = {type, 0x40, 0x37, 0x00, 4, 0, 0, 0, 'a', 'b', 'c', 'd'};
        PropertyBag bag;
        EXPECT_EQ(DecodeProperties(bytes.data(), bytes.size(), bag), MAPI_E_CORRUPT_DATA);
    }
}

TEST(PropertyCodecTest, APackedRunHoldsWhatCanBePackedInFewerBytes)
{
    const PropertyBag bag = LongSample();
    ExpectComesBack(bag);
    EXPECT_LT(Packed(bag).size(), 900u);
    EXPECT_GT(Encoded(bag).size(), 2500u);
}

// A bag with a text and with the zlib stream of nearly the same.
PropertyBag SampleWithDictionary()
{
    std::mt19937 random(2);
    std::string text;
    for (int i = 0; i < 4000; ++i)
        text.push_back(i % 70 == 69 ? '\n' : static_cast<char>('a' + random() % 26));
    uLongf size = compressBound(static_cast<uLong>(text.size()));
    Bytes stream(size);
    EXPECT_EQ(compress(stream.data(), &size, reinterpret_cast<const Bytef*>(text.data()),
                       static_cast<uLong>(text.size())),
              Z_OK);
    PropertyBag bag = Sample();
    bag.Put(PropertyValue::Unicode(PR_BODY_W, OleString(text.begin() + 10, text.end())));
    bag.Put(PropertyValue::Binary(PROP_TAG(PT_BINARY, 0x8001), stream.data(), size));
    return bag;
}

TEST(PropertyCodecTest, ATextThatAnotherValueHoldsAsAZlibStreamTakesNextToNothing)
{
    const PropertyBag bag = SampleWithDictionary();
    ExpectComesBack(bag);
    EXPECT_LT(Packed(bag).size(), bag.Find(PROP_TAG(PT_BINARY, 0x8001))->data.size() + 200);
}

TEST(PropertyCodecTest, ADictionaryThatIsntThereIsRefused)
{
    const Bytes bytes = Packed(SampleWithDictionary());
    const std::size_t behind = 8 + LoadLittle<std::uint32_t>(bytes.data() + 4);
    PropertyBag bag;
    EXPECT_EQ(DecodePacked(bytes.data(), behind, bag), MAPI_E_CORRUPT_DATA);
}

TEST(PropertyCodecTest, WhatIsntWorthItIsntPacked)
{
    EXPECT_EQ(Packed(Sample()), Encoded(Sample()));
}

TEST(PropertyCodecTest, LongValuesAloneArePackedAndTheOthersAreReadWithoutThem)
{
    PropertyBag bag = LongSample();
    bag.Put(PropertyValue::Unicode(PR_SENDER_NAME_W, OleString(127, OLECHAR{'a'})));
    bag.Put(PropertyValue::Unicode(PR_TRANSPORT_MESSAGE_HEADERS_W, OleString(128, OLECHAR{'a'})));
    const Bytes bytes = Packed(bag);
    PropertyBag beside;
    std::vector<ULONG> packed;

    ASSERT_EQ(DecodeBesidePacked(bytes.data(), bytes.size(), beside, packed), S_OK);

    EXPECT_EQ(packed, (std::vector<ULONG>{PR_TRANSPORT_MESSAGE_HEADERS_W, PR_BODY_W}));
    EXPECT_EQ(beside.size(), bag.size() - 2);
    EXPECT_EQ(beside.Find(PR_SENDER_NAME_W)->AsText(), OleString(127, OLECHAR{'a'}));
    EXPECT_EQ(beside.Find(PR_SUBJECT_W)->AsText(), OLESTR("subject"));
}

TEST(PropertyCodecTest, WithoutAPackedRecordEveryValueIsBeside)
{
    const Bytes bytes = Packed(Sample());
    PropertyBag beside;
    std::vector<ULONG> packed;
    ASSERT_EQ(DecodeBesidePacked(bytes.data(), bytes.size(), beside, packed), S_OK);
    ExpectSame(Sample(), beside);
    EXPECT_TRUE(packed.empty());
}

// A run whose packed record says it holds values of these tags, and holds these bytes.
Bytes RunThatSays(const std::vector<ULONG>& tags, const Bytes& packed)
{
    Bytes run;
    EXPECT_TRUE(AppendPackedRecord(packed, tags, 0, {}, run));
    return run;
}

TEST(PropertyCodecTest, APackedRecordHoldsWhatItSays)
{
    PropertyBag bag;
    bag.Put(PropertyValue::Unicode(PR_BODY_W, Repeated(OLESTR("It is a long text. "), 100)));
    const Bytes body = Encoded(bag);
    using Tags = std::vector<ULONG>;
    PropertyBag back;
    for (const Tags& tags : {Tags{}, Tags{PR_SUBJECT_W}, Tags{PR_BODY_W, PR_BODY_W}, Tags{0}}) {
        const Bytes run = RunThatSays(tags, body);
        EXPECT_EQ(DecodePacked(run.data(), run.size(), back), MAPI_E_CORRUPT_DATA) << tags.size();
    }
    const Bytes run = RunThatSays({PR_BODY_W}, body);
    EXPECT_EQ(DecodePacked(run.data(), run.size(), back), S_OK);
    ExpectSame(bag, back);
}

TEST(PropertyCodecTest, APackedRecordWithinAnotherIsRefused)
{
    const Bytes inner = Packed(LongSample());
    Bytes twice = inner;
    twice.insert(twice.end(), inner.begin(), inner.end());
    PropertyBag bag;
    EXPECT_EQ(DecodePacked(twice.data(), twice.size(), bag), MAPI_E_CORRUPT_DATA);
    EXPECT_EQ(DecodeProperties(inner.data(), inner.size(), bag), MAPI_E_CORRUPT_DATA);
}

using Decoder = HRESULT (*)(const void*, std::size_t, PropertyBag&) noexcept;

// What begins as a run and ends too early is refused, or has fewer values than that.
void ExpectCutsHandled(const Bytes& bytes, std::size_t values, Decoder decode)
{
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        PropertyBag back;
        if (SUCCEEDED(decode(cut.data(), cut.size(), back))) {
            EXPECT_LT(back.size(), values) << size;
        }
    }
}

void ExpectChangesHandled(const Bytes& bytes, Decoder decode)
{
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const BYTE change : {0x01, 0x80, 0xFF}) {
            Bytes changed = bytes;
            changed[at] ^= change;
            PropertyBag back;
            const HRESULT hr = decode(changed.data(), changed.size(), back);
            EXPECT_TRUE(hr == S_OK || hr == MAPI_E_CORRUPT_DATA) << at;
        }
    }
}

TEST(PropertyCodecTest, EveryCutRunIsRefusedOrShorter)
{
    ExpectCutsHandled(Encoded(Sample()), Sample().size(), DecodeProperties);
    ExpectCutsHandled(Packed(LongSample()), LongSample().size(), DecodePacked);
    ExpectCutsHandled(Packed(SampleWithDictionary()), SampleWithDictionary().size(), DecodePacked);
}

TEST(PropertyCodecTest, EveryChangedByteIsHandled)
{
    ExpectChangesHandled(Encoded(Sample()), DecodeProperties);
    ExpectChangesHandled(Packed(LongSample()), DecodePacked);
    ExpectChangesHandled(Packed(SampleWithDictionary()), DecodePacked);
}

}  // namespace
}  // namespace quorvane
