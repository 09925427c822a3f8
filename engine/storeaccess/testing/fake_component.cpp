// A mail client's own MAPI component for tests: a few functions, most of them under decorated names.
#include <cstring>

#include "platform/mapi/mapi.h"
#include "platform/module/module_exports.h"

extern "C" HRESULT MAPIInitialize(LPVOID)
{
    return static_cast<HRESULT>(0x000A0001);
}

namespace {

HRESULT ComponentGetOneProp(LPMAPIPROP, ULONG, LPSPropValue*)
{
    return static_cast<HRESULT>(0x000A0002);
}

HRESULT ComponentCountNotifications(INT, LPNOTIFICATION, ULONG*)
{
    return static_cast<HRESULT>(0x000A0003);
}

HRESULT ComponentThreadAdviseSink(LPMAPIADVISESINK, LPMAPIADVISESINK*)
{
    return static_cast<HRESULT>(0x000A0004);
}

}  // namespace

QUORVANE_MODULE_EXPORT void* QuorvaneModuleExport(const char* name)
{
    if (std::strcmp(name, "HrGetOneProp@12") == 0)
        return reinterpret_cast<void*>(&ComponentGetOneProp);
    if (std::strcmp(name, "ScCountNotifications@12") == 0)
        return reinterpret_cast<void*>(&ComponentCountNotifications);
    if (std::strcmp(name, "HrThisThreadAdviseSink@8") == 0)
        return reinterpret_cast<void*>(&ComponentThreadAdviseSink);
    return nullptr;
}
