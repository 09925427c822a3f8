#include "engine/session/testing/fake_mapi.h"

#include <atomic>
#include <cstdio>

#include "engine/storeaccess/testing/unimplemented.h"
#include "platform/com/com_object.h"

namespace quorvane::testing {
namespace {

std::atomic<MapiWatcher*> g_watcher{nullptr};

HRESULT Tell(const char* call)
{
    MapiWatcher* const watcher = g_watcher;
    return watcher ? watcher->OnMapiCall(call) : S_OK;
}

const char* OrNull(const char* text)
{
    return text ? text : "null";
}

class FakeSession final : public ComObject<FakeSession, UnimplementedMAPISession> {
public:
    ~FakeSession() { Tell("release of the MAPI session"); }

    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override
    {
        char call[64];
        std::snprintf(call, sizeof call, "Unadvise %u", static_cast<unsigned>(connection));
        return Tell(call);
    }
};

}  // namespace
}  // namespace quorvane::testing

using namespace quorvane::testing;

STDAPI MAPIInitialize(LPVOID init)
{
    const auto* const wanted = static_cast<const MAPIINIT_0*>(init);
    char call[64];
    std::snprintf(call, sizeof call, "MAPIInitialize %u %u", static_cast<unsigned>(wanted->ulVersion),
                  static_cast<unsigned>(wanted->ulFlags));
    return Tell(call);
}

STDAPI_(void) MAPIUninitialize()
{
    Tell("MAPIUninitialize");
}

STDAPI MAPILogonEx(ULONG_PTR window, LPTSTR profile, LPTSTR password, ULONG flags, LPMAPISESSION* session)
{
    char call[128];
    std::snprintf(call, sizeof call, "MAPILogonEx %u %s %s 0x%x", static_cast<unsigned>(window),
                  OrNull(profile), OrNull(password), static_cast<unsigned>(flags));
    const HRESULT hr = Tell(call);
    if (FAILED(hr))
        return hr;
    *session = quorvane::MakeComObject<FakeSession>().Detach();
    return *session ? S_OK : E_OUTOFMEMORY;
}

extern "C" void WatchFakeMapi(MapiWatcher* watcher)
{
    g_watcher = watcher;
}
