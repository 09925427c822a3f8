#include "engine/storeaccess/mapi_binding.h"

#include <atomic>
#include <cstdio>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "engine/storeaccess/testing/binding_test.h"

namespace quorvane {
namespace {

using testing::kFromAskingSystem;
using testing::kFromComponent;
using testing::kFromPlainSystem;

class MapiBindingTest : public testing::BindingTest {};

// The export names in the order in which they are tried.
constexpr const char* kNames[] = {
    "MAPIAllocateBuffer",
    "MAPIAllocateMore",
    "MAPIFreeBuffer",
    "HrGetOneProp@12",
    "HrGetOneProp",
    "HrSetOneProp@8",
    "HrSetOneProp",
    "MAPIInitialize",
    "MAPIUninitialize",
    "FreeProws@4",
    "FreeProws",
    "PpropFindProp@12",
    "PpropFindProp",
    "ScDupPropset@16",
    "ScDupPropset",
    "ScCountProps@12",
    "ScCountProps",
    "ScCopyProps@16",
    "ScCopyProps",
    "OpenIMsgOnIStg@44",
    "OpenIMsgOnIStg",
    "MAPIGetDefaultMalloc@0",
    "MAPIGetDefaultMalloc",
    "CloseIMsgSession@4",
    "CloseIMsgSession",
    "OpenIMsgSession@12",
    "OpenIMsgSession",
    "HrQueryAllRows@24",
    "HrQueryAllRows",
    "MAPIOpenFormMgr",
    "RTFSync",
    "HrSetOneProp@8",
    "HrSetOneProp",
    "FreePadrlist@4",
    "FreePadrlist",
    "PropCopyMore@16",
    "PropCopyMore",
    "WrapCompressedRTFStream",
    "WrapStoreEntryID@24",
    "WrapStoreEntryID",
    "CreateIProp@24",
    "CreateIProp",
    "CreateTable@36",
    "CreateTable",
    "MAPILogonEx",
    "MAPIAdminProfiles",
    "HrValidateIPMSubtree@20",
    "HrValidateIPMSubtree",
    "MAPIOpenLocalFormContainer",
    "HrDispatchNotifications@4",
    "HrDispatchNotifications",
    "FBinFromHex",
    "FBinFromHex@8",
    "HexFromBin",
    "HexFromBin@12",
    "ScCountNotifications@12",
    "ScCopyNotifications@16",
    "HrThisThreadAdviseSink@8",
};

std::string Undecorated(const std::string& name)
{
    return name.substr(0, name.find('@'));
}

TEST_F(MapiBindingTest, TheTableHoldsTheNamesInTheirOrder)
{
    ASSERT_EQ(MapiBindingTable.size(), std::size(kNames));
    for (size_t i = 0; i < std::size(kNames); ++i)
        EXPECT_STREQ(MapiBindingTable[i].exportName, kNames[i]) << "row " << i;
}

TEST_F(MapiBindingTest, TheNamesOfOneFunctionShareASlotThatNoOtherHas)
{
    std::map<std::string, MapiFunction> slots;
    std::set<MapiFunction> used;
    for (const MapiBindingRow& row : MapiBindingTable) {
        const auto slot = slots.emplace(Undecorated(row.exportName), row.slot).first->second;
        EXPECT_EQ(slot, row.slot) << row.exportName;
        used.insert(row.slot);
    }
    EXPECT_EQ(slots.size(), kMapiFunctionCount);
    EXPECT_EQ(used.size(), kMapiFunctionCount);
}

// Binds a library with these exports; each shows as its own name.
void BindExports(const std::vector<std::string>& names)
{
    std::string exports;
    for (const std::string& name : names)
        exports += name + ' ';
    test::SetVariable("FAKE_EXPORTS", exports.c_str());
    BindMapiLibrary();
}

// The name under which each function of the table was found, empty for none; by its undecorated name.
std::map<std::string, std::string> BoundNames()
{
    std::map<std::string, std::string> bound;
    for (const MapiBindingRow& row : MapiBindingTable) {
        const auto* const name = static_cast<const char*>(BoundMapiFunction(row.slot));
        bound[Undecorated(row.exportName)] = name ? name : "";
    }
    return bound;
}

bool ShowsBound(const std::map<std::string, std::string>& expected)
{
    const auto bound = BoundNames();
    for (const auto& [function, name] : expected) {
        if (bound.at(function) != name)
            std::fprintf(stderr, "%s is bound as '%s'\n", function.c_str(), bound.at(function).c_str());
    }
    return bound == expected;
}

// By function, the first of its names, or the last that differs from the first.
std::map<std::string, std::string> NamesByFunction(bool first)
{
    std::map<std::string, std::string> names;
    for (const char* name : kNames) {
        if (first)
            names.emplace(Undecorated(name), name);
        else
            names[Undecorated(name)] = name;
    }
    return names;
}

std::vector<std::string> ValuesOf(const std::map<std::string, std::string>& names)
{
    std::vector<std::string> values;
    for (const auto& [function, name] : names)
        values.push_back(name);
    return values;
}

TEST_F(MapiBindingTest, OfSeveralNamesTheFirstInTheTableIsBound)
{
    UseSystem("names");
    BINDS_ALONE([] {
        BindExports({std::begin(kNames), std::end(kNames)});
        return ShowsBound(NamesByFunction(true));
    });
}

TEST_F(MapiBindingTest, AFunctionIsBoundByItsLaterNameWhereTheFirstIsMissing)
{
    UseSystem("names");
    BINDS_ALONE([] {
        BindExports(ValuesOf(NamesByFunction(false)));
        return ShowsBound(NamesByFunction(false));
    });
}

TEST_F(MapiBindingTest, OnUndecoratedNamesAloneThreeFunctionsStayUnbound)
{
    UseSystem("names");
    BINDS_ALONE([] {
        std::map<std::string, std::string> expected;
        for (const char* name : kNames)
            expected[Undecorated(name)] = Undecorated(name);
        BindExports(ValuesOf(expected));
        for (const char* name : {"ScCountNotifications", "ScCopyNotifications", "HrThisThreadAdviseSink"})
            expected[name] = "";
        return ShowsBound(expected);
    });
}

TEST_F(MapiBindingTest, ALaterBindingFillsEmptySlotsAndLeavesFilledOnesAlone)
{
    UseSystem("names");
    BINDS_ALONE([] {
        BindExports({"FreeProws"});
        std::map<std::string, std::string> expected = BoundNames();
        const bool first = expected["FreeProws"] == "FreeProws" && expected["HrGetOneProp"].empty();
        BindExports({"FreeProws@4", "HrGetOneProp"});
        expected["HrGetOneProp"] = "HrGetOneProp";
        return first && ShowsBound(expected);
    });
}

TEST_F(MapiBindingTest, ABindingIsGoodWhenALibraryWasLoadedAndBadWhenNone)
{
    UseSystem("nowhere");
    BINDS_ALONE([] {
        const bool none = BindMapiLibrary();
        UseSystem("empty");
        return !none && BindMapiLibrary();
    });
}

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
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1033/260/1 "; });
}

TEST_F(MapiBindingTest, OfABoundComponentTheSystemsLibraryFillsNothing)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033");
    ComponentLiesUnder("1033");
    BINDS_ALONE([] {
        return Initialize() == kFromComponent && !BoundMapiFunction(MapiFunction::MAPIAllocateBuffer);
    });
}

