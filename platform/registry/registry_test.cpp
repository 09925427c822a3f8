#include "platform/registry/registry.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

class RegistryTest : public testing::Test {
protected:
    std::string UserFile() const { return JoinPath(directory.Path(), "quorvane3/registry.reg"); }

    void WriteUserFile(std::string_view text) const
    {
        ASSERT_TRUE(SUCCEEDED(MakeDirectories(std::string(DirectoryOf(UserFile())))));
        ASSERT_EQ(ReplaceWholeFile(UserFile(), text), S_OK);
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
    const EnvironmentForTest config{"XDG_CONFIG_HOME", directory.Path().c_str()};
    const std::string machineFile = JoinPath(directory.Path(), "machine.reg");
    const EnvironmentForTest machine{"QUORVANE_MACHINE_REGISTRY", machineFile.c_str()};
};

TEST_F(RegistryTest, WithoutAFileThereAreNoKeys)
{
    RegistryKey key;

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "Software\\Example"), kNotFound);
    EXPECT_EQ(key.Open(RegistryHive::LocalMachine, "Software\\Example"), kNotFound);
    EXPECT_FALSE(key.IsOpen());
    RegistryValue value;
    EXPECT_EQ(key.Query("Any", value), HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
}

TEST_F(RegistryTest, AFileThatAPersonWroteIsRead)
{
    WriteUserFile(
        "Windows Registry Editor Version 5.00\r\n"
        "\r\n"
        "; settings\r\n"
        "[HKEY_CURRENT_USER\\Software\\Example\\Settings]\r\n"
        "@=\"the default\"\r\n"
        "\"Logs\"=\"C:\\\\logs\\\\a \\\"b\\\".log\"\r\n"
        "\"EnableConsole\"=dword:0000001f\r\n"
        "\"Bytes\"=hex:01,ff,\\\r\n"
        "  02\r\n"
        "\"Expand\"=hex(2):41,00,e9,00,00,00\r\n"
        "\"Many\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n"
        "\"Big\"=hex(b):01,00,00,00,00,00,00,80\r\n");
    constexpr std::string_view kKey = "software\\EXAMPLE\\settings";

    EXPECT_EQ(Read(kKey, "").Text(), "the default");
    EXPECT_EQ(Read(kKey, "logs").Text(), "C:\\logs\\a \"b\".log");
    EXPECT_EQ(Read(kKey, "LOGS").bytes.back(), '\0');
    EXPECT_EQ(Read(kKey, "EnableConsole").type, RegistryType::Dword);
    EXPECT_EQ(Read(kKey, "EnableConsole").Number(), 31u);
    EXPECT_EQ(Read(kKey, "Bytes").bytes, "\x01\xFF\x02");
    EXPECT_EQ(Read(kKey, "Expand").type, RegistryType::ExpandableText);
    EXPECT_EQ(Read(kKey, "Expand").Text(), "A\xC3\xA9");
    EXPECT_EQ(Read(kKey, "Many").bytes, std::string("a\0b\0\0", 5));
    EXPECT_EQ(Read(kKey, "Big").type, RegistryType::Qword);
    EXPECT_EQ(Read(kKey, "Big").bytes.size(), 8u);
}

TEST_F(RegistryTest, AFileAsWindowsWritesItIsRead)
{
    const std::string_view text =
        "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\A]\r\n\"V\"=\"x\"\r\n";
    std::string utf16 = "\xFF\xFE";
    for (const char c : text)
        (utf16 += c) += '\0';
    WriteUserFile(utf16);

    EXPECT_EQ(Read("A", "V").Text(), "x");
}

