#include "platform/registry/registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/file/file.h"
#include "platform/file/path.h"
#include "platform/file/system_error.h"
#include "platform/registry/registry_text.h"

namespace quorvane {

namespace {

constexpr std::uint64_t kMaxFileSize = std::uint64_t{64} << 20;
constexpr size_t kMaxNameLength = 255;
constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

HRESULT FileOfHive(RegistryHive hive, std::string& path)
{
    if (hive == RegistryHive::LocalMachine) {
        const char* const chosen = std::getenv("QUORVANE_MACHINE_REGISTRY");
        path = chosen && *chosen ? chosen : "/etc/quorvane3/registry.reg";
        return S_OK;
    }
    std::string directory;
    const HRESULT hr = ConfigDirectory(directory);
    if (SUCCEEDED(hr))
        path = JoinPath(JoinPath(directory, "quorvane3"), "registry.reg");
    return hr;
}

// A name between backslashes: of some length, and nothing that would break a line of the file.
bool IsKeyName(std::string_view name) noexcept
{
    if (name.empty() || name.size() > kMaxNameLength)
        return false;
    for (const char c : name) {
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
    }
    return true;
}

// The whole path of a key; false when it can't be one.
bool WholePath(RegistryHive hive, std::string_view path, std::string& whole)
{
    whole = hive == RegistryHive::CurrentUser ? "HKEY_CURRENT_USER" : "HKEY_LOCAL_MACHINE";
    if (!path.empty() && path.back() == '\\')
        path.remove_suffix(1);
    while (!path.empty()) {
        const size_t end = path.find('\\');
        const std::string_view name = path.substr(0, end);
        if (!IsKeyName(name))
            return false;
        (whole += '\\') += name;
        if (end == std::string_view::npos)
            break;
        path.remove_prefix(end + 1);
        if (path.empty())
            return false;
    }
    return true;
}

// What the file says now. A missing file, or one that is something else, has no keys.
HRESULT ReadHive(const std::string& file, RegistryText& keys)
{
    std::string text;
    const HRESULT hr = ReadWholeFile(file, kMaxFileSize, text);
    if (hr == kNotFound || hr == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND))
        return S_OK;
    if (SUCCEEDED(hr))
        keys.Parse(text);
    return hr;
}

HRESULT CheckWritable(const std::string& file)
{
    const std::string directory(DirectoryOf(file));
    const bool replaceable = access(directory.c_str(), W_OK) == 0;
    return replaceable && access(file.c_str(), W_OK) == 0 ? S_OK : LastSystemError();
}

// Keeps other writers out from the reading of a file to its replacement.
class WriteLock {
public:
    WriteLock() noexcept = default;
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;
    ~WriteLock()
    {
        if (file_ >= 0)
            close(file_);
    }

