// platform/com/dispatch.h: late binding of dual interfaces, from one table of operations for each.
//
// An interface gets its table once, by a specialisation (arguments in the order of the slot's parameters):
//
//   template <>
//   struct quorvane::OperationsOf<IFolders> {
//       static constexpr Operation kTable[] = {
//           Get<&IFolders::get__NewEnum>(DISPID_NEWENUM, OLESTR("_NewEnum")),
//           Get<&IFolders::get_Item>(DISPID_VALUE, OLESTR("Item"), In(OLESTR("Index"))),
//           Get<&IFolders::get_Count>(1, OLESTR("Count")),
//           Method<&IFolders::Add>(2, OLESTR("Add"), In(OLESTR("EntryID")), In(OLESTR("StoreID")),
//                                  Optional(OLESTR("ID")), Optional(OLESTR("ProgressBar")),
//                                  Result(OLESTR("pVal"))),
//       };
//   };
//
// and a class gets IDispatch's four methods by listing the interface as DispatchImpl<IFolders>:
//
//   class CFolders final : public ComObject<CFolders, DispatchImpl<IFolders>, ISupportErrorInfo>
//
// which answers IID_IFolders and IID_IDispatch. Argument and result types come from the slot's signature:
//
//   parameter                      in a VARIANT
//   BSTR                           VT_BSTR
//   LONG, an enumeration; ULONG    VT_I4; VT_UI4
//   VARIANT_BOOL (any SHORT)       VT_BOOL
//   double                         VT_R8
//   VARIANT                        as it is
//   IUnknown*                      VT_UNKNOWN
//   other interface pointer        VT_DISPATCH; asked for that interface; may be null
//   SAFEARRAY*                     VT_ARRAY | VT_VARIANT
//   pointer to one of these        a result (the last parameter), or [in,out]: by reference or a copy
#ifndef QUORVANE_PLATFORM_COM_DISPATCH_H_
#define QUORVANE_PLATFORM_COM_DISPATCH_H_

#include <array>
#include <cstddef>
#include <span>

#include "platform/com/com_object.h"
#include "platform/com/dispatch_arguments.h"

namespace quorvane {

enum class ArgumentKind : std::uint8_t { In, Optional, InOut, Result };

struct Argument {
    const OLECHAR* name = nullptr;
    ArgumentKind kind = ArgumentKind::In;
    // Optional: what an absent number, VARIANT_BOOL or enumeration takes. An absent VARIANT is VT_ERROR with
    // DISP_E_PARAMNOTFOUND, an absent text or pointer is null.
    LONG absentValue = 0;
};

constexpr Argument In(const OLECHAR* name) noexcept
{
    return {name, ArgumentKind::In, 0};
}
constexpr Argument Optional(const OLECHAR* name, LONG absentValue = 0) noexcept
{
    return {name, ArgumentKind::Optional, absentValue};
}
constexpr Argument InOut(const OLECHAR* name) noexcept
{
    return {name, ArgumentKind::InOut, 0};
}
// The [out,retval] parameter, which is the last one and no argument of a late-bound call.
constexpr Argument Result(const OLECHAR* name) noexcept
{
    return {name, ArgumentKind::Result, 0};
}

enum class OperationKind : WORD {
    Method = DISPATCH_METHOD,
    Get = DISPATCH_PROPERTYGET,
    Put = DISPATCH_PROPERTYPUT,
};

// One slot of an interface.
struct Operation {
    static constexpr size_t kMaxArguments = DispatchFrame::kMaxParameters;

    DISPID id = 0;
    const OLECHAR* name = nullptr;
    OperationKind kind = OperationKind::Method;
    std::array<Argument, kMaxArguments> arguments{};
    size_t parameterCount = 0;
    HRESULT (*call)(void* object, const Operation& operation, DispatchFrame& frame) = nullptr;

    constexpr bool HasResult() const noexcept
    {
        return parameterCount > 0 && arguments[parameterCount - 1].kind == ArgumentKind::Result;
    }
    // Without the result.
    constexpr size_t ArgumentCount() const noexcept { return parameterCount - (HasResult() ? 1 : 0); }
};

// Specialised for each dual interface: `static constexpr Operation kTable[]`.
template <class Interface>
struct OperationsOf;

namespace detail {

template <auto Slot>
struct SlotCall;

// The call of one slot with arguments taken from a frame.
template <class Interface, class... Parameters, HRESULT (STDMETHODCALLTYPE Interface::*Slot)(Parameters...)>
struct SlotCall<Slot> {
    static constexpr size_t kCount = sizeof...(Parameters);

