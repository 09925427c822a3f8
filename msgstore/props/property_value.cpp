#include "msgstore/props/property_value.h"

#include <cstring>
#include <limits>
#include <numeric>
#include <string>

#include "msgstore/props/little_endian.h"
#include "msgstore/props/text_encoding.h"
#include "msgstore/util/guarded.h"

namespace quorvane {
namespace {

std::string_view AsView(const Bytes& bytes) noexcept
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Bytes AsBytes(std::string_view text)
{
    const auto* const first = reinterpret_cast<const BYTE*>(text.data());
    return Bytes(first, first + text.size());
}

template <class Unsigned>
PropertyValue Number(ULONG tag, Unsigned value)
{
    PropertyValue result;
    result.tag = tag;
    AppendLittle(result.data, value);
    return result;
}

Bytes GuidBytes(const GUID& guid)
{
    Bytes bytes;
    bytes.reserve(sizeof(GUID));
    AppendLittle(bytes, static_cast<std::uint32_t>(guid.Data1));
    AppendLittle(bytes, guid.Data2);
    AppendLittle(bytes, guid.Data3);
    bytes.insert(bytes.end(), guid.Data4, guid.Data4 + 8);
    return bytes;
}

GUID BytesGuid(const BYTE* bytes) noexcept
{
    GUID guid{};
    guid.Data1 = LoadLittle<std::uint32_t>(bytes);
    guid.Data2 = LoadLittle<std::uint16_t>(bytes + 4);
    guid.Data3 = LoadLittle<std::uint16_t>(bytes + 6);
    std::memcpy(guid.Data4, bytes + 8, 8);
    return guid;
}

Bytes TextOf(const SPropValue& value)
{
    if (PROP_TYPE(value.ulPropTag) == PT_STRING8)
        return AsBytes(value.Value.lpszA);
    return TextBytes(OleStringView(value.Value.lpszW));
}

std::uint64_t FixedBits(const SPropValue& value) noexcept
{
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_I2:
        case PT_BOOLEAN:
            return static_cast<USHORT>(value.Value.i);
        case PT_LONG:
        case PT_R4:
            return static_cast<std::uint32_t>(value.Value.ul);
        case PT_SYSTIME:
            return (std::uint64_t{value.Value.ft.dwHighDateTime} << 32) | value.Value.ft.dwLowDateTime;
        default:
            return static_cast<std::uint64_t>(value.Value.li.QuadPart);
    }
}

void KeepFixed(const SPropValue& value, Bytes& data)
{
    const std::size_t width = FixedSize(PROP_TYPE(value.ulPropTag));
    BYTE bytes[8];
    StoreLittle(bytes, FixedBits(value));
    data.assign(bytes, bytes + width);
}

HRESULT KeepSingle(const SPropValue& value, PropertyValue& result)
{
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_STRING8:
        case PT_UNICODE:
            if (!value.Value.lpszA)
                return MAPI_E_INVALID_PARAMETER;
            result.data = TextOf(value);
            return S_OK;
        case PT_BINARY:
            if (value.Value.bin.cb > 0 && !value.Value.bin.lpb)
                return MAPI_E_INVALID_PARAMETER;
            if (value.Value.bin.cb > 0)
                result.data.assign(value.Value.bin.lpb, value.Value.bin.lpb + value.Value.bin.cb);
            return S_OK;
        case PT_CLSID:
            if (!value.Value.lpguid)
                return MAPI_E_INVALID_PARAMETER;
            result.data = GuidBytes(*value.Value.lpguid);
            return S_OK;
        default:
            KeepFixed(value, result.data);
            return S_OK;
    }
}

// All arrays of fixed-size values are a count and a pointer, so one view serves them.
HRESULT KeepFixedArray(const SPropValue& value, PropertyValue& result)
{
    const ULONG count = value.Value.MVl.cValues;
    const std::size_t width = FixedSize(PROP_TYPE(value.ulPropTag));
    if (count > 0 && !value.Value.MVl.lpl)
        return MAPI_E_INVALID_PARAMETER;
    if (PROP_TYPE(value.ulPropTag) == PT_MV_CLSID) {
        for (ULONG i = 0; i < count; ++i) {
            const Bytes one = GuidBytes(value.Value.MVguid.lpguid[i]);
            result.data.insert(result.data.end(), one.begin(), one.end());
        }
        return S_OK;
    }
    result.data.resize(count * width);
    CopyLittle(result.data.data(), value.Value.MVl.lpl, count, width);
    return S_OK;
}

