#include "engine/storeaccess/mapi_binding.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "engine/storeaccess/mapi_functions.h"
#include "engine/storeaccess/thread_init.h"

namespace quorvane {
namespace {

constexpr HRESULT kFromComponent = 0x000A0001;
constexpr HRESULT kFromAskingSystem = 1;
constexpr HRESULT kFromPlainSystem = S_OK;

const std::string kFakes = QUORVANE_FAKE_MAPI_DIR;

// What is bound stays bound for the life of a process, so that each test does its binding in a process of its
// own: BINDS_ALONE runs a function there that tells whether all was as expected.
#define BINDS_ALONE(function) EXPECT_EXIT(std::exit((function)() ? 0 : 1), ::testing::ExitedWithCode(0), "")

class MapiBindingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    void SetUp() override
    {
        // A process that a test starts works in the directory of the one that started it.
        const char* const parents = std::getenv("QV_BINDING_TEST_DIRECTORY");
        directory = parents
                        ? std::filesystem::path(parents)
                        : std::filesystem::temp_directory_path() / ("qv_binding_" + std::to_string(getpid()));
        setenv("QV_BINDING_TEST_DIRECTORY", directory.c_str(), 1);
        std::filesystem::create_directories(directory / "quorvane3");
        setenv("XDG_CONFIG_HOME", directory.c_str(), 1);
        setenv("QUORVANE_MACHINE_REGISTRY", (directory / "machine.reg").c_str(), 1);
        setenv("FAKE_COMPONENT_LOG", (directory / "asked").c_str(), 1);
        setenv("FAKE_COMPONENT_PATH", (kFakes + "/component/libclient.so").c_str(), 1);
        unsetenv("FAKE_COMPONENT_FOR");
        UseSystem("asking");
    }
    void TearDown() override
    {
        std::filesystem::remove_all(directory);
        unsetenv("QV_BINDING_TEST_DIRECTORY");
    }

    static void UseSystem(const std::string& name)
    {
        setenv("QUORVANE_SYSTEM_DIR", (kFakes + "/" + name).c_str(), 1);
    }
    static void ComponentLiesUnder(const char* qualifier) { setenv("FAKE_COMPONENT_FOR", qualifier, 1); }

    // Makes a mail client the default of a hive.
    static void InstallClient(RegistryHive hive, const std::string& name, const std::string& component,
                              const std::string& application = "", const std::string& office = "")
    {
        const std::string root = "Software\\Clients\\Mail";
        RegistryKey key;
        ASSERT_HRESULT(key.Create(hive, root));
        ASSERT_HRESULT(key.Set("", RegistryValue::OfText(name)));
        ASSERT_HRESULT(key.Create(hive, root + "\\" + name));
        if (!component.empty())
            ASSERT_HRESULT(key.Set("MSIComponentID", RegistryValue::OfText(component)));
        if (!application.empty())
            ASSERT_HRESULT(key.Set("MSIApplicationLCID", RegistryValue::OfText(application)));
        if (!office.empty())
            ASSERT_HRESULT(key.Set("MSIOfficeLCID", RegistryValue::OfText(office)));
    }
    static void ASSERT_HRESULT(HRESULT hr) { ASSERT_EQ(hr, S_OK); }

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

    std::filesystem::path directory;
};

TEST_F(MapiBindingTest, WithoutADefaultMailClientTheSystemsLibraryIsBound)
{
    BINDS_ALONE([] { return Initialize() == kFromAskingSystem && Asked().empty(); });
}

TEST_F(MapiBindingTest, ASystemLibraryThatKnowsNoComponentsIsBoundItself)
{
    UseSystem("plain");
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    BINDS_ALONE([] { return Initialize() == kFromPlainSystem && Asked().empty(); });
}

TEST_F(MapiBindingTest, TheComponentOfTheUsersMailClientIsBound)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033", "1031");
    ComponentLiesUnder("1033");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1033/1 "; });
}

TEST_F(MapiBindingTest, TheUsersMailClientHidesTheMachines)
{
    InstallClient(RegistryHive::CurrentUser, "Mine", "{M}", "1");
    InstallClient(RegistryHive::LocalMachine, "Theirs", "{T}", "2");
    ComponentLiesUnder("1");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{M}/1/1 "; });
}

