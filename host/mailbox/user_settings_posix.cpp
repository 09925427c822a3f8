#include "host/mailbox/user_settings.h"

#include <cstdlib>
#include <string>

#include "host/base/files.h"
#include "host/mailbox/mailbox.h"

namespace quorvane::host {

namespace {

constexpr std::uintmax_t kLargestRegistry = 16 << 20;

std::filesystem::path RegistryPath(const Mailbox& mailbox)
{
    return mailbox.SettingsPath() / "quorvane3" / "registry.reg";
}

std::string EscapedForReg(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\\' || c == '"')
            result += '\\';
        result += c;
    }
    return result;
}

std::string LogsLine(const Mailbox& mailbox)
{
    return "\"Logs\"=\"" + EscapedForReg(mailbox.LogPath().string()) + "\"";
}

std::string ReadRegistry(const Mailbox& mailbox)
{
    std::error_code error;
    const std::filesystem::path path = RegistryPath(mailbox);
    return std::filesystem::exists(path, error) ? ReadWhole(path, kLargestRegistry) : std::string();
}

// The user's own value stays at hand for programs that are started to show him something.
void Replace(const std::string& name, const std::filesystem::path& value)
{
    const char* const own = std::getenv(name.c_str());
    setenv(("QUORVANE_USER_" + name).c_str(), own ? own : "", 0);
    setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace

void SelectSettings(const Mailbox& mailbox)
{
    Replace("XDG_CONFIG_HOME", mailbox.SettingsPath());
    Replace("XDG_DATA_HOME", mailbox.LogPath().parent_path());
    Replace("TMPDIR", mailbox.PackagesPath());
}

bool AreSettingsMade(const Mailbox& mailbox)
{
    return ReadRegistry(mailbox).find(LogsLine(mailbox)) != std::string::npos;
}

// Of a value that stands more than once the last counts, so that everything else in the file is kept.
void MakeSettings(const Mailbox& mailbox)
{
    std::string registry = ReadRegistry(mailbox);
    if (registry.empty())
        registry = "Windows Registry Editor Version 5.00\r\n";
    registry += "\r\n[HKEY_CURRENT_USER\\Software\\Brindlemoor\\Quorvane\\1.0\\" +
                ToUtf8(OleStringView(kProductCode)) + "\\Settings]\r\n" + LogsLine(mailbox) + "\r\n";
    MakePrivateDirectory(mailbox.SettingsPath());
    MakePrivateDirectory(RegistryPath(mailbox).parent_path());
    WriteDurably(RegistryPath(mailbox), registry);
}

}  // namespace quorvane::host
