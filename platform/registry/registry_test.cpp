#include "platform/registry/registry.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

class RegistryTest : public testing::Test {
protected:
    RegistryTest()
    {
        test::KeepSettingsIn(directory.Path());
        test::KeepMachineSettingsIn(directory.Path());
    }
    ~RegistryTest() override
    {
        test::KeepSettingsIn({});
        test::KeepMachineSettingsIn({});
    }

    static RegistryValue Read(std::string_view path, std::string_view name)
    {
        RegistryKey key;
        RegistryValue value;
        EXPECT_EQ(key.Open(RegistryHive::CurrentUser, path), S_OK);
        EXPECT_EQ(key.Query(name, value), S_OK) << name;
        return value;
    }

    const TempDirectoryForTest directory;
};

TEST_F(RegistryTest, WhatIsNotThereIsNotFound)
{
    RegistryKey key;

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "Software\\Example"), kNotFound);
    EXPECT_EQ(key.Open(RegistryHive::LocalMachine, "Software\\Example"), kNotFound);
    EXPECT_FALSE(key.IsOpen());
    RegistryValue value;
    EXPECT_EQ(key.Query("Any", value), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
}

TEST_F(RegistryTest, EveryKindOfValueIsWrittenAndReadBack)
{
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\Example\\[x]"), S_OK);
    const std::pair<const char*, RegistryValue> values[] = {
        {"", RegistryValue::OfText("default")},
        {"quoted \"name\" \\", RegistryValue::OfText("C:\\a \"b\" \xE2\x82\xAC")},
        {"lines", RegistryValue::OfText("one\ntwo")},
        {"number", RegistryValue::OfNumber(0xFFFFFFFF)},
        {"binary", {RegistryType::Binary, std::string(100, '\xAB')}},
        {"empty", {RegistryType::Binary, ""}},
        {"expand", {RegistryType::ExpandableText, std::string("%HOME%\0", 7)}},
        {"many", {RegistryType::MultiText, std::string("a\0bc\0\0", 6)}},
        {"none", {RegistryType::None, "x"}},
        {"own", {static_cast<RegistryType>(0x1234), "y"}},
    };
    for (const auto& [name, value] : values)
        ASSERT_EQ(key.Set(name, value), S_OK);

    for (const auto& [name, value] : values) {
        const RegistryValue read = Read("software\\EXAMPLE\\[X]", name);
        EXPECT_EQ(read.type, value.type) << name;
        EXPECT_EQ(read.bytes, value.bytes) << name;
    }
}

TEST_F(RegistryTest, AKeyOpenedForReadingIsNotWritten)
{
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "A"), S_OK);
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "A"), S_OK);

    EXPECT_EQ(key.Set("v", RegistryValue::OfNumber(1)), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    EXPECT_EQ(key.DeleteValue("v"), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "A", RegistryAccess::ReadWrite), S_OK);
    EXPECT_EQ(key.Set("v", RegistryValue::OfNumber(1)), S_OK);
}

TEST_F(RegistryTest, ValuesAreDeleted)
{
    RegistryKey key;
    RegistryValue value;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "A"), S_OK);
    ASSERT_EQ(key.Set("v", RegistryValue::OfNumber(1)), S_OK);

    EXPECT_EQ(key.DeleteValue("V"), S_OK);

    EXPECT_EQ(key.Query("v", value), kNotFound);
    EXPECT_EQ(key.DeleteValue("v"), kNotFound);
}

TEST_F(RegistryTest, AnOpenKeySeesWhatOthersChange)
{
    RegistryKey reader;
    RegistryKey writer;
    RegistryValue value;
    ASSERT_EQ(writer.Create(RegistryHive::CurrentUser, "A\\B"), S_OK);
    ASSERT_EQ(reader.Open(RegistryHive::CurrentUser, "A\\B"), S_OK);

    ASSERT_EQ(writer.Set("v", RegistryValue::OfNumber(7)), S_OK);
    EXPECT_EQ(reader.Query("v", value), S_OK);
    EXPECT_EQ(value.Number(), 7u);
    ASSERT_EQ(RegistryKey::DeleteTree(RegistryHive::CurrentUser, "a"), S_OK);

    EXPECT_EQ(reader.Query("v", value), kNotFound);
    EXPECT_EQ(writer.Set("v", RegistryValue::OfNumber(8)), kNotFound);
    EXPECT_EQ(RegistryKey::DeleteTree(RegistryHive::CurrentUser, "a"), kNotFound);
}

TEST_F(RegistryTest, KeysAboveExistAndListTheirKeysBelowOnce)
{
    RegistryKey key;
    std::vector<std::string> names;
    for (const char* path : {"Soft\\B\\x", "Soft\\a", "Soft\\B\\y", "Software\\Other"})
        ASSERT_EQ(key.Create(RegistryHive::CurrentUser, path), S_OK);
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "soft"), S_OK);

    EXPECT_EQ(key.SubkeyNames(names), S_OK);

    EXPECT_EQ(names, (std::vector<std::string>{"a", "B"}));
}

TEST_F(RegistryTest, ATreeIsDeletedWithoutItsNeighbours)
{
    RegistryKey key;
    for (const char* path : {"Soft\\a", "Soft\\ab", "Soft\\a\\b"})
        ASSERT_EQ(key.Create(RegistryHive::CurrentUser, path), S_OK);

    EXPECT_EQ(RegistryKey::DeleteTree(RegistryHive::CurrentUser, "Soft\\A"), S_OK);

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "Soft\\a\\b"), kNotFound);
    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "Soft\\ab"), S_OK);
}

TEST_F(RegistryTest, TheHivesAreApart)
{
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::LocalMachine, "Software\\Clients\\Mail"), S_OK);
    ASSERT_EQ(key.Set("", RegistryValue::OfText("Client")), S_OK);

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "Software\\Clients\\Mail"), kNotFound);
    EXPECT_EQ(key.Open(RegistryHive::LocalMachine, "Software\\Clients\\Mail"), S_OK);
}

TEST_F(RegistryTest, WritersOnManyThreadsLoseNothing)
{
    constexpr int kEach = 10;
    const auto write = [](const char* prefix) {
        RegistryKey key;
        bool all = key.Create(RegistryHive::CurrentUser, "A") == S_OK;
        for (int i = 0; i < kEach; ++i)
            all = key.Set(prefix + std::to_string(i), RegistryValue::OfNumber(1)) == S_OK && all;
        return all;
    };
    {
        std::jthread first([&] { EXPECT_TRUE(write("first")); });
        std::jthread second([&] { EXPECT_TRUE(write("second")); });
    }

    RegistryKey key;
    std::vector<std::string> names;
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "A"), S_OK);
    ASSERT_EQ(key.ValueNames(names), S_OK);
    EXPECT_EQ(names.size(), 2u * kEach);
}

}  // namespace
}  // namespace quorvane
