#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/com/com.h"

namespace {

// In front of the descriptor; the element type stands in its last four bytes.
constexpr size_t kPrefix = 16;
constexpr size_t kTypeOffset = 4;
constexpr UINT kMaxDimensions = 64;
constexpr std::uint64_t kMaxBytes = 0xFFFFFFFF;

UINT ElementSize(VARTYPE type) noexcept
{
    switch (type) {
        case VT_I1:
        case VT_UI1:
            return 1;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            return 2;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_R4:
        case VT_ERROR:
            return 4;
        case VT_I8:
        case VT_UI8:
        case VT_R8:
        case VT_CY:
        case VT_DATE:
            return 8;
        case VT_BSTR:
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return sizeof(void*);
        case VT_VARIANT:
            return sizeof(VARIANT);
        case VT_DECIMAL:
            return sizeof(DECIMAL);
        default:
            return 0;
    }
}

USHORT FeaturesOf(VARTYPE type) noexcept
{
    switch (type) {
        case VT_BSTR:
            return FADF_HAVEVARTYPE | FADF_BSTR;
        case VT_UNKNOWN:
            return FADF_HAVEVARTYPE | FADF_UNKNOWN;
        case VT_DISPATCH:
            return FADF_HAVEVARTYPE | FADF_DISPATCH;
        case VT_VARIANT:
            return FADF_HAVEVARTYPE | FADF_VARIANT;
        default:
            return FADF_HAVEVARTYPE;
    }
}

VARTYPE TypeOf(const SAFEARRAY& array) noexcept
{
    std::uint32_t type = 0;
    std::memcpy(&type, reinterpret_cast<const BYTE*>(&array) - kTypeOffset, sizeof(type));
    return static_cast<VARTYPE>(type);
}

// The number of elements, or nothing sensible told by false: more bytes than an array may have.
bool CountElements(const SAFEARRAY& array, std::uint64_t& count) noexcept
{
    count = 1;
    for (UINT i = 0; i < array.cDims; ++i) {
        count *= array.rgsabound[i].cElements;
        if (count * array.cbElements > kMaxBytes)
            return false;
    }
    return true;
}

BYTE* ElementAt(const SAFEARRAY& array, std::uint64_t index) noexcept
{
    return static_cast<BYTE*>(array.pvData) + index * array.cbElements;
}

void ClearElement(BYTE* element, USHORT features) noexcept
{
    if (features & FADF_BSTR) {
        SysFreeString(std::exchange(*reinterpret_cast<BSTR*>(element), nullptr));
    } else if (features & (FADF_UNKNOWN | FADF_DISPATCH)) {
        if (IUnknown* const held = std::exchange(*reinterpret_cast<IUnknown**>(element), nullptr))
            held->Release();
    } else if (features & FADF_VARIANT) {
        VariantClear(reinterpret_cast<VARIANT*>(element));
    }
}

// Copies a value into a place that holds nothing yet.
HRESULT CopyElement(const SAFEARRAY& array, BYTE* target, const BYTE* source) noexcept
{
    if (array.fFeatures & FADF_VARIANT) {
        VariantInit(reinterpret_cast<VARIANT*>(target));
        return VariantCopy(reinterpret_cast<VARIANT*>(target), reinterpret_cast<const VARIANT*>(source));
    }
    if (array.fFeatures & FADF_BSTR) {
        BSTR const text = *reinterpret_cast<const BSTR*>(source);
        BSTR const copy =
            text ? SysAllocStringByteLen(reinterpret_cast<LPCSTR>(text), SysStringByteLen(text)) : nullptr;
        *reinterpret_cast<BSTR*>(target) = copy;
        return text && !copy ? E_OUTOFMEMORY : S_OK;
    }
    std::memcpy(target, source, array.cbElements);
    if (array.fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
        if (IUnknown* const held = *reinterpret_cast<IUnknown**>(target))
            held->AddRef();
    }
    return S_OK;
}

SAFEARRAY* AllocateDescriptor(VARTYPE type, UINT dimensions) noexcept
{
    const size_t size = kPrefix + sizeof(SAFEARRAY) + (dimensions - 1) * sizeof(SAFEARRAYBOUND);
    auto* const block = static_cast<BYTE*>(std::calloc(1, size));
    if (!block)
        return nullptr;
    auto* const array = reinterpret_cast<SAFEARRAY*>(block + kPrefix);
    const std::uint32_t stored = type;
    std::memcpy(block + kPrefix - kTypeOffset, &stored, sizeof(stored));
    array->cDims = static_cast<USHORT>(dimensions);
    array->fFeatures = FeaturesOf(type);
    array->cbElements = ElementSize(type);
    return array;
}

void FreeDescriptor(SAFEARRAY* array) noexcept
{
    std::free(reinterpret_cast<BYTE*>(array) - kPrefix);
}

// calloc: zeroed elements are empty ones of every type.
bool AllocateData(SAFEARRAY& array) noexcept
{
    std::uint64_t count = 0;
    if (!CountElements(array, count))
        return false;
    array.pvData = std::calloc(count ? count : 1, array.cbElements);
    return array.pvData != nullptr;
}

// The place of an element; indices begin with the leftmost dimension, which varies fastest.
HRESULT FindElement(SAFEARRAY& array, const LONG* indices, BYTE*& element) noexcept
{
    std::uint64_t cell = 0;
    std::uint64_t stride = 1;
    for (UINT dimension = 0; dimension < array.cDims; ++dimension) {
        const SAFEARRAYBOUND& bound = array.rgsabound[array.cDims - 1 - dimension];
        const std::int64_t place = static_cast<std::int64_t>(indices[dimension]) - bound.lLbound;
        if (place < 0 || place >= static_cast<std::int64_t>(bound.cElements))
            return DISP_E_BADINDEX;
        cell += static_cast<std::uint64_t>(place) * stride;
        stride *= bound.cElements;
    }
    element = ElementAt(array, cell);
    return S_OK;
}

std::atomic_ref<ULONG> LocksOf(SAFEARRAY& array) noexcept
{
    return std::atomic_ref<ULONG>(array.cLocks);
}

}  // namespace

SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds)
{
    if (!bounds || dimensions == 0 || dimensions > kMaxDimensions || ElementSize(type) == 0)
        return nullptr;
    SAFEARRAY* const array = AllocateDescriptor(type, dimensions);
    if (!array)
        return nullptr;
    for (UINT i = 0; i < dimensions; ++i)
        array->rgsabound[i] = bounds[dimensions - 1 - i];
    if (!AllocateData(*array)) {
        FreeDescriptor(array);
        return nullptr;
    }
    return array;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG count)
{
    SAFEARRAYBOUND bound{count, lowerBound};
    return SafeArrayCreate(type, 1, &bound);
}

HRESULT SafeArrayDestroy(SAFEARRAY* array)
{
    if (!array)
        return S_OK;
    if (LocksOf(*array).load() != 0)
        return DISP_E_ARRAYISLOCKED;
    std::uint64_t count = 0;
    if (CountElements(*array, count)) {
        for (std::uint64_t i = 0; i < count; ++i)
            ClearElement(ElementAt(*array, i), array->fFeatures);
    }
    std::free(array->pvData);
    FreeDescriptor(array);
    return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* array, SAFEARRAY** copy)
{
    if (!copy)
        return E_INVALIDARG;
    *copy = nullptr;
    if (!array)
        return S_OK;
    SAFEARRAY* const made = AllocateDescriptor(TypeOf(*array), array->cDims);
    if (!made)
        return E_OUTOFMEMORY;
    std::memcpy(made->rgsabound, array->rgsabound, array->cDims * sizeof(SAFEARRAYBOUND));
    if (!AllocateData(*made)) {
        FreeDescriptor(made);
        return E_OUTOFMEMORY;
    }
    std::uint64_t count = 0;
    HRESULT hr = CountElements(*array, count) ? S_OK : E_UNEXPECTED;
    for (std::uint64_t i = 0; SUCCEEDED(hr) && i < count; ++i)
        hr = CopyElement(*array, ElementAt(*made, i), ElementAt(*array, i));
    if (FAILED(hr)) {
        SafeArrayDestroy(made);
        return hr;
    }
    *copy = made;
    return S_OK;
}

