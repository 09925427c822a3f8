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
#include <cstring>
#include <span>

#include "platform/com/class_factory.h"
#include "platform/com/com_object.h"
#include "platform/com/dispatch_arguments.h"
#include "platform/com/type_info.h"

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

// One slot of an interface, or one identifier of a dispatch-only one.
struct Operation {
    static constexpr size_t kMaxArguments = DispatchFrame::kMaxParameters;

    DISPID id = 0;
    const OLECHAR* name = nullptr;
    OperationKind kind = OperationKind::Method;
    std::array<Argument, kMaxArguments> arguments{};
    std::array<ParameterType, kMaxArguments> types{};
    size_t parameterCount = 0;
    // Both null for an operation that was Declared.
    HRESULT (*call)(void* object, const Operation& operation, DispatchFrame& frame) = nullptr;
    size_t (*slot)() noexcept = nullptr;  // place in the interface's vtable, from 0 for QueryInterface
    const OLECHAR* help = nullptr;

    constexpr Operation WithHelp(const OLECHAR* text) const noexcept
    {
        Operation result = *this;
        result.help = text;
        return result;
    }

    constexpr bool HasResult() const noexcept
    {
        return parameterCount > 0 && arguments[parameterCount - 1].kind == ArgumentKind::Result;
    }
    // Without the result.
    constexpr size_t ArgumentCount() const noexcept { return parameterCount - (HasResult() ? 1 : 0); }
    // Whether this puts a property whose value can be an object.
    constexpr bool PutsObject() const noexcept
    {
        return kind == OperationKind::Put && CanHoldObject(types[parameterCount - 1].type);
    }
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

    static constexpr std::array<ParameterType, sizeof...(Parameters)> kTypes{TypeOf<Parameters>()...};

    static HRESULT Call(void* object, const Operation& operation, DispatchFrame& frame)
    {
        return Call(static_cast<Interface*>(object), operation, frame,
                    std::index_sequence_for<Parameters...>());
    }

    // In the C++ ABI of our compilers a pointer to a virtual function holds its offset in the vtable, in
    // bytes; a mark that it is virtual may stand in the lowest bit.
    static size_t Number() noexcept
    {
        const auto pointer = Slot;
        std::array<size_t, 2> words{};
        static_assert(sizeof pointer == sizeof words);
        std::memcpy(words.data(), &pointer, sizeof words);
        return words[0] / sizeof(void*);
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

template <size_t Count, class... Arguments>
constexpr Operation Describe(OperationKind kind, DISPID id, const OLECHAR* name,
                             const std::array<ParameterType, Count>& types, Arguments... arguments)
{
    static_assert(Count == sizeof...(Arguments), "name every parameter of the slot");
    static_assert(Count <= Operation::kMaxArguments);
    Operation result{id, name, kind, {arguments...}, {}, Count};
    for (size_t i = 0; i < Count; ++i)
        result.types[i] = types[i];
    return result;
}

template <auto Slot, class... Arguments>
constexpr Operation MakeOperation(OperationKind kind, DISPID id, const OLECHAR* name, Arguments... arguments)
{
    Operation result = Describe(kind, id, name, SlotCall<Slot>::kTypes, arguments...);
    result.call = &SlotCall<Slot>::Call;
    result.slot = &SlotCall<Slot>::Number;
    return result;
}

}  // namespace detail

template <auto Slot, class... Arguments>
constexpr Operation Method(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    return detail::MakeOperation<Slot>(OperationKind::Method, id, name, arguments...);
}

// The last parameter, the value, may be left out of the list.
template <auto Slot, class... Arguments>
constexpr Operation Get(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    if constexpr (sizeof...(Arguments) == detail::SlotCall<Slot>::kCount)
        return detail::MakeOperation<Slot>(OperationKind::Get, id, name, arguments...);
    else
        return detail::MakeOperation<Slot>(OperationKind::Get, id, name, arguments...,
                                           Result(OLESTR("pVal")));
}

// The last parameter, the new value, is left out of the list: it is [in], or [in,out] for a pointer.
template <auto Slot, class... Arguments>
constexpr Operation Put(DISPID id, const OLECHAR* name, Arguments... arguments)
{
    const bool isPointer = (detail::SlotCall<Slot>::kTypes.back().type & VT_BYREF) != 0;
    return detail::MakeOperation<Slot>(OperationKind::Put, id, name, arguments...,
                                       isPointer ? InOut(OLESTR("newVal")) : In(OLESTR("newVal")));
}

// An operation of a dispatch-only interface: nothing here can call it.
template <class... Parameters, class... Arguments>
constexpr Operation Declared(OperationKind kind, DISPID id, const OLECHAR* name, Arguments... arguments)
{
    constexpr std::array<ParameterType, sizeof...(Parameters)> types{detail::TypeOf<Parameters>()...};
    return detail::Describe(kind, id, name, types, arguments...);
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
// GetTypeInfoCount, GetTypeInfo: what the module's type library says of the interface (type_info.h); off
// Windows 0, and DISP_E_BADINDEX for any index.
//
// GetIDsOfNames: names[0] is an operation's, the rest are its arguments', in any case; an argument's id is
// its place.
//   DISP_E_UNKNOWNNAME: one isn't known; its id is DISPID_UNKNOWN, the others are given.
//   DISP_E_UNKNOWNINTERFACE: `riid` isn't IID_NULL. E_INVALIDARG: a pointer is null, or there is no name.
//
// Invoke:
//   DISP_E_UNKNOWNINTERFACE   `riid` isn't IID_NULL.
//   DISP_E_MEMBERNOTFOUND     no operation of that id and kind. DISPATCH_PROPERTYPUTREF alone finds a
//   property
//                             whose value can be an object, and puts it.
//   DISP_E_BADPARAMCOUNT      more arguments than parameters, or the same one twice.
//   DISP_E_PARAMNOTOPTIONAL   an argument without a default is absent.
//   DISP_E_PARAMNOTFOUND      a named argument that there isn't; *argumentError tells which. Or a property's
//                             new value that isn't named DISPID_PROPERTYPUT.
//   DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW   an argument can't be changed to its parameter's type; likewise.
//   DISP_E_EXCEPTION          the operation failed: `exception` has its result in scode and the texts of the
//                             error info that it set, if any. Without `exception` the result itself is
//                             returned and the error info stays on the thread.
//   others                    a success of the operation; E_OUTOFMEMORY, E_INVALIDARG.
//
// An object counts as one that keeps the module (class_factory.h).
template <class Interface>
class DispatchImpl : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        return detail::CountTypeInfo(Iid<Interface>(), count);
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override
    {
        return detail::FindTypeInfo(Iid<Interface>(), index, info);
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

private:
    const ServerLockScope serverLock_;
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
