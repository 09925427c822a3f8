// persist/testing/hash_changes.h: changes of a hash file, and the map that they lead to.
#ifndef QUORVANE_ENGINE_PERSIST_TESTING_HASH_CHANGES_H_
#define QUORVANE_ENGINE_PERSIST_TESTING_HASH_CHANGES_H_

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/persist/hash_file.h"
#include "engine/persist/hash_text.h"
#include "engine/persist/testing/told_reader.h"
#include "platform/testing/test_directory.h"

namespace quorvane::testing {

// One change of the map, followed by a save.
struct HashChange {
    std::u16string key;
    std::u16string value;
    bool removes = false;
};

inline std::string Packed(const std::u16string& text)
{
    return PackHashText(OleStringView(reinterpret_cast<const OLECHAR*>(text.data()), text.size()));
}

inline std::u16string Number(size_t number)
{
    const std::string digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

// So many keys of one length.
inline std::vector<std::u16string> Keys(size_t count)
{
    std::vector<std::u16string> keys;
    for (size_t i = 0; i < count; ++i)
        keys.push_back(Number(100000 + i));
    return keys;
}

// Keys of three lengths; values of many, few of which are the same twice.
inline std::vector<HashChange> RandomHashChanges(unsigned seed, size_t count, size_t largestValue)
{
    std::mt19937 random(seed);
    const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
    std::vector<HashChange> changes;
    for (size_t i = 0; i < count; ++i) {
        const size_t n = below(40);
        std::u16string key(n % 3 == 0 ? 4 : n % 3 == 1 ? 40 : 200, u'A');
        key[0] = static_cast<char16_t>(u'0' + n % 10);
        key[1] = static_cast<char16_t>(u'0' + n / 10);
        const bool isText = below(8) == 0;
        std::u16string value(below(4) == 0 ? below(largestValue) : 35, isText ? u'\x263A' : u'b');
        if (!value.empty())
            value.back() = static_cast<char16_t>(u'0' + below(10));
        changes.push_back({std::move(key), std::move(value), below(4) == 0});
    }
    return changes;
}

inline void Apply(ToldMap& model, const HashChange& change)
{
    if (change.removes)
        model.erase(change.key);
    else
        model[change.key] = change.value;
}

inline void Apply(HashFile& file, const HashChange& change)
{
    if (change.removes)
        file.Remove(Packed(change.key));
    else
        file.Set(Packed(change.key), Packed(change.value));
}

inline ToldMap ContentsOf(const HashFile& file)
{
    ToldMap map;
    file.ForEachKey([&](std::string_view key) {
        const OleString name = UnpackHashText(key);
        const OleString value = UnpackHashText(file.Find(key)->View());
        map[{name.begin(), name.end()}] = {value.begin(), value.end()};
    });
    return map;
}

// A directory with one hash file.
class HashFileTest : public ::testing::Test {
protected:
    void Empty() const
    {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directories(directory);
    }
    std::unique_ptr<HashFile> Load() const
    {
        auto file = std::make_unique<HashFile>();
        HRESULT damage = S_OK;
        EXPECT_EQ(file->Open(path), S_OK);
        EXPECT_EQ(file->Load(damage), S_OK);
        return file;
    }
    ToldMap Told() const { return ReadTold(ReadBytes(path)); }
    // The names beside the file.
    std::vector<std::string> Beside() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            if (entry.path().filename() != "F.dat")
                names.push_back(entry.path().filename().string());
        }
        return names;
    }

    const test::TestDirectory files;
    const std::filesystem::path directory = files.Path();
    std::string path = files.File("F.dat");
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_PERSIST_TESTING_HASH_CHANGES_H_
