#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/testing/surroundings.h"

namespace quorvane::test {

namespace {

// Below it, one key for each directory: the registry of a test's processes.
constexpr char kRegistries[] = "Software\\Quorvane Tests\\";
constexpr char kShellFolders[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

void Check(LSTATUS status, const char* what)
{
    if (status != ERROR_SUCCESS)
        throw std::runtime_error(std::string(what) + ": " + std::to_string(status));
}

// Owns an open key.
class Key {
public:
    Key(HKEY root, const std::string& path)
    {
        Check(RegCreateKeyExA(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                              nullptr, &key_, nullptr),
              path.c_str());
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { RegCloseKey(key_); }

    HKEY Get() const noexcept { return key_; }

private:
    HKEY key_ = nullptr;
};

// One path as the name of one key.
std::string KeyNameOf(const std::filesystem::path& directory)
{
    std::string name = directory.string();
    std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

void PutBack(HKEY predefined)
{
    Check(RegOverridePredefKey(predefined, nullptr), "the system's registry");
}

// Puts a registry of its own in place of one of the system's.
void Replace(HKEY predefined, const std::filesystem::path& directory)
{
    PutBack(HKEY_CURRENT_USER);
    const Key own(HKEY_CURRENT_USER, kRegistries + KeyNameOf(directory));
    Check(RegOverridePredefKey(predefined, own.Get()), "a registry for tests");
}

// The directories of the user, which are told in the user's registry: with another registry they go along.
struct UserDirectories {
    std::filesystem::path settings;
    std::filesystem::path data;

    void Apply() const
    {
        if (settings.empty() && data.empty())
            return PutBack(HKEY_CURRENT_USER);
        Replace(HKEY_CURRENT_USER, settings.empty() ? data : settings);
        const Key folders(HKEY_CURRENT_USER, kShellFolders);
        Put(folders, "AppData", settings);
        Put(folders, "Local AppData", data);
    }

private:
    static void Put(const Key& folders, const char* name, const std::filesystem::path& directory)
    {
        const std::string text = directory.string();
        if (!text.empty())
            Check(RegSetValueExA(folders.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                 static_cast<DWORD>(text.size() + 1)),
                  name);
    }
};

void Make(const std::filesystem::path& directory)
{
    if (!directory.empty())
        std::filesystem::create_directories(directory);
}

UserDirectories& Current()
{
    static UserDirectories current;
    return current;
}

}  // namespace

void SetVariable(const char* name, const char* value)
{
    // Sets it for the C library and for the system; an empty value takes it away.
    if (_putenv_s(name, value ? value : "") != 0)
        throw std::runtime_error(name);
}

void KeepSettingsIn(const std::filesystem::path& directory)
{
    Make(directory);
    Current().settings = directory;
    Current().Apply();
}

std::filesystem::path SettingsAreKeptIn()
{
    return Current().settings;
}

void KeepDataIn(const std::filesystem::path& directory)
{
    Make(directory);
    Current().data = directory;
    Current().Apply();
}

void KeepTemporaryFilesIn(const std::filesystem::path& directory)
{
    Make(directory);
    SetVariable("TMP", directory.empty() ? nullptr : directory.string().c_str());
}

void KeepMachineSettingsIn(const std::filesystem::path& directory)
{
    if (directory.empty())
        return PutBack(HKEY_LOCAL_MACHINE);
    Replace(HKEY_LOCAL_MACHINE, directory / "machine");
    Current().Apply();
}

}  // namespace quorvane::test
