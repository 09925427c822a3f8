// The system directory of Windows.
#include <gtest/gtest.h>

#include "platform/module/module.h"

namespace quorvane {
namespace {

TEST(ModuleWinTest, TheSystemDirectoryIsTheSystems)
{
    std::string path;
    Module module;

    EXPECT_EQ(SystemDirectory(path), S_OK);

    EXPECT_EQ(module.Load(path + "\\ole32.dll"), S_OK);
    EXPECT_EQ(module.Find("CoInitializeEx"), reinterpret_cast<void*>(&CoInitializeEx));
}

TEST(ModuleWinTest, ANameAloneIsLookedForInTheSystemDirectory)
{
    Module module;

    EXPECT_EQ(module.Load("ole32.dll"), S_OK);
    EXPECT_EQ(module.Load("exampleexports.dll"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

}  // namespace
}  // namespace quorvane
