// platform/testing/unimplemented_dispatch.h: a base for automation objects: every operation answers
// E_NOTIMPL.
#ifndef QUORVANE_PLATFORM_TESTING_UNIMPLEMENTED_DISPATCH_H_
#define QUORVANE_PLATFORM_TESTING_UNIMPLEMENTED_DISPATCH_H_

#include "platform/com/com.h"
#include "platform/com/iid.h"

namespace quorvane::test {

template <class Interface>
class UnimplementedDispatchOf : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override
    {
        return E_NOTIMPL;
    }
};
using UnimplementedDispatch = UnimplementedDispatchOf<IDispatch>;

}  // namespace quorvane::test

QUORVANE_IID(quorvane::test::UnimplementedDispatch, IID_IDispatch);

#endif  // QUORVANE_PLATFORM_TESTING_UNIMPLEMENTED_DISPATCH_H_
