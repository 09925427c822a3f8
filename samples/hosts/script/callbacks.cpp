// What a script hands to Logon: a class "QuorvaneSample.Callbacks" that answers the engine's calls. It lets
// the engine send all changes, and keeps the sharing database at the path in the variable
// QUORVANE_SAMPLE_DATABASE. In a library that is registered under its class identifier and threading model
// "Apartment".
#include <cstdlib>

#include "quorvane3/quorvane3.h"

namespace {

using namespace quorvane;

// {E4C7A2D0-6B19-4F35-9D88-1A5F3C7E2B64}
constexpr CLSID kCallbacksClass = {
    0xE4C7A2D0, 0x6B19, 0x4F35, {0x9D, 0x88, 0x1A, 0x5F, 0x3C, 0x7E, 0x2B, 0x64}};

class Handler final : public ExtHandler {
public:
    HRESULT DatabasePath(Bstr& path) override
    {
        const char* const file = std::getenv("QUORVANE_SAMPLE_DATABASE");
        if (!file)
            return E_FAIL;
        path = Bstr(Widen(file));
        return S_OK;
    }
    HRESULT ProductCode(Bstr& code) override
    {
        code = Bstr(OLESTR("script host"));
        return S_OK;
    }
};

class Factory final : public ComObject<Factory, IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override
    {
        *object = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        static Handler handler;  // it outlives every call
        return MakeComObject<ExtCallback>(handler)->QueryInterface(riid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object)
{
    *object = nullptr;
    if (!IsEqualGUID(clsid, kCallbacksClass))
        return CLASS_E_CLASSNOTAVAILABLE;
    return MakeComObject<Factory>()->QueryInterface(riid, object);
}
