#include "platform/module/module.h"

#include <gtest/gtest.h>

#include "platform/file/path.h"

namespace quorvane {
namespace {

using Number = int (*)();

std::string Beside(const std::string& name)
{
    return JoinPath(QUORVANE_LIBRARY_DIRECTORY, name);
}

TEST(ModuleTest, AnExportIsFoundByItsName)
{
    Module module;
    ASSERT_EQ(module.Load(Beside("ExampleExports.DLL")), S_OK);

    const auto plain = module.Find<Number>("PlainExport");

    ASSERT_TRUE(plain);
    EXPECT_EQ(plain(), 11);
}

TEST(ModuleTest, AnExportMayHaveAnAtSignInItsName)
{
    Module module;
    ASSERT_EQ(module.Load(Beside("exampleexports.dll")), S_OK);

    const auto decorated = module.Find<Number>("Decorated@8");

    ASSERT_TRUE(decorated);
    EXPECT_EQ(decorated(), 22);
    EXPECT_EQ(module.Find("Decorated@12"), nullptr);
    EXPECT_EQ(module.Find("Missing"), nullptr);
    EXPECT_EQ(module.Find(nullptr), nullptr);
}

TEST(ModuleTest, ALibraryThatIsLoadedIsFound)
{
    Module first;
    Module second;

    EXPECT_EQ(first.Load(Beside("exampleexports.dll")), S_OK);
    EXPECT_EQ(second.Load(Beside("exampleexports.dll")), S_OK);

    EXPECT_EQ(first.Find("PlainExport"), second.Find("PlainExport"));
}

TEST(ModuleTest, ALibraryThatIsNotThereIsNotLoaded)
{
    Module module;
    ASSERT_EQ(module.Load(Beside("exampleexports.dll")), S_OK);

    EXPECT_EQ(module.Load(Beside("none.dll")), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
    EXPECT_FALSE(module.IsLoaded());
    EXPECT_EQ(module.Find("PlainExport"), nullptr);
    EXPECT_EQ(module.Load("none.dll"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(module.Load(""), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

TEST(ModuleTest, AFileThatIsNoLibraryIsNotLoaded)
{
    Module module;

    EXPECT_EQ(module.Load(__FILE__), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

}  // namespace
}  // namespace quorvane
