#include "engine/persist/hash_file.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <fstream>

#include "engine/persist/testing/hash_changes.h"

namespace quorvane {
namespace {

using testing::Apply;
using testing::ContentsOf;
using testing::HashChange;
using testing::HashFileTest;
using testing::Keys;
using testing::Packed;
using testing::RandomHashChanges;
using testing::ReadBytes;
using testing::ToldMap;
using testing::ToldRecord;

TEST_F(HashFileTest, AfterEachSaveAReaderFindsExactlyTheMap)
{
    for (unsigned seed = 1; seed <= 4; ++seed) {
        Empty();
        ToldMap model;
        auto file = Load();
        size_t step = 0;
        for (const HashChange& change : RandomHashChanges(seed, 500, 2000)) {
            Apply(model, change);
            Apply(*file, change);
            ASSERT_EQ(file->Save(), S_OK);
            ASSERT_EQ(Told(), model) << "seed " << seed << " step " << step;
            if (++step % 97 == 0) {
                file = nullptr;
                file = Load();
                ASSERT_EQ(ContentsOf(*file), model);
            }
        }
    }
}

TEST_F(HashFileTest, ManyChangesBeforeASaveArriveTogether)
{
    ToldMap model;
    auto file = Load();
    size_t step = 0;
    for (const HashChange& change : RandomHashChanges(11, 3000, 500)) {
        Apply(model, change);
        Apply(*file, change);
        ++step;
        if (step % (1 + step % 90) != 0)
            continue;
        ASSERT_EQ(file->Save(), S_OK);
        ASSERT_EQ(Told(), model) << "step " << step;
    }
}

TEST_F(HashFileTest, FewChangesOfManyBytesStandInTheFileOnce)
{
    ToldMap model;
    auto file = Load();
    const auto change = [&](const HashChange& one) {
        Apply(model, one);
        Apply(*file, one);
    };
    // Enough beside them that what they leave behind isn't worth writing the file anew.
    std::vector<std::u16string> keys = Keys(60);
    for (const std::u16string& key : keys)
        change({key, std::u16string(10000, u'\x263A')});
    ASSERT_EQ(file->Save(), S_OK);
    keys.resize(5);
    for (const std::u16string& key : keys)
        change({key, std::u16string(10000, u'\x263B')});
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told(), model);