TEST_F(MapiBindingTest, TheMachinesMailClientServesWhereTheUserHasNone)
{
    InstallClient(RegistryHive::LocalMachine, "Theirs", "{T}", "2");
    ComponentLiesUnder("2");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{T}/2/1 "; });
}

TEST_F(MapiBindingTest, TheLanguagesAreTriedInOrderAndThenNone)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033", "1031");
    ComponentLiesUnder("-");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1033/1 {C}/1031/1 {C}/-/1 "; });
}

TEST_F(MapiBindingTest, ALanguageThatIsNotToldIsNotTried)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "", "1031");
    ComponentLiesUnder("1031");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1031/1 "; });
}

TEST_F(MapiBindingTest, AComponentThatCannotBeLoadedGivesWayToTheSystem)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033");
    ComponentLiesUnder("1033");
    setenv("FAKE_COMPONENT_PATH", (kFakes + "/component/none.so").c_str(), 1);
    BINDS_ALONE([] { return Initialize() == kFromAskingSystem; });
}

TEST_F(MapiBindingTest, AClientWithoutAComponentIsNotAskedFor)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "", "1033");
    BINDS_ALONE([] { return Initialize() == kFromAskingSystem && Asked().empty(); });
}

TEST_F(MapiBindingTest, DecoratedNamesAreFound)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033");
    ComponentLiesUnder("1033");
    BINDS_ALONE([] {
        ULONG size = 0;
        return mapi::HrGetOneProp(nullptr, 0, nullptr) == 0x000A0002 &&
               mapi::ScCountNotifications(0, nullptr, &size) == 0x000A0003 &&
               mapi::HrThisThreadAdviseSink(nullptr, nullptr) == 0x000A0004;
    });
}

TEST_F(MapiBindingTest, OnUndecoratedNamesAloneThreeFunctionsStayUnbound)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        BindMapiLibrary();
        unsigned unbound = 0;
        for (const MapiFunction function :
             {MapiFunction::ScCountNotifications, MapiFunction::ScCopyNotifications,
              MapiFunction::HrThisThreadAdviseSink})
            unbound += BoundMapiFunction(function) == nullptr;
        return unbound == 3 && BoundMapiFunction(MapiFunction::HrGetOneProp) != nullptr;
    });
}

// Every stub of a library that has nothing.
bool EveryStubFailsAsTold()
{
    void* buffer = nullptr;
    IMAPISession* session = nullptr;
    ULONG size = 7;
    auto* sink = reinterpret_cast<IMAPIAdviseSink*>(0x10);
    char text[] = "AB";
    BYTE byte = 0x5A;
    const HRESULT failures[] = {mapi::MAPIAllocateBuffer(8, &buffer),
                                mapi::MAPIAllocateMore(8, nullptr, &buffer),
                                mapi::HrGetOneProp(nullptr, 0, nullptr),
                                mapi::MAPIInitialize(nullptr),
                                mapi::OpenIMsgOnIStg(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                     nullptr, nullptr, 0, 0, nullptr),
                                mapi::OpenIMsgSession(nullptr, 0, nullptr),
                                mapi::HrQueryAllRows(nullptr, nullptr, nullptr, nullptr, 0, nullptr),
                                mapi::MAPIOpenFormMgr(nullptr, nullptr),
                                mapi::MAPILogonEx(0, nullptr, nullptr, 0, &session),
                                mapi::ScCountNotifications(0, nullptr, &size),
                                mapi::ScCopyNotifications(0, nullptr, nullptr, &size)};
    for (const HRESULT failure : failures) {
        if (failure != E_FAIL)
            return false;
    }
    mapi::HexFromBin(&byte, 1, text);
    mapi::MAPIUninitialize();
    mapi::FreeProws(nullptr);
    mapi::CloseIMsgSession(nullptr);
    return mapi::FBinFromHex(text, &byte) == FALSE && byte == 0x5A && std::string(text) == "AB" &&
           mapi::HrThisThreadAdviseSink(nullptr, &sink) == S_OK &&
           sink == reinterpret_cast<IMAPIAdviseSink*>(0x10) && !mapi::MAPIGetDefaultMalloc() &&
           !mapi::PpropFindProp(nullptr, 0, 0) && mapi::MAPIFreeBuffer(text) == 0;
}

