// The system directory off Windows, and libraries by the names that they have there.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/file/path.h"
#include "platform/file/temp_directory_for_test.h"
#include "platform/module/module.h"

namespace quorvane {
namespace {

TEST(ModulePosixTest, TheSystemDirectoryIsWhereThisCodeIs)
{
    const EnvironmentForTest environment("QUORVANE_SYSTEM_DIR", nullptr);
    std::string path;

    EXPECT_EQ(SystemDirectory(path), S_OK);

    EXPECT_TRUE(PathExists(JoinPath(path, "qv_module_test"))) << path;
}

// What a library answers that lies in a directory of its own.
std::string SystemDirectoryOfALibraryIn(const std::string& directory)
{
    const std::string copy = JoinPath(directory, "libmoved.so");
    std::filesystem::copy_file(JoinPath(QUORVANE_LIBRARY_DIRECTORY, "libexampleexports.so"), copy);
    Module module;
    EXPECT_EQ(module.Load(copy), S_OK);
    const auto tell = module.Find<HRESULT (*)(std::string&)>("TellSystemDirectory");
    std::string path;
    EXPECT_TRUE(tell && SUCCEEDED(tell(path)));
    return path;
}

TEST(ModulePosixTest, TheSystemDirectoryOfAnInstalledLibraryIsTheFolderBesideIt)
{
    const EnvironmentForTest environment("QUORVANE_SYSTEM_DIR", nullptr);
    const TempDirectoryForTest plain;
    const TempDirectoryForTest installation;
    const std::string folder = JoinPath(installation.Path(), "quorvane3");
    std::filesystem::create_directory(folder);

    EXPECT_TRUE(std::filesystem::equivalent(SystemDirectoryOfALibraryIn(plain.Path()), plain.Path()));
    EXPECT_TRUE(std::filesystem::equivalent(SystemDirectoryOfALibraryIn(installation.Path()), folder));
}

TEST(ModulePosixTest, TheEnvironmentMayNameAnotherSystemDirectory)
{
    const EnvironmentForTest environment("QUORVANE_SYSTEM_DIR", "/elsewhere");
    std::string path;
    Module module;

    EXPECT_EQ(SystemDirectory(path), S_OK);
    EXPECT_EQ(path, "/elsewhere");
    EXPECT_EQ(module.Load("exampleexports.dll"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

TEST(ModulePosixTest, ANameAloneIsLookedForInTheSystemDirectory)
{
    const EnvironmentForTest environment("QUORVANE_SYSTEM_DIR", nullptr);
    Module module;

    EXPECT_EQ(module.Load("ExampleExports.DLL"), S_OK);

    EXPECT_TRUE(module.Find("PlainExport"));
}

TEST(ModulePosixTest, AWindowsNameStandsForTheLocalOne)
{
    Module byWindowsName;
    Module byOwnName;

    EXPECT_EQ(byWindowsName.Load(JoinPath(QUORVANE_LIBRARY_DIRECTORY, "exampleexports.dll")), S_OK);
    EXPECT_EQ(byOwnName.Load(JoinPath(QUORVANE_LIBRARY_DIRECTORY, "libexampleexports.so")), S_OK);

    EXPECT_EQ(byWindowsName.Find("PlainExport"), byOwnName.Find("PlainExport"));
}

}  // namespace
}  // namespace quorvane
