// A library for the tests of platform/module: exports of its own, and one by a name with an at sign.
#include <cstring>

#include "platform/module/module.h"
#include "platform/module/module_exports.h"

QUORVANE_MODULE_EXPORT int PlainExport()
{
    return 11;
}

// The system directory as code in this library sees it.
QUORVANE_MODULE_EXPORT HRESULT TellSystemDirectory(std::string& path)
{
    return quorvane::SystemDirectory(path);
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
