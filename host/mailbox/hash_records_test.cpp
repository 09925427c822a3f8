#include "host/mailbox/hash_records.h"

#include <gtest/gtest.h>

namespace quorvane::host {

namespace {

// A string as the file holds it.
std::string Stored(const std::string& text)
{
    std::string bytes{static_cast<char>(2 * text.size() + 2), 0, 0, 0};
    for (const char c : text)
        bytes += {c, 0};
    return bytes + std::string(2, '\0');
}

std::string StoredRecord(const std::string& key, const std::string& value)
{
    return Stored(key) + Stored(value);
}

TEST(HashRecordsTest, RecordsAreReadInTheirOrder)
{
    const HashFileContent content = ReadHashRecords(StoredRecord("AB", "9f\t16") + StoredRecord("CD", ""));
    ASSERT_EQ(content.records.size(), 2U);
    EXPECT_EQ(content.records[0].key, "AB");
    EXPECT_EQ(content.records[0].bytes, StoredRecord("AB", "9f\t16"));
    EXPECT_EQ(content.records[1].key, "CD");
    EXPECT_EQ(content.damagedBytes, 0U);
}

TEST(HashRecordsTest, WhatIsNoRecordEndsThem)
{
    const std::string first = StoredRecord("AB", "9f\t16");
    const std::string second = StoredRecord("CD", "3c\t1");
    for (std::size_t cut = 1; cut < second.size(); ++cut) {
        const HashFileContent content = ReadHashRecords(first + second.substr(0, cut));
        EXPECT_EQ(content.records.size(), 1U) << cut;
        EXPECT_EQ(content.damagedBytes, cut);
    }
    EXPECT_EQ(ReadHashRecords(first + std::string(4, '\0') + second).records.size(), 1U);  // a null key
    EXPECT_EQ(ReadHashRecords(first + std::string("\xff\xff\xff\xff", 4) + second).records.size(), 1U);
    EXPECT_EQ(ReadHashRecords(first + std::string("\x01\0\0\0\0", 5) + second).records.size(), 1U);
    std::string noEnd = second;
    noEnd[4 + 4] = 'x';  // where the key's zeros stand
    EXPECT_EQ(ReadHashRecords(first + noEnd).records.size(), 1U);
}

TEST(HashRecordsTest, ANullValueIsOne)
{
    EXPECT_EQ(ReadHashRecords(Stored("AB") + std::string(4, '\0')).records.size(), 1U);
}

}  // namespace

}  // namespace quorvane::host
