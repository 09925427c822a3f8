// What a product's settings make of the log at a logon.
//
// The log file of a process stays where its first line went. Where a logon wants it shows at the detail file
// beside it, which every start makes anew.
#include <filesystem>

#include "engine/session/testing/logon_test_base.h"
#include "platform/registry/registry.h"
#include "platform/testing/console.h"

namespace quorvane {
namespace {

class LogSettingsTest : public testing::LogonTest {
protected:
    static void Put(const char* name, const RegistryValue& setting)
    {
        RegistryKey key;
        ASSERT_EQ(
            key.Create(RegistryHive::CurrentUser, "Software\\Brindlemoor\\Quorvane\\1.0\\Tests\\Settings"),
            S_OK);
        ASSERT_EQ(key.Set(name, setting), S_OK);
    }
    std::string PathOf(const std::string& name) const { return files.directory.File(name); }

    // What a session from logon to end writes to the console.
    std::string ConsoleOfASession()
    {
        const test::ConsoleForTest console;
        EXPECT_EQ(Logon(), S_OK);
        End();
        library = MakeComObject<CLibrary>();
        return console.Text();
    }
    bool LogsUnderItsUsualName() const
    {
        return std::filesystem::exists(PathOf("Quorvane3/quorvane3.log.info"));
    }
    bool LogsTo(const std::string& name) const { return std::filesystem::exists(PathOf(name) + ".info"); }
};

TEST_F(LogSettingsTest, WithoutSettingsTheLogHasItsUsualPlaceAndNoConsole)
{
    EXPECT_EQ(ConsoleOfASession(), "");
    EXPECT_TRUE(LogsUnderItsUsualName());
}

TEST_F(LogSettingsTest, EnableConsoleOfAnyTypeAndContentsTurnsTheConsoleOn)
{
    const RegistryValue values[] = {RegistryValue::OfNumber(0), RegistryValue::OfNumber(1),
                                    RegistryValue::OfText(""), RegistryValue::OfText(PathOf("text.log")),
                                    RegistryValue{RegistryType::Binary, ""}};
    for (const RegistryValue& value : values) {
        Put("EnableConsole", value);
        const std::string console = ConsoleOfASession();
        EXPECT_NE(console.find(") Startup\r\n"), std::string::npos) << console;
        EXPECT_NE(console.find(") Session shutdown\r\n"), std::string::npos) << console;
    }
}

TEST_F(LogSettingsTest, LogsIsThePath)
{
    Put("Logs", RegistryValue::OfText(PathOf("own.log")));

    EXPECT_EQ(ConsoleOfASession(), "");
    EXPECT_TRUE(LogsTo("own.log"));
    EXPECT_FALSE(LogsUnderItsUsualName());
}

TEST_F(LogSettingsTest, ATextInEnableConsoleIsThePathWhereLogsIsMissing)
{
    Put("EnableConsole", RegistryValue::OfText(PathOf("console.log")));

    EXPECT_NE(ConsoleOfASession(), "");
    EXPECT_TRUE(LogsTo("console.log"));
    EXPECT_FALSE(LogsUnderItsUsualName());
}

TEST_F(LogSettingsTest, LogsGoesBeforeATextInEnableConsole)
{
    Put("EnableConsole", RegistryValue::OfText(PathOf("console.log")));
    Put("Logs", RegistryValue::OfText(PathOf("own.log")));
    ConsoleOfASession();

    EXPECT_TRUE(LogsTo("own.log"));
    EXPECT_FALSE(LogsTo("console.log"));
}

TEST_F(LogSettingsTest, ALogsThatIsANumberLeavesTheUsualPlace)
{
    Put("Logs", RegistryValue::OfNumber(1));
    ConsoleOfASession();

    EXPECT_TRUE(LogsUnderItsUsualName());
}

TEST_F(LogSettingsTest, ANumberInLogsTakesThePlaceOfATextInEnableConsole)
{
    Put("EnableConsole", RegistryValue::OfText(PathOf("console.log")));
    Put("Logs", RegistryValue::OfNumber(1));
    ConsoleOfASession();

    EXPECT_TRUE(LogsUnderItsUsualName());
    EXPECT_FALSE(LogsTo("console.log"));
}

TEST_F(LogSettingsTest, ALogsOfAnotherTypeLeavesATextInEnableConsoleThePath)
{
    Put("EnableConsole", RegistryValue::OfText(PathOf("console.log")));
    Put("Logs", RegistryValue{RegistryType::Binary, "x"});
    ConsoleOfASession();

    EXPECT_TRUE(LogsTo("console.log"));
}

TEST_F(LogSettingsTest, ALogWithoutADirectoryToLieInIsNoFailure)
{
    Put("Logs", RegistryValue::OfText(PathOf("none/own.log")));

    EXPECT_EQ(Logon(), S_OK);
    EXPECT_FALSE(std::filesystem::exists(PathOf("none")));
}

TEST_F(LogSettingsTest, SettingsOfAnotherProductDontCount)
{
    Put("EnableConsole", RegistryValue::OfNumber(1));
    around.product = OLESTR("Other");

    EXPECT_EQ(ConsoleOfASession(), "");
}

TEST_F(LogSettingsTest, AProductCodeThatIsNoKeysNameHasNoSettings)
{
    Put("EnableConsole", RegistryValue::OfNumber(1));
    for (const OleString& product :
         {OleString(OLESTR("Tests\\x")), OleString(OLESTR("a]\r\n[b")), OleString()}) {
        around.product = product;
        EXPECT_EQ(ConsoleOfASession(), "");
    }
    EXPECT_TRUE(LogsUnderItsUsualName());
}

}  // namespace
}  // namespace quorvane
