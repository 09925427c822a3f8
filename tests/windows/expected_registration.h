// tests/windows/expected_registration.h: what a registered library leaves in the registry of classes.
#ifndef QUORVANE_TESTS_WINDOWS_EXPECTED_REGISTRATION_H_
#define QUORVANE_TESTS_WINDOWS_EXPECTED_REGISTRATION_H_

#include "tests/windows/object_model_page.h"
#include "tests/windows/registry_snapshot.h"

namespace quorvane::test {

class ExpectedRegistration {
public:
    // server  [in]  full path of the library.
    ExpectedRegistration(const Blocks& page, const std::string& server);

    // Classes, application, type library and interfaces.
    const RegistrySnapshot& Lines() const noexcept { return lines_; }

    // The keys that are there for the library alone, from the registry of classes on.
    std::set<std::string> Keys() const;
    // The keys of Lines that have keys below them, likewise.
    std::set<std::string> Parents() const;

    // Whether the system may write this line of its own accord: for interfaces and type libraries it knows
    // more keys than it documents, and some of them programs of 32 bits see as well.
    bool IsSystemsOwn(const std::string& line) const;

private:
    void AddKey(const std::string& key);
    void AddText(const std::string& key, const std::string& name, const std::string& text);
    void AddClass(const PageType& type, const std::string& server);
    void AddTypeLibrary(const std::string& server);
    void AddInterface(const PageType& type);

    const std::vector<PageType> types_;
    const std::string library_;
    RegistrySnapshot lines_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_WINDOWS_EXPECTED_REGISTRATION_H_
