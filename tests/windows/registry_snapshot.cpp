#include "tests/windows/registry_snapshot.h"

#include <stdexcept>
#include <vector>

#include "quorvane3/com.h"

namespace quorvane::test {

namespace {

constexpr DWORD kMaxName = 16384;
constexpr OLECHAR kClasses[] = L"Software\\Classes";

class SnapshotMaker {
public:
    void Add(HKEY root, const std::string& hive) { Open(root, kClasses, hive); }
    void AddKeyOfAllUsers(const std::string& path)
    {
        Open(HKEY_LOCAL_MACHINE, kClasses + (L'\\' + FromUtf8(path)), "HKLM\\" + path);
    }
    RegistrySnapshot Take() { return std::move(lines_); }

private:
    // A key that nobody may read, or that is gone meanwhile, isn't any test's.
    void Open(HKEY above, const OleString& name, const std::string& path)
    {
        HKEY key = nullptr;
        if (RegOpenKeyExW(above, name.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS)
            AddKey(key, path);
    }

    // Closes the key.
    void AddKey(HKEY key, const std::string& path)
    {
        lines_[path] = "key";
        AddValues(key, path);
        for (const OleString& name : SubkeyNames(key))
            Open(key, name, path + "\\" + ToUtf8(name));
        RegCloseKey(key);
    }

    void AddValues(HKEY key, const std::string& path)
    {
        std::vector<BYTE> data(1);
        for (DWORD index = 0;;) {
            DWORD length = kMaxName;
            DWORD type = 0;
            auto size = static_cast<DWORD>(data.size());
            const LSTATUS status =
                RegEnumValueW(key, index, name_.data(), &length, nullptr, &type, data.data(), &size);
            if (status == ERROR_MORE_DATA) {
                data.resize(size > data.size() ? size : data.size() * 2);
                continue;
            }
            if (status != ERROR_SUCCESS)
                return;
            lines_[path + " [" + ToUtf8({name_.data(), length}) + "]"] = TextOf(type, data.data(), size);
            ++index;
        }
    }

    std::vector<OleString> SubkeyNames(HKEY key)
    {
        std::vector<OleString> names;
        for (DWORD index = 0;; ++index) {
            DWORD length = kMaxName;
            const LSTATUS status =
                RegEnumKeyExW(key, index, name_.data(), &length, nullptr, nullptr, nullptr, nullptr);
            if (status != ERROR_SUCCESS)
                return names;
            names.emplace_back(name_.data(), length);
        }
    }

    static std::string TextOf(DWORD type, const BYTE* data, DWORD size)
    {
        if (type == REG_SZ) {
            OleStringView text(reinterpret_cast<const OLECHAR*>(data), size / sizeof(OLECHAR));
            return ToUtf8(text.substr(0, text.find(L'\0')));
        }
        return "type " + std::to_string(type) + ": " + std::string(data, data + size);
    }

    RegistrySnapshot lines_;
    OleString name_ = OleString(kMaxName, L'\0');
};

}  // namespace

RegistrySnapshot SnapshotOfClasses()
{
    SnapshotMaker maker;
    maker.Add(HKEY_LOCAL_MACHINE, "HKLM");
    maker.Add(HKEY_CURRENT_USER, "HKCU");
    RegistrySnapshot snapshot = maker.Take();
    if (snapshot.empty())
        throw std::runtime_error("the registry can't be read");
    return snapshot;
}

RegistrySnapshot SnapshotOfKeys(const std::set<std::string>& keys)
{
    SnapshotMaker maker;
    for (const std::string& each : keys)
        maker.AddKeyOfAllUsers(each);
    return maker.Take();
}

RegistrySnapshot Added(const RegistrySnapshot& before, const RegistrySnapshot& now)
{
    RegistrySnapshot added;
    for (const auto& [line, contents] : now) {
        const auto found = before.find(line);
        if (found == before.end() || found->second != contents)
            added[line] = contents;
    }
    return added;
}

}  // namespace quorvane::test
