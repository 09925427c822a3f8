#include <algorithm>
#include <new>

#include "platform/registry/registry.h"

namespace quorvane {

struct RegistryKey::State {
    HKEY key = nullptr;

    State() noexcept = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State()
    {
        if (key)
            RegCloseKey(key);
    }
};

namespace {

HKEY RootOf(RegistryHive hive) noexcept
{
    return hive == RegistryHive::CurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

// A key that was deleted while it was open is no other case than one that isn't there.
HRESULT ResultOf(LSTATUS status) noexcept
{
    return HRESULT_FROM_WIN32(
        static_cast<DWORD>(status == ERROR_KEY_DELETED ? ERROR_FILE_NOT_FOUND : status));
}

bool IsTextType(RegistryType type) noexcept
{
    return type == RegistryType::Text || type == RegistryType::ExpandableText ||
           type == RegistryType::MultiText;
}

// The value may grow between the two calls.
LSTATUS ReadBytes(HKEY key, const char* name, DWORD& type, std::string& bytes)
{
    LSTATUS status = ERROR_MORE_DATA;
    while (status == ERROR_MORE_DATA) {
        DWORD size = 0;
        status = RegQueryValueExA(key, name, nullptr, &type, nullptr, &size);
        if (status != ERROR_SUCCESS)
            return status;
        bytes.resize(size + 1);
        size = static_cast<DWORD>(bytes.size());
        status = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size);
        if (status == ERROR_SUCCESS)
            bytes.resize(size);
    }
    return status;
}

// Names by position until the system says that there are no more.
template <class NameAt>
HRESULT CollectNames(NameAt&& nameAt, std::vector<std::string>& names) noexcept
{
    constexpr DWORD kMaxName = 16384;
    try {
        std::vector<std::string> found;
        std::string buffer(kMaxName, '\0');
        for (DWORD index = 0;; ++index) {
            DWORD length = kMaxName;
            const LSTATUS status = nameAt(index, buffer.data(), &length);
            if (status == ERROR_NO_MORE_ITEMS)
                break;
            if (status != ERROR_SUCCESS)
                return ResultOf(status);
            found.emplace_back(buffer.data(), length);
        }
        std::sort(found.begin(), found.end(), [](const std::string& a, const std::string& b) {
            return lstrcmpiA(a.c_str(), b.c_str()) < 0;
        });
        names = std::move(found);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

RegistryKey::RegistryKey() noexcept = default;
RegistryKey::RegistryKey(RegistryKey&&) noexcept = default;
RegistryKey& RegistryKey::operator=(RegistryKey&&) noexcept = default;
RegistryKey::~RegistryKey() = default;

HRESULT RegistryKey::Open(RegistryHive hive, std::string_view path, RegistryAccess access) noexcept
{
    Close();
    try {
        auto opened = std::make_unique<State>();
        const REGSAM rights = access == RegistryAccess::Read ? KEY_READ : KEY_READ | KEY_WRITE;
        const LSTATUS status =
            RegOpenKeyExA(RootOf(hive), std::string(path).c_str(), 0, rights, &opened->key);
        if (status != ERROR_SUCCESS)
            return ResultOf(status);
        state_ = std::move(opened);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::Create(RegistryHive hive, std::string_view path) noexcept
{
    Close();
    try {
        auto made = std::make_unique<State>();
        const LSTATUS status = RegCreateKeyExA(RootOf(hive), std::string(path).c_str(), 0, nullptr, 0,
                                               KEY_READ | KEY_WRITE, nullptr, &made->key, nullptr);
        if (status != ERROR_SUCCESS)
            return ResultOf(status);
        state_ = std::move(made);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

void RegistryKey::Close() noexcept
{
    state_.reset();
}

HRESULT RegistryKey::Query(std::string_view name, RegistryValue& value) const noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    try {
        RegistryValue read;
        DWORD type = 0;
        const LSTATUS status = ReadBytes(state_->key, std::string(name).c_str(), type, read.bytes);
        if (status != ERROR_SUCCESS)
            return ResultOf(status);
        read.type = static_cast<RegistryType>(type);
        if (IsTextType(read.type) && (read.bytes.empty() || read.bytes.back() != '\0'))
            read.bytes += '\0';
        value = std::move(read);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::Set(std::string_view name, const RegistryValue& value) noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    try {
        return ResultOf(RegSetValueExA(
            state_->key, std::string(name).c_str(), 0, static_cast<DWORD>(value.type),
            reinterpret_cast<const BYTE*>(value.bytes.data()), static_cast<DWORD>(value.bytes.size())));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::DeleteValue(std::string_view name) noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    try {
        return ResultOf(RegDeleteValueA(state_->key, std::string(name).c_str()));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::ValueNames(std::vector<std::string>& names) const noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    HKEY const key = state_->key;
    return CollectNames(
        [key](DWORD index, char* name, DWORD* length) {
            return RegEnumValueA(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
        },
        names);
}

HRESULT RegistryKey::SubkeyNames(std::vector<std::string>& names) const noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    HKEY const key = state_->key;
    return CollectNames(
        [key](DWORD index, char* name, DWORD* length) {
            return RegEnumKeyExA(key, index, name, length, nullptr, nullptr, nullptr, nullptr);
        },
        names);
}

HRESULT RegistryKey::DeleteTree(RegistryHive hive, std::string_view path) noexcept
{
    try {
        return ResultOf(RegDeleteTreeA(RootOf(hive), std::string(path).c_str()));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
