// A library for tests that exports any names it is told to: those in FAKE_EXPORTS, with a blank after each.
// What stands at an export is its own name as a text, so that a test sees which one was found.
#include <cstdlib>
#include <set>
#include <string>

#include "platform/module/module_exports.h"

QUORVANE_MODULE_EXPORT void* QuorvaneModuleExport(const char* name)
{
    static std::set<std::string> found;
    const char* const exports = std::getenv("FAKE_EXPORTS");
    if (!exports || (" " + std::string(exports)).find(" " + std::string(name) + " ") == std::string::npos)
        return nullptr;
    return const_cast<char*>(found.emplace(name).first->c_str());
}