    HRESULT Take(const std::string& path) noexcept
    {
        file_ = open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
        if (file_ < 0)
            return LastSystemError();
        int result = 0;
        do
            result = flock(file_, LOCK_EX);
        while (result != 0 && errno == EINTR);
        return result == 0 ? S_OK : LastSystemError();
    }

private:
    int file_ = -1;
};

// Reads a hive, lets `change(RegistryText&)` change it, and writes it back if that gives S_OK. A file that
// isn't an export is not written over.
template <class Change>
HRESULT ChangeHive(RegistryHive hive, Change&& change) noexcept
{
    try {
        std::string file;
        HRESULT hr = FileOfHive(hive, file);
        if (SUCCEEDED(hr))
            hr = MakeDirectories(std::string(DirectoryOf(file)));
        WriteLock lock;
        if (SUCCEEDED(hr))
            hr = lock.Take(file + ".lock");
        if (FAILED(hr))
            return hr;
        RegistryText keys;
        std::string text;
        if (PathExists(file)) {
            hr = ReadWholeFile(file, kMaxFileSize, text);
            if (FAILED(hr))
                return hr;
            if (!text.empty() && !keys.Parse(text))
                return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
        }
        hr = change(keys);
        return hr == S_OK ? ReplaceWholeFile(file, keys.Format()) : hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

struct RegistryKey::State {
    RegistryHive hive;
    RegistryAccess access;
    std::string path;

    // S_OK, or ERROR_FILE_NOT_FOUND when the key is gone.
    HRESULT Read(RegistryText& keys) const
    {
        std::string file;
        HRESULT hr = FileOfHive(hive, file);
        if (SUCCEEDED(hr))
            hr = ReadHive(file, keys);
        if (FAILED(hr))
            return hr;
        const bool isRoot = path.find('\\') == std::string::npos;
        return isRoot || keys.HasKey(path) ? S_OK : kNotFound;
    }
};

RegistryKey::RegistryKey() noexcept = default;
RegistryKey::RegistryKey(RegistryKey&&) noexcept = default;
RegistryKey& RegistryKey::operator=(RegistryKey&&) noexcept = default;
RegistryKey::~RegistryKey() = default;

HRESULT RegistryKey::Open(RegistryHive hive, std::string_view path, RegistryAccess access) noexcept
{
    Close();
    try {
        auto opened = std::make_unique<State>(State{hive, access, {}});
        if (!WholePath(hive, path, opened->path))
            return kNotFound;
        RegistryText keys;
        HRESULT hr = opened->Read(keys);
        if (SUCCEEDED(hr) && access == RegistryAccess::ReadWrite) {
            std::string file;
            hr = FileOfHive(hive, file);
            if (SUCCEEDED(hr) && PathExists(file))
                hr = CheckWritable(file);
        }
        if (SUCCEEDED(hr))
            state_ = std::move(opened);
        return hr;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::Create(RegistryHive hive, std::string_view path) noexcept
{
    Close();
    try {
        auto made = std::make_unique<State>(State{hive, RegistryAccess::ReadWrite, {}});
        if (!WholePath(hive, path, made->path))
            return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
        const HRESULT hr = ChangeHive(hive, [&](RegistryText& keys) -> HRESULT {
            if (keys.HasKey(made->path))
                return S_FALSE;
            keys.MakeKey(made->path);
            return S_OK;
        });
        if (FAILED(hr))
            return hr;
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
        RegistryText keys;
        const HRESULT hr = state_->Read(keys);
        if (FAILED(hr))
            return hr;
        const RegistryText::Values* const values = keys.FindValues(state_->path);
        if (!values)
            return kNotFound;
        const auto found = values->find(FoldedName(name));
        if (found == values->end())
            return kNotFound;
        value = found->second.value;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::Set(std::string_view name, const RegistryValue& value) noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    if (state_->access != RegistryAccess::ReadWrite)
        return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    if (!name.empty() && !IsKeyName(name))
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    return ChangeHive(state_->hive, [&](RegistryText& keys) -> HRESULT {
        const bool isRoot = state_->path.find('\\') == std::string::npos;
        if (!isRoot && !keys.HasKey(state_->path))
            return kNotFound;
        keys.MakeKey(state_->path)[FoldedName(name)] = RegistryText::Value{std::string(name), value};
        return S_OK;
    });
}

HRESULT RegistryKey::DeleteValue(std::string_view name) noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    if (state_->access != RegistryAccess::ReadWrite)
        return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    return ChangeHive(state_->hive, [&](RegistryText& keys) -> HRESULT {
        if (!keys.FindValues(state_->path))
            return kNotFound;
        return keys.MakeKey(state_->path).erase(FoldedName(name)) != 0 ? S_OK : kNotFound;
    });
}

HRESULT RegistryKey::ValueNames(std::vector<std::string>& names) const noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    try {
        RegistryText keys;
        const HRESULT hr = state_->Read(keys);
        if (FAILED(hr))
            return hr;
        std::vector<std::string> found;
        if (const RegistryText::Values* const values = keys.FindValues(state_->path)) {
            for (const auto& [folded, value] : *values)
                found.push_back(value.name);
        }
        names = std::move(found);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::SubkeyNames(std::vector<std::string>& names) const noexcept
{
    if (!state_)
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    try {
        RegistryText keys;
        const HRESULT hr = state_->Read(keys);
        if (FAILED(hr))
            return hr;
        names = keys.SubkeyNames(state_->path);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT RegistryKey::DeleteTree(RegistryHive hive, std::string_view path) noexcept
{
    try {
        std::string whole;
        if (!WholePath(hive, path, whole))
            return kNotFound;
        return ChangeHive(
            hive, [&](RegistryText& keys) -> HRESULT { return keys.RemoveKey(whole) ? S_OK : kNotFound; });
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace quorvane
