// A library for the tests of platform/module: one export of its own, and one by a name with an at sign.
#include <cstring>

#include "platform/module/module_exports.h"

QUORVANE_MODULE_EXPORT int PlainExport()
{
    return 11;
}

namespace {

int DecoratedExport()
{
    return 22;
}

}  // namespace

void* QuorvaneModuleExport(const char* name)
{
    return std::strcmp(name, "Decorated@8") == 0 ? reinterpret_cast<void*>(&DecoratedExport) : nullptr;
}