TEST_F(MapiBindingTest, FunctionsThatALibraryLacksGiveTheirFailureValues)
{
    UseSystem("empty");
    BINDS_ALONE([] { return BindMapiLibrary() && EveryStubFailsAsTold(); });
}

TEST_F(MapiBindingTest, WithoutAnyLibraryEveryStubGivesItsFailureValue)
{
    UseSystem("nowhere");
    BINDS_ALONE([] { return !BindMapiLibrary() && EveryStubFailsAsTold(); });
}

TEST_F(MapiBindingTest, AMissingFunctionIsLookedForAgainAtTheNextCall)
{
    UseSystem("nowhere");
    BINDS_ALONE([] {
        const bool failed = Initialize() == E_FAIL;
        UseSystem("plain");
        return failed && Initialize() == kFromPlainSystem;
    });
}

TEST_F(MapiBindingTest, WhatIsBoundStaysBoundWhenAnotherLibraryComesUp)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        const bool first = Initialize() == kFromPlainSystem;
        UseSystem("asking");
        return first && BindMapiLibrary() && Initialize() == kFromPlainSystem;
    });
}

TEST_F(MapiBindingTest, ANullBufferIsFreedWithoutABinding)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        return mapi::MAPIFreeBuffer(nullptr) == 0 &&
               BoundMapiFunction(MapiFunction::MAPIFreeBuffer) == nullptr;
    });
}

TEST_F(MapiBindingTest, ManyThreadsMayBindAtOnce)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        std::atomic<unsigned> good{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] { good += Initialize() == kFromPlainSystem; });
        for (std::thread& thread : threads)
            thread.join();
        return good == 8u;
    });
}

TEST_F(MapiBindingTest, TheTableHasItsRowsInOrder)
{
    EXPECT_STREQ(MapiBindingTable.front().exportName, "MAPIAllocateBuffer");
    EXPECT_STREQ(MapiBindingTable[3].exportName, "HrGetOneProp@12");
    EXPECT_STREQ(MapiBindingTable[51].exportName, "FBinFromHex");
    EXPECT_STREQ(MapiBindingTable[52].exportName, "FBinFromHex@8");
    EXPECT_STREQ(MapiBindingTable.back().exportName, "HrThisThreadAdviseSink@8");
    unsigned twice = 0;
    for (const MapiBindingRow& row : MapiBindingTable)
        twice += row.slot == MapiFunction::HrSetOneProp;
    EXPECT_EQ(twice, 4u);
}

TEST_F(MapiBindingTest, NoDefaultMailClientMeansNoKey)
{
    RegistryKey key;
    EXPECT_FALSE(FindDefaultMailClientKey(RegistryHive::CurrentUser, key));
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\Clients\\Mail"), S_OK);
    EXPECT_FALSE(FindDefaultMailClientKey(RegistryHive::CurrentUser, key));
    EXPECT_FALSE(key.IsOpen());
}

TEST_F(MapiBindingTest, AMissingValueOfTheClientIsAnEmptyText)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    MailClientMsiValues values{"old", "old", "old"};
    ReadMailClientMsiValues(values);
    EXPECT_EQ(values.component, "{C}");
    EXPECT_EQ(values.applicationLanguage, "");
    EXPECT_EQ(values.officeLanguage, "");
}

TEST_F(MapiBindingTest, AThreadInitialisesMapiForNotificationsOnOtherThreads)
{
    UseSystem("plain");
    BINDS_ALONE([] {
        CMAPIThreadInit init;
        return init.Init() == S_OK && init.Init() == S_OK;
    });
}

TEST_F(MapiBindingTest, AThreadWhoseMapiRefusesIsTold)
{
    UseSystem("plain");
    setenv("FAKE_MAPI_REFUSES", "1", 1);
    BINDS_ALONE([] {
        CMAPIThreadInit init;
        return init.Init() == MAPI_E_NOT_INITIALIZED;
    });
    unsetenv("FAKE_MAPI_REFUSES");
}

}  // namespace
}  // namespace quorvane
