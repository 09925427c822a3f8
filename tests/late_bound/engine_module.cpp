#include "tests/late_bound/engine_module.h"

#include <stdexcept>

#include "platform/module/module.h"
#include "tests/late_bound/page.h"
#include "tests/support/test_directory.h"

namespace quorvane::test {

namespace {

template <class Function>
void Find(const Module& module, const char* name, Function& function)
{
    function = module.Find<Function>(name);
    if (!function)
        throw std::runtime_error(std::string("the library does not export ") + name);
}

}  // namespace

std::string EngineModule::Path()
{
    return QUORVANE_ENGINE;
}

EngineModule::EngineModule()
{
    Module module;
    Check(module.Load(QUORVANE_ENGINE), "load the library");
    Find(module, "DllGetClassObject", getClassObject_);
    Find(module, "DllCanUnloadNow", canUnloadNow_);
    Find(module, "DllRegisterServer", registerServer_);
    Find(module, "DllUnregisterServer", unregisterServer_);
}

const EngineModule& EngineModule::Instance()
{
    static const EngineModule instance;
    return instance;
}

ComPtr<IDispatch> EngineModule::Create(const std::string& className) const
{
    ComPtr<IClassFactory> factory;
    Check(GetClassObject(Page::Instance().Class(className).id, IID_IClassFactory, factory.PutVoid()),
          "get a class factory");
    ComPtr<IDispatch> object;
    Check(factory->CreateInstance(nullptr, IID_IDispatch, object.PutVoid()), "make an object");
    return object;
}

}  // namespace quorvane::test
