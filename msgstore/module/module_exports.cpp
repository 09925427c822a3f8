#include "platform/module/module_exports.h"

#include <string_view>

#include "platform/mapi/mapi.h"

namespace {

struct DecoratedExport {
    std::string_view name;
    void* function;
};

template <class Function>
void* AddressOf(Function* function) noexcept
{
    return reinterpret_cast<void*>(function);
}

}  // namespace

// MAPI's libraries know three functions under their decorated names alone.
void* QuorvaneModuleExport(const char* name)
{
    const DecoratedExport exports[] = {
        {"ScCountNotifications@12", AddressOf(ScCountNotifications)},
        {"ScCopyNotifications@16", AddressOf(ScCopyNotifications)},
        {"HrThisThreadAdviseSink@8", AddressOf(HrThisThreadAdviseSink)},
    };
    for (const DecoratedExport& known : exports) {
        if (name && known.name == name)
            return known.function;
    }
    return nullptr;
}