    static HRESULT Call(void* object, const Operation& operation, DispatchFrame& frame)
    {
        return Call(static_cast<Interface*>(object), operation, frame,
                    std::index_sequence_for<Parameters...>());
    }

private:
    template <size_t... I>
    static HRESULT Call(Interface* object, [[maybe_unused]] const Operation& operation,
                        [[maybe_unused]] DispatchFrame& frame, std::index_sequence<I...>)
    {
        std::tuple<ParameterSlot<Parameters>...> slots;
        HRESULT hr = S_OK;
        static_cast<void>(
            (SUCCEEDED(hr = std::get<I>(slots).Load(frame, I, operation.arguments[I].absentValue)) && ...));
        if (FAILED(hr))
            return hr;
        hr = (object->*Slot)(std::get<I>(slots).Pass()...);
        if (FAILED(hr))
            return frame.Failed(hr);
        HRESULT stored = S_OK;
        static_cast<void>((SUCCEEDED(stored = std::get<I>(slots).Store(frame, I)) && ...));
        return FAILED(stored) ? stored : hr;
    }
};

template <auto Slot, class... Arguments>
constexpr Operation MakeOperation(OperationKind kind, DISPID id, const OLECHAR* name, Arguments... arguments)
{
    static_assert(SlotCall<Slot>::kCount == sizeof...(Arguments), "name every parameter of the slot");
    static_assert(sizeof...(Arguments) <= Operation::kMaxArguments);
    return {id, name, kind, {arguments...}, sizeof...(Arguments), &SlotCall<Slot>::Call};
}

}  // namespace detail

template <auto Slot, class... Arguments>
constexpr Operation Method(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    return detail::MakeOperation<Slot>(OperationKind::Method, id, name, arguments...);
}

// The last parameter, the value, is left out of the list.
template <auto Slot, class... Arguments>
constexpr Operation Get(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    return detail::MakeOperation<Slot>(OperationKind::Get, id, name, arguments..., Result(OLESTR("pVal")));
}

// The last parameter, the new value, is left out of the list.
template <auto Slot, class... Arguments>
constexpr Operation Put(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    return detail::MakeOperation<Slot>(OperationKind::Put, id, name, arguments..., In(OLESTR("newVal")));
}

namespace detail {

// IDispatch's rules over a table. `object` is the interface whose table it is.
HRESULT FindDispatchIds(std::span<const Operation> table, REFIID riid, LPOLESTR* names, UINT count,
                        DISPID* ids) noexcept;
HRESULT InvokeOperation(std::span<const Operation> table, void* object, DISPID id, REFIID riid, WORD flags,
                        DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                        UINT* argumentError) noexcept;

}  // namespace detail

// IDispatch for one dual interface.
//
// GetTypeInfoCount: 0. GetTypeInfo: DISP_E_BADINDEX for any index.
//
// GetIDsOfNames: names[0] is an operation's, the rest are its arguments', in any case; an argument's id is
// its place.
//   DISP_E_UNKNOWNNAME: one isn't known; its id is DISPID_UNKNOWN, the others are given.
//   DISP_E_UNKNOWNINTERFACE.
//
// Invoke:
//   DISP_E_UNKNOWNINTERFACE   `riid` isn't IID_NULL.
//   DISP_E_MEMBERNOTFOUND     no operation of that id and kind.
//   DISP_E_BADPARAMCOUNT      more arguments than parameters, or the same one twice.
//   DISP_E_PARAMNOTOPTIONAL   an argument without a default is absent.
//   DISP_E_PARAMNOTFOUND      a named argument that there isn't; *argumentError tells which.
//   DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW   an argument can't be changed to its parameter's type; likewise.
//   DISP_E_EXCEPTION          the operation failed and set error info: `exception` has its texts, and in
//   scode
//                             the operation's result. Without `exception` the result itself is returned and
//                             the error info stays on the thread.
//   others                    the operation's own result.
template <class Interface>
class DispatchImpl : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        if (!count)
            return E_POINTER;
        *count = 0;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override
    {
        if (!info)
            return E_POINTER;
        *info = nullptr;
        return DISP_E_BADINDEX;
    }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID,
                                            DISPID* ids) override
    {
        return detail::FindDispatchIds(OperationsOf<Interface>::kTable, riid, names, count, ids);
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        return detail::InvokeOperation(OperationsOf<Interface>::kTable, static_cast<Interface*>(this), id,
                                       riid, flags, params, result, exception, argumentError);
    }

protected:
    ~DispatchImpl() = default;
};

namespace detail {

template <class Interface>
struct InterfaceEntry<DispatchImpl<Interface>> {
    using Type = DispatchImpl<Interface>;
    template <class Derived>
    static void* Find(Derived* self, REFIID riid) noexcept
    {
        const bool asked = IsEqualIID(riid, Iid<Interface>()) || IsEqualIID(riid, IID_IDispatch);
        return asked ? static_cast<Interface*>(static_cast<Type*>(self)) : nullptr;
    }
};

}  // namespace detail

// Calls a dispatch-style interface, from the caller's side.
//
// object     [in]   called as it is; E_POINTER when null.
// flags      [in]   DISPATCH_METHOD, DISPATCH_PROPERTYGET or DISPATCH_PROPERTYPUT.
// arguments  [in]   in the order of the parameters; borrowed for the call.
// result     [out]  null if none is wanted; VT_EMPTY after a failure.
//
// DISP_E_EXCEPTION is resolved into the code that the other side gave (E_FAIL if it gave none).
[[nodiscard]] HRESULT InvokeById(IDispatch* object, DISPID id, WORD flags, std::span<const VARIANT> arguments,
                                 Variant* result = nullptr) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_DISPATCH_H_
