#include "host/mailbox/user_settings.h"

#include <windows.h>

#include <algorithm>
#include <string>

#include "host/base/errors.h"
#include "host/base/path_text.h"
#include "host/mailbox/mailbox.h"

namespace quorvane::host {

namespace {

// Below it each mailbox has a key of its own, which stands for the user's whole registry.
constexpr wchar_t kMailboxes[] = L"Software\\Brindlemoor\\Quorvane\\Mailboxes\\";
constexpr wchar_t kSettings[] = L"Software\\Brindlemoor\\Quorvane\\1.0\\";
// The message store as the user's mail client, as packaging/windows/mail_client.reg.in has it for the
// machine.
constexpr wchar_t kMailClients[] = L"Software\\Clients\\Mail";
constexpr wchar_t kMailClient[] = L"Quorvane Message Store";
constexpr wchar_t kComponent[] = L"{6A0EF185-2BD9-4FC8-8921-C0717FB9F0D9}";
constexpr wchar_t kComponentQualifier[] = L"1033";
constexpr wchar_t kInstance[] = L"Instance";
constexpr wchar_t kLogs[] = L"Logs";

void CheckRegistry(LSTATUS status, const Mailbox& mailbox)
{
    if (status != ERROR_SUCCESS)
        Fail("use the settings of", mailbox.Directory().string(),
             DescribeSystemError(static_cast<DWORD>(status)));
}

// An open key, made where it is missing.
class Key {
public:
    Key(const std::wstring& path, const Mailbox& mailbox) : mailbox_(mailbox)
    {
        CheckRegistry(RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                      &key_, nullptr),
                      mailbox);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { RegCloseKey(key_); }

    HKEY Get() const noexcept { return key_; }

    void Set(const wchar_t* name, const std::wstring& text) const
    {
        CheckRegistry(RegSetValueExW(key_, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                     static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
                      mailbox_);
    }

private:
    const Mailbox& mailbox_;
    HKEY key_ = nullptr;
};

// Whether the user's registry has a value of just this text.
bool HasText(const std::wstring& key, const wchar_t* name, const std::wstring& text)
{
    // Room for one letter more, so that a longer text isn't taken for this one.
    std::wstring value(text.size() + 2, L'\0');
    auto size = static_cast<DWORD>(value.size() * sizeof(wchar_t));
    return RegGetValueW(HKEY_CURRENT_USER, key.c_str(), name, RRF_RT_REG_SZ, nullptr, value.data(), &size) ==
               ERROR_SUCCESS &&
           text == value.c_str();
}

std::wstring SettingsKey()
{
    return std::wstring(kSettings) + kProductCode + L"\\Settings";
}

std::filesystem::path MessageStoreModule()
{
    std::wstring program(32768, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
    return std::filesystem::path(program).parent_path() / "msgstore.dll";
}

}  // namespace

void SelectSettings(const Mailbox& mailbox)
{
    CheckRegistry(RegOverridePredefKey(HKEY_CURRENT_USER, nullptr), mailbox);
    std::wstring name = mailbox.Directory().native();
    std::replace(name.begin(), name.end(), L'\\', L'/');
    const Key own(kMailboxes + name, mailbox);
    CheckRegistry(RegOverridePredefKey(HKEY_CURRENT_USER, own.Get()), mailbox);
    SetEnvironmentVariableW(L"TMP", mailbox.PackagesPath().c_str());
}

bool AreSettingsMade(const Mailbox& mailbox)
{
    return HasText({}, kInstance, FromUtf8(mailbox.Instance())) &&
           HasText(SettingsKey(), kLogs, mailbox.LogPath().native());
}

void MakeSettings(const Mailbox& mailbox)
{
    // What an earlier mailbox in this directory has left.
    CheckRegistry(RegDeleteTreeW(HKEY_CURRENT_USER, nullptr), mailbox);
    Key(kMailClients, mailbox).Set(nullptr, kMailClient);
    const Key client(std::wstring(kMailClients) + L"\\" + kMailClient, mailbox);
    client.Set(nullptr, kMailClient);
    client.Set(L"DLLPathEx", MessageStoreModule().native());
    client.Set(L"MSIComponentID", kComponent);
    client.Set(L"MSIApplicationLCID", kComponentQualifier);
    Key(SettingsKey(), mailbox).Set(kLogs, mailbox.LogPath().native());
    // Last: it tells that the rest is there.
    Key({}, mailbox).Set(kInstance, FromUtf8(mailbox.Instance()));
}

}  // namespace quorvane::host
