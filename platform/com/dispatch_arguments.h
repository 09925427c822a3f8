// platform/com/dispatch_arguments.h: parameters of a slot, taken from and given back to a late-bound call.
// A part of platform/com/dispatch.h.
#ifndef QUORVANE_PLATFORM_COM_DISPATCH_ARGUMENTS_H_
#define QUORVANE_PLATFORM_COM_DISPATCH_ARGUMENTS_H_

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/com/com_ptr.h"
#include "platform/com/safe_array.h"
#include "platform/com/variant.h"

namespace quorvane {

// The type of a slot's parameter, as a type library tells it.
struct ParameterType {
    VARTYPE type = VT_EMPTY;     // VT_VARIANT: a VARIANT; with VT_BYREF: a pointer to one of these
    bool isEnumeration = false;  // VT_I4 then
    const IID& (*interfaceId)() noexcept = nullptr;  // of VT_DISPATCH and VT_UNKNOWN
};

// Whether a VARIANT of an object fits a parameter as it is.
constexpr bool CanHoldObject(VARTYPE type) noexcept
{
    return type == VT_DISPATCH || type == VT_UNKNOWN || type == VT_VARIANT;
}

// One late-bound call: its arguments sorted by parameter, and what it gives back.
class DispatchFrame {
public:
    static constexpr size_t kMaxParameters = 8;

    // The caller's argument for a parameter; null when it is absent or the parameter is the result.
    VARIANT* Argument(size_t parameter) const noexcept { return arguments_[parameter]; }
    void SetArgument(size_t parameter, VARIANT* argument, UINT place) noexcept
    {
        arguments_[parameter] = argument;
        places_[parameter] = place;
    }

    bool IsResult(size_t parameter) const noexcept { return parameter == resultParameter_; }
    void SetResultParameter(size_t parameter) noexcept { resultParameter_ = parameter; }

    // Takes the operation's value; what isn't asked for is cleared later.
    void SetResult(VARIANT value) noexcept { *result_.Put() = value; }
    Variant& TheResult() noexcept { return result_; }

    // Notes which argument is at fault, and hands the code on.
    HRESULT Fault(size_t parameter, HRESULT hr) noexcept
    {
        faultyPlace_ = places_[parameter];
        return hr;
    }
    UINT FaultyPlace() const noexcept { return faultyPlace_; }

    // Notes that the failure is the operation's own, and hands the code on.
    HRESULT Failed(HRESULT hr) noexcept
    {
        operationFailed_ = true;
        return hr;
    }
    bool OperationFailed() const noexcept { return operationFailed_; }

private:
    static constexpr size_t kNoParameter = SIZE_MAX;

