#include "platform/module/module_exports.h"
#include "platform/testing/form/test_form.h"

namespace quorvane::test {
namespace {

TestForms forms;

class FormFactory final : public ComObject<FormFactory, IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override
    {
        *object = nullptr;
        if (outer)
            return CLASS_E_NOAGGREGATION;
        return MakeComObject<TestForm>(forms)->QueryInterface(riid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace
}  // namespace quorvane::test

QUORVANE_MODULE_EXPORT quorvane::test::TestForms* TestFormsHere();

quorvane::test::TestForms* TestFormsHere()
{
    return &quorvane::test::forms;
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID riid, void** object)
{
    *object = nullptr;
    if (!IsEqualGUID(clsid, quorvane::test::kTestFormClass))
        return CLASS_E_CLASSNOTAVAILABLE;
    return quorvane::MakeComObject<quorvane::test::FormFactory>()->QueryInterface(riid, object);
}
