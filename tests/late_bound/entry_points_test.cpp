// What the library gives a host that knows nothing but four names.
#include <gtest/gtest.h>

#include "tests/late_bound/automation.h"
#include "tests/late_bound/engine_module.h"
#include "tests/late_bound/exported_names.h"
#include "tests/late_bound/page.h"

namespace quorvane::test {
namespace {

const EngineModule& Engine()
{
    return EngineModule::Instance();
}

CLSID LibraryClass()
{
    return Page::Instance().Class("Library").id;
}

TEST(EntryPointsTest, TheLibraryExportsItsFourEntryPointsAndNothingElse)
{
    EXPECT_EQ(ExportedNames(EngineModule::Path()),
              (std::set<std::string>{"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer",
                                     "DllUnregisterServer"}));
}

TEST(EntryPointsTest, RegistrationSucceedsAndIsTakenBackAnyNumberOfTimes)
{
    EXPECT_EQ(Engine().RegisterServer(), S_OK);
    EXPECT_EQ(Engine().UnregisterServer(), S_OK);
    EXPECT_EQ(Engine().UnregisterServer(), S_OK);
}

TEST(EntryPointsTest, EveryClassOfThePageHasAFactoryWhoseObjectsBindLate)
{
    EXPECT_EQ(Page::Instance().Classes().size(), 13u);
    for (const PageClass& each : Page::Instance().Classes())
        EXPECT_TRUE(Engine().Create(each.name)) << each.name;
}

TEST(EntryPointsTest, AnUnknownClassIsNotAvailable)
{
    ComPtr<IClassFactory> factory;
    const IID noClass = Page::Instance().Interface("ILibrary").id;

    EXPECT_EQ(Engine().GetClassObject(noClass, IID_IClassFactory, factory.PutVoid()),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_FALSE(factory);
}

TEST(EntryPointsTest, AFactoryIsAskedForAnInterfaceThatItHasAndAPlace)
{
    ComPtr<IUnknown> unknown;
    void* stranger = &unknown;

    EXPECT_EQ(Engine().GetClassObject(LibraryClass(), IID_IUnknown, unknown.PutVoid()), S_OK);
    EXPECT_EQ(Engine().GetClassObject(LibraryClass(), IID_IDispatch, &stranger), E_NOINTERFACE);
    EXPECT_EQ(stranger, nullptr);
    EXPECT_EQ(Engine().GetClassObject(LibraryClass(), IID_IClassFactory, nullptr), E_POINTER);
}

TEST(EntryPointsTest, AFactoryMakesNoPartOfAnotherObjectAndNoForeignInterface)
{
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(Engine().GetClassObject(LibraryClass(), IID_IClassFactory, factory.PutVoid()), S_OK);
    void* object = &factory;

    EXPECT_EQ(factory->CreateInstance(factory.Get(), IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IStream, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IDispatch, nullptr), E_POINTER);
}

TEST(EntryPointsTest, TheLibraryStaysWhileAnythingOfItLives)
{
    EXPECT_EQ(Engine().CanUnloadNow(), S_OK);
    for (const PageClass& each : Page::Instance().Classes()) {
        ComPtr<IClassFactory> factory;
        ASSERT_EQ(Engine().GetClassObject(each.id, IID_IClassFactory, factory.PutVoid()), S_OK);
        EXPECT_EQ(Engine().CanUnloadNow(), S_FALSE) << each.name << ": a factory";
        ComPtr<IDispatch> object;
        ASSERT_EQ(factory->CreateInstance(nullptr, IID_IDispatch, object.PutVoid()), S_OK);
        factory.Reset();
        EXPECT_EQ(Engine().CanUnloadNow(), S_FALSE) << each.name << ": an object";
    }
    EXPECT_EQ(Engine().CanUnloadNow(), S_OK);
}

TEST(EntryPointsTest, ALockKeepsTheLibraryWithoutAnObject)
{
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(Engine().GetClassObject(LibraryClass(), IID_IClassFactory, factory.PutVoid()), S_OK);
    ASSERT_EQ(factory->LockServer(TRUE), S_OK);
    factory.Reset();
    EXPECT_EQ(Engine().CanUnloadNow(), S_FALSE);

    ASSERT_EQ(Engine().GetClassObject(LibraryClass(), IID_IClassFactory, factory.PutVoid()), S_OK);
    ASSERT_EQ(factory->LockServer(FALSE), S_OK);
    factory.Reset();
    EXPECT_EQ(Engine().CanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace quorvane::test
