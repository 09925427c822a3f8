#include "msgstore/util/value_copy.h"

#include <cstring>
#include <limits>
#include <string>

namespace quorvane {
namespace {

constexpr std::uint64_t kAlignment = 8;

}  // namespace

void* BlockWriter::Take(std::uint64_t size) noexcept
{
    if (size == 0)
        return nullptr;
    BYTE* const place = block_ ? block_ + used_ : nullptr;
    used_ += (size + kAlignment - 1) / kAlignment * kAlignment;
    return place;
}

void* BlockWriter::Copy(const void* bytes, std::uint64_t size) noexcept
{
    if (!bytes)
        return nullptr;
    void* const place = Take(size);
    if (place)
        std::memcpy(place, bytes, size);
    return place;
}

LPSTR BlockWriter::CopyText(const char* text) noexcept
{
    return text ? static_cast<LPSTR>(Copy(text, std::strlen(text) + 1)) : nullptr;
}

LPWSTR BlockWriter::CopyText(const WCHAR* text) noexcept
{
    if (!text)
        return nullptr;
    return static_cast<LPWSTR>(Copy(text, (std::char_traits<WCHAR>::length(text) + 1) * sizeof(WCHAR)));
}

BlockWriter::Values BlockWriter::CopyValues(ULONG count, const SPropValue* values) noexcept
{
    if (count == 0)
        return {nullptr, S_OK};
    if (!values)
        return {nullptr, MAPI_E_INVALID_PARAMETER};
    auto* const copies = static_cast<LPSPropValue>(Copy(values, std::uint64_t{count} * sizeof(SPropValue)));
    for (ULONG i = 0; i < count; ++i) {
        SPropValue copy = values[i];
        if (const HRESULT hr = CopyPayload(values[i], copy); FAILED(hr))
            return {copies, hr};
        if (copies)
            copies[i] = copy;
    }
    return {copies, S_OK};
}

HRESULT BlockWriter::CopyPayload(const SPropValue& source, SPropValue& copy) noexcept
{
    const bool multiple =
        (PROP_TYPE(source.ulPropTag) & MV_FLAG) != 0 && (PROP_TYPE(source.ulPropTag) & MVI_FLAG) != MVI_FLAG;
    return multiple ? CopyMultiple(source, copy) : CopySingle(source, copy);
}

HRESULT BlockWriter::CopySingle(const SPropValue& source, SPropValue& copy) noexcept
{
    const SPropValue original = source;
    switch (PROP_TYPE(source.ulPropTag) & ~static_cast<ULONG>(MVI_FLAG)) {
        case PT_UNSPECIFIED:
        case PT_NULL:
        case PT_I2:
        case PT_LONG:
        case PT_R4:
        case PT_DOUBLE:
        case PT_CURRENCY:
        case PT_APPTIME:
        case PT_ERROR:
        case PT_BOOLEAN:
        case PT_OBJECT:
        case PT_I8:
        case PT_SYSTIME:
            return S_OK;
        case PT_STRING8:
            copy.Value.lpszA = CopyText(original.Value.lpszA);
            return S_OK;
        case PT_UNICODE:
            copy.Value.lpszW = CopyText(original.Value.lpszW);
            return S_OK;
        case PT_CLSID:
            copy.Value.lpguid = static_cast<LPGUID>(Copy(original.Value.lpguid, sizeof(GUID)));
            return S_OK;
        case PT_BINARY:
            if (original.Value.bin.cb > 0 && !original.Value.bin.lpb)
                return MAPI_E_INVALID_PARAMETER;
            copy.Value.bin.lpb = static_cast<LPBYTE>(Copy(original.Value.bin.lpb, original.Value.bin.cb));
            return S_OK;
        default:
            return MAPI_E_INVALID_PARAMETER;
    }
}

template <class Array, class Element>
HRESULT BlockWriter::CopyFixed(const Array& source, Array& copy, Element* Array::*pointer) noexcept
{
    if (source.cValues > 0 && !(source.*pointer))
        return MAPI_E_INVALID_PARAMETER;
    const std::uint64_t size = std::uint64_t{source.cValues} * sizeof(Element);
    copy.*pointer = static_cast<Element*>(Copy(source.*pointer, size));
    return S_OK;
}

template <class Array, class Text>
HRESULT BlockWriter::CopyTexts(const Array& source, Array& copy, Text* Array::*pointer) noexcept
{
    if (source.cValues > 0 && !(source.*pointer))
        return MAPI_E_INVALID_PARAMETER;
    Text* const texts = source.*pointer;
    auto* const places = static_cast<Text*>(Take(std::uint64_t{source.cValues} * sizeof(Text)));
    for (ULONG i = 0; i < source.cValues; ++i) {
        Text const text = CopyText(texts[i]);
        if (places)
            places[i] = text;
    }
    copy.*pointer = places;
    return S_OK;
}

HRESULT BlockWriter::CopyBinaries(const SBinaryArray& source, SBinaryArray& copy) noexcept
{
    if (source.cValues > 0 && !source.lpbin)
        return MAPI_E_INVALID_PARAMETER;
    auto* const places = static_cast<SBinary*>(Take(std::uint64_t{source.cValues} * sizeof(SBinary)));
    for (ULONG i = 0; i < source.cValues; ++i) {
        const SBinary& one = source.lpbin[i];
        if (one.cb > 0 && !one.lpb)
            return MAPI_E_INVALID_PARAMETER;
        auto* const bytes = static_cast<LPBYTE>(Copy(one.lpb, one.cb));
        if (places)
            places[i] = SBinary{one.cb, bytes};
    }
    copy.lpbin = places;
    return S_OK;
}

HRESULT BlockWriter::CopyMultiple(const SPropValue& source, SPropValue& copy) noexcept
{
    const SPropValue original = source;
    const _PV& from = original.Value;
    _PV& to = copy.Value;
    switch (PROP_TYPE(source.ulPropTag)) {
        case PT_MV_I2:
            return CopyFixed(from.MVi, to.MVi, &SShortArray::lpi);
        case PT_MV_LONG:
            return CopyFixed(from.MVl, to.MVl, &SLongArray::lpl);
        case PT_MV_R4:
            return CopyFixed(from.MVflt, to.MVflt, &SRealArray::lpflt);
        case PT_MV_DOUBLE:
            return CopyFixed(from.MVdbl, to.MVdbl, &SDoubleArray::lpdbl);
        case PT_MV_CURRENCY:
            return CopyFixed(from.MVcur, to.MVcur, &SCurrencyArray::lpcur);
        case PT_MV_APPTIME:
            return CopyFixed(from.MVat, to.MVat, &SAppTimeArray::lpat);
        case PT_MV_SYSTIME:
            return CopyFixed(from.MVft, to.MVft, &SDateTimeArray::lpft);
        case PT_MV_I8:
            return CopyFixed(from.MVli, to.MVli, &SLargeIntegerArray::lpli);
        case PT_MV_CLSID:
            return CopyFixed(from.MVguid, to.MVguid, &SGuidArray::lpguid);
        case PT_MV_STRING8:
            return CopyTexts(from.MVszA, to.MVszA, &SLPSTRArray::lppszA);
        case PT_MV_UNICODE:
            return CopyTexts(from.MVszW, to.MVszW, &SWStringArray::lppszW);
        case PT_MV_BINARY:
            return CopyBinaries(from.MVbin, to.MVbin);
        default:
            return MAPI_E_INVALID_PARAMETER;
    }
}

HRESULT BlockWriter::GiveSize(ULONG* size) const noexcept
{
    if (used_ > std::numeric_limits<ULONG>::max())
        return MAPI_E_TOO_BIG;
    *size = static_cast<ULONG>(used_);
    return S_OK;
}

}  // namespace quorvane