TEST_F(RegistryTest, DamagedLinesArePassedOver)
{
    WriteUserFile(
        "Windows Registry Editor Version 5.00\n"
        "\"before\"=\"any key\"\n"
        "[HKEY_CURRENT_USER\\A]\n"
        "\"good\"=\"1\"\n"
        "\"open=\"1\"\n"
        "\"nothing\"\n"
        "\"half\"=\"text\n"
        "\"tail\"=\"text\"x\n"
        "\"number\"=dword:\n"
        "\"number\"=dword:123456789\n"
        "\"number\"=dword:xyz\n"
        "\"hex\"=hex:1,2,zz\n"
        "\"hex\"=hex:100\n"
        "\"hex\"=hex(2):41\n"
        "\"hex\"=hex(:41\n"
        "\"hex\"=hexagon\n"
        "garbage\\\n"
        "\"after\"=\"2\"\n"
        "[HKEY_CURRENT_USER\\\\B]\n"
        "\"lost\"=\"3\"\n"
        "[unclosed\n"
        "\"lost\"=\"4\"\n"
        "\"ends\"=hex:01,\\");
    RegistryKey key;
    std::vector<std::string> names;
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "A"), S_OK);

    EXPECT_EQ(key.ValueNames(names), S_OK);

    EXPECT_EQ(names, (std::vector<std::string>{"after", "good"}));
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, ""), S_OK);
    EXPECT_EQ(key.SubkeyNames(names), S_OK);
    EXPECT_EQ(names, std::vector<std::string>{"A"});
}

TEST_F(RegistryTest, AFileThatIsSomethingElseHasNoKeysAndIsNotWrittenOver)
{
    WriteUserFile("a shopping list\n[HKEY_CURRENT_USER\\A]\n");
    RegistryKey key;

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "A"), kNotFound);
    EXPECT_EQ(key.Create(RegistryHive::CurrentUser, "A"), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    std::string text;
    EXPECT_EQ(ReadWholeFile(UserFile(), 1000, text), S_OK);
    EXPECT_EQ(text.substr(0, 10), "a shopping");
}

TEST_F(RegistryTest, EveryKindOfValueIsWrittenAndReadBack)
{
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\\xC3\x84xample\\[x]"), S_OK);
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
        const RegistryValue read = Read("software\\\xC3\xA4XAMPLE\\[X]", name);
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

TEST_F(RegistryTest, PathsThatCannotBeKeysAreRefused)
{
    RegistryKey key;
    const std::string longName(300, 'x');
    for (const std::string& path :
         {std::string("A\\\\B"), std::string("\\A"), std::string("A\nB"), longName}) {
        EXPECT_EQ(key.Open(RegistryHive::CurrentUser, path), kNotFound);
        EXPECT_EQ(key.Create(RegistryHive::CurrentUser, path), HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    }
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "A\\"), S_OK);
    EXPECT_EQ(key.Set("line\nbreak", RegistryValue::OfNumber(1)),
              HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
}

TEST_F(RegistryTest, TheHivesAreApart)
{
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::LocalMachine, "Software\\Clients\\Mail"), S_OK);
    ASSERT_EQ(key.Set("", RegistryValue::OfText("Client")), S_OK);

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "Software\\Clients\\Mail"), kNotFound);
    EXPECT_EQ(key.Open(RegistryHive::LocalMachine, "Software\\Clients\\Mail"), S_OK);
    EXPECT_TRUE(PathExists(machineFile));
}

TEST_F(RegistryTest, WritersOnManyThreadsAndProcessesLoseNothing)
{
    constexpr int kEach = 10;
    const auto write = [](const char* prefix) {
        RegistryKey key;
        bool all = key.Create(RegistryHive::CurrentUser, "A") == S_OK;
        for (int i = 0; i < kEach; ++i)
            all = key.Set(prefix + std::to_string(i), RegistryValue::OfNumber(1)) == S_OK && all;
        return all;
    };
    const pid_t child = fork();
    if (child == 0)
        _exit(write("child") ? 0 : 1);
    {
        std::jthread first([&] { EXPECT_TRUE(write("first")); });
        std::jthread second([&] { EXPECT_TRUE(write("second")); });
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);

    RegistryKey key;
    std::vector<std::string> names;
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "A"), S_OK);
    ASSERT_EQ(key.ValueNames(names), S_OK);
    EXPECT_EQ(names.size(), 3u * kEach);
}

}  // namespace
}  // namespace quorvane