    for (const std::u16string& key : keys) {
        change({key, {}, true});
        ASSERT_EQ(file->Save(), S_OK);
        ASSERT_EQ(Told(), model);
    }
}

TEST_F(HashFileTest, AKeyThatIsRemovedAndSetAgainBeforeASaveIsThere)
{
    auto file = Load();
    for (const auto& key : Keys(3))
        file->Set(Packed(key), Packed(u"1"));
    ASSERT_EQ(file->Save(), S_OK);
    const std::u16string key = Keys(1)[0];
    file->Remove(Packed(key));
    file->Set(Packed(key), Packed(u"2"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told()[key], u"2");

    file->Remove(Packed(key));
    file->Set(Packed(key), Packed(u"3"));
    file->Remove(Packed(key));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told().count(key), 0u);
    EXPECT_EQ(Told().size(), 2u);
}

TEST_F(HashFileTest, RemovingEveryRecordInAnyOrderLeavesTheOthersAtEachStep)
{
    enum class Order { OldestFirst, NewestFirst, Shuffled };
    for (const Order order : {Order::OldestFirst, Order::NewestFirst, Order::Shuffled}) {
        Empty();
        auto file = Load();
        std::vector<std::u16string> keys = Keys(300);
        ToldMap model;
        for (const auto& key : keys) {
            file->Set(Packed(key), Packed(u"hash\t1"));
            model[key] = u"hash\t1";
            ASSERT_EQ(file->Save(), S_OK);
        }
        if (order == Order::NewestFirst)
            std::reverse(keys.begin(), keys.end());
        if (order == Order::Shuffled)
            std::shuffle(keys.begin(), keys.end(), std::minstd_rand());
        for (const auto& key : keys) {
            file->Remove(Packed(key));
            model.erase(key);
            ASSERT_EQ(file->Save(), S_OK);
            ASSERT_EQ(Told(), model);
        }
        EXPECT_EQ(ReadBytes(path).size(), 0u);
    }
}

TEST_F(HashFileTest, AKeyThatNoOtherIsAsLongAsIsRemovedToo)
{
    auto file = Load();
    file->Set(Packed(u"short"), Packed(u"1"));
    for (const auto& key : Keys(100))
        file->Set(Packed(key), Packed(u"2"));
    ASSERT_EQ(file->Save(), S_OK);
    file->Remove(Packed(u"short"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told().size(), 100u);
    EXPECT_EQ(Told().count(u"short"), 0u);
}

TEST_F(HashFileTest, TheFileDoesNotGrowBeyondItsDeadSlack)
{
    auto file = Load();
    ToldMap model;
    size_t largest = 0;
    for (const HashChange& change : RandomHashChanges(5, 2000, 9000)) {
        Apply(model, change);
        Apply(*file, change);
        ASSERT_EQ(file->Save(), S_OK);
        size_t live = 0;
        for (const auto& [key, value] : model)
            live += ToldRecord(key, value).size();
        const size_t size = std::filesystem::file_size(path);
        ASSERT_LE(size, 2 * live + 256 * 1024);
        largest = std::max(largest, size);
    }
    EXPECT_GT(largest, 256u * 1024) << "the slack was never reached";
}

TEST_F(HashFileTest, OutdatedRecordsAnywhereAreRemovedWithTheirKey)
{
    std::ofstream(path, std::ios::binary)
        << ToldRecord(u"A", u"oldest") << ToldRecord(u"B", u"old") << ToldRecord(u"A", u"older")
        << ToldRecord(u"B", u"b") << ToldRecord(u"A", u"new") << ToldRecord(u"C", u"c");
    auto file = Load();
    EXPECT_EQ(ContentsOf(*file), (ToldMap{{u"A", u"new"}, {u"B", u"b"}, {u"C", u"c"}}));
    file->Remove(Packed(u"A"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told(), (ToldMap{{u"B", u"b"}, {u"C", u"c"}}));
    file->Remove(Packed(u"B"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told(), (ToldMap{{u"C", u"c"}}));
}

// docs/hash-file.md shows these bytes.
TEST_F(HashFileTest, ARecordThatGoesTakesTheKeyOfOneBehindItAndNoSizeChanges)
{
    std::ofstream(path, std::ios::binary) << ToldRecord(u"AB", u"9f\t16") << ToldRecord(u"CD", u"3c\t16");
    auto file = Load();
    file->Remove(Packed(u"AB"));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(ReadBytes(path), ToldRecord(u"CD", u"9f\t16") + ToldRecord(u"CD", u"3c\t16"));
}

TEST_F(HashFileTest, ATextOfAnOddSizeIsWrittenAnewWithoutItsLastByte)
{
    // A value of one byte and a terminator.
    std::ofstream(path, std::ios::binary)
        << testing::ToldString(u"A") << std::string("\x03\0\0\0x\0\0", 7) << ToldRecord(u"B", u"b");
    auto file = Load();
    EXPECT_EQ(ContentsOf(*file), (ToldMap{{u"A", u""}, {u"B", u"b"}}));
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told(), (ToldMap{{u"A", u""}, {u"B", u"b"}}));
    EXPECT_EQ(ReadBytes(path).size(), ToldRecord(u"A", u"").size() + ToldRecord(u"B", u"b").size());
}

TEST_F(HashFileTest, TextsThatNoPackingShortensComeBack)
{
    const std::u16string texts[] = {u"",    u"AB", u"ab", u"ABC", u"\x263A", std::u16string(u"\0x\xD800", 3),
                                    u"\xFF"};
    auto file = Load();
    ToldMap model;
    for (const std::u16string& text : texts) {
        model[text] = text + u"!";
        file->Set(Packed(text), Packed(text + u"!"));
    }
    ASSERT_EQ(file->Save(), S_OK);
    EXPECT_EQ(Told(), model);
    file = nullptr;
    EXPECT_EQ(ContentsOf(*Load()), model);
}

}  // namespace
}  // namespace quorvane
