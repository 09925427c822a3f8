#include "msgstore/props/packed_record.h"

#include <gtest/gtest.h>

#include "msgstore/props/little_endian.h"
#include "msgstore/props/packed_bytes.h"

namespace quorvane {
namespace {

constexpr std::size_t kWholeAt = 12;
constexpr std::size_t kCountAt = 20;
const std::vector<ULONG> kTags = {PR_BODY_W, PR_TRANSPORT_MESSAGE_HEADERS_W};

Bytes Text()
{
    Bytes text;
    for (int i = 0; i < 200; ++i)
        for (const char letter : std::to_string(i * i))
            text.push_back(static_cast<BYTE>(letter));
    return text;
}

Bytes Packed(const Bytes& bytes = Text(), const Bytes& dictionary = {})
{
    Bytes packed;
    EXPECT_TRUE(
        AppendPackedRecord(bytes, kTags, dictionary.empty() ? 0 : PR_RTF_COMPRESSED, dictionary, packed));
    return packed;
}

// With the size and checksum of what it has become.
Bytes Signed(Bytes record)
{
    StoreLittle(record.data() + 4, static_cast<std::uint32_t>(record.size() - 8));
    StoreLittle(record.data() + 8, Checksum(std::span<const BYTE>(record).subspan(12)));
    return record;
}

HRESULT Take(const Bytes& bytes, PackedRecord& record)
{
    std::span<const BYTE> left = bytes;
    return PackedRecord::Take(left, record);
}

HRESULT Unpack(const Bytes& bytes)
{
    PackedRecord record;
    const HRESULT taken = Take(bytes, record);
    Bytes unpacked;
    return FAILED(taken) ? taken : record.Unpack({}, unpacked);
}

TEST(PackedRecordTest, WhatWasPackedComesBack)
{
    Bytes bytes = Packed();
    EXPECT_LT(bytes.size(), Text().size());
    bytes.insert(bytes.end(), {1, 2, 3});
    ASSERT_TRUE(IsPackedRecord(bytes));
    std::span<const BYTE> left = bytes;
    PackedRecord record;
    ASSERT_EQ(PackedRecord::Take(left, record), S_OK);

    Bytes unpacked;
    EXPECT_EQ(record.Unpack({}, unpacked), S_OK);
    EXPECT_EQ(unpacked, Text());
    EXPECT_EQ(left.size(), 3u);
    EXPECT_EQ(record.Dictionary(), 0u);
    ASSERT_EQ(record.Count(), 2u);
    EXPECT_EQ(record.Tag(0), kTags[0]);
    EXPECT_EQ(record.Tag(1), kTags[1]);
}

TEST(PackedRecordTest, ADictionaryIsNeededAgain)
{
    const Bytes bytes = Packed(Text(), Text());
    EXPECT_LT(bytes.size(), 60u);
    PackedRecord record;
    ASSERT_EQ(Take(bytes, record), S_OK);
    EXPECT_EQ(record.Dictionary(), PR_RTF_COMPRESSED);

    Bytes unpacked;
    ASSERT_EQ(record.Unpack(Text(), unpacked), S_OK);
    EXPECT_EQ(unpacked, Text());
    EXPECT_EQ(record.Unpack({}, unpacked), MAPI_E_CORRUPT_DATA);
}

TEST(PackedRecordTest, WhatIsTooShortTooLongOrNotWorthItStaysAsItIs)
{
    Bytes to = {7};
    EXPECT_FALSE(AppendPackedRecord(Bytes(511, 'a'), {}, 0, {}, to));
    EXPECT_TRUE(AppendPackedRecord(Bytes(512, 'a'), {}, 0, {}, to));
    to.resize(1);
    EXPECT_TRUE(AppendPackedRecord(Bytes(1 << 20, 'a'), {}, 0, {}, to));
    to.resize(1);
    EXPECT_FALSE(AppendPackedRecord(Bytes((1 << 20) + 1, 'a'), {}, 0, {}, to));
    EXPECT_FALSE(AppendPackedRecord(Packed(Bytes(100'000, 'a')), {}, 0, {}, to));
    EXPECT_FALSE(AppendPackedRecord(Bytes(512, 'a'), std::vector<ULONG>(100), 0, {}, to));
    EXPECT_EQ(to, Bytes{7});
}

TEST(PackedRecordTest, EveryChangedByteIsSeen)
{
    const Bytes bytes = Packed();
    for (std::size_t at = 4; at < bytes.size(); ++at) {
        for (const BYTE change : {0x01, 0x80, 0xFF}) {
            Bytes changed = bytes;
            changed[at] ^= change;
            PackedRecord record;
            EXPECT_EQ(Take(changed, record), MAPI_E_CORRUPT_DATA) << at;
        }
    }
}

TEST(PackedRecordTest, EveryCutRecordIsRefused)
{
    const Bytes bytes = Packed();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        PackedRecord record;
        EXPECT_EQ(Take(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)), record),
                  MAPI_E_CORRUPT_DATA)
            << size;
    }
}

TEST(PackedRecordTest, AHeadThatLiesIsRefusedThoughItsChecksumIsRight)
{
    ASSERT_EQ(Unpack(Signed(Packed())), S_OK);
    const auto size = static_cast<std::uint32_t>(Text().size());
    for (const std::uint32_t whole : {0u, size - 1, size + 1, 0x100001u, 0xFFFFFFFFu}) {
        Bytes lying = Packed();
        StoreLittle(lying.data() + kWholeAt, whole);
        EXPECT_EQ(Unpack(Signed(lying)), MAPI_E_CORRUPT_DATA) << whole;
    }
    for (const std::uint32_t count : {0u, 1u, 3u, 0x40000000u, 0xFFFFFFFFu}) {
        Bytes lying = Packed();
        StoreLittle(lying.data() + kCountAt, count);
        EXPECT_EQ(Unpack(Signed(lying)), MAPI_E_CORRUPT_DATA) << count;
    }
}

TEST(PackedRecordTest, MoreThanWasEverPackedIsRefusedBeforeThereIsRoomForIt)
{
    for (const std::uint32_t whole : {0x100001u, 0xFFFFFFFFu}) {
        Bytes lying = Packed();
        StoreLittle(lying.data() + kWholeAt, whole);
        PackedRecord record;
        EXPECT_EQ(Take(Signed(lying), record), MAPI_E_CORRUPT_DATA) << whole;
    }
}

TEST(PackedRecordTest, ARecordShorterThanAHeadIsRefused)
{
    for (std::size_t size = 12; size < 24; ++size) {
        Bytes shorter = Packed();
        shorter.resize(size);
        shorter = Signed(shorter);
        shorter.resize(100);
        PackedRecord record;
        EXPECT_EQ(Take(shorter, record), MAPI_E_CORRUPT_DATA) << size;
    }
}

TEST(PackedRecordTest, AStreamThatEndsBeforeTheRecordIsRefused)
{
    Bytes longer = Packed();
    longer.push_back(0);
    EXPECT_EQ(Unpack(Signed(longer)), MAPI_E_CORRUPT_DATA);
}

TEST(PackedRecordTest, NothingPackedIsRefused)
{
    Bytes empty = Packed();
    empty.resize(24 + kTags.size() * 4);
    EXPECT_EQ(Unpack(Signed(empty)), MAPI_E_CORRUPT_DATA);
}

}  // namespace
}  // namespace quorvane
