// tests/windows/registry_snapshot.h: the registry of classes at one moment.
#ifndef QUORVANE_TESTS_WINDOWS_REGISTRY_SNAPSHOT_H_
#define QUORVANE_TESTS_WINDOWS_REGISTRY_SNAPSHOT_H_

#include <cstring>
#include <map>
#include <set>
#include <string>

namespace quorvane::test {

// The registry's names have no case.
struct RegistryNameLess {
    bool operator()(const std::string& left, const std::string& right) const noexcept
    {
        return _stricmp(left.c_str(), right.c_str()) < 0;
    }
};

// A line for each key below Software\Classes, "HKLM\CLSID\{...}", and for each of its values, the same with
// " [name]" behind it (the default value has no name), with what it says.
using RegistrySnapshot = std::map<std::string, std::string, RegistryNameLess>;

// Of everything, for all users and for the current one. Throws std::runtime_error.
RegistrySnapshot SnapshotOfClasses();

// Of some keys and what is below them, as programs of 64 bits see them for all users.
RegistrySnapshot SnapshotOfKeys(const std::set<std::string>& keys);

// The lines of `now` that `before` doesn't have, or has otherwise.
RegistrySnapshot Added(const RegistrySnapshot& before, const RegistrySnapshot& now);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_WINDOWS_REGISTRY_SNAPSHOT_H_