TEST_F(MapiBindingTest, TheUsersMailClientHidesTheMachines)
{
    InstallClient(RegistryHive::CurrentUser, "Mine", "{M}", "1");
    InstallClient(RegistryHive::LocalMachine, "Theirs", "{T}", "2");
    ComponentLiesUnder("1");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{M}/1/260/1 "; });
}

TEST_F(MapiBindingTest, TheMachinesMailClientServesWhereTheUserHasNone)
{
    InstallClient(RegistryHive::LocalMachine, "Theirs", "{T}", "2");
    ComponentLiesUnder("2");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{T}/2/260/1 "; });
}

TEST_F(MapiBindingTest, IfTheApplicationLanguageHasNoPathTheOfficeLanguageIsTriedAndThenNone)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033", "1031");
    ComponentLiesUnder("-");
    BINDS_ALONE([] {
        return Initialize() == kFromComponent && Asked() == "{C}/1033/260/1 {C}/1031/260/1 {C}/-/260/1 ";
    });
}

TEST_F(MapiBindingTest, TheOfficeLanguagesPathEndsTheSearch)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033", "1031");
    ComponentLiesUnder("1031");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1033/260/1 {C}/1031/260/1 "; });
}

TEST_F(MapiBindingTest, ALanguageThatIsNotToldIsNotTried)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "", "1031");
    ComponentLiesUnder("-");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/1031/260/1 {C}/-/260/1 "; });
}

TEST_F(MapiBindingTest, AClientWithoutLanguagesIsAskedForWithoutOne)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    ComponentLiesUnder("-");
    BINDS_ALONE([] { return Initialize() == kFromComponent && Asked() == "{C}/-/260/1 "; });
}

