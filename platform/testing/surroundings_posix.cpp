#include <cstdlib>

#include "platform/testing/surroundings.h"

namespace quorvane::test {

namespace {

void Keep(const char* variable, const std::filesystem::path& place)
{
    if (place.empty())
        return SetVariable(variable, nullptr);
    std::filesystem::create_directories(place);
    SetVariable(variable, place.c_str());
}

}  // namespace

void SetVariable(const char* name, const char* value)
{
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

void KeepSettingsIn(const std::filesystem::path& directory)
{
    Keep("XDG_CONFIG_HOME", directory);
}

std::filesystem::path SettingsAreKeptIn()
{
    const char* const place = std::getenv("XDG_CONFIG_HOME");
    return place ? place : "";
}

void KeepDataIn(const std::filesystem::path& directory)
{
    Keep("XDG_DATA_HOME", directory);
}

void KeepTemporaryFilesIn(const std::filesystem::path& directory)
{
    Keep("TMPDIR", directory);
}

void KeepMachineSettingsIn(const std::filesystem::path& directory)
{
    if (directory.empty())
        return SetVariable("QUORVANE_MACHINE_REGISTRY", nullptr);
    std::filesystem::create_directories(directory);
    SetVariable("QUORVANE_MACHINE_REGISTRY", (directory / "machine.reg").c_str());
}

}  // namespace quorvane::test
