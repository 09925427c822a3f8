// storeaccess/testing/binding_test.h: a test with a registry and a system directory of its own, in whose
// child processes the MAPI library is bound.
#ifndef QUORVANE_ENGINE_STOREACCESS_TESTING_BINDING_TEST_H_
#define QUORVANE_ENGINE_STOREACCESS_TESTING_BINDING_TEST_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "engine/storeaccess/mapi_functions.h"
#include "platform/module/module.h"
#include "platform/registry/registry.h"
#include "platform/testing/surroundings.h"

// What is bound stays bound for the life of a process, so that each test does its binding in a process of its
// own: BINDS_ALONE runs a function there that tells whether all was as expected.
#define BINDS_ALONE(...) EXPECT_EXIT(std::exit((__VA_ARGS__)() ? 0 : 1), ::testing::ExitedWithCode(0), "")

namespace quorvane::testing {

// What MAPIInitialize of each library gives.
inline constexpr HRESULT kFromComponent = 0x000A0001;
inline constexpr HRESULT kFromAskingSystem = 1;
inline constexpr HRESULT kFromPlainSystem = S_OK;

class BindingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void SetUp() override
    {
        // A process that a test starts works in the directory of the one that started it.
        const char* const parents = std::getenv("QV_BINDING_TEST_DIRECTORY");
        directory = parents ? std::filesystem::path(parents) : test::MakeTestDirectory();
        test::SetVariable("QV_BINDING_TEST_DIRECTORY", directory.string().c_str());
        test::KeepSettingsIn(directory);
        test::KeepMachineSettingsIn(directory);
        test::SetVariable("FAKE_COMPONENT_LOG", (directory / "asked").string().c_str());
        ComponentIs("component/client.dll");
        for (const char* name :
             {"FAKE_COMPONENT_FOR", "FAKE_COMPONENT_REFUSES", "FAKE_MAPI_REFUSES", "FAKE_EXPORTS"})
            test::SetVariable(name, nullptr);
        UseSystem("asking");
    }
    void TearDown() override
    {
        std::filesystem::remove_all(directory);
        test::SetVariable("QV_BINDING_TEST_DIRECTORY", nullptr);
        // What other tests of the program find.
        UseSystem("plain");
    }

    // The folder of the fakes that serves as the system directory.
    static void UseSystem(const std::string& name)
    {
        test::SetVariable("QUORVANE_SYSTEM_DIR", (std::string(QUORVANE_FAKE_MAPI_DIR) + "/" + name).c_str());
    }
    // The qualifier under which the system knows the component, "-" for none given.
    static void ComponentLiesUnder(const char* qualifier)
    {
        test::SetVariable("FAKE_COMPONENT_FOR", qualifier);
    }
    // The component's path among the fakes; empty for an empty path.
    static void ComponentIs(const std::string& path)
    {
        const std::string whole = path.empty() ? path : std::string(QUORVANE_FAKE_MAPI_DIR) + "/" + path;
        test::SetVariable("FAKE_COMPONENT_PATH", whole.c_str());
    }

    // Names a hive's default mail client, without a key of its own.
    static RegistryKey NameClient(RegistryHive hive, const std::string& name)
    {
        RegistryKey key;
        EXPECT_EQ(key.Create(hive, "Software\\Clients\\Mail"), S_OK);
        EXPECT_EQ(key.Set("", RegistryValue::OfText(name)), S_OK);
        return key;
    }
    // Makes a mail client the default of a hive. Empty texts are no values.
    static void InstallClient(RegistryHive hive, const std::string& name, const std::string& component,
                              const std::string& application = "", const std::string& office = "")
    {
        NameClient(hive, name);
        RegistryKey key;
        ASSERT_EQ(key.Create(hive, "Software\\Clients\\Mail\\" + name), S_OK);
        const std::pair<const char*, const std::string&> values[] = {
            {"MSIComponentID", component}, {"MSIApplicationLCID", application}, {"MSIOfficeLCID", office}};
        for (const auto& [value, text] : values) {
            if (text.empty())
                continue;
            ASSERT_EQ(key.Set(value, RegistryValue::OfText(text)), S_OK);
        }
    }

    // The questions to FGetComponentPath so far, each as "component/qualifier/capacity/install ".
    static std::string Asked()
    {
        std::ifstream file(std::getenv("FAKE_COMPONENT_LOG"));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    static HRESULT Initialize()
    {
        MAPIINIT_0 init = {0, MAPI_MULTITHREAD_NOTIFICATIONS};
        return mapi::MAPIInitialize(&init);
    }

    // An export of the library that the system directory holds.
    template <class Function>
    static Function SystemExport(const char* name)
    {
        Module library;
        EXPECT_EQ(library.Load("mapi32.dll"), S_OK);
        return library.Find<Function>(name);
    }

    std::filesystem::path directory;
};

}  // namespace quorvane::testing

#endif  // QUORVANE_ENGINE_STOREACCESS_TESTING_BINDING_TEST_H_
