// tests/windows/object_model_page.h: docs/object-model.txt, which tells what the system must be told too.
#ifndef QUORVANE_TESTS_WINDOWS_OBJECT_MODEL_PAGE_H_
#define QUORVANE_TESTS_WINDOWS_OBJECT_MODEL_PAGE_H_

#include <map>
#include <string>
#include <vector>

#include "quorvane3/com.h"

namespace quorvane::test {

// A line that isn't indented, and the indented lines below it without their indent.
using Blocks = std::map<std::string, std::vector<std::string>>;

// The page without comments and empty lines. Throws std::runtime_error when there is no page.
Blocks ReadObjectModelPage();

struct PageType {
    std::string kind;  // "dual", "callback", "source" or "class"
    std::string name;
    std::string id;         // in braces
    std::string threading;  // a class's
    bool creatable = false;

    GUID Guid() const;
};

// The types that have an identifier.
std::vector<PageType> TypesOf(const Blocks& page);
// Those of one kind.
std::vector<PageType> TypesOf(const Blocks& page, const std::string& kind);

// The identifier of the library, in braces.
std::string LibraryIdOf(const Blocks& page);

// A class's line without its threading model, of which a type library says nothing.
std::string WithoutThreading(const std::string& line);

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_WINDOWS_OBJECT_MODEL_PAGE_H_