HRESULT SafeArrayRedim(SAFEARRAY* array, SAFEARRAYBOUND* newBound)
{
    if (!array || !newBound)
        return E_INVALIDARG;
    if (LocksOf(*array).load() != 0)
        return DISP_E_ARRAYISLOCKED;
    std::uint64_t oldCount = 0;
    std::uint64_t newCount = 0;
    if (!CountElements(*array, oldCount))
        return E_UNEXPECTED;
    // The last dimension varies slowest, so its elements are in one run at the end.
    const SAFEARRAYBOUND oldBound = std::exchange(array->rgsabound[0], *newBound);
    if (!CountElements(*array, newCount)) {
        array->rgsabound[0] = oldBound;
        return E_OUTOFMEMORY;
    }
    void* const data = std::calloc(newCount ? newCount : 1, array->cbElements);
    if (!data) {
        array->rgsabound[0] = oldBound;
        return E_OUTOFMEMORY;
    }
    for (std::uint64_t i = newCount; i < oldCount; ++i)
        ClearElement(ElementAt(*array, i), array->fFeatures);
    std::memcpy(data, array->pvData, (oldCount < newCount ? oldCount : newCount) * array->cbElements);
    std::free(std::exchange(array->pvData, data));
    return S_OK;
}

HRESULT SafeArrayLock(SAFEARRAY* array)
{
    if (!array)
        return E_INVALIDARG;
    LocksOf(*array).fetch_add(1);
    return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* array)
{
    if (!array)
        return E_INVALIDARG;
    ULONG locks = LocksOf(*array).load();
    do {
        if (locks == 0)
            return E_UNEXPECTED;
    } while (!LocksOf(*array).compare_exchange_weak(locks, locks - 1));
    return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data)
{
    if (!array || !data)
        return E_INVALIDARG;
    const HRESULT hr = SafeArrayLock(array);
    *data = SUCCEEDED(hr) ? array->pvData : nullptr;
    return hr;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array)
{
    return SafeArrayUnlock(array);
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value)
{
    if (!array || !indices || !value)
        return E_INVALIDARG;
    BYTE* element = nullptr;
    const HRESULT hr = FindElement(*array, indices, element);
    return FAILED(hr) ? hr : CopyElement(*array, static_cast<BYTE*>(value), element);
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value)
{
    if (!array || !indices)
        return E_INVALIDARG;
    BYTE* element = nullptr;
    HRESULT hr = FindElement(*array, indices, element);
    if (FAILED(hr))
        return hr;
    // A pointer type is given by its value, all others by their address.
    const bool isPointer = (array->fFeatures & (FADF_BSTR | FADF_UNKNOWN | FADF_DISPATCH)) != 0;
    const BYTE* const source = isPointer ? reinterpret_cast<BYTE*>(&value) : static_cast<BYTE*>(value);
    if (!source)
        return E_INVALIDARG;
    VARIANT copy{};
    hr = CopyElement(*array, reinterpret_cast<BYTE*>(&copy), source);
    if (FAILED(hr))
        return hr;
    ClearElement(element, array->fFeatures);
    std::memcpy(element, &copy, array->cbElements);
    return S_OK;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound)
{
    if (!array || !bound)
        return E_INVALIDARG;
    if (dimension == 0 || dimension > array->cDims)
        return DISP_E_BADINDEX;
    *bound = array->rgsabound[array->cDims - dimension].lLbound;
    return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound)
{
    if (!array || !bound)
        return E_INVALIDARG;
    if (dimension == 0 || dimension > array->cDims)
        return DISP_E_BADINDEX;
    const SAFEARRAYBOUND& of = array->rgsabound[array->cDims - dimension];
    *bound = static_cast<LONG>(of.lLbound + static_cast<std::int64_t>(of.cElements) - 1);
    return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type)
{
    if (!array || !type)
        return E_INVALIDARG;
    *type = TypeOf(*array);
    return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array)
{
    return array ? array->cDims : 0;
}

UINT SafeArrayGetElemsize(SAFEARRAY* array)
{
    return array ? array->cbElements : 0;
}
