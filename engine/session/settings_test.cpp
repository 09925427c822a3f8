// Settings of the host's product, read through the session.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "engine/session/session.h"
#include "engine/session/trace/testing/traced_lines.h"
#include "platform/com/apartment.h"
#include "platform/registry/registry.h"
#include "platform/testing/test_directory.h"
#include "quorvane3/callbacks.h"

namespace quorvane {
namespace {

class ProductHost : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr&) override { return E_NOTIMPL; }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(product);
        return answer;
    }
    OleString product = OLESTR("Tests");
    HRESULT answer = S_OK;
};

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        test::KeepSettingsIn(files.Path());
        ASSERT_EQ(session->RegisterAddin(callback.Get()), S_OK);
    }

    void Put(const char* name, const RegistryValue& setting)
    {
        RegistryKey key;
        ASSERT_EQ(
            key.Create(RegistryHive::CurrentUser, "Software\\Brindlemoor\\Quorvane\\1.0\\Tests\\Settings"),
            S_OK);
        ASSERT_EQ(key.Set(name, setting), S_OK);
    }

    const FreeThreadScope thread;
    const test::TestDirectory files;
    ProductHost host;
    const ComPtr<ExtCallback> callback = MakeComObject<ExtCallback>(host);
    const ComPtr<CSession2> session = MakeComObject<CSession2>();
    Variant value;
};

TEST_F(SettingsTest, ATextIsText)
{
    Put("Logs", RegistryValue::OfText("/var/log/quorvane"));

    EXPECT_EQ(session->GetRegSetting(OLESTR("Logs"), value), S_OK);
    ASSERT_TRUE(value.Is(VT_BSTR));
    EXPECT_EQ(ViewOf(value.Raw().bstrVal), OLESTR("/var/log/quorvane"));
}

TEST_F(SettingsTest, ANumberIsANumber)
{
    Put("Logs", RegistryValue::OfNumber(7));

    EXPECT_EQ(session->GetRegSetting(OLESTR("Logs"), value), S_OK);
    ASSERT_TRUE(value.Is(VT_I4));
    EXPECT_EQ(value.Raw().lVal, 7);
}

TEST_F(SettingsTest, AValueOfAnotherTypeIsThereAndChangesNothing)
{
    Put("EnableConsole", {RegistryType::Binary, "x"});
    value = Variant::Long(5);

    EXPECT_EQ(session->GetRegSetting(OLESTR("EnableConsole"), value), S_OK);
    EXPECT_TRUE(value.Is(VT_I4));
}

TEST_F(SettingsTest, AMissingKeyAndAMissingValueAreTheSameAndUntraced)
{
    const std::string lines = testing::TracedLines([this] {
        const HRESULT withoutKey = session->GetRegSetting(OLESTR("Logs"), value);
        Put("EnableConsole", RegistryValue::OfNumber(0));

        EXPECT_EQ(withoutKey, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
        EXPECT_EQ(session->GetRegSetting(OLESTR("Logs"), value), withoutKey);
    });

    EXPECT_TRUE(value.Is(VT_EMPTY));
    EXPECT_EQ(lines, "");
}

// Somebody may take a value away between the two questions for it.
TEST_F(SettingsTest, AValueThatGoesBeforeItIsReadIsTraced)
{
    Put("EnableConsole", RegistryValue::OfNumber(0));
    std::atomic<bool> traced{false};
    std::thread somebody([&] {
        RegistryKey key;
        ASSERT_EQ(
            key.Create(RegistryHive::CurrentUser, "Software\\Brindlemoor\\Quorvane\\1.0\\Tests\\Settings"),
            S_OK);
        while (!traced) {
            EXPECT_EQ(key.Set("Logs", RegistryValue::OfNumber(1)), S_OK);
            EXPECT_EQ(key.DeleteValue("Logs"), S_OK);
        }
    });
    const std::string lines = testing::TracedLines([&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        const auto& log = testing::ProcessLogFile::Get();
        const size_t before = log.Text().size();
        while (log.Text().size() == before && std::chrono::steady_clock::now() < deadline)
            static_cast<void>(session->GetRegSetting(OLESTR("Logs"), value));
        traced = true;
    });
    somebody.join();

    EXPECT_NE(lines.find("CSession2::GetRegSetting("), std::string::npos);
    EXPECT_NE(lines.find(") 0x80070002\r\n"), std::string::npos);
}

TEST_F(SettingsTest, ProductsAreKeptApart)
{
    Put("Logs", RegistryValue::OfText("mine"));
    host.product = OLESTR("Other");

    EXPECT_TRUE(FAILED(session->GetRegSetting(OLESTR("Logs"), value)));
}

TEST_F(SettingsTest, AProductCodeThatIsNoKeysNameHasNoSettings)
{
    Put("Logs", RegistryValue::OfText("mine"));
    for (const OleString& product : {OleString(OLESTR("Tests\\Settings")),
                                     OleString(OLESTR("..\\1.0\\Tests")), OleString(OLESTR("a]\r\n[b")),
                                     OleString(1, OLECHAR(0)), OleString(300, OLECHAR('x')), OleString()}) {
        host.product = product;
        EXPECT_TRUE(FAILED(session->GetRegSetting(OLESTR("Logs"), value))) << Narrow(product);
    }
    EXPECT_TRUE(value.Is(VT_EMPTY));
}

TEST_F(SettingsTest, AFailureOfTheHostIsReturnedAndTraced)
{
    host.answer = E_ACCESSDENIED;
    const std::string lines = testing::TracedLines(
        [this] { EXPECT_EQ(session->GetRegSetting(OLESTR("Logs"), value), E_ACCESSDENIED); });

    EXPECT_NE(lines.find("CSession2::GetRegSetting("), std::string::npos);
    EXPECT_NE(lines.find(") 0x80070005\r\n"), std::string::npos);
}

TEST_F(SettingsTest, WithoutAHostThereAreNoSettings)
{
    const auto lonely = MakeComObject<CSession2>();

    EXPECT_EQ(lonely->GetRegSetting(OLESTR("Logs"), value), E_UNEXPECTED);
}

}  // namespace
}  // namespace quorvane
