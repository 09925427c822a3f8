// A class "QuorvaneTests.Host" for scripts: a host's callbacks, which a script can't implement itself. From
// its making on the process's user has the settings of a directory of the tests' (QUORVANE_TEST_SETTINGS);
// the sharing database is the file that QUORVANE_TEST_DATABASE names.
#include <cstdlib>

#include "platform/testing/surroundings.h"
#include "quorvane3/quorvane3.h"

namespace quorvane::test {
namespace {

// {6D1A5E0B-93C4-4F7A-8B52-C0E97A3D4F18}
constexpr CLSID kHostClass = {0x6D1A5E0B, 0x93C4, 0x4F7A, {0x8B, 0x52, 0xC0, 0xE9, 0x7A, 0x3D, 0x4F, 0x18}};

class ScriptHost final : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr& path) override
    {
        path = Bstr(Widen(std::getenv("QUORVANE_TEST_DATABASE")));
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OLESTR("Tests"));
        return S_OK;
    }
};

class HostFactory final : public ComObject<HostFactory, IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override
    {
        *object = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        static ScriptHost host;
        KeepSettingsIn(std::getenv("QUORVANE_TEST_SETTINGS"));
        return MakeComObject<ExtCallback>(host)->QueryInterface(riid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace
}  // namespace quorvane::test

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object)
{
    *object = nullptr;
    if (!IsEqualGUID(clsid, quorvane::test::kHostClass))
        return CLASS_E_CLASSNOTAVAILABLE;
    return quorvane::MakeComObject<quorvane::test::HostFactory>()->QueryInterface(riid, object);
}