HRESULT KeepArray(const SPropValue& value, PropertyValue& result)
{
    const ULONG count = value.Value.MVbin.cValues;
    if (count > 0 && !value.Value.MVbin.lpbin)
        return MAPI_E_INVALID_PARAMETER;
    const ULONG single = PROP_TYPE(value.ulPropTag) & ~static_cast<ULONG>(MV_FLAG);
    result.items.resize(count);
    for (ULONG i = 0; i < count; ++i) {
        SPropValue one{};
        one.ulPropTag = CHANGE_PROP_TYPE(value.ulPropTag, single);
        if (single == PT_STRING8)
            one.Value.lpszA = value.Value.MVszA.lppszA[i];
        else if (single == PT_UNICODE)
            one.Value.lpszW = value.Value.MVszW.lppszW[i];
        else
            one.Value.bin = value.Value.MVbin.lpbin[i];
        PropertyValue kept;
        QV_RETURN_IF_FAILED(KeepSingle(one, kept));
        result.items[i] = std::move(kept.data);
    }
    return S_OK;
}

HRESULT Keep(const SPropValue& value, PropertyValue& result)
{
    const ULONG type = PROP_TYPE(value.ulPropTag);
    if ((type & MV_FLAG) == 0)
        return KeepSingle(value, result);
    return FixedSize(type) > 0 ? KeepFixedArray(value, result) : KeepArray(value, result);
}

// Gives values out onto one chain.
class Giver {
public:
    Giver(const MapiAllocator& allocator, void* root, std::uint64_t limit) noexcept
        : allocator_(allocator), root_(root), limit_(limit)
    {}

    HRESULT Give(const PropertyValue& value, ULONG type, ULONG codePage, SPropValue& result)
    {
        codePage_ = codePage;
        if ((type & MV_FLAG) != 0)
            return FixedSize(type) > 0 ? GiveFixedArray(value, result) : GiveArray(value, type, result);
        if (!value.large)
            return GiveSingle(value.data, value.type(), type, result);
        Bytes bytes;
        QV_RETURN_IF_FAILED(ReadWhole(*value.large, limit_, bytes));
        return GiveSingle(bytes, value.type(), type, result);
    }

private:
    void* Take(std::size_t size) noexcept { return allocator_.AllocateMore(size == 0 ? 1 : size, root_); }

    HRESULT GiveSingle(const Bytes& data, ULONG from, ULONG type, SPropValue& result)
    {
        switch (type) {
            case PT_STRING8:
                return GiveNarrow(data, from, result.Value.lpszA);
            case PT_UNICODE:
                return GiveWide(data, from, result.Value.lpszW);
            case PT_BINARY:
                return GiveBinary(data, result.Value.bin);
            case PT_CLSID:
                return GiveGuid(data, result.Value.lpguid);
            default:
                GiveFixed(data, type, result);
                return S_OK;
        }
    }

    HRESULT GiveNarrow(const Bytes& data, ULONG from, LPSTR& text)
    {
        const std::string converted = from == PT_UNICODE ? Encode8Bit(BytesText(data)) : std::string();
        const std::string_view bytes = from == PT_UNICODE ? std::string_view(converted) : AsView(data);
        auto* const place = static_cast<LPSTR>(Take(bytes.size() + 1));
        if (!place)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        if (!bytes.empty())
            std::memcpy(place, bytes.data(), bytes.size());
        place[bytes.size()] = '\0';
        text = place;
        return S_OK;
    }

    HRESULT GiveWide(const Bytes& data, ULONG from, LPWSTR& text)
    {
        const OleString converted =
            from == PT_UNICODE ? BytesText(data) : Decode8Bit(AsView(data), codePage_);
        auto* const place = static_cast<LPWSTR>(Take((converted.size() + 1) * sizeof(WCHAR)));
        if (!place)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        std::memcpy(place, converted.c_str(), (converted.size() + 1) * sizeof(WCHAR));
        text = place;
        return S_OK;
    }

    HRESULT GiveBinary(const Bytes& data, SBinary& binary) noexcept
    {
        auto* const place = static_cast<LPBYTE>(Take(data.size()));
        if (!place)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        if (!data.empty())
            std::memcpy(place, data.data(), data.size());
        binary.cb = static_cast<ULONG>(data.size());
        binary.lpb = place;
        return S_OK;
    }

