// platform/testing/surroundings.h: what a test's process has around it: directories, variables, a user's
// settings.
//
// One thread at a time. What isn't told otherwise throws std::runtime_error when the system refuses.
#ifndef QUORVANE_PLATFORM_TESTING_SURROUNDINGS_H_
#define QUORVANE_PLATFORM_TESTING_SURROUNDINGS_H_

#include <filesystem>
#include <string>

namespace quorvane::test {

// Makes a new directory under the one for temporary files that the process began with.
std::filesystem::path MakeTestDirectory();

// Sets a variable of the environment; null takes it away.
void SetVariable(const char* name, const char* value);

// From now on the process's user keeps settings (the registry and configuration files), application data or
// temporary files in `directory`, which is made if it's missing; empty stands for the system's own place. On
// Windows the registry isn't in it, but each directory stands for a registry of its own: who comes back to a
// directory finds the settings again. There the process sees nothing of the real user's settings meanwhile.
void KeepSettingsIn(const std::filesystem::path& directory);
std::filesystem::path SettingsAreKeptIn();
void KeepDataIn(const std::filesystem::path& directory);
void KeepTemporaryFilesIn(const std::filesystem::path& directory);

// The same for the settings of the machine: the registry's HKEY_LOCAL_MACHINE.
void KeepMachineSettingsIn(const std::filesystem::path& directory);

// Puts a text into the user's registry, as it is at the moment.
void PutUserSetting(const std::string& key, const std::string& name, const std::string& text);

}  // namespace quorvane::test

#endif  // QUORVANE_PLATFORM_TESTING_SURROUNDINGS_H_