TEST_F(MapiBindingTest, AnEmptyPathCountsAsNoAnswer)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033", "1031");
    ComponentLiesUnder("1033");
    ComponentIs("");
    BINDS_ALONE([] {
        return Initialize() == kFromAskingSystem && Asked() == "{C}/1033/260/1 {C}/1031/260/1 {C}/-/260/1 ";
    });
}

TEST_F(MapiBindingTest, APathThatComesWithARefusalIsTriedWhenNoLanguageHasABetter)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033", "1031");
    ComponentLiesUnder("1033");
    test::SetVariable("FAKE_COMPONENT_REFUSES", "1");
    BINDS_ALONE([] {
        return Initialize() == kFromComponent && Asked() == "{C}/1033/260/1 {C}/1031/260/1 {C}/-/260/1 ";
    });
}

TEST_F(MapiBindingTest, AComponentThatCannotBeLoadedGivesWayToTheSystem)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}", "1033");
    ComponentLiesUnder("1033");
    ComponentIs("component/none.dll");
    BINDS_ALONE([] { return Initialize() == kFromAskingSystem; });
}

TEST_F(MapiBindingTest, AClientWithoutAComponentIsNotAskedFor)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "", "1033");
    BINDS_ALONE([] { return Initialize() == kFromAskingSystem && Asked().empty(); });
}

TEST_F(MapiBindingTest, DecoratedNamesAreFoundInAComponent)
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

TEST_F(MapiBindingTest, NoKeyOrNoNameMeansNoDefaultMailClient)
{
    RegistryKey key;
    EXPECT_FALSE(FindDefaultMailClientKey(RegistryHive::CurrentUser, key));
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\Clients\\Mail\\Client"), S_OK);
    EXPECT_FALSE(FindDefaultMailClientKey(RegistryHive::CurrentUser, key));
    NameClient(RegistryHive::CurrentUser, "");
    EXPECT_FALSE(FindDefaultMailClientKey(RegistryHive::CurrentUser, key));
    EXPECT_FALSE(key.IsOpen());
}

TEST_F(MapiBindingTest, TheDefaultMailClientsKeyIsTheOneThatTheDefaultValueNames)
{
    InstallClient(RegistryHive::LocalMachine, "Other", "{O}");
    InstallClient(RegistryHive::LocalMachine, "Client", "{C}");
    RegistryKey key;
    RegistryValue component;
    ASSERT_TRUE(FindDefaultMailClientKey(RegistryHive::LocalMachine, key));
    ASSERT_EQ(key.Query("MSIComponentID", component), S_OK);
    EXPECT_EQ(component.Text(), "{C}");
}

TEST_F(MapiBindingTest, AMissingValueOfTheClientIsAnEmptyText)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    MailClientMsiValues values{{"old"}, {"old"}, {"old"}};
    ReadMailClientMsiValues(values);
    EXPECT_STREQ(values.component.data(), "{C}");
    EXPECT_STREQ(values.applicationLanguage.data(), "");
    EXPECT_STREQ(values.officeLanguage.data(), "");
}

TEST_F(MapiBindingTest, AValueThatFillsItsPlaceIsReadAndALongerOneIsNot)
{
    const std::string longest(1023, 'x');
    InstallClient(RegistryHive::CurrentUser, "Client", longest, longest + 'x');
    MailClientMsiValues values;
    ReadMailClientMsiValues(values);
    EXPECT_EQ(values.component.data(), longest);
    EXPECT_STREQ(values.applicationLanguage.data(), "");
}

TEST_F(MapiBindingTest, AListOfTextsKeepsItsZeros)
{
    InstallClient(RegistryHive::CurrentUser, "Client", "{C}");
    RegistryKey key;
    ASSERT_EQ(key.Create(RegistryHive::CurrentUser, "Software\\Clients\\Mail\\Client"), S_OK);
    const std::string texts("Software\\Office\0Language\0\0", 26);
    ASSERT_EQ(key.Set("MSIApplicationLCID", {RegistryType::MultiText, texts}), S_OK);
    MailClientMsiValues values;
    ReadMailClientMsiValues(values);
    EXPECT_EQ(std::string(values.applicationLanguage.data(), texts.size()), texts);
}

TEST_F(MapiBindingTest, AUsersClientWithoutAKeyLeavesItToTheMachines)
{
    NameClient(RegistryHive::CurrentUser, "Gone");
    InstallClient(RegistryHive::LocalMachine, "Theirs", "{T}");
    MailClientMsiValues values;
    ReadMailClientMsiValues(values);
    EXPECT_STREQ(values.component.data(), "{T}");
}

}  // namespace
}  // namespace quorvane
