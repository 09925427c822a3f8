// platform/com/iid.h: the interface identifier of a type, at compile time.
#ifndef QUORVANE_PLATFORM_COM_IID_H_
#define QUORVANE_PLATFORM_COM_IID_H_

#include <type_traits>

#include "platform/com/com.h"

namespace quorvane {

// Tells the proxies of platform/com/apartment.h that an interface has IDispatch's seven slots and no more.
// Does nothing on Windows. Any thread may call.
void DeclareDispatchInterface(REFIID riid) noexcept;

// Specialised through QUORVANE_IID for every interface that ComPtr or ComObject deals with.
template <class Interface>
struct IidOf;

namespace detail {

// Stays abstract if `Interface` has a slot of its own behind IDispatch's.
template <class Interface>
struct DispatchSlots : Interface {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
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

template <class Interface>
constexpr bool IsDispatchOnly() noexcept
{
    if constexpr (std::is_base_of_v<IDispatch, Interface> && std::is_abstract_v<Interface>)
        return !std::is_abstract_v<DispatchSlots<Interface>>;
    else
        return false;
}

template <class Interface>
struct DispatchDeclaration {
    DispatchDeclaration() noexcept { DeclareDispatchInterface(IidOf<Interface>::Value()); }
    static inline const DispatchDeclaration instance{};
};

}  // namespace detail

// Code that uses the identifier of a dispatch-only interface declares it as such when its module is loaded.
template <class Interface>
const IID& Iid() noexcept
{
    if constexpr (detail::IsDispatchOnly<Interface>())
        static_cast<void>(&detail::DispatchDeclaration<Interface>::instance);
    return IidOf<Interface>::Value();
}

}  // namespace quorvane

// At namespace scope, outside of any namespace: states that `type` is identified by `iid`.
#define QUORVANE_IID(type, iid)                            \
    template <>                                            \
    struct quorvane::IidOf<type> {                         \
        static const IID& Value() noexcept { return iid; } \
    }

QUORVANE_IID(IUnknown, IID_IUnknown);
QUORVANE_IID(IClassFactory, IID_IClassFactory);
QUORVANE_IID(IMalloc, IID_IMalloc);
QUORVANE_IID(IDispatch, IID_IDispatch);
QUORVANE_IID(IEnumVARIANT, IID_IEnumVARIANT);
QUORVANE_IID(IErrorInfo, IID_IErrorInfo);
QUORVANE_IID(ICreateErrorInfo, IID_ICreateErrorInfo);
QUORVANE_IID(ISupportErrorInfo, IID_ISupportErrorInfo);
QUORVANE_IID(IConnectionPoint, IID_IConnectionPoint);
QUORVANE_IID(IConnectionPointContainer, IID_IConnectionPointContainer);
QUORVANE_IID(IEnumConnectionPoints, IID_IEnumConnectionPoints);
QUORVANE_IID(IEnumConnections, IID_IEnumConnections);
QUORVANE_IID(IPersist, IID_IPersist);
QUORVANE_IID(IPersistStorage, IID_IPersistStorage);
QUORVANE_IID(IPersistStreamInit, IID_IPersistStreamInit);
QUORVANE_IID(ISequentialStream, IID_ISequentialStream);
QUORVANE_IID(IStream, IID_IStream);
QUORVANE_IID(IStorage, IID_IStorage);
QUORVANE_IID(IEnumSTATSTG, IID_IEnumSTATSTG);
QUORVANE_IID(ILockBytes, IID_ILockBytes);
QUORVANE_IID(IGlobalInterfaceTable, IID_IGlobalInterfaceTable);
QUORVANE_IID(IMarshal, IID_IMarshal);

#endif  // QUORVANE_PLATFORM_COM_IID_H_