    std::array<VARIANT*, kMaxParameters> arguments_{};
    std::array<UINT, kMaxParameters> places_{};
    size_t resultParameter_ = kNoParameter;
    Variant result_;
    UINT faultyPlace_ = 0;
    bool operationFailed_ = false;
};

namespace detail {

// What the argument stands for behind a reference to a VARIANT.
VARIANT& Dereferenced(VARIANT& argument) noexcept;
// The value of an argument in another type; by reference or not. DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW.
HRESULT ConvertArgument(const VARIANT& argument, VARTYPE type, Variant& value) noexcept;
// Puts `value` where an argument refers to; does nothing when it refers to nothing. Takes the value over.
HRESULT StoreByReference(VARIANT& argument, Variant& value) noexcept;
// A reference of the caller's that can be passed as it is: of exactly this type.
void* DirectReference(VARIANT& argument, VARTYPE type) noexcept;
HRESULT ConvertInterface(const VARIANT& argument, REFIID riid, void** object) noexcept;
HRESULT ConvertArray(const VARIANT& argument, SAFEARRAY** array) noexcept;

// How a scalar stands in a VARIANT.
template <class T>
concept Scalar = std::is_arithmetic_v<T> || std::is_enum_v<T>;

template <Scalar T>
consteval VARTYPE ScalarType()
{
    if constexpr (std::is_enum_v<T>)
        return VT_I4;
    else if constexpr (std::is_floating_point_v<T>)
        return VT_R8;
    else if constexpr (sizeof(T) == sizeof(VARIANT_BOOL))
        return VT_BOOL;
    else
        return std::is_signed_v<T> ? VT_I4 : VT_UI4;
}

template <Scalar T>
T ScalarOf(const VARIANT& value) noexcept
{
    constexpr VARTYPE type = ScalarType<T>();
    static_assert(sizeof(T) <= 4 || type == VT_R8, "no parameter type of the table");
    if constexpr (type == VT_R8)
        return static_cast<T>(value.dblVal);
    else if constexpr (type == VT_BOOL)
        return static_cast<T>(value.boolVal);
    else if constexpr (type == VT_UI4)
        return static_cast<T>(value.ulVal);
    else
        return static_cast<T>(value.lVal);
}

template <Scalar T>
VARIANT VariantOf(T value) noexcept
{
    constexpr VARTYPE type = ScalarType<T>();
    VARIANT result;
    VariantInit(&result);
    result.vt = type;
    if constexpr (type == VT_R8)
        result.dblVal = value;
    else if constexpr (type == VT_BOOL)
        result.boolVal = value;
    else if constexpr (type == VT_UI4)
        result.ulVal = value;
    else
        result.lVal = static_cast<LONG>(value);
    return result;
}

template <class T>
concept Interface = std::derived_from<T, IUnknown>;

template <class Parameter>
consteval ParameterType TypeOf()
{
    using Target = std::remove_pointer_t<Parameter>;
    if constexpr (Scalar<Parameter>) {
        return {ScalarType<Parameter>(), std::is_enum_v<Parameter>, nullptr};
    } else if constexpr (std::is_same_v<Parameter, BSTR>) {
        return {VT_BSTR, false, nullptr};
    } else if constexpr (std::is_same_v<Parameter, VARIANT>) {
        return {VT_VARIANT, false, nullptr};
    } else if constexpr (std::is_same_v<Parameter, SAFEARRAY*>) {
        return {VT_ARRAY | VT_VARIANT, false, nullptr};
    } else if constexpr (Interface<Target>) {
        return {std::derived_from<Target, IDispatch> ? VT_DISPATCH : VT_UNKNOWN, false, &Iid<Target>};
    } else {
        ParameterType result = TypeOf<Target>();
        result.type |= VT_BYREF;
        return result;
    }
}

// Load, Pass and Store of one parameter; the primary template covers no type.
template <class Parameter>
struct ParameterSlot;

// In-parameters give nothing back.
struct InSlot {
    HRESULT Store(DispatchFrame&, size_t) noexcept { return S_OK; }
};

template <Scalar T>
struct ParameterSlot<T> : InSlot {
    T value{};

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG absentValue) noexcept
    {
        VARIANT* const argument = frame.Argument(parameter);
        value = static_cast<T>(absentValue);
        if (!argument)
            return S_OK;
        Variant converted;
        const HRESULT hr = ConvertArgument(*argument, ScalarType<T>(), converted);
        if (FAILED(hr))
            return frame.Fault(parameter, hr);
        value = ScalarOf<T>(converted.Raw());
        return S_OK;
    }
    T Pass() noexcept { return value; }
};

template <>
struct ParameterSlot<BSTR> : InSlot {
    Variant value;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
    {
        VARIANT* const argument = frame.Argument(parameter);
        if (!argument)
            return S_OK;
        const HRESULT hr = ConvertArgument(*argument, VT_BSTR, value);
        return FAILED(hr) ? frame.Fault(parameter, hr) : S_OK;
    }
    BSTR Pass() noexcept { return value.Is(VT_BSTR) ? value.Raw().bstrVal : nullptr; }
};

template <>
struct ParameterSlot<VARIANT> : InSlot {
    Variant absent = Variant::Missing();
    const VARIANT* argument = nullptr;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
    {
        if (VARIANT* const given = frame.Argument(parameter))
            argument = &Dereferenced(*given);
        return S_OK;
    }
    VARIANT Pass() noexcept { return argument ? *argument : absent.Raw(); }
};

template <Interface T>
struct ParameterSlot<T*> : InSlot {
    ComPtr<T> value;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
    {
        VARIANT* const argument = frame.Argument(parameter);
        if (!argument)
            return S_OK;
        const HRESULT hr = ConvertInterface(*argument, Iid<T>(), value.PutVoid());
        return FAILED(hr) ? frame.Fault(parameter, hr) : S_OK;
    }
    T* Pass() noexcept { return value.Get(); }
};

template <>
struct ParameterSlot<SAFEARRAY*> : InSlot {
    SAFEARRAY* value = nullptr;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
    {
        VARIANT* const argument = frame.Argument(parameter);
        if (!argument)
            return S_OK;
        const HRESULT hr = ConvertArray(*argument, &value);
        return FAILED(hr) ? frame.Fault(parameter, hr) : S_OK;
    }
    SAFEARRAY* Pass() noexcept { return value; }
};

// [in,out] and [out,retval].
template <Scalar T>
struct ParameterSlot<T*> {
    T local{};
    T* direct = nullptr;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept
    {
        VARIANT* const argument = frame.Argument(parameter);
        if (!argument)
            return S_OK;
        direct = static_cast<T*>(DirectReference(*argument, ScalarType<T>()));
        if (direct)
            return S_OK;
        Variant converted;
        const HRESULT hr = ConvertArgument(*argument, ScalarType<T>(), converted);
        if (FAILED(hr))
            return frame.Fault(parameter, hr);
        local = ScalarOf<T>(converted.Raw());
        return S_OK;
    }
    T* Pass() noexcept { return direct ? direct : &local; }
    HRESULT Store(DispatchFrame& frame, size_t parameter) noexcept
    {
        if (frame.IsResult(parameter)) {
            frame.SetResult(VariantOf(local));
            return S_OK;
        }
        VARIANT* const argument = frame.Argument(parameter);
        if (direct || !argument)
            return S_OK;
        Variant value;
        value.Raw() = VariantOf(local);
        return StoreByReference(*argument, value);
    }
};

template <>
struct ParameterSlot<BSTR*> {
    BSTR local = nullptr;
    BSTR* direct = nullptr;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept;
    BSTR* Pass() noexcept { return direct ? direct : &local; }
    HRESULT Store(DispatchFrame& frame, size_t parameter) noexcept;
    ~ParameterSlot() { SysFreeString(local); }
};

template <>
struct ParameterSlot<VARIANT*> {
    Variant local;
    VARIANT* direct = nullptr;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept;
    VARIANT* Pass() noexcept { return direct ? direct : &local.Raw(); }
    HRESULT Store(DispatchFrame& frame, size_t parameter) noexcept;
};

template <>
struct ParameterSlot<SAFEARRAY**> {
    SafeArray local;
    SAFEARRAY* passed = nullptr;
    SAFEARRAY** direct = nullptr;

    HRESULT Load(DispatchFrame& frame, size_t parameter, LONG) noexcept;
    SAFEARRAY** Pass() noexcept { return direct ? direct : &passed; }
    HRESULT Store(DispatchFrame& frame, size_t parameter) noexcept;
    ~ParameterSlot();
};

// Results only: an interface pointer has no [in,out] form here.
template <Interface T>
struct ParameterSlot<T**> {
    ComPtr<T> local;

    HRESULT Load(DispatchFrame&, size_t, LONG) noexcept { return S_OK; }
    T** Pass() noexcept { return local.Put(); }
    HRESULT Store(DispatchFrame& frame, size_t parameter) noexcept
    {
        if (!frame.IsResult(parameter))
            return S_OK;
        Variant value;
        if constexpr (std::derived_from<T, IDispatch>)
            value = Variant::Dispatch(local.Get());
        else
            value = Variant::Unknown(local.Get());
        frame.SetResult(value.Detach());
        return S_OK;
    }
};

}  // namespace detail

}  // namespace quorvane

#endif  // QUORVANE_PLATFORM_COM_DISPATCH_ARGUMENTS_H_
