// tests/support/packages.h: storage files, as a transport handles them.
#ifndef QUORVANE_TESTS_SUPPORT_PACKAGES_H_
#define QUORVANE_TESTS_SUPPORT_PACKAGES_H_

#include <filesystem>
#include <optional>
#include <string>

#include "tests/support/test_host.h"

namespace quorvane::test {

// How many elements a package holds in "Items" and in "Folders"; none when it can't be read whole
// now, as while it is being written.
struct PackageCount {
    size_t items = 0;
    size_t folders = 0;
};
std::optional<PackageCount> CountPackage(const std::filesystem::path& path);

// The path of the package for these recipients, if there is one.
std::optional<std::filesystem::path> FindPackage(TestLogon& from, const std::string& recipients);

// Waits until the package holds so many items, takes it from the sender's list and carries it to a mailbox's
// inbox. Throws std::runtime_error when the deadline passes first.
std::filesystem::path TakePackage(TestLogon& from, const std::string& recipients, size_t items,
                                  const TestMailbox& to);

// Hands a package over and waits until the engine is done with it, which deletes it.
void Process(TestLogon& to, const std::filesystem::path& package, const std::string& tag);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_PACKAGES_H_
