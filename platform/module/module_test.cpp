#include "platform/module/module.h"

#include <gtest/gtest.h>

#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"

namespace quorvane {
namespace {

using Number = int (*)();

TEST(ModuleTest, TheSystemDirectoryIsWhereThisCodeIs)
{
    const EnvironmentForTest environment("QUORVANE_SYSTEM_DIR", nullptr);
    std::string path;

    EXPECT_EQ(SystemDirectory(path), S_OK);

    EXPECT_TRUE(PathExists(JoinPath(path, "qv_module_test"))) << path;
}

TEST(ModuleTest, TheEnvironmentMayNameAnotherSystemDirectory)
{
    const EnvironmentForTest environment("QUORVANE_SYSTEM_DIR", "/elsewhere");
    std::string path;
    Module module;

    EXPECT_EQ(SystemDirectory(path), S_OK);
    EXPECT_EQ(path, "/elsewhere");
    EXPECT_EQ(module.Load("exampleexports.dll"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

TEST(ModuleTest, AnExportIsFoundByItsName)
{
    Module module;
    ASSERT_EQ(module.Load("ExampleExports.DLL"), S_OK);

    const auto plain = module.Find<Number>("PlainExport");

    ASSERT_TRUE(plain);
    EXPECT_EQ(plain(), 11);
}

TEST(ModuleTest, ANameWithAnAtSignIsAskedOfTheLibrary)
{
    Module module;
    ASSERT_EQ(module.Load("exampleexports.dll"), S_OK);

    const auto decorated = module.Find<Number>("Decorated@8");

    ASSERT_TRUE(decorated);
    EXPECT_EQ(decorated(), 22);
    EXPECT_EQ(module.Find("Decorated@12"), nullptr);
    EXPECT_EQ(module.Find("Missing"), nullptr);
    EXPECT_EQ(module.Find(nullptr), nullptr);
}

TEST(ModuleTest, APathNamesAFileInItsDirectory)
{
    std::string directory;
    ASSERT_EQ(SystemDirectory(directory), S_OK);
    Module byWindowsName;
    Module byOwnName;

    EXPECT_EQ(byWindowsName.Load(JoinPath(directory, "exampleexports.dll")), S_OK);
    EXPECT_EQ(byOwnName.Load(JoinPath(directory, "libexampleexports.so")), S_OK);

    EXPECT_EQ(byWindowsName.Find("PlainExport"), byOwnName.Find("PlainExport"));
}

TEST(ModuleTest, ALibraryThatIsNotThereIsNotLoaded)
{
    Module module;
    ASSERT_EQ(module.Load("exampleexports.dll"), S_OK);

    EXPECT_EQ(module.Load("none.dll"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
    EXPECT_FALSE(module.IsLoaded());
    EXPECT_EQ(module.Find("PlainExport"), nullptr);
    EXPECT_EQ(module.Load(""), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(module.Load("/etc/hostname"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

}  // namespace
}  // namespace quorvane