    HRESULT GiveGuid(const Bytes& data, LPGUID& guid) noexcept
    {
        auto* const place = static_cast<LPGUID>(Take(sizeof(GUID)));
        if (!place)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        *place = data.size() == sizeof(GUID) ? BytesGuid(data.data()) : GUID{};
        guid = place;
        return S_OK;
    }

    static void GiveFixed(const Bytes& data, ULONG type, SPropValue& result) noexcept
    {
        BYTE bytes[8] = {};
        std::memcpy(bytes, data.data(), std::min<std::size_t>(data.size(), sizeof(bytes)));
        const auto bits = LoadLittle<std::uint64_t>(bytes);
        if (type == PT_SYSTIME) {
            result.Value.ft.dwLowDateTime = static_cast<DWORD>(bits);
            result.Value.ft.dwHighDateTime = static_cast<DWORD>(bits >> 32);
        } else if (FixedSize(type) == 8) {
            result.Value.li.QuadPart = static_cast<LONGLONG>(bits);
        } else if (FixedSize(type) == 4) {
            result.Value.ul = static_cast<ULONG>(bits);
        } else {
            result.Value.b = static_cast<USHORT>(bits);
        }
    }

    HRESULT GiveFixedArray(const PropertyValue& value, SPropValue& result)
    {
        const std::size_t width = FixedSize(value.type());
        const std::size_t count = value.data.size() / width;
        void* const place = Take(value.data.size());
        if (!place)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        if (value.type() == PT_MV_CLSID) {
            for (std::size_t i = 0; i < count; ++i)
                static_cast<LPGUID>(place)[i] = BytesGuid(value.data.data() + i * width);
        } else {
            CopyLittle(place, value.data.data(), count, width);
        }
        result.Value.MVl.cValues = static_cast<ULONG>(count);
        result.Value.MVl.lpl = static_cast<LONG*>(place);
        return S_OK;
    }

    HRESULT GiveArray(const PropertyValue& value, ULONG type, SPropValue& result)
    {
        const std::size_t count = value.items.size();
        const std::size_t width = type == PT_MV_BINARY ? sizeof(SBinary) : sizeof(void*);
        void* const places = Take(count * width);
        if (!places)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        const ULONG from = value.type() & ~static_cast<ULONG>(MV_FLAG);
        for (std::size_t i = 0; i < count; ++i) {
            if (type == PT_MV_BINARY)
                QV_RETURN_IF_FAILED(GiveBinary(value.items[i], static_cast<SBinary*>(places)[i]));
            else if (type == PT_MV_STRING8)
                QV_RETURN_IF_FAILED(GiveNarrow(value.items[i], from, static_cast<LPSTR*>(places)[i]));
            else
                QV_RETURN_IF_FAILED(GiveWide(value.items[i], from, static_cast<LPWSTR*>(places)[i]));
        }
        result.Value.MVbin.cValues = static_cast<ULONG>(count);
        result.Value.MVbin.lpbin = static_cast<SBinary*>(places);
        return S_OK;
    }

    const MapiAllocator& allocator_;
    void* root_;
    const std::uint64_t limit_;
    ULONG codePage_ = 0;
};

bool TypesFit(ULONG kept, ULONG asked) noexcept
{
    if (kept == asked)
        return true;
    return IsTextType(kept) && IsTextType(asked) && (kept & MV_FLAG) == (asked & MV_FLAG);
}

}  // namespace

std::size_t FixedSize(ULONG type) noexcept
{
    switch (type & ~static_cast<ULONG>(MV_FLAG)) {
        case PT_I2:
        case PT_BOOLEAN:
            return 2;
        case PT_LONG:
        case PT_R4:
            return 4;
        case PT_DOUBLE:
        case PT_CURRENCY:
        case PT_APPTIME:
        case PT_I8:
        case PT_SYSTIME:
            return 8;
        case PT_CLSID:
            return 16;
        default:
            return 0;
    }
}

bool IsTextType(ULONG type) noexcept
{
    const ULONG single = type & ~static_cast<ULONG>(MV_FLAG);
    return single == PT_STRING8 || single == PT_UNICODE;
}

bool IsStorableType(ULONG type) noexcept
{
    if (type == PT_MV_I2 - PT_I2 + PT_BOOLEAN)
        return false;
    if (FixedSize(type) > 0 || IsTextType(type))
        return true;
    return type == PT_BINARY || type == PT_MV_BINARY || type == PT_OBJECT;
}

PropertyValue PropertyValue::Long(ULONG tag, LONG value)
{
    return Number(tag, static_cast<std::uint32_t>(value));
}

