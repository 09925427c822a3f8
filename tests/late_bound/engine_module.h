// tests/late_bound/engine_module.h: the library `quorvane3`, loaded at run time.
#ifndef QUORVANE_TESTS_LATE_BOUND_ENGINE_MODULE_H_
#define QUORVANE_TESTS_LATE_BOUND_ENGINE_MODULE_H_

#include <string>

#include "quorvane3/com.h"

namespace quorvane::test {

// Stays loaded until the process ends. Throws std::runtime_error.
class EngineModule {
public:
    static const EngineModule& Instance();

    static std::string Path();

    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** object) const
    {
        return getClassObject_(clsid, riid, object);
    }
    HRESULT CanUnloadNow() const { return canUnloadNow_(); }
    HRESULT RegisterServer() const { return registerServer_(); }
    HRESULT UnregisterServer() const { return unregisterServer_(); }

    // An object of a class of the page, as its IDispatch.
    ComPtr<IDispatch> Create(const std::string& className) const;

private:
    EngineModule();

    HRESULT(STDAPICALLTYPE* getClassObject_)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(STDAPICALLTYPE* canUnloadNow_)() = nullptr;
    HRESULT(STDAPICALLTYPE* registerServer_)() = nullptr;
    HRESULT(STDAPICALLTYPE* unregisterServer_)() = nullptr;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_LATE_BOUND_ENGINE_MODULE_H_
