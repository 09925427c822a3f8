// The registry off Windows: files of text, which people and other processes write too.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"
#include "platform/registry/registry.h"

namespace quorvane {
namespace {

constexpr HRESULT kNoSuchKey = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

class RegistryFileTest : public testing::Test {
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

TEST_F(RegistryFileTest, AFileThatAPersonWroteIsRead)
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

TEST_F(RegistryFileTest, AFileAsWindowsWritesItIsRead)
{
    const std::string_view text =
        "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\A]\r\n\"V\"=\"x\"\r\n";
    std::string utf16 = "\xFF\xFE";
    for (const char c : text)
        (utf16 += c) += '\0';
    WriteUserFile(utf16);

    EXPECT_EQ(Read("A", "V").Text(), "x");
}

TEST_F(RegistryFileTest, DamagedLinesArePassedOver)
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

TEST_F(RegistryFileTest, AFileThatIsSomethingElseHasNoKeysAndIsNotWrittenOver)
{
    WriteUserFile("a shopping list\n[HKEY_CURRENT_USER\\A]\n");
    RegistryKey key;

    EXPECT_EQ(key.Open(RegistryHive::CurrentUser, "A"), kNoSuchKey);
    EXPECT_EQ(key.Create(RegistryHive::CurrentUser, "A"), HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));

    std::string text;
    EXPECT_EQ(ReadWholeFile(UserFile(), 1000, text), S_OK);
    EXPECT_EQ(text.substr(0, 10), "a shopping");
}

TEST_F(RegistryFileTest, PathsThatCannotBeKeysAreRefused)
{
    RegistryKey key;
    const std::string longName(300, 'x');
    for (const std::string& path :
         {std::string("A\\\\B"), std::string("\\A"), std::string("A\nB"), longName}) {
        EXPECT_EQ(key.Open(RegistryHive::CurrentUser, path), kNoSuchKey);
        EXPECT_EQ(key.Create(RegistryHive::CurrentUser, path), HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    }
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "A\\"), S_OK);
    EXPECT_EQ(key.Set("line\nbreak", RegistryValue::OfNumber(1)),
              HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
}

TEST_F(RegistryFileTest, WritersInManyProcessesLoseNothing)
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
    EXPECT_TRUE(write("parent"));
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);

    RegistryKey key;
    std::vector<std::string> names;
    ASSERT_EQ(key.Open(RegistryHive::CurrentUser, "A"), S_OK);
    ASSERT_EQ(key.ValueNames(names), S_OK);
    EXPECT_EQ(names.size(), 2u * kEach);
}

TEST_F(RegistryFileTest, NamesOutsideOfAsciiHaveNoCaseEither)
{
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\\xC3\x84xample"), S_OK);
    ASSERT_EQ(key.Set("price", RegistryValue::OfText("1 \xE2\x82\xAC")), S_OK);

    EXPECT_EQ(Read("software\\\xC3\xA4XAMPLE", "PRICE").Text(), "1 \xE2\x82\xAC");
}

TEST_F(RegistryFileTest, TheMachinesHiveIsAFileOfItsOwn)
{
    RegistryKey key;

    ASSERT_EQ(key.Create(RegistryHive::LocalMachine, "Software\\Clients\\Mail"), S_OK);

    EXPECT_TRUE(PathExists(machineFile));
    EXPECT_FALSE(PathExists(UserFile()));
}

}  // namespace
}  // namespace quorvane