PropertyValue PropertyValue::Boolean(ULONG tag, bool value)
{
    return Number(tag, static_cast<std::uint16_t>(value ? 1 : 0));
}

PropertyValue PropertyValue::Int64(ULONG tag, LONGLONG value)
{
    return Number(tag, static_cast<std::uint64_t>(value));
}

PropertyValue PropertyValue::Time(ULONG tag, FILETIME value)
{
    return Number(tag, (std::uint64_t{value.dwHighDateTime} << 32) | value.dwLowDateTime);
}

PropertyValue PropertyValue::Binary(ULONG tag, const void* bytes, std::size_t size)
{
    PropertyValue result;
    result.tag = tag;
    const auto* const first = static_cast<const BYTE*>(bytes);
    if (size > 0)
        result.data.assign(first, first + size);
    return result;
}

PropertyValue PropertyValue::Unicode(ULONG tag, OleStringView text)
{
    PropertyValue result;
    result.tag = tag;
    result.data = TextBytes(text);
    return result;
}

PropertyValue PropertyValue::String8(ULONG tag, std::string_view text)
{
    return Binary(tag, text.data(), text.size());
}

std::uint64_t PropertyValue::ByteSize() const noexcept
{
    if (large)
        return large->Size();
    return std::accumulate(items.begin(), items.end(), std::uint64_t{data.size()},
                           [](std::uint64_t sum, const Bytes& item) { return sum + item.size(); });
}

LONGLONG PropertyValue::AsInteger() const noexcept
{
    switch (type()) {
        case PT_BOOLEAN:
            return data.size() == 2 ? LoadLittle<std::uint16_t>(data.data()) : 0;
        case PT_I2:
            return data.size() == 2 ? static_cast<std::int16_t>(LoadLittle<std::uint16_t>(data.data())) : 0;
        case PT_LONG:
            return data.size() == 4 ? static_cast<std::int32_t>(LoadLittle<std::uint32_t>(data.data())) : 0;
        case PT_I8:
        case PT_CURRENCY:
            return data.size() == 8 ? static_cast<LONGLONG>(LoadLittle<std::uint64_t>(data.data())) : 0;
        default:
            return 0;
    }
}

FILETIME PropertyValue::AsTime() const noexcept
{
    FILETIME time{};
    if (type() == PT_SYSTIME && data.size() == 8) {
        time.dwLowDateTime = LoadLittle<std::uint32_t>(data.data());
        time.dwHighDateTime = LoadLittle<std::uint32_t>(data.data() + 4);
    }
    return time;
}

OleString PropertyValue::AsText(ULONG codePage) const
{
    if (type() != PT_STRING8 && type() != PT_UNICODE)
        return {};
    Bytes read;
    if (large && FAILED(ReadWhole(*large, kWholeTextLimit, read)))
        return {};
    const Bytes& bytes = large ? read : data;
    return type() == PT_UNICODE ? BytesText(bytes) : Decode8Bit(AsView(bytes), codePage);
}

HRESULT FromSPropValue(const SPropValue& value, PropertyValue& result) noexcept
{
    const ULONG type = PROP_TYPE(value.ulPropTag);
    if (!IsStorableType(type) || type == PT_OBJECT)
        return MAPI_E_INVALID_TYPE;
    return Guarded([&] {
        PropertyValue kept;
        kept.tag = value.ulPropTag;
        const HRESULT hr = Keep(value, kept);
        if (SUCCEEDED(hr))
            result = std::move(kept);
        return hr;
    });
}

HRESULT ToSPropValue(const PropertyValue& value, ULONG type, const MapiAllocator& allocator, void* root,
                     SPropValue& result, ULONG codePage, std::uint64_t limit) noexcept
{
    result = SPropValue{};
    result.ulPropTag = CHANGE_PROP_TYPE(value.tag, type);
    const HRESULT hr = Guarded([&]() -> HRESULT {
        if (!TypesFit(value.type(), type))
            return MAPI_E_UNEXPECTED_TYPE;
        if (type == PT_OBJECT)
            return S_OK;
        if ((type & MV_FLAG) == 0 && value.ByteSize() > limit)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        return Giver(allocator, root, limit).Give(value, type, codePage, result);
    });
    if (FAILED(hr)) {
        result.ulPropTag = CHANGE_PROP_TYPE(value.tag, PT_ERROR);
        result.Value.err = hr;
    }
    return hr;
}

}  // namespace quorvane
